// What the three commands do when they are run, away from the real network, files
// and processes.

#include "ctl/check/Checks.h"

#include <Poco/Net/IPAddress.h>

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

struct TrialReport
{
	Findings& findings;
	const TrialTimes& times;
	const std::string address = findings.valueOf(key::kVirtualIP);

	void report(const host::Trial& trial, const std::vector<Address>& before)
	{
		start(trial.start, before);
		const Address* raised = find(trial.start.addresses, address);
		dropped(trial.stop, raised);
		killed(trial.kill, raised);
	}

	/// The start command raises the address and is silent.
	static bool isFine(const host::Trial& trial, const std::string& virtualIP)
	{
		return trial.start.end == RunEnd::ended && trial.start.output.empty() &&
		       find(trial.start.addresses, virtualIP) != nullptr;
	}

	/// @return whether the command has come to its end
	bool ends(const CommandRole& role, const CommandRun& run)
	{
		const std::string left = run.remaining.empty() ? "" : ": " + run.remaining;
		if (run.end == RunEnd::slow)
		{
			findings.add("slow-command", role.key, times.limit.count() / 1000, left);
		}
		else if (run.end == RunEnd::flood || (run.end == RunEnd::endless && !run.shellEnded))
		{
			const std::string patience = std::to_string(times.patience.count() / 1000);
			findings.add("endless-command", role.key,
			             run.end == RunEnd::flood ? "never stops printing" + left
			                                      : "still ran after " + patience + " seconds" + left,
			             role.blocked);
		}
		else if (run.end == RunEnd::endless)
		{
			findings.add("held-output", role.key, left, role.blocked);
		}
		else if (run.heldMilliseconds > kHeldMilliseconds)
		{
			findings.add("held-output/shortly", role.key, run.heldMilliseconds);
		}
		return run.end == RunEnd::ended;
	}

	void start(const CommandRun& run, const std::vector<Address>& before)
	{
		findings.addWhen(ends(kStartRole, run) && !run.output.empty(), "start-command-prints", kStartRole.key,
		                 firstLine(run.output));
		const Address* raised = find(run.addresses, address);
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
		if (findings.has("another-address-raised", kStartRole.key) || findings.has("missing-tool", kStartRole.key))
		{
			return;
		}
		const auto other =
		    std::ranges::find_if(run.addresses, [&](const Address& there)
		                         { return there.interface != "lo" && find(before, there.address) == nullptr; });
		other != run.addresses.end()
		    ? findings.add("another-address-raised/tried", kStartRole.key, other->address, address)
		    : findings.add("raises-nothing", kStartRole.key, address, reason(run));
	}

	void placed(const Address& raised, const std::vector<Address>& before)
	{
		const bool known = raised.interface == kServiceInterface || raised.interface == kCommunicationInterface ||
		                   contains(before, raised.interface, &Address::interface);
		if (!known && !raised.listed)
		{
			findings.add("label-of-another-interface", kStartRole.key, raised.label);
			return;
		}
		findings.addWhen(raised.interface != kServiceInterface, "another-interface", kStartRole.key, raised.interface);
		findings.addWhen(!raised.listed, "address-without-label", kStartRole.key);
	}

	/// @param raised how the start command raises the address; null when it does not,
	///        which has been reported
	bool keeps(const CommandRole& role, const CommandRun& run, const Address* raised) const
	{
		return raised != nullptr && run.end == RunEnd::ended && find(run.addresses, address) != nullptr &&
		       !findings.has("another-prefix-dropped") && !findings.has("another-address-dropped", role.key) &&
		       !findings.has("missing-tool", role.key);
	}

	void dropped(const CommandRun& run, const Address* raised)
	{
		ends(kStopRole, run);
		if (keeps(kStopRole, run, raised))
		{
			findings.add("drops-nothing", kStopRole.key, address, reason(run), written(*raised));
		}
	}

	void killed(const CommandRun& run, const Address* raised)
	{
		ends(kKillRole, run);
		findings.addWhen(run.end == RunEnd::ended && !run.output.empty(), "kill-command-prints", kKillRole.key,
		                 firstLine(run.output));
		if (keeps(kKillRole, run, raised))
		{
			findings.add("kill-keeps-address", kKillRole.key, reason(run), written(*raised));
		}
		findings.addWhen(run.end == RunEnd::ended && run.programStarted && !run.programEnded &&
		                     !findings.has("kill-by-name", kKillRole.key) &&
		                     !findings.has("missing-tool", kKillRole.key),
		                 "kills-nothing", kKillRole.key, reason(run));
	}

	static std::string written(const Address& raised)
	{
		return raised.address + "/" + std::to_string(raised.prefix) + " dev " + raised.interface;
	}
};

/// @return the command; empty when it is not to be run
std::string runnable(Findings& findings, const CommandRole& role)
{
	const CommandText command = commandOf(findings, role.key);
	// What the text has shown to be wrong is not reported a second time by its effects.
	if (command.text.empty() || findings.has("broken-command", role.key) ||
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
	return command.text;
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
		              const std::size_t at = command.plain.find(program) + program.size();
		              return command.plain.find_first_of(";&|()", at) != command.plain.find("&&", at) ||
		                     command.plain.find("&&", at) == std::string::npos;
	              });
	return result;
}

host::TrialPlan planFor(Findings& findings, const std::vector<Address>& addresses, const TrialTimes& times)
{
	const std::vector<Program> programs = programsOf(findings);
	const Program program = programs.empty() || !programs[0].isPlain() ? Program{} : programs[0];
	host::TrialPlan plan{.start = runnable(findings, kStartRole),
	                     .stop = runnable(findings, kStopRole),
	                     .kill = runnable(findings, kKillRole),
	                     .virtualIP = findings.valueOf(key::kVirtualIP),
	                     .program = program.path,
	                     .stubs = {},
	                     .addresses = addresses,
	                     .limit = times.limit,
	                     .patience = times.patience};
	plan.kill += plan.kill.empty() ? "" : " " + program.name;
	std::erase_if(plan.addresses,
	              [&](const Address& there) { return there.address == plan.virtualIP || there.interface == "lo"; });
	return plan;
}

} // namespace

void trial(Findings& findings, const std::vector<Address>& addresses, const TrialTimes& times)
{
	host::TrialPlan plan = planFor(findings, addresses, times);
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
	TrialReport{findings, times}.report(result, plan.addresses);
	const Address* raised = find(result.start.addresses, plan.virtualIP);
	if (raised != nullptr && raised->interface == kServiceInterface)
	{
		raisedAddress(findings, *raised, addresses);
	}
}

} // namespace velarix::ctl::checks
