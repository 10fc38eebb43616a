#include "ctl/check/Checks.h"

#include <algorithm>
#include <string>
#include <vector>

#include "ctl/status/AgentProcess.h"
#include "inspect/Host.h"
#include "inspect/HostProcesses.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

/// What a node logs in a day, both workers at a pace of a second.
constexpr std::uintmax_t kLogPerDay = 110ULL * 1000 * 1000;
constexpr std::uintmax_t kMegabyte = 1000ULL * 1000;

void pings(Findings& findings)
{
	if (host::ignoresPings())
	{
		findings.add("pings-ignored", {findings.file.path()});
	}
	const std::optional<std::string> why = host::whyNoPing();
	if (why && host::user() != 0)
	{
		findings.notChecked("whether the agent may send pings", "only root may try");
	}
	else if (why)
	{
		findings.add("no-raw-sockets", {findings.file.path()}, *why);
	}
}

void ports(Findings& findings, const Paths& paths)
{
	const int port = findings.file.integer(key::kReceivePort).value_or(0);
	if (port < 1 || port > 65535)
	{
		return;
	}
	if (host::isOutgoingPort(port).value_or(false))
	{
		findings.add("port-of-outgoing-connections", key::kReceivePort, port);
	}
	const Agent agent = lookForAgent(paths);
	if (agent.lives() || agent.foreign != 0)
	{
		findings.notChecked("whether port " + std::to_string(port) + " is free", "the agent runs and uses it");
	}
	else if (host::isPortTaken(findings.valueOf(key::kThisServerIP), port))
	{
		findings.add("port-taken", key::kReceivePort, port);
	}
}

/// @return whole days of the purge age, at least one; nothing for what has no age
std::optional<std::uintmax_t> daysOf(const std::string& age)
{
	const std::size_t digits = std::min(age.find_first_not_of("0123456789"), age.size());
	if (digits == 0 || digits > 6)
	{
		return std::nullopt;
	}
	const std::uintmax_t number = std::stoul(age.substr(0, digits));
	for (const auto& [unit, days] : {std::pair("month", 30U), std::pair("week", 7U), std::pair("day", 1U)})
	{
		if (age.find(unit) != std::string::npos)
		{
			return number * days;
		}
	}
	return 1;
}

void logSpace(Findings& findings, const Paths& paths)
{
	const std::filesystem::path log = findings.valueOf(key::kLogPath);
	const std::optional<std::uintmax_t> days = daysOf(findings.valueOf(key::kPurgeAge));
	const std::optional<std::uintmax_t> space = host::freeSpace(paths.below(log.parent_path()));
	// The day that is being written comes on top.
	if (!log.is_absolute() || !days || !space || (*days + 1) * kLogPerDay <= *space)
	{
		return;
	}
	findings.add("little-log-space", key::kPurgeAge, *days, (*days + 1) * kLogPerDay / kMegabyte, *space / kMegabyte);
}

/// Processes of other programs that the agent will take for a managed one.
void namesakes(Findings& findings)
{
	const std::vector<host::Process> processes = host::processes().value_or(std::vector<host::Process>{});
	for (const Program& program : programsOf(findings))
	{
		const auto other = std::ranges::find_if(processes,
		                                        [&](const host::Process& process)
		                                        {
			                                        return !program.name.empty() && process.name != program.name &&
			                                               process.name.find(program.name) != std::string::npos &&
			                                               process.name != kAgentName;
		                                        });
		if (other != processes.end())
		{
			findings.add("name-of-another-process", program.key, program.name, other->name, other->pid);
		}
	}
}

} // namespace

void machine(Findings& findings, const Paths& paths, bool reach)
{
	network(findings, host::addresses(), reach);
	tunnelMachine(findings, paths);
	pings(findings);
	ports(findings, paths);
	logSpace(findings, paths);
	namesakes(findings);
}

} // namespace velarix::ctl::checks
