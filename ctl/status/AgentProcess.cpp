#include "ctl/status/AgentProcess.h"

#include <algorithm>
#include <array>

#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/HostProcesses.h"
#include "inspect/InputFile.h"
#include "inspect/Names.h"
#include "inspect/Number.h"

namespace velarix::ctl
{

namespace
{

/// @return the number; 0 when the text is none. A line feed behind it, as of an
///         edited file, does no harm
pid_t pidIn(std::string text)
{
	text.erase(text.find_last_not_of(" \t\r\n") + 1);
	return std::max(numberIn<pid_t>(text).value_or(0), 0);
}

/// @return what somebody has to read for the agent to go on; empty when nobody has
std::string consoleOf(pid_t pid)
{
	const std::string output = host::standardOutput(pid);
	if (output.starts_with("pipe:"))
	{
		return "a pipe";
	}
	const bool terminal = output.starts_with("/dev/pts/") || output.starts_with("/dev/tty") || output == "/dev/console";
	return terminal ? "the terminal " + output : std::string();
}

Agent judge(pid_t pid)
{
	const std::string name = "process " + std::to_string(pid);
	const std::string named = name + " of the pid file";
	const std::optional<host::Process> process = host::process(pid);
	if (!process)
	{
		return host::isThere(pid) ? Agent{AgentState::notKnown, named + " is hidden from this user", pid}
		                          : Agent{AgentState::dead, named + " has ended", pid};
	}
	if (process->state == 'Z' || process->state == 'X')
	{
		return {AgentState::dead, named + " has ended", pid};
	}
	if (!host::isAgent(*process))
	{
		// The name alone would not tell a user's process from the agent.
		const std::string whose = process->name == kAgentName ? ", not the agent of root" : "";
		return {AgentState::otherProgram, named + " is another program now (" + process->name + whose + ")", pid};
	}
	const bool frozen = process->state == 'T' || process->state == 't';
	return {frozen ? AgentState::frozen : AgentState::running,
	        frozen ? name + " is stopped and does nothing until it is continued" : "",
	        pid,
	        process->threads,
	        host::startOf(pid),
	        consoleOf(pid)};
}

Agent readPidFile(const Paths& paths)
{
	const std::string file = paths.pid.string();
	if (host::fileFacts(paths.pid).kind == host::FileKind::missing)
	{
		return {AgentState::noPidFile, "there is no pid file " + file};
	}
	try
	{
		const pid_t pid = pidIn(readInputFile(paths.pid));
		return pid > 0 ? judge(pid) : Agent{AgentState::notKnown, "the pid file " + file + " holds no process id"};
	}
	catch (const Failure& failure)
	{
		return {AgentState::notKnown, failure.what()};
	}
}

/// A second agent, or one that has not yet written its pid file.
pid_t foreignBeside(const Agent& agent)
{
	for (const host::Process& process : host::processes().value_or(std::vector<host::Process>{}))
	{
		if (host::isAgent(process) && process.state != 'Z' && !(agent.lives() && process.pid == agent.pid))
		{
			return process.pid;
		}
	}
	return 0;
}

} // namespace

std::string_view wordOf(AgentState state)
{
	static constexpr std::array<std::string_view, 6> words{"running",       "frozen",      "dead",
	                                                       "other-program", "no-pid-file", "not-known"};
	return words.at(static_cast<std::size_t>(state));
}

Agent lookForAgent(const Paths& paths)
{
	if (paths.elsewhere())
	{
		return {AgentState::notKnown, "these are the files of another root, whose processes are not known"};
	}
	Agent agent = readPidFile(paths);
	agent.foreign = foreignBeside(agent);
	return agent;
}

} // namespace velarix::ctl
