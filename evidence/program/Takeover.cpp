#include "evidence/program/Takeover.h"

#include <iostream>

#include "evidence/takeover/TakeoverFigures.h"
#include "lab/campaigns/matrix/CellRun.h"
#include "lab/campaigns/matrix/Machine.h"
#include "lab/core/Lab.h"

namespace velarix::lab
{

namespace
{

/// A run that takes another path is made up for, but not without end.
constexpr int rounds = 3;

struct Errand
{
	std::string path;
	CellPlan plan;
};

std::vector<Errand> errandsFor(const TakeoverOptions& options, const std::vector<TakeoverPath>& paths,
                               const TakeoverResults& results, int& run)
{
	std::vector<Errand> errands;
	for (int turn = 0; turn < options.runs; ++turn)
	{
		++run;
		for (const auto& [path, cells] : paths)
		{
			const auto found = results.samples.find(path.name);
			const auto have = static_cast<int>(found == results.samples.end() ? 0 : found->second.size());
			if (have + turn >= options.runs)
			{
				continue;
			}
			CellPlan plan;
			plan.cell = cells[static_cast<std::size_t>(run) % cells.size()];
			plan.paths = {{path.name, path}};
			plan.times.pair = options.times;
			plan.run = run;
			plan.seed = options.seed;
			plan.installRoot = options.installRoot;
			plan.untilBack = true;
			errands.push_back({path.name, plan});
		}
	}
	return errands;
}

void take(const Errand& errand, const RunRecord& record, TakeoverResults& results)
{
	const std::string title = record.cell + ", run " + std::to_string(record.run);
	const std::optional<TakeoverSample> sample = sampleOf(record);
	if (sample)
	{
		results.samples[errand.path].push_back(*sample);
	}
	else
	{
		const std::vector<std::string> differences = differencesOf(record);
		results.missed.push_back(title + ": " + (differences.empty() ? "took another path" : differences.front()));
	}
	std::cerr << errand.path << ": " << title << ": "
	          << (sample ? std::to_string(sample->own().count()) + " ms" : "no sample") << '\n';
}

void runRound(const TakeoverOptions& options, const std::vector<Errand>& errands, TakeoverResults& results)
{
	runInChildren(
	    errands.size(), options.jobs, MatrixTimes{options.times}.runLimit(),
	    [&](std::size_t index) { return toJson(runCell(errands[index].plan)); },
	    [&](const ChildResult& result)
	    {
		    const Errand& errand = errands[result.index];
		    const RunRecord record = recordOf(result, errand.plan.cell.name, errand.plan.run, errand.plan.seed);
		    keepTimeline(options.timelines, record.cell + " " + std::to_string(record.run), record.timeline);
		    take(errand, record, results);
	    });
}

void runFloors(const TakeoverOptions& options, TakeoverResults& results)
{
	std::vector<PingFloorPlan> plans;
	for (int run = 1; run <= options.runs; ++run)
	{
		for (const std::string& path : pingFloorPaths())
		{
			if (results.samples.contains(path))
			{
				plans.push_back({path, run, options.seed, options.times, options.installRoot});
			}
		}
	}
	runInChildren(
	    plans.size(), options.jobs, Millis(60000),
	    [&](std::size_t index) { return toJson(measurePingFloor(plans[index])); },
	    [&](const ChildResult& result)
	    {
		    PingFloor floor{plans[result.index].path, plans[result.index].run, {}, result.problem};
		    results.floors.push_back(result.problem.empty() ? pingFloorFrom(result.text) : floor);
		    const PingFloor& last = results.floors.back();
		    std::cerr << "pings alone, " << last.path << ", run " << last.run << ": "
		              << (last.problem.empty() ? "done" : last.problem) << '\n';
	    });
}

} // namespace

int runTakeover(const TakeoverOptions& options)
{
	const std::vector<TakeoverPath> paths = takeoverPaths(readExpectations({}), options.only);
	TakeoverResults results;
	for (const auto& [path, cells] : paths)
	{
		results.paths.push_back(path);
	}
	results.times = options.times;
	results.runs = options.runs;
	results.seed = options.seed;
	results.jobs = options.jobs;
	results.machine = machineText();
	requireLab(options.installRoot);
	int run = 0;
	for (int round = 0; round < rounds && !results.complete(); ++round)
	{
		runRound(options, errandsFor(options, paths, results, run), results);
	}
	runFloors(options, results);
	keepRecords(toJson(results), options.records);
	deliver(options.form == "json" ? toJson(results) : toText(results), options.output);
	return results.complete() ? 0 : 1;
}

} // namespace velarix::lab
