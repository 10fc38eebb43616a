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
		findings.add(Severity::error, findings.file.path(), 0,
		             {"pings-ignored", "this machine answers no pings (net.ipv4.icmp_echo_ignore_all is set)",
		              "the agent pings the address that it has raised for ever and starts no program, and the partner "
		              "takes this node for dead",
		              "sysctl -w net.ipv4.icmp_echo_ignore_all=0, and the same in /etc/sysctl.d"});
	}
	const std::optional<std::string> why = host::whyNoPing();
	if (!why)
	{
		return;
	}
	if (host::user() != 0)
	{
		findings.notChecked("whether the agent may send pings", "only root may try");
		return;
	}
	findings.add(Severity::error, findings.file.path(), 0,
	             {"no-raw-sockets", "root may not open a raw socket here: " + *why,
	              "every ping counts as lost: whichever node becomes master gives up at once",
	              "give the agent CAP_NET_RAW"});
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
		findings.warning(
		    key::kReceivePort,
		    {"port-of-outgoing-connections",
		     "the kernel gives port " + std::to_string(port) + " to outgoing connections",
		     "the agent listens anew in each pass: when a connection has got the port meanwhile, the agent "
		     "ends",
		     "choose a port outside of net.ipv4.ip_local_port_range, or add it to "
		     "net.ipv4.ip_local_reserved_ports"});
	}
	const Agent agent = lookForAgent(paths);
	if (agent.lives() || agent.foreign != 0)
	{
		findings.notChecked("whether port " + std::to_string(port) + " is free", "the agent runs and uses it");
	}
	else if (host::isPortTaken(findings.file.text(key::kThisServerIP).value_or(""), port))
	{
		findings.error(key::kReceivePort,
		               {"port-taken", "another program listens on port " + std::to_string(port),
		                "the agent cannot listen there and ends at its start", "choose another port, in both files"});
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
	if (age.find("month") != std::string::npos)
	{
		return number * 30;
	}
	if (age.find("week") != std::string::npos)
	{
		return number * 7;
	}
	return age.find("day") != std::string::npos ? number : std::uintmax_t{1};
}

void logSpace(Findings& findings, const Paths& paths)
{
	const std::filesystem::path log = findings.file.text(key::kLogPath).value_or("");
	const std::optional<std::uintmax_t> days = daysOf(findings.file.text(key::kPurgeAge).value_or(""));
	const std::optional<std::uintmax_t> space = host::freeSpace(paths.below(log.parent_path()));
	// The day that is being written comes on top.
	if (!log.is_absolute() || !days || !space || (*days + 1) * kLogPerDay <= *space)
	{
		return;
	}
	findings.warning(
	    key::kPurgeAge,
	    {"little-log-space",
	     "logs of " + std::to_string(*days) + " days take about " +
	         std::to_string((*days + 1) * kLogPerDay / kMegabyte) + " MB, and " + std::to_string(*space / kMegabyte) +
	         " MB are free",
	     "on a full disk the receiver thread ends in silence while heartbeats still go out, and nobody takes "
	     "over",
	     "shorten the age, or move the log to a larger disk"});
}

/// Processes of other programs that the agent will take for a managed one.
void namesakes(Findings& findings)
{
	const std::vector<host::Process> processes = host::processes().value_or(std::vector<host::Process>{});
	int number = 0;
	for (const std::string& program : findings.file.programs())
	{
		++number;
		const std::string name = programName(program);
		const auto other = std::ranges::find_if(processes,
		                                        [&](const host::Process& process)
		                                        {
			                                        return !name.empty() && process.name != name &&
			                                               process.name.find(name) != std::string::npos &&
			                                               process.name != kAgentName;
		                                        });
		if (other != processes.end())
		{
			findings.warning(programKey(number),
			                 {"name-of-another-process",
			                  "\"" + name + "\" is a part of \"" + other->name + "\", process " +
			                      std::to_string(other->pid) + " of this machine",
			                  "the agent counts that process as the program: that the program has died is not noticed",
			                  "choose a name that nothing else on the node contains"});
		}
	}
}

} // namespace

void machine(Findings& findings, const Paths& paths, bool reach)
{
	interfaces(findings);
	network(findings, host::addresses(), reach);
	tunnelMachine(findings, paths);
	pings(findings);
	ports(findings, paths);
	logSpace(findings, paths);
	namesakes(findings);
}

} // namespace velarix::ctl::checks
