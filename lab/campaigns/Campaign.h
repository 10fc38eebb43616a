/// What the commands that run many pairs have in common: their options, and what
/// becomes of a run's result.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "lab/campaigns/matrix/Children.h"
#include "lab/campaigns/matrix/Record.h"

namespace velarix::lab
{

struct CampaignOptions
{
	std::filesystem::path installRoot{};
	int runs = 1; ///< of each cell
	std::uint64_t seed = 1;
	int jobs = 4;                    ///< pairs side by side
	std::vector<std::string> only{}; ///< cells, or groups of them; empty: all
	std::string form = "text";       ///< text, json, markdown
	std::string output{};            ///< file for the report; empty: standard output
	std::string records{};           ///< file for the report as JSON, besides; empty: none
	std::string from{};              ///< such a file: tell its results, run nothing; empty: run
	std::string timelines{};         ///< directory for the timelines of runs; empty: none
	bool list = false;               ///< only tell the cells
};

/// @return the record that a run's process handed back, or one that tells why there is none
RunRecord recordOf(const ChildResult& result, const std::string& cell, int run, std::uint64_t seed);

/// Writes a run's timeline to a file of the directory; does nothing without a directory or a timeline.
/// @param title names the run; its slashes and blanks become hyphens
/// @throws LabError when it cannot be written
void keepTimeline(const std::string& directory, const std::string& title, const std::string& timeline);

/// Writes a report to a file, or to standard output when no file is named.
/// @throws LabError when it cannot be written
void deliver(const std::string& report, const std::string& output);

/// Writes the report as JSON to a file; does nothing when no file is named.
/// @throws LabError when it cannot be written
void keepRecords(const std::string& json, const std::string& file);

} // namespace velarix::lab
