/// velarix-lab: a whole pair of nodes on one machine. The command line.

#include <cstdio>

#include "lab/program/CommandLine.h"

namespace
{

using namespace velarix::lab::program;

constexpr const char* overview =
    "Runs two nodes, a gateway and a client in namespaces on this machine, with the agent as it is\n"
    "installed. Nothing of the machine is changed, and nothing is left behind however it ends.\n"
    "Needs root.";

int runProgram(int argc, char** argv)
{
	CLI::App app(overview, "velarix-lab");
	int status = 0;
	app.set_version_flag("--version", "velarix-lab " VELARIX_LAB_VERSION);
	app.require_subcommand(1);
	addPairCommands(app, status);
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
