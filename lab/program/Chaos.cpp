#include "lab/program/Chaos.h"

#include <algorithm>
#include <iostream>

#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/chaos/ChaosReport.h"
#include "lab/core/Files.h"
#include "lab/core/Lab.h"

namespace velarix::lab
{

namespace
{

constexpr int defaultMinutes = 10;

/// A step lasts at most this long; a lane that takes longer hangs.
constexpr Millis stepLimit{400000};

/// From a lane's process; one write for each step keeps the lines whole.
void tell(const ChaosStepRecord& record)
{
	std::string text = "lane " + std::to_string(record.lane) + ", step " + std::to_string(record.step) + ": " +
	                   record.faults + ": " + (record.violations.empty() ? "well" : "NOT WELL") + "\n";
	for (const std::string& violation : record.violations)
	{
		text += "    " + violation + "\n";
	}
	std::cerr << text + record.timeline << std::flush;
}

std::vector<ChaosOptions> lanesFor(const ChaosCommand& command)
{
	std::vector<ChaosOptions> lanes;
	const int count = command.lane ? 1 : command.jobs;
	for (int index = 0; index < count; ++index)
	{
		ChaosOptions options = command.options;
		options.lane = command.lane.value_or(index);
		if (command.steps)
		{
			options.steps = *command.steps / count + (index < *command.steps % count ? 1 : 0);
		}
		if (command.minutes || !command.steps)
		{
			options.duration = std::chrono::minutes(command.minutes.value_or(defaultMinutes));
		}
		lanes.push_back(options);
	}
	return lanes;
}

Millis limitOf(const ChaosOptions& options)
{
	const Millis bySteps = options.steps ? stepLimit * (*options.steps + 1) : Millis(0);
	return std::max(bySteps, options.duration.value_or(Millis(0)) + 2 * stepLimit);
}

/// A lane that was ended has told its steps up to then.
void takeIn(const ChildResult& lane, int number, ChaosResults& results)
{
	int step = 1;
	for (const std::string& part : lane.parts)
	{
		const std::vector<ChaosStepRecord> records = chaosRecordsFrom(part);
		results.records.insert(results.records.end(), records.begin(), records.end());
		step += static_cast<int>(records.size());
	}
	const std::string& problem = lane.problem.empty() ? lane.text : lane.problem;
	if (!problem.empty())
	{
		results.problems.push_back({number, step, problem});
	}
}

ChaosResults runLanes(const std::vector<ChaosOptions>& lanes)
{
	ChaosResults results;
	results.seed = lanes.front().seed;
	results.times = lanes.front().times.pair;
	runInChildren(
	    lanes.size(), static_cast<int>(lanes.size()), limitOf(lanes.front()),
	    [&](std::size_t index, const HandOver& handOver)
	    {
		    return runChaosLane(lanes[index],
		                        [&](const ChaosStepRecord& record)
		                        {
			                        tell(record);
			                        handOver(toJson(std::vector<ChaosStepRecord>{record}));
		                        });
	    },
	    [&](const ChildResult& result) { takeIn(result, lanes[result.index].lane, results); });
	std::stable_sort(results.records.begin(), results.records.end(),
	                 [](const ChaosStepRecord& left, const ChaosStepRecord& right) { return left.lane < right.lane; });
	return results;
}

ChaosResults runAll(const ChaosCommand& command)
{
	ChaosCommand whole = command;
	whole.options.kinds = readExpectations(command.expectations).forChaos;
	requireLab(command.options.installRoot);
	return runLanes(lanesFor(whole));
}

} // namespace

int runChaos(const ChaosCommand& command)
{
	const ChaosResults results = command.from.empty() ? runAll(command) : chaosFrom(contentOf(command.from));
	deliver(command.form == "json" ? toJson(results) : toText(results), command.output);
	return results.good() ? 0 : 1;
}

} // namespace velarix::lab
