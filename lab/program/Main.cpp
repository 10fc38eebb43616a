/// velarix-lab: a whole pair of nodes on one machine. The command line.

#include <cstdio>

#include "lab/core/Fault.h"
#include "lab/program/CommandLine.h"
#include "lab/program/PairCommands.h"

namespace
{

using namespace velarix::lab;
using namespace velarix::lab::program;

constexpr const char* overview =
    "Runs two nodes, a gateway and a client in namespaces on this machine, with the agent as it is\n"
    "installed. Nothing of the machine is changed, and nothing is left behind however it ends.\n"
    "Needs root.";

/// What the options of the commands for one pair are read into.
struct Arguments
{
	SupervisorOptions pair;
	std::string name = "lab";
	std::string stateBase = "/run/velarix-lab";
	bool noWait = false;
	bool noAgents = false;
	bool json = false;
	std::string fault;
	std::string node;

	StateDirectory directory() const { return {stateBase, name}; }
};

std::string faultList()
{
	std::string text = "Faults:\n";
	for (const FaultInfo& info : allFaults())
	{
		text += "  " + std::string(info.name) + (info.onNode ? " NODE" : "") + "  (" + info.what +
		        (info.repair == nullptr ? "; recovers by itself" : "") + ")\n";
	}
	return text;
}

int runUp(Arguments& arguments)
{
	StateDirectory directory = arguments.directory();
	arguments.pair.startAgents = !arguments.noAgents;
	return pairUp(directory, arguments.pair, !arguments.noWait);
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
	return pairExec(arguments.directory(), words.front(), {words.begin() + 1, words.end()});
}

/// A command for a pair that is kept running.
CLI::App* addCommand(CLI::App& app, Arguments& arguments, const std::string& name, const std::string& what)
{
	CLI::App* command = app.add_subcommand(name, what);
	command->add_option("--name", arguments.name, "Name of the lab")->capture_default_str();
	command->add_option("--state-dir", arguments.stateBase, "Directory of all labs that are kept running")
	    ->capture_default_str();
	return command;
}

void addPairCommands(CLI::App& app, Arguments& arguments, int& status)
{
	CLI::App* up = addCommand(app, arguments, "up", "Start a pair and keep it running");
	addLabOptions(*up, arguments.pair.installRoot, arguments.pair.times);
	up->add_flag("--no-wait", arguments.noWait, "Do not wait until the service answers");
	up->add_flag("--no-agents", arguments.noAgents, "Start the hosts only, not the agents");
	up->add_option("--wrap", arguments.pair.wrapper,
	               "Words in front of the agent's program, for example of an analyser");
	up->callback([&] { status = runUp(arguments); });

	CLI::App* down = addCommand(app, arguments, "down", "End a pair that is kept running");
	down->callback([&] { status = pairDown(arguments.directory()); });

	CLI::App* state =
	    addCommand(app, arguments, "status", "Print roles, owner of the address and who answers the client");
	state->add_flag("--json", arguments.json, "As JSON");
	state->callback([&] { status = pairStatus(arguments.directory(), arguments.json); });

	CLI::App* exec = addCommand(app, arguments, "exec", "Run a program on a host of the pair: exec HOST COMMAND...");
	// No positionals of its own: from the host's name on nothing is parsed here.
	exec->prefix_command();
	exec->footer("HOST is a, b, gateway or client.\n"
	             "The host's own /usr (of a node), /run and /tmp can be written; every other file is this\n"
	             "machine's, read-only.");
	exec->callback([&, exec] { status = runExec(arguments, exec->remaining()); });

	CLI::App* timeline = addCommand(app, arguments, "timeline", "Print what has happened so far");
	timeline->callback([&] { status = pairRequest(arguments.directory(), "timeline"); });
}

void addFaults(CLI::App& app, Arguments& arguments, int& status)
{
	for (const std::string verb : {"inject", "repair"})
	{
		CLI::App* command = addCommand(app, arguments, verb, verb == "inject" ? "Inject a fault" : "Repair a fault");
		command->add_option("fault", arguments.fault, "Name of the fault")->required();
		command->add_option("node", arguments.node, "Node it is injected into: a or b");
		command->footer(faultList());
		command->callback(
		    [&, verb]
		    { status = pairRequest(arguments.directory(), verb + " " + arguments.fault + " " + arguments.node); });
	}
}

int runProgram(int argc, char** argv)
{
	CLI::App app(overview, "velarix-lab");
	Arguments arguments;
	int status = 0;
	app.set_version_flag("--version", "velarix-lab " VELARIX_LAB_VERSION);
	app.require_subcommand(1);
	addPairCommands(app, arguments, status);
	addFaults(app, arguments, status);
	addMatrix(app, status);
	addHostile(app, status);
	addChaos(app, status);
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
