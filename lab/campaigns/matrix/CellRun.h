/// One run of one cell of the matrix, on a lab of its own.
#pragma once

#include <filesystem>

#include "lab/campaigns/Record.h"
#include "lab/campaigns/Times.h"
#include "lab/core/Lab.h"
#include "lab/tables/Expectations.h"

namespace velarix::lab::matrix
{

struct CellPlan
{
	Cell cell;
	std::map<std::string, Path> paths;
	CampaignTimes times{};
	int run = 1;
	std::uint64_t seed = 1; ///< of the matrix; the moment of the fault follows from it
	std::filesystem::path installRoot{};
};

/// The record of a run that has not begun.
RunRecord recordOf(const CellPlan& plan);

/// Makes a lab, lets the cell's node serve, injects, watches, repairs, watches.
/// What is not as expected, a fault that found no place included, is reported in
/// differences; nothing is thrown for it.
/// @throws LabError when no lab can be made
RunRecord runCell(const CellPlan& plan);

} // namespace velarix::lab::matrix
