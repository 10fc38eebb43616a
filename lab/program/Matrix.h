/// `velarix-lab matrix`: strikes pairs with every fault and compares what happens
/// with what was written down before.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "CellRun.h"

namespace velarix::lab
{

struct MatrixOptions
{
	std::filesystem::path installRoot{};
	MatrixTimes times{};
	int runs = 1;
	std::uint64_t seed = 1;
	int jobs = 4;
	std::vector<std::string> only{}; ///< cells, or groups of them; empty: all
	std::string expectations{};      ///< file; empty: the table of this build
	std::string form = "text";       ///< text, json, markdown
	std::string output{};            ///< file; empty: standard output
	std::string timelines{};         ///< directory for the timelines of runs that differ; empty: none
	bool shortForm = false;          ///< the cells that stand for the whole
	bool list = false;               ///< only tell the cells
};

/// @return exit status: 0 when every run was as expected, else 1
/// @throws LabError
int runMatrix(const MatrixOptions& options);

} // namespace velarix::lab
