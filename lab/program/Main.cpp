/// velarix-lab: a whole pair of nodes on one machine. The command line.

#include <cstdio>

#include <CLI/CLI.hpp>

#include "Chaos.h"
#include "Controls.h"
#include "Demo.h"
#include "Fault.h"
#include "Hostile.h"
#include "Idle.h"
#include "Lab.h"
#include "Matrix.h"
#include "PairCommands.h"
#include "Plan.h"
#include "Soak.h"
#include "Takeover.h"

namespace
{

using namespace velarix::lab;

constexpr const char* overview =
    "Runs two nodes, a gateway and a client in namespaces on this machine, with the agent as it is\n"
    "installed. Nothing of the machine is changed, and nothing is left behind however it ends.\n"
    "Needs root.";

std::string faultList()
{
	std::string text = "Faults:\n";
	for (const FaultInfo& info : allFaults())
	{
		text += "  " + std::string(info.name) + (info.onNode ? " NODE" : "") + "  (" + info.what +
		        (info.heal == nullptr ? "; heals by itself" : "") + ")\n";
	}
	return text;
}

/// What the options of all commands are read into.
struct Arguments
{
	DemoOptions demo;
	SupervisorOptions pair;
	MatrixOptions matrix;
	ChaosCommand chaos;
	SoakCommand soak;
	int slack = 2000;
	ControlOptions controls;
	HostileOptions hostile;
	TakeoverOptions takeover;
	IdleOptions idle;
	std::string installRoot;
	PairTimes times;
	std::string name = "lab";
	std::string stateBase = "/run/velarix-lab";
	bool noWait = false;
	bool noAgents = false;
	std::string wrapper;
	bool json = false;
	std::string fault;
	std::string node;
	std::string form = "text";
};

void addLabOptions(CLI::App& command, Arguments& arguments)
{
	command.add_option("--install-root", arguments.installRoot,
	                   "Tree with the installed agent (default: the one staged by the build, else this machine's)");
	command.add_option("--interval", arguments.times.interval, "Seconds between heartbeats")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 60));
	command.add_option("--receiving-time", arguments.times.receivingTime, "Seconds of silence that count as one")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 60));
	command.add_option("--waiting-time", arguments.times.waitingTime, "Seconds between address and programs")
	    ->capture_default_str()
	    ->check(CLI::Range(0, 60));
}

void addPairOptions(CLI::App& command, Arguments& arguments)
{
	command.add_option("--name", arguments.name, "Name of the lab")->capture_default_str();
	command.add_option("--state-dir", arguments.stateBase, "Directory of all labs that are kept running")
	    ->capture_default_str();
}

void addFaultArguments(CLI::App& command, Arguments& arguments)
{
	addPairOptions(command, arguments);
	command.add_option("fault", arguments.fault, "Name of the fault")->required();
	command.add_option("node", arguments.node, "Node it strikes: a or b");
	command.footer(faultList());
}

int runDemoCommand(Arguments& arguments)
{
	arguments.demo.installRoot = arguments.installRoot;
	arguments.demo.times = arguments.times;
	return runDemo(arguments.demo);
}

int runUp(Arguments& arguments, bool asSupervisor)
{
	StateDirectory directory(arguments.stateBase, arguments.name);
	const SupervisorOptions options{arguments.installRoot, arguments.times, !arguments.noAgents, arguments.wrapper};
	if (asSupervisor)
	{
		supervise(directory, options);
		return 0;
	}
	return pairUp(directory, options, !arguments.noWait);
}

int runExec(const Arguments& arguments, std::vector<std::string> words)
{
	if (words.size() > 1 && words[1] == "--")
	{
		words.erase(words.begin() + 1);
	}
	if (words.size() < 2)
	{
		throw LabError("exec needs a host and a command, for example: velarix-lab exec a ip addr");
	}
	return pairExec({arguments.stateBase, arguments.name}, words.front(), {words.begin() + 1, words.end()});
}

void addDemo(CLI::App& app, Arguments& arguments, int& status)
{
	CLI::App* demo = app.add_subcommand("demo", "Show what the pair does: election, take-over, return, hand-over");
	addLabOptions(*demo, arguments);
	demo->add_option("--svg", arguments.demo.svgFile, "Write the timeline as a picture to this file")
	    ->capture_default_str();
	demo->add_option("--json", arguments.demo.jsonFile, "Write phases and timeline to this file");
	demo->callback([&] { status = runDemoCommand(arguments); });
}

