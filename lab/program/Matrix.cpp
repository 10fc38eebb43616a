#include "lab/program/Campaigns.h"

#include <iostream>

#include "lab/campaigns/Filter.h"
#include "lab/campaigns/matrix/Report.h"
#include "lab/core/Lab.h"

namespace velarix::lab::program
{

namespace
{

/// The record that a run's process handed back, or one that tells why there is none.
RunRecord recordOf(const WorkerResult& result, const std::string& cell, int run, std::uint64_t seed)
{
	if (result.problem.empty())
	{
		return recordIn<RunRecord>(result.text);
	}
	RunRecord record;
	record.cell = cell;
	record.run = run;
	record.seed = seed;
	record.differences.push_back("the run failed: " + result.problem);
	return record;
}

int listCells(const std::vector<Cell>& cells)
{
	for (const Cell& cell : cells)
	{
		std::cout << cell.name << (cell.note.empty() ? "" : ": " + cell.note) << '\n';
	}
	return 0;
}

/// On standard error, so that the report can go elsewhere.
void report(const RunRecord& record, std::size_t done, std::size_t all)
{
	std::cerr << "[" << done << "/" << all << "] " << record.cell << ", run " << record.run << ": "
	          << (record.asExpected() ? "as expected" : "NOT AS EXPECTED") << '\n';
	for (const std::string& difference : differencesOf(record))
	{
		std::cerr << "    " << difference << '\n';
	}
}

std::vector<matrix::CellPlan> plansFor(const MatrixOptions& options, const matrix::Results& results)
{
	std::vector<matrix::CellPlan> plans;
	for (int run = 1; run <= options.runs; ++run)
	{
		for (const Cell& cell : results.cells)
		{
			plans.push_back({cell, results.expectations.paths, options.times, run, options.seed, options.installRoot});
		}
	}
	return plans;
}

void runAll(const MatrixOptions& options, matrix::Results& results)
{
	const std::vector<matrix::CellPlan> plans = plansFor(options, results);
	std::vector<RunRecord> records(plans.size());
	std::size_t done = 0;
	runInWorkers(
	    plans.size(), options.jobs, options.times.runLimit(),
	    [&](std::size_t index, const HandOver&) { return jsonText(matrix::runCell(plans[index])); },
	    [&](const WorkerResult& result)
	    {
		    const matrix::CellPlan& plan = plans[result.index];
		    const RunRecord record = recordOf(result, plan.cell.name, plan.run, plan.seed);
		    report(record, ++done, plans.size());
		    saveTimeline(options.timelines, record.cell + " " + std::to_string(record.run), record.timeline);
		    records[result.index] = record;
	    });
	results.records = std::move(records);
}

} // namespace

int runMatrix(const MatrixOptions& options)
{
	matrix::Results results;
	results.expectations = readExpectations(options.expectations, options.times.pair.profile);
	std::vector<std::string> names = options.only;
	if (options.shortForm)
	{
		const std::vector<std::string>& more = results.expectations.shortForm;
		names.insert(names.end(), more.begin(), more.end());
	}
	results.cells = filtered(results.expectations.cells, names);
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
	deliver(options, toText(results), jsonOf(results));
	return results.allAsExpected() ? 0 : 1;
}

} // namespace velarix::lab::program
