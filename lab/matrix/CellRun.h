/// One run of one cell of the matrix, on a lab of its own.
#pragma once

#include <filesystem>

#include "Expectations.h"
#include "Record.h"

namespace velarix::lab
{

struct MatrixTimes
{
	PairTimes pair{};
	Millis blink{1000};     ///< what counts as no outage
	Millis slack{2000};     ///< allowed beyond the prescribed waits: a loaded machine
	Millis patience{45000}; ///< a leg that is not steady by then is not going to be

	/// As long as the agent can be about something without a visible change:
	/// three silences are counted and the partner probed.
	Millis quiet() const;
};

struct CellPlan
{
	Cell cell;
	std::map<std::string, Path> paths;
	MatrixTimes times{};
	int run = 1;
	std::uint64_t seed = 1; ///< of the matrix; the moment of the fault follows from it
	std::filesystem::path installRoot{};
};

/// Makes a lab, lets the cell's node serve, injects, watches, heals, watches.
/// What is not as expected, a fault that found no place included, is told in
/// differences; nothing is thrown for it.
/// @throws LabError when no lab can be made
RunRecord runCell(const CellPlan& plan);

/// How a leg differs from what was expected; empty: it does not.
std::vector<std::string> differencesOf(const LegRecord& leg, const Outcome& expected, const CellPlan& plan);

} // namespace velarix::lab
