#include "lab/program/Hostile.h"

#include <algorithm>
#include <iostream>

#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/Filter.h"
#include "lab/campaigns/hostile/HostileRun.h"
#include "lab/core/Lab.h"

namespace velarix::lab::program
{

namespace
{

/// The longest case waits for thousands of messages.
constexpr Millis caseLimit{3600000};

std::vector<HostileCell> chosen(const HostileOptions& options)
{
	const std::vector<HostileCell> all = readHostileTable(options.table);
	const bool every = std::find(options.attacks.begin(), options.attacks.end(), "all") != options.attacks.end();
	return filtered(all, every ? std::vector<std::string>() : options.attacks, "case");
}

int listCases(const std::vector<HostileCell>& cells)
{
	for (const HostileCell& cell : cells)
	{
		std::cout << cell.name << ": " << attackNamed(cell.attack).what << (cell.note.empty() ? "" : "; " + cell.note)
		          << '\n';
	}
	return 0;
}

/// On standard error, so that the report can go elsewhere.
void tell(const HostileRecord& record, std::size_t done, std::size_t all)
{
	std::cerr << "[" << done << "/" << all << "] " << record.name << ", guard " << record.guard << ": "
	          << (record.differences.empty() ? "as expected" : "DIFFERS") << '\n';
	for (const std::string& difference : record.differences)
	{
		std::cerr << "    " << difference << '\n';
	}
}

HostileRecord recordFromChild(const WorkerResult& result, const HostilePlan& plan)
{
	if (result.problem.empty())
	{
		return hostileRecordFrom(result.text);
	}
	HostileRecord record;
	record.name = plan.cell.name;
	record.guard = nameOf(plan.guard);
	record.differences.push_back("the run failed: " + result.problem);
	return record;
}

std::vector<HostileRecord> runAll(const HostileOptions& options, const std::vector<HostileCell>& cells)
{
	requireLab(options.installRoot);
	const Guard guard = options.neighbours ? Guard::neighbours : (options.firewall ? Guard::firewall : Guard::none);
	std::vector<HostilePlan> plans;
	plans.reserve(cells.size());
	for (const HostileCell& cell : cells)
	{
		plans.push_back({cell, guard, {options.times}, options.seed, options.count, options.installRoot});
	}
	std::vector<HostileRecord> records(plans.size());
	std::size_t done = 0;
	runInWorkers(
	    plans.size(), options.jobs, caseLimit, [&](std::size_t index) { return toJson(runHostile(plans[index])); },
	    [&](const WorkerResult& result)
	    {
		    HostileRecord record = recordFromChild(result, plans[result.index]);
		    tell(record, ++done, plans.size());
		    saveTimeline(options.timelines, record.name + " " + record.guard, record.timeline);
		    records[result.index] = std::move(record);
	    });
	return records;
}

} // namespace

int runHostileCommand(const HostileOptions& options)
{
	const std::vector<HostileCell> cells = chosen(options);
	if (options.list)
	{
		return listCases(cells);
	}
	const std::vector<HostileRecord> records = runAll(options, cells);
	deliver(options.json ? toJson(records) : (options.markdown ? toMarkdown(records) : toText(records)),
	        options.output);
	return std::all_of(records.begin(), records.end(),
	                   [](const HostileRecord& record) { return record.differences.empty(); })
	           ? 0
	           : 1;
}

} // namespace velarix::lab::program
