#include "Controls.h"

#include <algorithm>
#include <fstream>
#include <iostream>

#include "Children.h"
#include "ControlReport.h"
#include "Lab.h"

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

void write(const std::filesystem::path& path, const std::string& text)
{
	std::ofstream stream(path, std::ios::trunc);
	stream << text;
	stream.close();
	if (!stream)
	{
		throw LabError("cannot write " + path.string());
	}
}

std::string titleOf(const ControlPlan& plan)
{
	return std::string(nameOf(plan.settings.program)) + " " + plan.settings.name + " " + plan.cell.name + ", run " +
	       std::to_string(plan.run);
}

void keepTimeline(const ControlOptions& options, const ControlPlan& plan, const RunRecord& record)
{
	if (options.timelines.empty())
	{
		return;
	}
	std::string name = titleOf(plan) + ".txt";
	std::replace_if(
	    name.begin(), name.end(), [](char letter) { return letter == '/' || letter == ' '; }, '-');
	std::filesystem::create_directories(options.timelines);
	write(std::filesystem::path(options.timelines) / name, record.timeline);
}

RunRecord recordOf(const ChildResult& result, const ControlPlan& plan)
{
	if (result.problem.empty())
	{
		return recordFrom(result.text);
	}
	RunRecord record;
	record.cell = plan.cell.name;
	record.run = plan.run;
	record.seed = plan.seed;
	record.differences.push_back("the run failed: " + result.problem);
	return record;
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
	const std::vector<ControlPlan> plans = plansFor(options, results);
	std::vector<RunRecord> records(plans.size());
	std::size_t done = 0;
	runInChildren(
	    plans.size(), options.jobs, runLimit, [&](std::size_t index) { return toJson(runControlCell(plans[index])); },
	    [&](const ChildResult& result)
	    {
		    const ControlPlan& plan = plans[result.index];
		    const RunRecord record = recordOf(result, plan);
		    records[result.index] = record;
		    keepTimeline(options, plan, record);
		    std::cerr << "[" << ++done << "/" << plans.size() << "] " << titleOf(plan)
		              << (record.differences.empty() ? "" : ": " + record.differences.front()) << '\n';
	    });
	const std::size_t each = plans.size() / results.tables.size();
	for (std::size_t index = 0; index < records.size(); ++index)
	{
		results.tables[index / each].records.push_back(std::move(records[index]));
	}
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
	results.tables = chosenTables(options);
	results.seed = options.seed;
	results.runs = options.runs;
	results.jobs = options.jobs;
	requireLab(options.installRoot);
	for (const ControlTable& table : results.tables)
	{
		requireControl(table.settings.program);
	}
	runAll(options, results);
	const std::string report =
	    options.json ? toJson(results) : (options.markdown ? toMarkdown(results) : toText(results));
	options.output.empty() ? void(std::cout << report) : write(options.output, report);
	return results.complete() ? 0 : 1;
}

} // namespace velarix::lab
