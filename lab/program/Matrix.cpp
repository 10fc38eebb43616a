#include <iostream>

#include "lab/campaigns/Filter.h"
#include "lab/campaigns/matrix/Report.h"
#include "lab/core/Lab.h"
#include "lab/program/CommandLine.h"

namespace velarix::lab::program
{

namespace
{

using matrix::CellPlan;

struct Options : CampaignOptions
{
	int runs = 1; ///< of each cell
	int slack = 2000;
	bool shortForm = false; ///< the cells that stand for the whole
};

std::string titleOf(const RunRecord& record)
{
	return record.cell + ", run " + std::to_string(record.run);
}

std::vector<CellPlan> plansFor(const Options& options, const matrix::Results& results)
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

int runMatrix(const Options& options)
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
		for (const Cell& cell : results.cells)
		{
			std::cout << cell.name << (cell.note.empty() ? "" : ": " + cell.note) << '\n';
		}
		return 0;
	}
	requireLab(options.installRoot);
	results.records = runAll(options, plansFor(options, results), options.times.runLimit(),
	                         Runs<CellPlan, RunRecord>{matrix::runCell, matrix::recordOf, titleOf, differencesOf});
	deliver(options, toText(results), jsonOf(results));
	return results.allAsExpected() ? 0 : 1;
}

} // namespace

void addMatrix(CLI::App& app, int& status)
{
	CLI::App* command = app.add_subcommand("matrix", "Inject every fault into pairs and compare with what is expected");
	const auto options = std::make_shared<Options>();
	addCampaignOptions(*command, *options);
	addCellOptions(*command, *options);
	addReportOptions(*command, *options);
	command->add_option("--runs", options->runs, "Runs of each cell")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 1000));
	command->add_option("--only", options->only, "A cell or a group of cells (again for more)");
	command->add_option("--slack", options->slack, "Milliseconds allowed beyond the fixed waits")
	    ->capture_default_str()
	    ->check(CLI::Range(0, 60000));
	command->add_flag("--short", options->shortForm, "The ten or so cells that stand for the whole");
	command->callback(
	    [&status, options]
	    {
		    options->times.slack = Millis(options->slack);
		    status = runMatrix(*options);
	    });
}

} // namespace velarix::lab::program
