/// One run of one cell with a peer, on a lab of its own, measured with the
/// probes and by the rules of the matrix.
#pragma once

#include <filesystem>

#include "evidence/Lab.h"
#include "evidence/peers/Cells.h"
#include "lab/campaigns/Record.h"

namespace velarix::evidence::peers
{

struct RunPlan
{
	Cell cell;
	Settings settings;
	int run = 1;
	std::uint64_t seed = 1; ///< the moment of the fault follows from it
	std::filesystem::path installRoot{};
	Millis patience{30000}; ///< a phase that is not steady by then is not going to be

	/// Nothing has changed for so long: nothing is going to. Twice the longest
	/// wait of the peer and some more.
	Millis quiet() const;
};

/// Makes a lab, lets the cell's master serve, injects, watches, repairs, watches.
/// Nothing is expected of a peer: the record's differences tell only why a
/// run did not get to its end. Its timeline is kept for every run.
/// @throws LabError when no lab can be made
RunRecord runCell(const RunPlan& plan);

} // namespace velarix::evidence::peers
