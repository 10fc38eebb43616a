/// What the commands that run many pairs have in common: their options, running each pair in a
/// process of its own, and what becomes of the results.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "lab/campaigns/Record.h"
#include "lab/campaigns/Times.h"
#include "lab/campaigns/Workers.h"

namespace velarix::lab
{

struct CampaignOptions
{
	std::string installRoot{};
	CampaignTimes times{.pair = {.profile = Profile::keeper}};
	std::uint64_t seed = 1;
	int jobs = 4;                    ///< pairs side by side
	std::string expectations{};      ///< file; empty: the table of this build
	std::vector<std::string> only{}; ///< cells, or groups of them; empty: all
	bool list = false;               ///< only name the cells
	std::string timelines{};         ///< directory for the timelines of runs that differ; empty: none
	std::string form = "text";       ///< of the report: text, json
	std::string output{};            ///< file for the report; empty: standard output
	std::string records{};           ///< file for the JSON, besides; empty: none
};

/// Tells on standard error, so that the report can go elsewhere, how a run ended.
/// @param progress  for example "[3/7] power-off/a/master, run 1"
void tellRun(const std::string& progress, const std::vector<std::string>& differences);

/// Writes a run's timeline to a file of the directory; does nothing without a directory or a timeline.
/// @param title names the run; its slashes and blanks become hyphens in the file's
/// @throws LabError when it cannot be written
void saveTimeline(const std::string& directory, const std::string& title, const std::string& timeline);

/// Writes a report in the form and to the places that were asked for.
/// @throws LabError when it cannot be written
void deliver(const CampaignOptions& options, const std::string& text, const nlohmann::json& report);

/// How the runs of a campaign are carried out and reported.
template <typename Plan, typename Record> struct Runs
{
	Record (*run)(const Plan&);
	Record (*blank)(const Plan&); ///< the record of a run that has handed none back, still without the reason
	std::string (*titleOf)(const Record&);
	std::vector<std::string> (*differencesOf)(const Record&); ///< what was not as expected
};

/// Carries out each plan in a process of its own, and tells what came of it.
template <typename Plan, typename Record>
std::vector<Record> runAll(const CampaignOptions& options, const std::vector<Plan>& plans, Millis limit,
                           const Runs<Plan, Record>& runs)
{
	std::vector<Record> records(plans.size());
	std::size_t done = 0;
	runInWorkers(
	    plans.size(), options.jobs, limit,
	    [&](std::size_t index, const HandOver&) { return jsonText(runs.run(plans[index])); },
	    [&](const WorkerResult& result)
	    {
		    const bool failed = !result.problem.empty();
		    Record record = failed ? runs.blank(plans[result.index]) : recordIn<Record>(result.text);
		    if (failed)
		    {
			    record.differences.push_back("the run failed: " + result.problem);
		    }
		    const std::string title = runs.titleOf(record);
		    tellRun("[" + std::to_string(++done) + "/" + std::to_string(plans.size()) + "] " + title,
		            runs.differencesOf(record));
		    saveTimeline(options.timelines, title, record.timeline);
		    records[result.index] = std::move(record);
	    });
	return records;
}

} // namespace velarix::lab
