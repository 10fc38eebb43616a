/// What the commands that run many pairs have in common: their options, choosing cells, and running
/// each pair in a process of its own. So a lab that fails takes nothing with it, and one that hangs
/// can be ended.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "lab/campaigns/Json.h"
#include "lab/campaigns/Measure.h"
#include "lab/campaigns/Times.h"
#include "lab/core/Basics.h"

namespace velarix::lab
{

/// What became of one piece of work. It went well when it returned, its text
/// arrived whole, and its process ended with status 0 within the limit.
struct WorkerResult
{
	std::size_t index = 0;          ///< of the work
	std::string text;               ///< what it returned; empty when it did not go well
	std::string problem;            ///< why it did not go well; empty when it did
	std::vector<std::string> parts; ///< what it handed over before, whatever became of it
};

/// Hands a text to the caller while the work goes on.
using HandOver = std::function<void(const std::string& part)>;

using Work = std::function<std::string(std::size_t index, const HandOver& handOver)>;

/// Runs `count` pieces of work, at most `jobs` at a time, in their order. The
/// caller must have no other thread and no other child. Children end with it.
/// @param work   runs in the child; what it throws is its problem
/// @param done   runs in the caller, as soon as a piece has ended
/// @param limit  for one piece; one that takes longer is killed
/// @throws LabError when no process can be made
void runInWorkers(std::size_t count, int jobs, Millis limit, const Work& work,
                  const std::function<void(const WorkerResult&)>& done);

/// @return true when the filter is the name itself, or its beginning before a "/"
inline bool matchesFilter(const std::string& name, const std::string& filter)
{
	return name == filter || name.starts_with(filter + "/");
}

/// The cells that fit one of the filters, in their own order and each once; all
/// when there are no filters.
/// @param what  a cell's name in the words of the command
/// @throws LabError when a filter fits none
template <typename Cell>
std::vector<Cell> filtered(std::vector<Cell> cells, const std::vector<std::string>& filters,
                           const std::string& what = "cell")
{
	for (const std::string& filter : filters)
	{
		if (std::ranges::none_of(cells, [&](const Cell& cell) { return matchesFilter(cell.name, filter); }))
		{
			throw LabError("there is no " + what + " \"" + filter + "\" (--list names them)");
		}
	}
	const auto isLeftOut = [&](const Cell& cell)
	{ return std::ranges::none_of(filters, [&](const auto& filter) { return matchesFilter(cell.name, filter); }); };
	std::erase_if(cells, [&](const Cell& cell) { return !filters.empty() && isLeftOut(cell); });
	return cells;
}

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

/// Tells on standard error, so that the report can go elsewhere, how a run ended, and keeps its timeline,
/// should there be one, in the directory that was asked for.
/// @param progress  for example "[3/7] "
/// @param title     names the run, and with hyphens for slashes and blanks the file
/// @throws LabError when it cannot be written
void tellRun(const CampaignOptions& options, const std::string& progress, const std::string& title,
             const std::vector<std::string>& differences, const std::string& timeline);

/// Writes a report in the form and to the places that were asked for.
/// @throws LabError when it cannot be written
void deliver(const CampaignOptions& options, const std::string& text, const nlohmann::json& report);

/// Runs a plan on a lab of its own. A plan has optionsFor() its lab, recordOf() for a run that has not
/// begun, and runIn(), which fills that in with what was not as expected; a record has differencesOf().
/// @throws LabError when no lab can be made; what fails afterwards is a difference
template <typename Plan> auto runPlan(const Plan& plan)
{
	auto record = recordOf(plan);
	Lab lab(optionsFor(plan));
	try
	{
		runIn(lab, plan, record);
	}
	catch (const LabError& error)
	{
		record.differences.push_back(std::string("the run did not get to its end: ") + error.what());
	}
	if (!differencesOf(record).empty())
	{
		record.timeline = toText(lab.timeline()) + errorsIn(lab);
	}
	return record;
}

/// Carries out each plan in a process of its own, and tells what came of it by the record's titleOf().
template <typename Plan> auto runAll(const CampaignOptions& options, const std::vector<Plan>& plans, Millis limit)
{
	using Record = decltype(recordOf(plans.front()));
	std::vector<Record> records(plans.size());
	std::size_t done = 0;
	runInWorkers(
	    plans.size(), options.jobs, limit,
	    [&](std::size_t index, const HandOver&) { return jsonText(runPlan(plans[index])); },
	    [&](const WorkerResult& result)
	    {
		    const bool failed = !result.problem.empty();
		    Record record = failed ? recordOf(plans[result.index]) : recordIn<Record>(result.text);
		    if (failed)
		    {
			    record.differences.push_back("the run failed: " + result.problem);
		    }
		    tellRun(options, "[" + std::to_string(++done) + "/" + std::to_string(plans.size()) + "] ", titleOf(record),
		            differencesOf(record), record.timeline);
		    records[result.index] = std::move(record);
	    });
	return records;
}

} // namespace velarix::lab
