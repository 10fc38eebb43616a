/// One run of one cell of the matrix, on a lab of its own.
#pragma once

#include <filesystem>

#include "lab/campaigns/matrix/MatrixTimes.h"
#include "lab/campaigns/matrix/Record.h"
#include "lab/core/Lab.h"
#include "lab/tables/Expectations.h"

namespace velarix::lab
{

struct CellPlan
{
	Cell cell;
	std::map<std::string, Path> paths;
	MatrixTimes times{};
	int run = 1;
	std::uint64_t seed = 1; ///< of the matrix; the moment of the fault follows from it
	std::filesystem::path installRoot{};
	/// Only the leg with an outage along a path is watched, until the service is back;
	/// the pair is not judged. For many measurements of take-overs in a short time.
	bool untilBack = false;
};

/// Starts both agents and waits until this node serves and the other one is on standby.
/// @throws LabError when it does not come to that within twice the limit
void letServe(Lab& lab, HostId master, Millis limit);

/// Makes a lab, lets the cell's node serve, injects, watches, heals, watches.
/// What is not as expected, a fault that found no place included, is told in
/// differences; nothing is thrown for it.
/// @throws LabError when no lab can be made
RunRecord runCell(const CellPlan& plan);

} // namespace velarix::lab
