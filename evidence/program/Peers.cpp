#include "evidence/program/Peers.h"

#include <algorithm>
#include <iostream>
#include <utility>

#include "evidence/peers/Report.h"
#include "lab/core/Lab.h"

namespace velarix::evidence
{

namespace
{

constexpr Millis runLimit{400000};

bool wanted(const std::vector<std::string>& filters, const std::string& name)
{
	return filters.empty() || std::find(filters.begin(), filters.end(), name) != filters.end();
}

std::vector<peers::Table> chosenTables(const PeerOptions& options)
{
	std::vector<peers::Table> tables;
	for (const peers::Settings& settings : peers::allPeers())
	{
		if (wanted(options.programs, nameOf(settings.program)) && wanted(options.settings, settings.name))
		{
			tables.push_back({settings, {}});
		}
	}
	return tables;
}

int listCells(const std::vector<peers::Cell>& cells)
{
	for (const peers::Cell& cell : cells)
	{
		std::cout << cell.name << ": " << cell.fault->what << '\n';
	}
	return 0;
}

std::string titleOf(const peers::RunPlan& plan)
{
	return std::string(nameOf(plan.settings.program)) + " " + plan.settings.name + " " + plan.cell.name + ", run " +
	       std::to_string(plan.run);
}

std::vector<peers::RunPlan> plansFor(const PeerOptions& options, const peers::Results& results)
{
	std::vector<peers::RunPlan> plans;
	for (const peers::Table& table : results.tables)
	{
		for (int run = 1; run <= options.runs; ++run)
		{
			for (const peers::Cell& cell : results.cells)
			{
				plans.push_back({cell, table.settings, run, options.seed, options.installRoot});
			}
		}
	}
	return plans;
}

void runAll(const PeerOptions& options, peers::Results& results)
{
	results.tables = chosenTables(options);
	results.seed = options.seed;
	results.runs = options.runs;
	results.jobs = options.jobs;
	requireLab(options.installRoot);
	for (const peers::Table& table : results.tables)
	{
		peers::requirePeer(table.settings.program);
	}
	const std::vector<peers::RunPlan> plans = plansFor(options, results);
	std::vector<RunRecord> records(plans.size());
	std::size_t done = 0;
	runInWorkers(
	    plans.size(), options.jobs, runLimit, [&](std::size_t index) { return jsonText(peers::runCell(plans[index])); },
	    [&](const WorkerResult& result)
	    {
		    const peers::RunPlan& plan = plans[result.index];
		    RunRecord& record = records[result.index];
		    record = recordOf(result, plan.cell.name, plan.run, plan.seed);
		    saveTimeline(options.timelines, titleOf(plan), std::exchange(record.timeline, {}));
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

int runPeers(const PeerOptions& options)
{
	peers::Results results;
	results.cells = peers::peerCells(options.only);
	if (options.list)
	{
		return listCells(results.cells);
	}
	runAll(options, results);
	deliver(options, toText(results), jsonOf(results));
	return results.complete() ? 0 : 1;
}

} // namespace velarix::evidence
