#include "evidence/program/Takeover.h"

#include <iostream>

#include "evidence/takeover/Figures.h"
#include "lab/campaigns/Machine.h"
#include "lab/campaigns/matrix/CellRun.h"
#include "lab/core/Lab.h"

namespace velarix::evidence
{

namespace
{

/// A run that takes another path is made up for, but not without end.
constexpr int rounds = 3;

struct Job
{
	std::string path;
	matrix::CellPlan plan;
};

std::vector<Job> jobsFor(const TakeoverOptions& options, const std::vector<takeover::PathCells>& paths,
                         const takeover::Results& results, int& run)
{
	std::vector<Job> jobs;
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
			matrix::CellPlan plan;
			plan.cell = cells[static_cast<std::size_t>(run) % cells.size()];
			plan.paths = {{path.name, path}};
			plan.times.pair = options.times;
			plan.run = run;
			plan.seed = options.seed;
			plan.installRoot = options.installRoot;
			plan.untilBack = true;
			jobs.push_back({path.name, plan});
		}
	}
	return jobs;
}

void take(const Job& job, const RunRecord& record, takeover::Results& results)
{
	const std::string title = record.cell + ", run " + std::to_string(record.run);
	const std::optional<takeover::Sample> sample = takeover::sampleOf(record);
	if (sample)
	{
		results.samples[job.path].push_back(*sample);
	}
	else
	{
		const std::vector<std::string> differences = differencesOf(record);
		results.missed.push_back(title + ": " + (differences.empty() ? "took another path" : differences.front()));
	}
	std::cerr << job.path << ": " << title << ": "
	          << (sample ? std::to_string(sample->own().count()) + " ms" : "no sample") << '\n';
}

void runRound(const TakeoverOptions& options, const std::vector<Job>& jobs, takeover::Results& results)
{
	runInWorkers(
	    jobs.size(), options.jobs, CampaignTimes{options.times}.runLimit(),
	    [&](std::size_t index) { return jsonText(matrix::runCell(jobs[index].plan)); },
	    [&](const WorkerResult& result)
	    {
		    const Job& job = jobs[result.index];
		    const RunRecord record = recordOf(result, job.plan.cell.name, job.plan.run, job.plan.seed);
		    saveTimeline(options.timelines, record.cell + " " + std::to_string(record.run), record.timeline);
		    take(job, record, results);
	    });
}

void runFloors(const TakeoverOptions& options, takeover::Results& results)
{
	std::vector<takeover::PingFloorPlan> plans;
	for (int run = 1; run <= options.runs; ++run)
	{
		for (const std::string& path : takeover::pingFloorPaths())
		{
			if (results.samples.contains(path))
			{
				plans.push_back({path, run, options.seed, options.times, options.installRoot});
			}
		}
	}
	runInWorkers(
	    plans.size(), options.jobs, Millis(60000),
	    [&](std::size_t index) { return jsonText(takeover::measurePingFloor(plans[index])); },
	    [&](const WorkerResult& result)
	    {
		    takeover::PingFloor floor{plans[result.index].path, plans[result.index].run, {}, result.problem};
		    results.floors.push_back(result.problem.empty() ? recordIn<takeover::PingFloor>(result.text) : floor);
		    const takeover::PingFloor& last = results.floors.back();
		    std::cerr << "pings alone, " << last.path << ", run " << last.run << ": "
		              << (last.problem.empty() ? "done" : last.problem) << '\n';
	    });
}

} // namespace

int runTakeover(const TakeoverOptions& options)
{
	const std::vector<takeover::PathCells> paths =
	    takeover::pathsFor(readExpectations({}, options.times.profile), options.only);
	takeover::Results results;
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
		runRound(options, jobsFor(options, paths, results, run), results);
	}
	runFloors(options, results);
	deliver(options, toText(results), jsonOf(results));
	return results.complete() ? 0 : 1;
}

} // namespace velarix::evidence
