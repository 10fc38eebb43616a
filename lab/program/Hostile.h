/// `velarix-lab hostile`: attacks on pairs from a third host, and what each mitigation
/// does about them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "lab/core/NodeSettings.h"

namespace velarix::lab::hostile
{

struct Options
{
	std::filesystem::path installRoot{};
	PairSettings times{};
	std::vector<std::string> attacks{"all"}; ///< cases, or groups of them
	std::uint64_t seed = 1;
	long count = 10000;
	int jobs = 4;
	std::string mitigation = "none"; ///< see mitigationNamed
	bool beside = false;             ///< see AttackerPlan
	bool json = false;
	bool list = false;
	std::string output{};    ///< file for the report; empty: standard output
	std::string table{};     ///< file with the expectations; empty: that of this build
	std::string timelines{}; ///< directory for the timelines of cases that differ; empty: none
};

/// @return exit status: 0 when every case was as expected, else 1
/// @throws LabError
int runCommand(const Options& options);

} // namespace velarix::lab::hostile
