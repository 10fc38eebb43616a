// What the three commands do when they are run, away from the real network, files
// and processes.

#include "ctl/check/Checks.h"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <Poco/Net/IPAddress.h>

#include "ctl/check/CommandText.h"
#include "inspect/HostTrial.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using host::Address;
using host::CommandRun;
using host::RunEnd;

bool isVirtualAddress(const std::string& text)
{
	Poco::Net::IPAddress address;
	return Poco::Net::IPAddress::tryParse(text, address) && address.family() == Poco::Net::IPAddress::IPv4 &&
	       address.toString() == text;
}

namespace
{

/// What goes on for longer than that behind a command's end is no coincidence.
constexpr long kHeldMilliseconds = 500;

const Address* find(const std::vector<Address>& addresses, const std::string& address)
{
	const auto found = std::ranges::find(addresses, address, &Address::address);
	return found == addresses.end() ? nullptr : &*found;
}

std::string firstLine(const std::string& text)
{
	return text.substr(0, text.find('\n'));
}

/// @return what the command itself says, in brackets
std::string reason(const CommandRun& run)
{
	const std::string text = firstLine(!run.errors.empty() ? run.errors : run.output);
	return text.empty() ? "" : " (it says: " + text + ")";
}

class TrialReport
{
public:
	TrialReport(Findings& findings, const TrialTimes& times) : m_findings(findings), m_times(times) {}

	void report(const host::Trial& trial, const std::vector<Address>& before)
	{
		start(trial.start, before);
		const Address* raised = find(trial.start.addresses, m_address);
		dropped(trial.stop, raised);
		killed(trial.kill, raised);
	}

	/// The start command raises the address and is silent.
	static bool isFine(const host::Trial& trial, const std::string& address)
	{
		return trial.start.end == RunEnd::ended && trial.start.output.empty() &&
		       find(trial.start.addresses, address) != nullptr;
	}

private:
	/// @return whether the command has come to its end
	bool ends(const CommandRole& role, const CommandRun& run)
	{
		const std::string left = run.remaining.empty() ? "" : ": " + run.remaining;
		if (run.end == RunEnd::slow)
		{
			m_findings.warning(role.key,
			                   {"slow-command",
			                    std::string(role.key) + " was tried and has not done its work after " +
			                        std::to_string(m_times.limit.count() / 1000) + " seconds" + left,
			                    "each failover lasts that much longer; when it never ends the agent waits for ever",
			                    "run the command by hand and see how long it takes"});
		}
		else if (run.end == RunEnd::flood || (run.end == RunEnd::endless && !run.shellEnded))
		{
			const std::string seconds = std::to_string(m_times.patience.count() / 1000);
			m_findings.error(
			    role.key,
			    {"endless-command",
			     std::string(role.key) + " was tried and " +
			         (run.end == RunEnd::flood ? "never stops printing" : "still ran after " + seconds + " seconds") +
			         left,
			     role.blocked,
			     "give what does not end a limit (arping -c 3 -w 3), or put it into the background with "
			     "its output discarded: (... &) >/dev/null 2>&1"});
		}
		else if (run.end == RunEnd::endless || run.heldMilliseconds > kHeldMilliseconds)
		{
			held(role, run, left);
		}
		return run.end == RunEnd::ended;
	}

	void held(const CommandRole& role, const CommandRun& run, const std::string& left)
	{
		const bool forEver = run.end == RunEnd::endless;
		const Words words{"held-output",
		                  std::string(role.key) + " leaves something in the background with its output open" +
		                      (forEver ? left : " for " + std::to_string(run.heldMilliseconds) + " ms"),
		                  "the agent reads until the last one has closed the output" +
		                      (forEver ? ": " + std::string(role.blocked) : ", and waits that long"),
		                  "discard the output of what stays behind: (... &) >/dev/null 2>&1"};
		forEver ? m_findings.error(role.key, words) : m_findings.warning(role.key, words);
	}

	void start(const CommandRun& run, const std::vector<Address>& before)
	{
		if (ends(kStartRole, run) && !run.output.empty())
		{
			m_findings.error(kStartRole.key,
			                 {"start-command-prints",
			                  std::string(kStartRole.key) + " was tried and printed \"" + firstLine(run.output) + "\"",
			                  "output counts as a failure: the agent logs it, waits and looks again, so that the "
			                  "address comes at least five seconds late; one that \"ifconfig\" does not list is raised "
			                  "over and over for ever",
			                  "discard the output: ( ... ) >/dev/null 2>&1"});
		}
		const Address* raised = find(run.addresses, m_address);
		if (raised != nullptr)
		{
			placed(*raised, before);
		}
		else if (run.end == RunEnd::ended)
		{
			notRaised(run, before);
		}
	}

