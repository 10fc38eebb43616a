// The options of the commands that run many pairs, or one for long.

#include "lab/program/CommandLine.h"

namespace velarix::lab::program
{

namespace
{

void addReportOptions(CLI::App& command, ReportOptions& report)
{
	command.add_option("--format", report.form, "text or json")
	    ->capture_default_str()
	    ->check(CLI::IsMember({"text", "json"}));
	command.add_option("--output", report.output, "Write the report to this file");
	command.add_option("--records", report.records, "Write the report as JSON to this file as well");
}

int runMatrixCommand(Arguments& arguments)
{
	arguments.matrix.installRoot = arguments.installRoot;
	arguments.matrix.times.pair = arguments.times;
	arguments.matrix.times.slack = Millis(arguments.slack);
	return runMatrix(arguments.matrix);
}

void addMatrix(CLI::App& app, Arguments& arguments, int& status)
{
	CLI::App* command = app.add_subcommand("matrix", "Inject every fault into pairs and compare with what is expected");
	addLabOptions(*command, arguments.installRoot, arguments.times);
	MatrixOptions& matrix = arguments.matrix;
	command->add_option("--runs", matrix.runs, "Runs of each cell")->capture_default_str()->check(CLI::Range(1, 1000));
	command->add_option("--seed", matrix.seed, "The moments of the faults follow from it")->capture_default_str();
	command->add_option("--only", matrix.only, "A cell or a group of cells (again for more)");
	command->add_option("--jobs", matrix.jobs, "Pairs side by side; they mostly wait")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 64));
	addReportOptions(*command, matrix);
	command->add_flag("--list", matrix.list, "Name the cells and end");
	command->add_option("--slack", arguments.slack, "Milliseconds allowed beyond the fixed waits")
	    ->capture_default_str()
	    ->check(CLI::Range(0, 60000));
	command->add_option("--expectations", matrix.expectations, "Table of what is expected (default: the built-in one)");
	command->add_option("--timelines", matrix.timelines, "Directory for the timelines of runs that differ");
	command->add_flag("--short", matrix.shortForm, "The ten or so cells that stand for the whole");
	command->footer("Ends with 0 when every run was as expected, with 1 when not.");
	command->callback([&] { status = runMatrixCommand(arguments); });
}

int runChaosCommand(Arguments& arguments)
{
	arguments.chaos.options.installRoot = arguments.installRoot;
	arguments.chaos.options.times.pair = arguments.times;
	return runChaos(arguments.chaos);
}

void addChaos(CLI::App& app, Arguments& arguments, int& status)
{
	CLI::App* command = app.add_subcommand("chaos", "Inject and repair faults at random and check the invariants");
	addLabOptions(*command, arguments.installRoot, arguments.times);
	ChaosCommand& chaos = arguments.chaos;
	command->add_option("--seed", chaos.options.seed, "The whole schedule follows from it")->capture_default_str();
	command->add_option("--minutes", chaos.minutes, "Begin no step after that (default 10 without --steps)")
	    ->check(CLI::Range(1, 100000));
	command->add_option("--steps", chaos.steps, "End after so many steps, of all workers together")
	    ->check(CLI::Range(1, 1000000));
	command->add_option("--jobs", chaos.jobs, "Workers side by side, each a pair with a schedule of its own")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 64));
	command->add_option("--worker", chaos.worker, "Only this worker, from 0 on: to repeat what it did")
	    ->check(CLI::Range(0, 63));
	command->add_option("--expectations", chaos.expectations,
	                    "Table that names the faults (default: the built-in one)");
	addReportOptions(*command, chaos);
	command->footer("Ends with 0 when all invariants held after every step, with 1 when not.");
	command->callback([&] { status = runChaosCommand(arguments); });
}

void addHostile(CLI::App& app, Arguments& arguments, int& status)
{
	CLI::App* command =
	    app.add_subcommand("hostile", "Attack pairs from a third host and compare with what is expected");
	hostile::Options& hostile = arguments.hostile;
	// The table tells what comes of the plain settings.
	addLabOptions(*command, arguments.installRoot, hostile.times);
	command->add_option("--attack", hostile.attacks, "A case or a group of cases, or all (again for more)");
	command->add_option("--seed", hostile.seed, "Random messages follow from it")->capture_default_str();
	command->add_option("--count", hostile.count, "Random messages of an attack")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 1000000));
	command
	    ->add_option("--mitigation", hostile.mitigation,
	                 "port: the shipped rules for the heartbeat port; firewall: all shipped rules; neighbours: "
	                 "and fixed ARP entries, and hardware addresses in the rules")
	    ->capture_default_str()
	    ->check(CLI::IsMember({"none", "port", "firewall", "neighbours"}));
	command->add_flag("--beside", hostile.beside, "With --wireguard: at the address on eth1, not at the tunnel's");
	command->add_option("--jobs", hostile.jobs, "Pairs side by side")->capture_default_str()->check(CLI::Range(1, 64));
	command->add_flag("--json", hostile.json, "The records as JSON, for evidence/scripts/render.py");
	command->add_option("--output", hostile.output, "Write the report to this file");
	command->add_option("--expectations", hostile.table, "Table of what is expected (default: the built-in one)");
	command->add_option("--timelines", hostile.timelines, "Directory for the timelines of cases that differ");
	command->add_flag("--list", hostile.list, "Name the cases and end");
	command->footer("Ends with 0 when every case was as expected, with 1 when not.");
	command->callback(
	    [&]
	    {
		    arguments.hostile.installRoot = arguments.installRoot;
		    status = hostile::runCommand(arguments.hostile);
	    });
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

void addCampaigns(CLI::App& app, Arguments& arguments, int& status)
{
	addMatrix(app, arguments, status);
	addHostile(app, arguments, status);
	addChaos(app, arguments, status);
}

} // namespace velarix::lab::program
