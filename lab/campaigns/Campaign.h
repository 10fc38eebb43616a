/// What the commands that run many pairs have in common: their options, and what
/// becomes of a run's result.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "lab/campaigns/Record.h"
#include "lab/campaigns/Workers.h"

namespace velarix::lab
{

/// Where a report goes.
struct ReportOptions
{
	std::string form = "text"; ///< text, json
	std::string output{};      ///< file; empty: standard output
	std::string records{};     ///< file for the JSON, besides; empty: none
};

/// Writes a run's timeline to a file of the directory; does nothing without a directory or a timeline.
/// @param title names the run; its slashes and blanks become hyphens
/// @throws LabError when it cannot be written
void saveTimeline(const std::string& directory, const std::string& title, const std::string& timeline);

/// Writes a report to a file, or to standard output when no file is named.
/// @throws LabError when it cannot be written
void deliver(const std::string& report, const std::string& output);
/// Writes a report in the form and to the places that were asked for.
/// @throws LabError when it cannot be written
void deliver(const ReportOptions& options, const std::string& text, const nlohmann::json& report);

} // namespace velarix::lab