void addUpAndDown(CLI::App& app, Arguments& arguments, int& status)
{
	CLI::App* up = app.add_subcommand("up", "Start a pair and keep it running");
	addLabOptions(*up, arguments);
	addPairOptions(*up, arguments);
	up->add_flag("--no-wait", arguments.noWait, "Do not wait until the service answers");
	up->add_flag("--no-agents", arguments.noAgents, "Start the hosts only, not the agents");
	up->add_option("--wrap", arguments.wrapper, "Words in front of the agent's program, for example of an analyser");
	up->callback([&] { status = runUp(arguments, false); });

	CLI::App* supervisor = app.add_subcommand("supervise", "")->group("");
	addLabOptions(*supervisor, arguments);
	addPairOptions(*supervisor, arguments);
	supervisor->add_flag("--no-agents", arguments.noAgents);
	supervisor->add_option("--wrap", arguments.wrapper);
	supervisor->callback([&] { status = runUp(arguments, true); });

	CLI::App* down = app.add_subcommand("down", "End a pair that is kept running");
	addPairOptions(*down, arguments);
	down->callback([&] { status = pairDown({arguments.stateBase, arguments.name}); });
}

void addStatusAndExec(CLI::App& app, Arguments& arguments, int& status)
{
	CLI::App* state = app.add_subcommand("status", "Print roles, owner of the address and who answers the client");
	addPairOptions(*state, arguments);
	state->add_flag("--json", arguments.json, "As JSON");
	state->callback([&] { status = pairStatus({arguments.stateBase, arguments.name}, arguments.json); });

	CLI::App* exec = app.add_subcommand("exec", "Run a program on a host of the pair: exec HOST COMMAND...");
	addPairOptions(*exec, arguments);
	// No positionals of its own: from the host's name on nothing is parsed here.
	exec->prefix_command();
	exec->footer("HOST is a, b, gateway or client.\n"
	             "The host's own /usr (of a node), /run and /tmp can be written; every other file is this\n"
	             "machine's, read-only.");
	exec->callback([&, exec] { status = runExec(arguments, exec->remaining()); });
}

void addFaults(CLI::App& app, Arguments& arguments, int& status)
{
	for (const std::string verb : {"inject", "heal"})
	{
		CLI::App* command = app.add_subcommand(verb, verb == "inject" ? "Inject a fault" : "Heal a fault");
		addFaultArguments(*command, arguments);
		command->callback(
		    [&, verb] {
			    status = pairRequest({arguments.stateBase, arguments.name},
			                         verb + " " + arguments.fault + " " + arguments.node);
		    });
	}
	CLI::App* timeline = app.add_subcommand("timeline", "Print what has happened so far");
	addPairOptions(*timeline, arguments);
	timeline->add_option("--format", arguments.form, "text, json or svg")
	    ->capture_default_str()
	    ->check(CLI::IsMember({"text", "json", "svg"}));
	timeline->callback(
	    [&] {
		    status = pairRequest({arguments.stateBase, arguments.name}, "timeline " + arguments.form);
	    });
}

int runMatrixCommand(Arguments& arguments)
{
	arguments.matrix.installRoot = arguments.installRoot;
	arguments.matrix.times.pair = arguments.times;
	arguments.matrix.times.slack = Millis(arguments.slack);
	return runMatrix(arguments.matrix);
}

void addCampaignOptions(CLI::App& command, CampaignOptions& campaign)
{
	command.add_option("--runs", campaign.runs, "Runs of each cell")->capture_default_str()->check(CLI::Range(1, 1000));
	command.add_option("--seed", campaign.seed, "The moments of the faults follow from it")->capture_default_str();
	command.add_option("--only", campaign.only, "A cell or a group of cells (again for more)");
	command.add_option("--jobs", campaign.jobs, "Pairs side by side; they mostly wait")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 64));
	command.add_option("--format", campaign.form, "text, json or markdown")
	    ->capture_default_str()
	    ->check(CLI::IsMember({"text", "json", "markdown"}));
	command.add_option("--output", campaign.output, "Write the report to this file");
	command.add_option("--records", campaign.records, "Write the report as JSON to this file as well");
	command.add_option("--from", campaign.from, "Run nothing; tell what such a JSON file holds");
	command.add_flag("--list", campaign.list, "Name the cells and end");
}

