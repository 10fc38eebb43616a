// The commands that run many pairs. They end with 0 when everything was as expected, else with 1.

#include "lab/program/CommandLine.h"

#include <algorithm>
#include <iostream>

#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/chaos/Chaos.h"
#include "lab/campaigns/hostile/Run.h"
#include "lab/campaigns/matrix/Matrix.h"
#include "lab/core/Lab.h"

namespace velarix::lab::program
{

namespace
{

/// The options of every command that runs many pairs.
void addCampaignOptions(CLI::App& command, CampaignOptions& options)
{
	addLabOptions(command, options.installRoot, options.times.pair);
	command.add_option("--seed", options.seed, "What happens by chance follows from it")->capture_default_str();
	command.add_option("--jobs", options.jobs, "Pairs side by side; they mostly wait")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 64));
	command.add_option("--output", options.output, "Write the report to this file");
	command.add_option("--expectations", options.expectations, "Table of what is expected (default: the built-in one)");
}

/// Those of a command that runs the cells of a table.
void addCellOptions(CLI::App& command, CampaignOptions& options)
{
	command.add_option("--timelines", options.timelines, "Directory for the timelines of runs that differ");
	command.add_flag("--list", options.list, "Name the cells and end");
	command.footer("Ends with 0 when every run was as expected, with 1 when not.");
}

/// The form of the report, and a file for the records.
void addReportOptions(CLI::App& command, CampaignOptions& options)
{
	command.add_option("--format", options.form, "text or json")
	    ->capture_default_str()
	    ->check(CLI::IsMember({"text", "json"}));
	command.add_option("--records", options.records, "Write the report as JSON to this file as well");
}

struct MatrixOptions : CampaignOptions
{
	int runs = 1; ///< of each cell
	int slack = 2000;
	bool shortForm = false; ///< the cells that stand for the whole
};

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
		for (const Cell& cell : results.cells)
		{
			std::cout << cell.name << (cell.note.empty() ? "" : ": " + cell.note) << '\n';
		}
		return 0;
	}
	requireLab(options.installRoot);
	results.records = runAll(options, plansFor(options, results), options.times.runLimit());
	deliver(options, toText(results), jsonOf(results));
	return results.allAsExpected() ? 0 : 1;
}

/// The longest case waits for thousands of messages.
constexpr Millis caseLimit{3600000};

struct HostileOptions : CampaignOptions
{
	long count = 10000;
	std::string mitigation = "none"; ///< see mitigationNamed
	bool beside = false;             ///< see AttackerPlan
	bool json = false;
};

std::vector<hostile::Plan> plansFor(const HostileOptions& options, const std::vector<hostile::Case>& cells)
{
	const bool tunnel = options.times.pair.wireguard;
	const hostile::Mitigation mitigation =
	    tunnel ? hostile::Mitigation::tunnel : hostile::mitigationNamed(options.mitigation);
	std::vector<hostile::Plan> plans;
	for (const hostile::Case& cell : cells)
	{
		plans.push_back(
		    {cell, mitigation, options.times, options.seed, options.count, options.installRoot, options.beside});
	}
	return plans;
}

std::vector<hostile::Case> chosen(const HostileOptions& options)
{
	std::vector<hostile::Case> all = hostile::readTable(options.expectations);
	const bool every = options.only.empty() || std::ranges::find(options.only, "all") != options.only.end();
	// What is expected of the other attacks is expected of the plain settings.
	const bool keeper = options.times.pair.profile == Profile::keeper;
	std::erase_if(all, [&](const hostile::Case& cell)
	              { return hostile::attackNamed(cell.attack).onKeeper != keeper && (every || !keeper); });
	return filtered(all, every ? std::vector<std::string>() : options.only, "case");
}

int runHostile(const HostileOptions& options)
{
	const std::vector<hostile::Case> cells = chosen(options);
	if (options.list)
	{
		for (const hostile::Case& cell : cells)
		{
			std::cout << cell.name << ": " << hostile::attackNamed(cell.attack).what
			          << (cell.note.empty() ? "" : "; " + cell.note) << '\n';
		}
		return 0;
	}
	requireLab(options.installRoot);
	const std::vector<hostile::Record> records = runAll(options, plansFor(options, cells), caseLimit);
	deliver(options, toText(records), records);
	return std::ranges::all_of(records, [](const hostile::Record& record) { return record.differences.empty(); }) ? 0
	                                                                                                              : 1;
}

