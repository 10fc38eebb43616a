// What the virtual IP commands do when they are run, away from the real network.

#include "ctl/check/Checks.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "ctl/check/CommandChecks.h"
#include "inspect/HostTrial.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

using host::Address;

constexpr std::chrono::seconds kLimit{20};

const Address* find(const std::vector<Address>& addresses, const std::string& address)
{
	const auto found = std::ranges::find(addresses, address, &Address::address);
	return found == addresses.end() ? nullptr : &*found;
}

std::string firstLine(const std::string& text)
{
	return text.substr(0, text.find('\n'));
}

void ends(Findings& findings, const CommandRole& role, const host::CommandRun& run)
{
	if (!run.ended)
	{
		findings.error(role.key,
		               {"trial-endless",
		                std::string(role.key) + " was tried and did not end within " + std::to_string(kLimit.count()) +
		                    " seconds, or left something behind that holds its "
		                    "output",
		                role.blocked, "discard the output of what stays behind: (... &) >/dev/null 2>&1"});
	}
}

void raised(Findings& findings, const host::CommandRun& run, const std::string& address)
{
	if (!run.output.empty())
	{
		findings.error(kStartRole.key,
		               {"trial-prints",
		                std::string(kStartRole.key) + " was tried and printed \"" + firstLine(run.output) + "\"",
		                "output counts as a failure: the agent waits and looks again, and raises an address "
		                "that \"ifconfig\" does not list over and over for ever",
		                "discard the output: ( ... ) >/dev/null 2>&1"});
	}
	const Address* there = find(run.addresses, address);
	if (there == nullptr)
	{
		findings.error(kStartRole.key,
		               {"trial-not-raised", std::string(kStartRole.key) + " was tried and did not raise " + address,
		                kStartRole.useless, "run the command by hand and see why"});
	}
	else if (!there->listed)
	{
		findings.warning(kStartRole.key,
		                 {"trial-not-listed",
		                  std::string(kStartRole.key) + " was tried and raised the address where \"ifconfig\" does not "
		                                                "list it",
		                  "the agent looks there: it relies on a ping of its own address alone, and raises the address "
		                  "again whenever that fails",
		                  "give it a label: label eth0:ha"});
	}
}

} // namespace

void trial(Findings& findings)
{
	const std::string address = findings.file.text(key::kVirtualIP).value_or("");
	host::TrialPlan plan{.start = findings.file.text(key::kStartCommand).value_or(""),
	                     .stop = findings.file.text(key::kStopCommand).value_or(""),
	                     .addresses = host::addresses(),
	                     .limit = kLimit};
	std::erase_if(plan.addresses, [&](const Address& there) { return there.address == address; });
	const host::Trial result = host::tryCommands(plan);
	if (!result.whyNot.empty())
	{
		findings.notChecked("what the virtual IP commands do", result.whyNot);
		return;
	}
	ends(findings, kStartRole, result.start);
	raised(findings, result.start, address);
	if (!result.start.ended)
	{
		return;
	}
	ends(findings, kStopRole, result.stop);
	if (find(result.start.addresses, address) != nullptr && find(result.stop.addresses, address) != nullptr)
	{
		findings.error(kStopRole.key,
		               {"trial-not-dropped", std::string(kStopRole.key) + " was tried and did not drop " + address,
		                kStopRole.useless, "run the command by hand and see why"});
	}
}

} // namespace velarix::ctl::checks
