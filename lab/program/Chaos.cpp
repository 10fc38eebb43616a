#include "lab/program/Campaigns.h"

#include <algorithm>
#include <iostream>

#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/chaos/Report.h"
#include "lab/core/Lab.h"

namespace velarix::lab::program
{

namespace
{

constexpr int defaultMinutes = 10;

/// A step lasts at most this long; a worker that takes longer hangs.
constexpr Millis stepLimit{400000};

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

std::vector<chaos::Options> workersFor(const ChaosCommand& command)
{
	std::vector<chaos::Options> workers;
	const int count = command.worker ? 1 : command.jobs;
	for (int index = 0; index < count; ++index)
	{
		chaos::Options options = command.options;
		options.worker = command.worker.value_or(index);
		if (command.steps)
		{
			options.steps = *command.steps / count + (index < *command.steps % count ? 1 : 0);
		}
		if (command.minutes || !command.steps)
		{
			options.duration = std::chrono::minutes(command.minutes.value_or(defaultMinutes));
		}
		workers.push_back(options);
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

chaos::Results runWorkers(const std::vector<chaos::Options>& workers)
{
	chaos::Results results;
	results.seed = workers.front().seed;
	results.times = workers.front().times.pair;
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
	std::stable_sort(results.records.begin(), results.records.end(),
	                 [](const chaos::StepRecord& left, const chaos::StepRecord& right)
	                 { return left.worker < right.worker; });
	return results;
}

chaos::Results runAll(const ChaosCommand& command)
{
	ChaosCommand whole = command;
	whole.options.kinds = readExpectations(command.expectations, command.options.times.pair.profile).forChaos;
	requireLab(command.options.installRoot);
	return runWorkers(workersFor(whole));
}

} // namespace

int runChaos(const ChaosCommand& command)
{
	const chaos::Results results = runAll(command);
	deliver(command, toText(results), jsonOf(results));
	return results.good() ? 0 : 1;
}

} // namespace velarix::lab::program
