/// One run of one cell with a control, on a lab of its own, measured with the
/// probes and by the rules of the matrix.
#pragma once

#include <filesystem>

#include "evidence/peers/ControlCells.h"
#include "lab/campaigns/matrix/Record.h"

namespace velarix::lab
{

struct ControlPlan
{
	ControlCell cell;
	ControlSettings settings;
	int run = 1;
	std::uint64_t seed = 1; ///< the moment of the fault follows from it
	std::filesystem::path installRoot{};
	Millis patience{30000}; ///< a leg that is not steady by then is not going to be

	/// Nothing has changed for so long: nothing is going to. Twice the longest
	/// wait of the control and some more.
	Millis quiet() const;
};

/// Makes a lab, lets the cell's master serve, injects, watches, heals, watches.
/// Nothing is expected of a control: the record's differences tell only why a
/// run did not get to its end. Its timeline is kept for every run.
/// @throws LabError when no lab can be made
RunRecord runControlCell(const ControlPlan& plan);

} // namespace velarix::lab
