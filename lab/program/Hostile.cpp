#include "lab/program/Campaigns.h"

#include <algorithm>
#include <iostream>

#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/Filter.h"
#include "lab/campaigns/hostile/Run.h"
#include "lab/core/Lab.h"

namespace velarix::lab::hostile
{

namespace
{

/// The longest case waits for thousands of messages.
constexpr Millis caseLimit{3600000};

std::vector<Case> chosen(const Options& options)
{
	std::vector<Case> all = readTable(options.table);
	const bool every = std::find(options.attacks.begin(), options.attacks.end(), "all") != options.attacks.end();
	// What is expected of the other attacks is expected of the plain settings.
	const bool keeper = options.times.profile == Profile::keeper;
	std::erase_if(all,
	              [&](const Case& cell) { return attackNamed(cell.attack).onKeeper != keeper && (every || !keeper); });
	return filtered(all, every ? std::vector<std::string>() : options.attacks, "case");
}

int listCases(const std::vector<Case>& cells)
{
	for (const Case& cell : cells)
	{
		std::cout << cell.name << ": " << attackNamed(cell.attack).what << (cell.note.empty() ? "" : "; " + cell.note)
		          << '\n';
	}
	return 0;
}

/// On standard error, so that the report can go elsewhere.
void report(const Record& record, std::size_t done, std::size_t all)
{
	std::cerr << "[" << done << "/" << all << "] " << record.name << ", mitigation " << record.mitigation << ": "
	          << (record.differences.empty() ? "as expected" : "DIFFERS") << '\n';
	for (const std::string& difference : record.differences)
	{
		std::cerr << "    " << difference << '\n';
	}
}

Record recordFromChild(const WorkerResult& result, const Plan& plan)
{
	if (result.problem.empty())
	{
		return recordIn<Record>(result.text);
	}
	Record record;
	record.name = plan.cell.name;
	record.mitigation = nameOf(plan.mitigation);
	record.differences.push_back("the run failed: " + result.problem);
	return record;
}

std::vector<Record> runAll(const Options& options, const std::vector<Case>& cells)
{
	requireLab(options.installRoot);
	const Mitigation mitigation = options.times.wireguard ? Mitigation::tunnel : mitigationNamed(options.mitigation);
	std::vector<Plan> plans;
	plans.reserve(cells.size());
	for (const Case& cell : cells)
	{
		plans.push_back(
		    {cell, mitigation, {options.times}, options.seed, options.count, options.installRoot, options.beside});
	}
	std::vector<Record> records(plans.size());
	std::size_t done = 0;
	runInWorkers(
	    plans.size(), options.jobs, caseLimit,
	    [&](std::size_t index, const HandOver&) { return jsonText(runCase(plans[index])); },
	    [&](const WorkerResult& result)
	    {
		    Record record = recordFromChild(result, plans[result.index]);
		    report(record, ++done, plans.size());
		    saveTimeline(options.timelines, record.name + " " + record.mitigation, record.timeline);
		    records[result.index] = std::move(record);
	    });
	return records;
}

} // namespace

int runCommand(const Options& options)
{
	const std::vector<Case> cells = chosen(options);
	if (options.list)
	{
		return listCases(cells);
	}
	const std::vector<Record> records = runAll(options, cells);
	deliver(options.json ? jsonFileText(records) : toText(records), options.output);
	return std::all_of(records.begin(), records.end(), [](const Record& record) { return record.differences.empty(); })
	           ? 0
	           : 1;
}

} // namespace velarix::lab::hostile
