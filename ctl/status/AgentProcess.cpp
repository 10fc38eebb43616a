#include "ctl/status/AgentProcess.h"

#include <algorithm>
#include <array>
#include <set>

#include "ctl/OutputFile.h"
#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/Names.h"
#include "inspect/Number.h"
#include "inspect/Pattern.h"
#include "inspect/Printable.h"
#include "inspect/TimeText.h"
#include "keeper/Settings.h"

namespace velarix::ctl
{

using std::chrono::system_clock;

namespace
{

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
	if (!process && host::isThere(pid))
	{
		return {AgentState::notKnown, named + " is hidden from this user", pid};
	}
	if (!process || process->state == 'Z' || process->state == 'X')
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
		// A line feed behind it, as of an edited file, does no harm.
		std::string text = readInputFile(paths.pid);
		text.erase(text.find_last_not_of(" \t\r\n") + 1);
		const pid_t pid = numberIn<pid_t>(text).value_or(0);
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
		// What the agent is about to run as a command is a copy of it until then.
		const bool own = agent.lives() && (process.pid == agent.pid || process.parent == agent.pid);
		if (host::isAgent(process) && process.state != 'Z' && !own)
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

std::string Maintenance::words() const
{
	return "since " + localText(since) + ", until " + localText(until) +
	       (reason.empty() ? "" : ": " + printable(reason));
}

std::optional<Maintenance> readMaintenance(const std::filesystem::path& record)
{
	if (host::fileFacts(record).kind == host::FileKind::missing)
	{
		return std::nullopt;
	}
	const std::string text = readInputFile(record);
	const auto field = [&](const std::string& key)
	{
		const std::vector<Pattern::Groups> found = Pattern("(?:^|\n)" + key + "=([^\n]*)").all(text);
		return found.empty() ? std::string() : found.back()[1];
	};
	const auto time = [&](const std::string& key)
	{
		const std::optional<long> seconds = numberIn<long>(field(key));
		return seconds ? system_clock::from_time_t(*seconds)
		               : throw Failure(ExitCode::settings,
		                               record.string() + " tells no time \"" + key + "\"; remove it and begin again");
	};
	return Maintenance{time("since"), time("until"), field("reason")};
}

void writeMaintenance(const std::filesystem::path& record, const Maintenance& maintenance)
{
	replaceFile(record, "since=" + std::to_string(system_clock::to_time_t(maintenance.since)) +
	                        "\nuntil=" + std::to_string(system_clock::to_time_t(maintenance.until)) +
	                        "\nreason=" + printable(maintenance.reason) + "\n");
	// For monitoring, whatever the administrator's mask is.
	std::filesystem::permissions(record, std::filesystem::perms(0644));
}

std::vector<host::Process> serviceWatchers()
{
	std::vector<host::Process> processes = host::processes().value_or(std::vector<host::Process>());
	std::erase_if(processes, [](const host::Process& process) { return process.user != 0; });
	std::set<pid_t> supervisors;
	for (const host::Process& process : processes)
	{
		if (process.name.starts_with(keeper::kPrefix) && process.name != keeper::kAddressProgram &&
		    process.name != keeper::kReachProgram)
		{
			supervisors.insert(process.pid);
		}
	}
	std::erase_if(processes, [&](const host::Process& process)
	              { return process.name != kKeeperWorker || !supervisors.contains(process.parent); });
	return processes;
}

} // namespace velarix::ctl
