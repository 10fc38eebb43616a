#include <algorithm>
#include <iostream>

#include "lab/campaigns/chaos/Report.h"
#include "lab/core/Lab.h"
#include "lab/program/CommandLine.h"

namespace velarix::lab::program
{

namespace
{

constexpr int defaultMinutes = 10;

/// A step lasts at most this long; a worker that takes longer hangs.
constexpr Millis stepLimit{400000};

struct Options : CampaignOptions
{
	std::optional<int> steps{};   ///< of all workers together
	std::optional<int> minutes{}; ///< neither of both: ten minutes
	std::optional<int> worker{};  ///< only this one
};

/// From a worker's process; one write for each step keeps the lines whole.
void report(const chaos::StepRecord& record)
{
	std::string text = "worker " + std::to_string(record.worker) + ", step " + std::to_string(record.step) + ": " +
	                   record.faults + ": " + (record.violations.empty() ? "well" : "NOT WELL") + "\n";
	for (const std::string& violation : record.violations)
	{
		text += "    " + violation + "\n";
	}
	std::cerr << text + record.timeline << std::flush;
}

std::vector<chaos::Options> workersFor(const Options& options)
{
	std::vector<chaos::Options> workers;
	const int count = options.worker ? 1 : options.jobs;
	const std::vector<std::string> kinds = readExpectations(options.expectations, options.times.pair.profile).forChaos;
	for (int index = 0; index < count; ++index)
	{
		chaos::Options worker{options.installRoot, options.times, kinds, options.seed, options.worker.value_or(index)};
		if (options.steps)
		{
			worker.steps = *options.steps / count + (index < *options.steps % count ? 1 : 0);
		}
		if (options.minutes || !options.steps)
		{
			worker.duration = std::chrono::minutes(options.minutes.value_or(defaultMinutes));
		}
		workers.push_back(worker);
	}
	return workers;
}

Millis limitOf(const chaos::Options& options)
{
	const Millis bySteps = options.steps ? stepLimit * (*options.steps + 1) : Millis(0);
	return std::max(bySteps, options.duration.value_or(Millis(0)) + 2 * stepLimit);
}

/// A worker that was ended has reported its steps up to then.
void takeIn(const WorkerResult& worker, int number, chaos::Results& results)
{
	for (const std::string& part : worker.parts)
	{
		results.records.push_back(recordIn<chaos::StepRecord>(part));
	}
	const std::string& problem = worker.problem.empty() ? worker.text : worker.problem;
	if (!problem.empty())
	{
		results.problems.push_back({number, static_cast<int>(worker.parts.size()) + 1, problem});
	}
}

int runChaos(const Options& options)
{
	const std::vector<chaos::Options> workers = workersFor(options);
	requireLab(options.installRoot);
	chaos::Results results{options.seed, options.times.pair, {}, {}};
	runInWorkers(
	    workers.size(), static_cast<int>(workers.size()), limitOf(workers.front()),
	    [&](std::size_t index, const HandOver& handOver)
	    {
		    return chaos::runWorker(workers[index],
		                            [&](const chaos::StepRecord& record)
		                            {
			                            report(record);
			                            handOver(jsonText(record));
		                            });
	    },
	    [&](const WorkerResult& result) { takeIn(result, workers[result.index].worker, results); });
	std::ranges::stable_sort(results.records, {}, &chaos::StepRecord::worker);
	deliver(options, toText(results), jsonOf(results));
	return results.good() ? 0 : 1;
}

} // namespace

void addChaos(CLI::App& app, int& status)
{
	CLI::App* command = app.add_subcommand("chaos", "Inject and repair faults at random and check the invariants");
	const auto options = std::make_shared<Options>();
	options->jobs = 1;
	addCampaignOptions(*command, *options);
	addReportOptions(*command, *options);
	command->add_option("--minutes", options->minutes, "Begin no step after that (default 10 without --steps)")
	    ->check(CLI::Range(1, 100000));
	command->add_option("--steps", options->steps, "End after so many steps, of all workers together")
	    ->check(CLI::Range(1, 1000000));
	command->add_option("--worker", options->worker, "Only this worker, from 0 on: to repeat what it did")
	    ->check(CLI::Range(0, 63));
	command->footer("Ends with 0 when all invariants held after every step, with 1 when not.");
	command->callback([&status, options] { status = runChaos(*options); });
}

} // namespace velarix::lab::program
