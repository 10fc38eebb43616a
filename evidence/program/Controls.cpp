#include "evidence/program/Controls.h"

#include <algorithm>
#include <iostream>

#include "evidence/peers/ControlReport.h"
#include "lab/core/Files.h"
#include "lab/core/Lab.h"

namespace velarix::lab
{

namespace
{

constexpr Millis runLimit{400000};

bool wanted(const std::vector<std::string>& wishes, const std::string& name)
{
	return wishes.empty() || std::find(wishes.begin(), wishes.end(), name) != wishes.end();
}

std::vector<ControlTable> chosenTables(const ControlOptions& options)
{
	std::vector<ControlTable> tables;
	for (const ControlSettings& settings : allControls())
	{
		if (wanted(options.programs, nameOf(settings.program)) && wanted(options.settings, settings.name))
		{
			tables.push_back({settings, {}});
		}
	}
	return tables;
}

int listCells(const std::vector<ControlCell>& cells)
{
	for (const ControlCell& cell : cells)
	{
		std::cout << cell.name << ": " << cell.fault->what << '\n';
	}
	return 0;
}

std::string titleOf(const ControlPlan& plan)
{
	return std::string(nameOf(plan.settings.program)) + " " + plan.settings.name + " " + plan.cell.name + ", run " +
	       std::to_string(plan.run);
}

std::vector<ControlPlan> plansFor(const ControlOptions& options, const ControlResults& results)
{
	std::vector<ControlPlan> plans;
	for (const ControlTable& table : results.tables)
	{
		for (int run = 1; run <= options.runs; ++run)
		{
			for (const ControlCell& cell : results.cells)
			{
				plans.push_back({cell, table.settings, run, options.seed, options.installRoot});
			}
		}
	}
	return plans;
}

void runAll(const ControlOptions& options, ControlResults& results)
{
	results.tables = chosenTables(options);
	results.seed = options.seed;
	results.runs = options.runs;
	results.jobs = options.jobs;
	requireLab(options.installRoot);
	for (const ControlTable& table : results.tables)
	{
		requireControl(table.settings.program);
	}
	const std::vector<ControlPlan> plans = plansFor(options, results);
	std::vector<RunRecord> records(plans.size());
	std::size_t done = 0;
	runInChildren(
	    plans.size(), options.jobs, runLimit, [&](std::size_t index) { return toJson(runControlCell(plans[index])); },
	    [&](const ChildResult& result)
	    {
		    const ControlPlan& plan = plans[result.index];
		    const RunRecord record = recordOf(result, plan.cell.name, plan.run, plan.seed);
		    records[result.index] = record;
		    keepTimeline(options.timelines, titleOf(plan), record.timeline);
		    std::cerr << "[" << ++done << "/" << plans.size() << "] " << titleOf(plan)
		              << (record.differences.empty() ? "" : ": " + record.differences.front()) << '\n';
	    });
	const std::size_t each = plans.size() / results.tables.size();
	for (std::size_t index = 0; index < records.size(); ++index)
	{
		results.tables[index / each].records.push_back(std::move(records[index]));
	}
}

std::string rendered(const ControlResults& results, const std::string& form)
{
	return form == "json" ? toJson(results) : (form == "markdown" ? toMarkdown(results) : toText(results));
}

} // namespace

int runControls(const ControlOptions& options)
{
	ControlResults results;
	results.cells = controlCells(options.only);
	if (options.list)
	{
		return listCells(results.cells);
	}
	if (!options.from.empty())
	{
		results = controlsFrom(contentOf(options.from));
	}
	else
	{
		runAll(options, results);
	}
	keepRecords(toJson(results), options.records);
	deliver(rendered(results, options.form), options.output);
	return results.complete() ? 0 : 1;
}

} // namespace velarix::lab