	void notRaised(const CommandRun& run, const std::vector<Address>& before)
	{
		if (m_findings.has("another-address-raised", kStartRole.key) || m_findings.has("missing-tool", kStartRole.key))
		{
			return;
		}
		const auto other =
		    std::ranges::find_if(run.addresses, [&](const Address& address)
		                         { return address.interface != "lo" && find(before, address.address) == nullptr; });
		if (other != run.addresses.end())
		{
			m_findings.error(kStartRole.key, {"another-address-raised",
			                                  std::string(kStartRole.key) + " was tried and raised " + other->address +
			                                      ", and VIRTUAL_IP is " + m_address,
			                                  kStartRole.useless, "let the command raise " + m_address});
			return;
		}
		m_findings.error(kStartRole.key,
		                 {"raises-nothing",
		                  std::string(kStartRole.key) + " was tried and did not raise " + m_address + reason(run),
		                  kStartRole.useless,
		                  "write ip addr add " + m_address +
		                      "/PREFIX dev eth0 label eth0:ha; the label begins with the interface "
		                      "and has at most 15 characters"});
	}

	void placed(const Address& raised, const std::vector<Address>& before)
	{
		const bool known = raised.interface == kServiceInterface || raised.interface == kCommunicationInterface ||
		                   std::ranges::find(before, raised.interface, &Address::interface) != before.end();
		if (!known && !raised.listed)
		{
			m_findings.error(kStartRole.key,
			                 {"label-of-another-interface",
			                  "the label " + raised.label + " does not begin with the name of an interface",
			                  "\"ifconfig\" does not list the address, where the agent looks: it relies on a ping of "
			                  "its own address alone, and raises the address again whenever that fails",
			                  "write \"label eth0:ha\""});
			return;
		}
		if (raised.interface != kServiceInterface)
		{
			m_findings.warning(kStartRole.key, {"another-interface", "the address is raised on " + raised.interface,
			                                    "the agent watches the carrier of eth0: that of " + raised.interface +
			                                        " may go without a failover",
			                                    "raise it on eth0"});
		}
		if (!raised.listed)
		{
			m_findings.warning(kStartRole.key,
			                   {"address-without-label", "the address is raised where \"ifconfig\" does not list it",
			                    "the agent looks there: it relies on a ping of its own address alone, and raises the "
			                    "address again whenever that fails",
			                    "give it a label: label eth0:ha"});
		}
	}

	/// @param raised how the start command raises the address; null when it does not,
	///        which has been reported
	bool keeps(const CommandRole& role, const CommandRun& run, const Address* raised) const
	{
		return raised != nullptr && run.end == RunEnd::ended && find(run.addresses, m_address) != nullptr &&
		       !m_findings.hasAnywhere("another-prefix-dropped") &&
		       !m_findings.has("another-address-dropped", role.key) && !m_findings.has("missing-tool", role.key);
	}

	void dropped(const CommandRun& run, const Address* raised)
	{
		ends(kStopRole, run);
		if (keeps(kStopRole, run, raised))
		{
			m_findings.error(kStopRole.key,
			                 {"drops-nothing",
			                  std::string(kStopRole.key) + " was tried and did not drop " + m_address + reason(run),
			                  kStopRole.useless, "write ip addr del " + written(*raised) + " >/dev/null 2>&1"});
		}
	}

	void killed(const CommandRun& run, const Address* raised)
	{
		ends(kKillRole, run);
		if (run.end == RunEnd::ended && !run.output.empty())
		{
			m_findings.warning(
			    kKillRole.key,
			    {"kill-command-prints",
			     std::string(kKillRole.key) + " was tried and printed \"" + firstLine(run.output) + "\"",
			     "the log gets it at every start and failover, once for each program",
			     "discard the output of what stands before the program that kills: ... >/dev/null 2>&1;"});
		}
		if (keeps(kKillRole, run, raised))
		{
			m_findings.warning(kKillRole.key,
			                   {"kill-keeps-address", "the kill command leaves the virtual IP in place" + reason(run),
			                    "a master that gives up because its pings fail does not drop the address otherwise: "
			                    "both nodes hold it (split-brain) until someone drops it by hand",
			                    "put \"ip addr del " + written(*raised) +
			                        " >/dev/null 2>&1;\" in front of it; every start raises the address again"});
		}
		survivor(run);
	}

