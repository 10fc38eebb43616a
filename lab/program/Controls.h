/// `velarix-lab controls`: keepalived and ucarp through the cells of the matrix
/// that apply to them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace velarix::lab
{

struct ControlOptions
{
	std::filesystem::path installRoot{};
	int runs = 1;
	int jobs = 4;
	std::uint64_t seed = 1;
	std::vector<std::string> only;     ///< cells or groups of cells; empty: all
	std::vector<std::string> programs; ///< "keepalived", "ucarp"; empty: both
	std::vector<std::string> settings; ///< "defaults", "short"; empty: both
	bool json = false;
	bool markdown = false;
	bool list = false;
	std::string output{};    ///< file for the report; empty: standard output
	std::string timelines{}; ///< directory for the timelines and logs of all runs; empty: none
};

/// @return exit status: 0 when every run got to its end, else 1
/// @throws LabError when a program is missing or no lab can be made
int runControls(const ControlOptions& options);

} // namespace velarix::lab