constexpr int defaultMinutes = 10;

/// A step lasts at most this long; a worker that takes longer hangs.
constexpr Millis stepLimit{400000};

struct ChaosOptions : CampaignOptions
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

std::vector<chaos::Options> workersFor(const ChaosOptions& options)
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
	if (!worker.problem.empty())
	{
		results.problems.push_back({number, static_cast<int>(worker.parts.size()) + 1, worker.problem});
	}
}

int runChaos(const ChaosOptions& options)
{
	const std::vector<chaos::Options> workers = workersFor(options);
	requireLab(options.installRoot);
	chaos::Results results{options.seed, options.times.pair, {}, {}};
	runInWorkers(
	    workers.size(), static_cast<int>(workers.size()), limitOf(workers.front()),
	    [&](std::size_t index, const HandOver& handOver)
	    {
		    chaos::runWorker(workers[index],
		                     [&](const chaos::StepRecord& record)
		                     {
			                     report(record);
			                     handOver(jsonText(record));
		                     });
		    return "";
	    },
	    [&](const WorkerResult& result) { takeIn(result, workers[result.index].worker, results); });
	std::ranges::stable_sort(results.records, {}, &chaos::StepRecord::worker);
	deliver(options, toText(results), jsonOf(results));
	return results.good() ? 0 : 1;
}

} // namespace

void addLabOptions(CLI::App& command, std::string& installRoot, PairSettings& times)
{
	command.add_option("--install-root", installRoot,
	                   "Tree with the installed agent (default: the one staged by the build, else this machine's)");
	command
	    .add_option("--settings", times.profile,
	                "keeper: address and service are the keeper's; plain: shell commands raise and run them")
	    ->transform(CLI::CheckedTransformer(
	        std::map<std::string, Profile>{{"keeper", Profile::keeper}, {"plain", Profile::plain}}))
	    ->default_str(nameOf(times.profile));
	command.add_flag("--wireguard", times.wireguard, "The heartbeats go through a WireGuard tunnel");
	command.add_option("--interval", times.interval, "Seconds between heartbeats")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 60));
	command.add_option("--receiving-time", times.receivingTime, "Seconds of silence that count as one")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 60));
	command.add_option("--waiting-time", times.waitingTime, "Seconds between address and programs")
	    ->capture_default_str()
	    ->check(CLI::Range(0, 60));
}

void addMatrix(CLI::App& app, int& status)
{
	CLI::App* command = app.add_subcommand("matrix", "Inject every fault into pairs and compare with what is expected");
	const auto options = std::make_shared<MatrixOptions>();
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

void addHostile(CLI::App& app, int& status)
{
	CLI::App* command =
	    app.add_subcommand("hostile", "Attack pairs from a third host and compare with what is expected");
	const auto options = std::make_shared<HostileOptions>();
	// The table tells what comes of the plain settings.
	options->times.pair.profile = Profile::plain;
	addCampaignOptions(*command, *options);
	addCellOptions(*command, *options);
	command->add_option("--attack", options->only, "A case or a group of cases, or all (again for more)");
	command->add_option("--count", options->count, "Random messages of an attack")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 1000000));
	command
	    ->add_option("--mitigation", options->mitigation,
	                 "port: the shipped rules for the heartbeat port; firewall: all shipped rules; neighbours: "
	                 "and fixed ARP entries, and hardware addresses in the rules")
	    ->capture_default_str()
	    ->check(CLI::IsMember({"none", "port", "firewall", "neighbours"}));
	command->add_flag("--beside", options->beside, "With --wireguard: at the address on eth1, not at the tunnel's");
	command->add_flag("--json", options->json, "The records as JSON, for evidence/scripts/render.py");
	command->callback(
	    [&status, options]
	    {
		    options->form = options->json ? "json" : "text";
		    status = runHostile(*options);
	    });
}

void addChaos(CLI::App& app, int& status)
{
	CLI::App* command = app.add_subcommand("chaos", "Inject and repair faults at random and check the invariants");
	const auto options = std::make_shared<ChaosOptions>();
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