void addTakeover(CLI::App& app, Arguments& arguments, int& status)
{
	CLI::App* command =
	    app.add_subcommand("takeover", "Measure what take-overs last beyond the waits that the agent prescribes");
	addLabOptions(*command, arguments);
	TakeoverOptions& takeover = arguments.takeover;
	takeover.runs = 30;
	command->add_option("--runs", takeover.runs, "Samples of each path")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 1000));
	command->add_option("--seed", takeover.seed, "The moments of the faults follow from it")->capture_default_str();
	command->add_option("--only", takeover.only, "A path (again for more)");
	command->add_option("--jobs", takeover.jobs, "Pairs side by side; they mostly wait")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 64));
	command->add_option("--format", takeover.form, "text or json")
	    ->capture_default_str()
	    ->check(CLI::IsMember({"text", "json"}));
	command->add_option("--output", takeover.output, "Write the report to this file");
	command->add_option("--records", takeover.records, "Write the report as JSON to this file as well");
	command->add_option("--timelines", takeover.timelines, "Directory for the timelines of runs that failed");
	command->footer("Ends with 0 when every path has its samples, with 1 when not.");
	command->callback(
	    [&]
	    {
		    arguments.takeover.installRoot = arguments.installRoot;
		    arguments.takeover.times = arguments.times;
		    status = runTakeover(arguments.takeover);
	    });
}

void addMatrix(CLI::App& app, Arguments& arguments, int& status)
{
	CLI::App* command = app.add_subcommand("matrix", "Strike pairs with every fault and compare with what is expected");
	addLabOptions(*command, arguments);
	MatrixOptions& matrix = arguments.matrix;
	addCampaignOptions(*command, matrix);
	command->add_option("--slack", arguments.slack, "Milliseconds allowed beyond the prescribed waits")
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
	CLI::App* command = app.add_subcommand("chaos", "Inject and heal faults at random and check the invariants");
	addLabOptions(*command, arguments);
	ChaosCommand& chaos = arguments.chaos;
	command->add_option("--seed", chaos.options.seed, "The whole schedule follows from it")->capture_default_str();
	command->add_option("--minutes", chaos.minutes, "Begin no step after that (default 10 without --steps)")
	    ->check(CLI::Range(1, 100000));
	command->add_option("--steps", chaos.steps, "End after so many steps, of all lanes together")
	    ->check(CLI::Range(1, 1000000));
	command->add_option("--jobs", chaos.jobs, "Lanes side by side, each a pair with a schedule of its own")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 64));
	command->add_option("--lane", chaos.lane, "Only this lane, from 0 on: to repeat what it did")
	    ->check(CLI::Range(0, 63));
	command->add_option("--expectations", chaos.expectations,
	                    "Table that names the faults (default: the built-in one)");
	command->add_option("--format", chaos.form, "text or json")
	    ->capture_default_str()
	    ->check(CLI::IsMember({"text", "json"}));
	command->add_option("--output", chaos.output, "Write the report to this file");
	command->add_option("--from", chaos.from, "Run nothing; tell what a report as JSON holds");
	command->footer("Ends with 0 when all invariants held after every step, with 1 when not.");
	command->callback([&] { status = runChaosCommand(arguments); });
}

int runSoakCommand(Arguments& arguments)
{
	arguments.soak.options.installRoot = arguments.installRoot;
	arguments.soak.options.times.pair = arguments.times;
	return runSoak(arguments.soak);
}

void addSoak(CLI::App& app, Arguments& arguments, int& status)
{
	CLI::App* command =
	    app.add_subcommand("soak", "Keep a pair under faults for long and look whether its agents grow");
	addLabOptions(*command, arguments);
	SoakCommand& soak = arguments.soak;
	command->add_option("--minutes", soak.minutes, "How long")->capture_default_str()->check(CLI::Range(1, 100000));
	command->add_option("--seed", soak.options.seed, "The schedule of the faults follows from it")
	    ->capture_default_str();
	command->add_option("--warm-up", soak.warmUp, "Seconds until growth of memory counts")
	    ->capture_default_str()
	    ->check(CLI::Range(0, 100000));
	command->add_flag("--restarts", soak.restarts, "Also faults that end an agent; each begins a new series");
	command->add_option("--expectations", soak.expectations, "Table that names the faults (default: the built-in one)");
	command->add_option("--json", soak.json, "Write all samples to this file");
	command->footer("Ends with 0 when no bound was crossed, with 1 when one was.");
	command->callback([&] { status = runSoakCommand(arguments); });
}

