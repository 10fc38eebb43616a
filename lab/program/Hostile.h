/// `velarix-lab hostile`: strangers on the networks against pairs, and
/// what the guards of the documents do about it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "lab/core/NodeSettings.h"

namespace velarix::lab::program
{

struct HostileOptions
{
	std::filesystem::path installRoot{};
	PairTimes times{};
	std::vector<std::string> attacks{"all"}; ///< cases, or groups of them
	std::uint64_t seed = 1;
	long count = 10000;
	int jobs = 4;
	bool firewall = false;
	bool neighbours = false; ///< and the firewall
	bool json = false;
	bool markdown = false;
	bool list = false;
	std::string output{};    ///< file for the report; empty: standard output
	std::string table{};     ///< file with the expectations; empty: that of this build
	std::string timelines{}; ///< directory for the timelines of cases that differ; empty: none
};

/// @return exit status: 0 when every case was as written down, else 1
/// @throws LabError
int runHostileCommand(const HostileOptions& options);

} // namespace velarix::lab::program
