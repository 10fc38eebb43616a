/// velarix-evidence: what the pair costs and how fast it is, beside what others
/// cost and how fast they are. The command line.

#include <cstdio>

#include <CLI/CLI.hpp>

#include "evidence/program/Idle.h"
#include "evidence/program/Peers.h"
#include "evidence/program/Takeover.h"
#include "lab/program/SharedOptions.h"

namespace
{

using namespace velarix;
using namespace velarix::evidence;

struct Arguments
{
	std::string installRoot;
	PairSettings times;
	PeerOptions peers;
	TakeoverOptions takeover;
	IdleOptions idle;
};

void addTakeover(CLI::App& app, Arguments& arguments, int& status)
{
	CLI::App* command =
	    app.add_subcommand("takeover", "Measure what take-overs last beyond the waits that the agent prescribes");
	lab::program::addLabOptions(*command, arguments.installRoot, arguments.times);
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
	lab::program::addReportOptions(*command, takeover);
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

void addPeers(CLI::App& app, Arguments& arguments, int& status)
{
	CLI::App* command =
	    app.add_subcommand("peers", "Strike keepalived and ucarp with the faults of the matrix that apply to them");
	PeerOptions& peers = arguments.peers;
	command->add_option("--install-root", arguments.installRoot,
	                    "Tree with the installed agent; it is not started, but is a part of every lab");
	lab::program::addCampaignOptions(*command, peers);
	command->add_option("--program", peers.programs, "keepalived or ucarp (default: both)")
	    ->check(CLI::IsMember({"keepalived", "ucarp"}));
	command->add_option("--settings", peers.settings, "defaults or short (default: both)")
	    ->check(CLI::IsMember({"defaults", "short"}));
	command->add_option("--timelines", peers.timelines, "Directory for the timelines and logs of all runs");
	command->footer("keepalived and ucarp are started inside the lab's hosts only.\n"
	                "Ends with 0 when every run got to its end, with 1 when not.");
	command->callback(
	    [&]
	    {
		    arguments.peers.installRoot = arguments.installRoot;
		    status = runPeers(arguments.peers);
	    });
}

void addIdle(CLI::App& app, Arguments& arguments, int& status)
{
	CLI::App* command =
	    app.add_subcommand("idle", "Measure what agent, keepalived and monit cost while nothing happens");
	lab::program::addLabOptions(*command, arguments.installRoot, arguments.times);
	IdleOptions& idle = arguments.idle;
	command->add_option("--seconds", idle.seconds, "How long a window is")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 86400));
	command->add_option("--windows", idle.windows, "How many windows; the median of them is told")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 1000));
	command->add_option("--guard", idle.guards, "Only this one (again for more): VelarixHA, keepalived, monit")
	    ->check(CLI::IsMember({"VelarixHA", "keepalived", "monit"}));
	lab::program::addReportOptions(*command, idle);
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
	CLI::App app("Measures the pair in the lab, beside other programs of the field. Needs root.", "velarix-evidence");
	Arguments arguments;
	int status = 0;
	app.require_subcommand(1);
	addPeers(app, arguments, status);
	addTakeover(app, arguments, status);
	addIdle(app, arguments, status);
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
		std::fprintf(stderr, "velarix-evidence: %s\n", error.what());
		return 2;
	}
}
