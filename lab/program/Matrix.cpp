#include "Matrix.h"

#include <algorithm>
#include <fstream>
#include <iostream>

#include "Children.h"
#include "Lab.h"
#include "Report.h"

namespace velarix::lab
{

namespace
{

/// Generous: the longest run is a pair's start, a move and two legs.
constexpr Millis runLimit{600000};

int listCells(const std::vector<Cell>& cells)
{
	for (const Cell& cell : cells)
	{
		std::cout << cell.name << (cell.note.empty() ? "" : ": " + cell.note) << '\n';
	}
	return 0;
}

void write(const std::string& path, const std::string& text)
{
	std::ofstream stream(path, std::ios::trunc);
	stream << text;
	stream.close();
	if (!stream)
	{
		throw LabError("cannot write " + path);
	}
}

void keepTimeline(const MatrixOptions& options, const RunRecord& record)
{
	if (options.timelines.empty() || record.timeline.empty())
	{
		return;
	}
	std::string name = record.cell;
	std::replace(name.begin(), name.end(), '/', '-');
	std::filesystem::create_directories(options.timelines);
	write((std::filesystem::path(options.timelines) / (name + "-" + std::to_string(record.run) + ".txt")).string(),
	      record.timeline);
}

/// On standard error, so that the report can go elsewhere.
void tell(const RunRecord& record, std::size_t done, std::size_t all)
{
	std::cerr << "[" << done << "/" << all << "] " << record.cell << ", run " << record.run << ": "
	          << (record.differences.empty() ? "as expected" : "NOT AS EXPECTED") << '\n';
	for (const std::string& difference : record.differences)
	{
		std::cerr << "    " << difference << '\n';
	}
}

RunRecord recordOf(const ChildResult& result, const CellPlan& plan)
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

std::vector<CellPlan> plansFor(const MatrixOptions& options, const MatrixResults& results)
{
	std::vector<CellPlan> plans;
	for (int run = 1; run <= options.runs; ++run)
	{
		for (const Cell& cell : results.cells)
		{
			plans.push_back({cell, results.expectations.paths, options.times, run, options.seed, options.installRoot});
		}
	}
	return plans;
}

void runAll(const MatrixOptions& options, MatrixResults& results)
{
	const std::vector<CellPlan> plans = plansFor(options, results);
	std::vector<RunRecord> records(plans.size());
	std::size_t done = 0;
	runInChildren(
	    plans.size(), options.jobs, runLimit, [&](std::size_t index) { return toJson(runCell(plans[index])); },
	    [&](const ChildResult& result)
	    {
		    records[result.index] = recordOf(result, plans[result.index]);
		    tell(records[result.index], ++done, plans.size());
		    keepTimeline(options, records[result.index]);
	    });
	results.records = std::move(records);
}

std::string rendered(const MatrixResults& results, const std::string& form)
{
	return form == "json" ? toJson(results) : (form == "markdown" ? toMarkdown(results) : toText(results));
}

} // namespace

int runMatrix(const MatrixOptions& options)
{
	MatrixResults results;
	results.expectations = readExpectations(options.expectations);
	std::vector<std::string> names = options.only;
	if (options.shortForm)
	{
		const std::vector<std::string>& more = results.expectations.shortForm;
		names.insert(names.end(), more.begin(), more.end());
	}
	results.cells = chosenCells(results.expectations, names);
	results.times = options.times;
	results.seed = options.seed;
	results.runs = options.runs;
	results.jobs = options.jobs;
	if (options.list)
	{
		return listCells(results.cells);
	}
	requireLab(options.installRoot);
	runAll(options, results);
	const std::string report = rendered(results, options.form);
	options.output.empty() ? void(std::cout << report) : write(options.output, report);
	return results.allAsExpected() ? 0 : 1;
}

} // namespace velarix::lab