	void survivor(const CommandRun& run)
	{
		if (run.end == RunEnd::ended && run.programStarted && !run.programEnded &&
		    !m_findings.has("kill-by-name", kKillRole.key) && !m_findings.has("missing-tool", kKillRole.key))
		{
			m_findings.error(kKillRole.key,
			                 {"kills-nothing",
			                  std::string(kKillRole.key) +
			                      " was tried with a program's name behind it, and the program still runs" +
			                      reason(run),
			                  kKillRole.useless, "let the command end in the program that kills: killall -q -9"});
		}
	}

	static std::string written(const Address& raised)
	{
		return raised.address + "/" + std::to_string(raised.prefix) + " dev " + raised.interface;
	}

	Findings& m_findings;
	const TrialTimes& m_times;
	const std::string m_address = m_findings.file.text(key::kVirtualIP).value_or("");
};

/// @return the command; empty when it is not to be run
std::string runnable(Findings& findings, const CommandRole& role)
{
	const CommandText command(findings.file.text(role.key).value_or(""));
	// What the text has shown to be wrong is not reported a second time by its effects.
	if (command.text().empty() || findings.has("broken-command", role.key) ||
	    findings.has("pasted-characters", role.key) || findings.has("program-name-lost", role.key))
	{
		return {};
	}
	if (command.asksService())
	{
		findings.notChecked("what " + std::string(role.key) + " does",
		                    "it asks a service of this machine, which the trial does without");
		return {};
	}
	return command.text();
}

/// "fence-partner && (ip addr add ...)": what stands before the "&&" asks the network,
/// and cannot succeed in the trial.
std::vector<std::string> gates(const std::string& start)
{
	const CommandText command(start);
	std::vector<std::string> result = command.ownPrograms();
	std::erase_if(result,
	              [&](const std::string& program)
	              {
		              const std::size_t at = command.plain().find(program) + program.size();
		              return command.plain().find_first_of(";&|()", at) != command.plain().find("&&", at) ||
		                     command.plain().find("&&", at) == std::string::npos;
	              });
	return result;
}

host::TrialPlan planFor(Findings& findings, const std::vector<Address>& addresses)
{
	const std::vector<std::string> programs = findings.file.programs();
	const bool plain = !programs.empty() && programs[0].starts_with('/') && !programName(programs[0]).empty() &&
	                   programs[0].find_first_of(" \t\"'") == std::string::npos;
	host::TrialPlan plan{.start = runnable(findings, kStartRole),
	                     .stop = runnable(findings, kStopRole),
	                     .kill = runnable(findings, kKillRole),
	                     .virtualIP = findings.file.text(key::kVirtualIP).value_or(""),
	                     .program = plain ? programs[0] : "",
	                     .stubs = {},
	                     .addresses = addresses,
	                     .limit = {},
	                     .patience = {}};
	plan.kill += plan.kill.empty() ? "" : " " + (plain ? programName(programs[0]) : "");
	std::erase_if(plan.addresses,
	              [&](const Address& there) { return there.address == plan.virtualIP || there.interface == "lo"; });
	return plan;
}

} // namespace

void trial(Findings& findings, const std::vector<Address>& addresses, const TrialTimes& times)
{
	host::TrialPlan plan = planFor(findings, addresses);
	plan.limit = times.limit;
	plan.patience = times.patience;
	if (!isVirtualAddress(plan.virtualIP) || (plan.start + plan.stop + plan.kill).empty())
	{
		return; // reported by the checks of the text
	}
	plan.stubs = gates(plan.start);
	host::Trial result = host::tryCommands(plan);
	if (result.whyNot.empty() && !plan.stubs.empty() && !TrialReport::isFine(result, plan.virtualIP))
	{
		plan.stubs.clear();
		result = host::tryCommands(plan);
	}
	if (!result.whyNot.empty())
	{
		findings.notChecked("what the commands do", result.whyNot);
		return;
	}
	if (!plan.stubs.empty())
	{
		findings.notChecked("what " + plan.stubs.front() + " does",
		                    "it decides by the network, which the trial has none of");
	}
	TrialReport(findings, times).report(result, plan.addresses);
	const Address* raised = find(result.start.addresses, plan.virtualIP);
	if (raised != nullptr && raised->interface == kServiceInterface)
	{
		raisedAddress(findings, *raised, addresses);
	}
}

} // namespace velarix::ctl::checks
