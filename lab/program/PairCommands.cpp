// The commands for a pair that is kept running.

#include "lab/program/CommandLine.h"

#include <csignal>
#include <iostream>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "lab/core/Basics.h"
#include "lab/core/Command.h"
#include "lab/core/Console.h"
#include "lab/core/Fault.h"
#include "lab/core/Lab.h"
#include "lab/core/Plan.h"
#include "lab/program/Supervisor.h"

namespace velarix::lab::program
{

namespace
{

constexpr Millis startLimit{30000};
constexpr Millis electionLimit{60000};
constexpr Millis downLimit{30000};

/// In a process and a session of its own, which outlive this command.
pid_t startSupervisor(StateDirectory& directory, const SupervisorOptions& options)
{
	directory.create();
	const Descriptor none(::open("/dev/null", O_RDONLY | O_CLOEXEC));
	const Descriptor messages(
	    ::open(directory.messages().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600));
	const pid_t child = ::fork();
	if (child < 0)
	{
		throwErrno("cannot make a process for the supervisor");
	}
	if (child > 0)
	{
		return child;
	}
	::setsid();
	::dup2(none.get(), STDIN_FILENO);
	::dup2(messages.get(), STDOUT_FILENO);
	::dup2(messages.get(), STDERR_FILENO);
	// Nothing that this command was given is kept open.
	::syscall(SYS_close_range, 3U, ~0U, 0U);
	try
	{
		supervise(directory, options);
		_exit(0);
	}
	catch (const std::exception& error)
	{
		std::fprintf(stderr, "velarix-lab: %s\n", error.what());
		_exit(2);
	}
}

nlohmann::json statusOf(const StateDirectory& directory)
{
	return nlohmann::json::parse(directory.ask("status"));
}

std::string stateIn(const nlohmann::json& status)
{
	const auto text = [&](const char* place)
	{ return status.at(nlohmann::json::json_pointer(place)).get<std::string>(); };
	return "address " + text("/address") + ", answer " + text("/service") + ", a " + text("/nodes/a/role") + ", b " +
	       text("/nodes/b/role");
}

void awaitSupervisor(const StateDirectory& directory, pid_t supervisor, Console& console)
{
	bool ended = false;
	const Wait ready{"the lab to be made", startLimit, {}, console.observer()};
	const bool came = ready.until(
	    [&]
	    {
		    ended = ::waitpid(supervisor, nullptr, WNOHANG) == supervisor;
		    return ended || (directory.inUse() && std::filesystem::exists(directory.controlSocket()));
	    });
	if (ended || !came)
	{
		const std::string messages = contentIfAny(directory.messages());
		if (!directory.inUse())
		{
			directory.remove();
		}
		throw LabError("the lab did not come up: " + (messages.empty() ? "no word from its supervisor" : messages));
	}
}

bool awaitService(const StateDirectory& directory, Console& console)
{
	nlohmann::json status = statusOf(directory);
	const Wait served{"one node to serve alone", electionLimit, [&] { return stateIn(status); }, console.observer()};
	return served.until(
	    [&]
	    {
		    status = statusOf(directory);
		    return status["service"] != "none" && status["service"] == status["address"];
	    });
}

/// @return whether it was one that died
bool removeDead(const StateDirectory& directory, Console& console)
{
	const bool dead = directory.exists() && !directory.inUse();
	if (dead)
	{
		directory.remove();
		console.line("removed what a supervisor that died had left at " + directory.path().string());
	}
	return dead;
}

int pairUp(StateDirectory directory, const SupervisorOptions& options, bool wait)
{
	requireLab(options.installRoot);
	Console console;
	if (directory.inUse())
	{
		throw LabError("the lab \"" + directory.name() + "\" is up already (velarix-lab status, velarix-lab down)");
	}
	removeDead(directory, console);
	awaitSupervisor(directory, startSupervisor(directory, options), console);
	const bool served = !wait || !options.startAgents || awaitService(directory, console);
	console.line("the lab \"" + directory.name() + "\" is up: " + stateIn(statusOf(directory)));
	return served ? 0 : 1;
}

int pairDown(const StateDirectory& directory)
{
	if (!directory.exists())
	{
		throw LabError("no lab \"" + directory.name() + "\" is up");
	}
	Console console;
	if (removeDead(directory, console))
	{
		return 0;
	}
	directory.ask("down");
	const Wait gone{"the supervisor to end", downLimit, {}, console.observer()};
	if (!gone.until([&] { return !directory.exists(); }))
	{
		throw LabError("the supervisor of \"" + directory.name() + "\" does not end");
	}
	console.line("the lab \"" + directory.name() + "\" is down");
	return 0;
}

int pairStatus(const StateDirectory& directory, bool json)
{
	const nlohmann::json status = statusOf(directory);
	if (json)
	{
		std::cout << status.dump(1, '\t') << '\n';
		return 0;
	}
	std::cout << "lab      " << directory.name() << ", up for " << status["upMs"].get<long>() / 1000
	          << " s, supervisor " << status["supervisor"].get<long>() << '\n';
	for (const HostId id : nodes)
	{
		const nlohmann::json& node = status["nodes"][nameOf(id)];
		const long agent = node["agentPid"].get<long>();
		std::cout << "node " << nameOf(id) << "   " << node["role"].get<std::string>()
		          << (agent > 0 ? ", agent is process " + std::to_string(agent) : std::string()) << '\n';
	}
	const std::string owner = status["address"];
	const std::string answer = status["service"];
	std::cout << "address  " << plan::virtualAddress << " held by "
	          << (owner == "none" ? "nobody" : (owner == "a+b" ? "both nodes" : "node " + owner)) << '\n';
	std::cout << "service  http://" << plan::virtualAddress << ":" << plan::servicePort << "/ "
	          << (answer == "none" ? "does not answer the client" : "answered by node " + answer) << '\n';
	return 0;
}

/// @param words  the host's name, and a command
int pairExec(const StateDirectory& directory, std::vector<std::string> words)
{
	if (words.size() > 1 && words[1] == "--")
	{
		words.erase(words.begin() + 1);
	}
	if (words.size() < 2)
	{
		throw LabError("exec needs a host and a command, for example: velarix-lab exec a ip addr");
	}
	const std::string host = words.front();
	words.erase(words.begin());
	const pid_t pid = std::stoi(directory.ask("pid " + host));
	const Descriptor pidFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
	if (!pidFd)
	{
		throwErrno("cannot reach host " + host);
	}
	// The keyboard's signals are for the program.
	::signal(SIGINT, SIG_IGN);
	::signal(SIGQUIT, SIG_IGN);
	const pid_t child = spawn({words, {pidFd.get(), allNamespaces}, STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO, true});
	int status = 0;
	while (::waitpid(child, &status, 0) < 0 && errno == EINTR)
	{
	}
	const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
	if (code == 127)
	{
		std::cerr << "velarix-lab: " << words.front() << " was not found on host " << host << '\n';
	}
	return code;
}

/// What the options are read into.
struct Arguments
{
	SupervisorOptions options;
	std::string name = "lab";
	std::string stateBase = "/run/velarix-lab";
	bool noWait = false;
	bool noAgents = false;
	bool json = false;
	std::string fault;
	std::string node;
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

/// A command for a pair that is kept running.
CLI::App* addCommand(CLI::App& app, Arguments& arguments, const std::string& name, const std::string& what)
{
	CLI::App* command = app.add_subcommand(name, what);
	command->add_option("--name", arguments.name, "Name of the lab")->capture_default_str();
	command->add_option("--state-dir", arguments.stateBase, "Directory of all labs that are kept running")
	    ->capture_default_str();
	return command;
}

} // namespace

void addPairCommands(CLI::App& app, int& status)
{
	const auto given = std::make_shared<Arguments>();
	const auto pair = [given] { return StateDirectory(given->stateBase, given->name); };
	CLI::App* up = addCommand(app, *given, "up", "Start a pair and keep it running");
	addLabOptions(*up, given->options.installRoot, given->options.times);
	up->add_flag("--no-wait", given->noWait, "Do not wait until the service answers");
	up->add_flag("--no-agents", given->noAgents, "Start the hosts only, not the agents");
	up->add_option("--wrap", given->options.wrapper,
	               "Words in front of the agent's program, for example of an analyser");
	up->callback(
	    [=, &status]
	    {
		    given->options.startAgents = !given->noAgents;
		    status = pairUp(pair(), given->options, !given->noWait);
	    });

	CLI::App* down = addCommand(app, *given, "down", "End a pair that is kept running");
	down->callback([=, &status] { status = pairDown(pair()); });

	CLI::App* state = addCommand(app, *given, "status", "Print roles, owner of the address and who answers the client");
	state->add_flag("--json", given->json, "As JSON");
	state->callback([=, &status] { status = pairStatus(pair(), given->json); });

	CLI::App* exec = addCommand(app, *given, "exec", "Run a program on a host of the pair: exec HOST COMMAND...");
	// No positionals of its own: from the host's name on nothing is parsed here.
	exec->prefix_command();
	exec->footer("HOST is a, b, gateway or client.\n"
	             "The host's own /usr (of a node), /run and /tmp can be written; every other file is this\n"
	             "machine's, read-only.");
	exec->callback([=, &status] { status = pairExec(pair(), exec->remaining()); });

	CLI::App* timeline = addCommand(app, *given, "timeline", "Print what has happened so far");
	timeline->callback([=] { std::cout << pair().ask("timeline"); });

	for (const std::string verb : {"inject", "repair"})
	{
		CLI::App* command = addCommand(app, *given, verb, verb == "inject" ? "Inject a fault" : "Repair a fault");
		command->add_option("fault", given->fault, "Name of the fault")->required();
		command->add_option("node", given->node, "Node it is injected into: a or b");
		command->footer(faultList());
		command->callback([=] { pair().ask(verb + " " + given->fault + " " + given->node); });
	}
}

} // namespace velarix::lab::program