void addControls(CLI::App& app, Arguments& arguments, int& status)
{
	CLI::App* command =
	    app.add_subcommand("controls", "Strike keepalived and ucarp with the faults of the matrix that apply to them");
	ControlOptions& controls = arguments.controls;
	command->add_option("--install-root", arguments.installRoot,
	                    "Tree with the installed agent; it is not started, but is a part of every lab");
	addCampaignOptions(*command, controls);
	command->add_option("--program", controls.programs, "keepalived or ucarp (default: both)")
	    ->check(CLI::IsMember({"keepalived", "ucarp"}));
	command->add_option("--settings", controls.settings, "defaults or short (default: both)")
	    ->check(CLI::IsMember({"defaults", "short"}));
	command->add_option("--timelines", controls.timelines, "Directory for the timelines and logs of all runs");
	command->footer("keepalived and ucarp are started inside the lab's hosts only.\n"
	                "Ends with 0 when every run got to its end, with 1 when not.");
	command->callback(
	    [&]
	    {
		    arguments.controls.installRoot = arguments.installRoot;
		    status = runControls(arguments.controls);
	    });
}

void addHostile(CLI::App& app, Arguments& arguments, int& status)
{
	CLI::App* command = app.add_subcommand("hostile", "Let strangers loose on pairs and compare with what is expected");
	addLabOptions(*command, arguments);
	HostileOptions& hostile = arguments.hostile;
	command->add_option("--attack", hostile.attacks, "A case or a group of cases, or all (again for more)");
	command->add_option("--seed", hostile.seed, "Random messages follow from it")->capture_default_str();
	command->add_option("--count", hostile.count, "Random messages of an attack")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 1000000));
	command->add_flag("--firewall", hostile.firewall, "Behind the packet filter of docs/operating.md");
	command->add_flag("--neighbours", hostile.neighbours, "And with the fixed neighbours of docs/security.md");
	command->add_option("--jobs", hostile.jobs, "Pairs side by side")->capture_default_str()->check(CLI::Range(1, 64));
	command->add_flag("--json", hostile.json, "The report as JSON");
	command->add_flag("--markdown", hostile.markdown, "The report as a table for a document");
	command->add_option("--output", hostile.output, "Write the report to this file");
	command->add_option("--expectations", hostile.table, "Table of what is expected (default: the built-in one)");
	command->add_option("--timelines", hostile.timelines, "Directory for the timelines of cases that differ");
	command->add_flag("--list", hostile.list, "Name the cases and end");
	command->footer("Ends with 0 when every case was as expected, with 1 when not.");
	command->callback(
	    [&]
	    {
		    arguments.hostile.installRoot = arguments.installRoot;
		    arguments.hostile.times = arguments.times;
		    status = runHostileCommand(arguments.hostile);
	    });
}

void addIdle(CLI::App& app, Arguments& arguments, int& status)
{
	CLI::App* command =
	    app.add_subcommand("idle", "Measure what agent, keepalived and monit cost while nothing happens");
	addLabOptions(*command, arguments);
	IdleOptions& idle = arguments.idle;
	command->add_option("--seconds", idle.seconds, "How long is watched")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 86400));
	command->add_option("--guard", idle.guards, "Only this one (again for more): VelarixHA, keepalived, monit")
	    ->check(CLI::IsMember({"VelarixHA", "keepalived", "monit"}));
	command->add_option("--format", idle.form, "text or json")
	    ->capture_default_str()
	    ->check(CLI::IsMember({"text", "json"}));
	command->add_option("--output", idle.output, "Write the report to this file");
	command->add_option("--records", idle.records, "Write the report as JSON to this file as well");
	command->footer("The guards are started inside the lab's hosts only.\n"
	                "Ends with 0 when all was measured, with 1 when not.");
	command->callback(
	    [&]
	    {
		    arguments.idle.installRoot = arguments.installRoot;
		    arguments.idle.times = arguments.times;
		    status = runIdle(arguments.idle);
	    });
}

int runProgram(int argc, char** argv)
{
	CLI::App app(overview, "velarix-lab");
	Arguments arguments;
	int status = 0;
	app.set_version_flag("--version", "velarix-lab " VELARIX_LAB_VERSION);
	app.require_subcommand(1);
	addDemo(app, arguments, status);
	addUpAndDown(app, arguments, status);
	addStatusAndExec(app, arguments, status);
	addFaults(app, arguments, status);
	addMatrix(app, arguments, status);
	addControls(app, arguments, status);
	addHostile(app, arguments, status);
	addTakeover(app, arguments, status);
	addIdle(app, arguments, status);
	addChaos(app, arguments, status);
	addSoak(app, arguments, status);
	try
	{
		app.parse(argc, argv);
	}
	catch (const CLI::ParseError& error)
	{
		return app.exit(error) == 0 ? 0 : 2;
	}
	return status;
}

} // namespace

int main(int argc, char** argv)
{
	try
	{
		return runProgram(argc, argv);
	}
	catch (const std::exception& error)
	{
		std::fprintf(stderr, "velarix-lab: %s\n", error.what());
		return 2;
	}
}
