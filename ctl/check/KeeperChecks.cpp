#include "ctl/check/KeeperChecks.h"

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

#include <sysexits.h>

#include "ctl/Keeper.h"
#include "ctl/check/CommandRole.h"
#include "inspect/Host.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

namespace
{

/// What the keeper refuses or warns about, in its own words.
void take(Findings& findings, const KeeperFile& file, const std::vector<keeper::Finding>& found)
{
	for (const keeper::Finding& finding : found)
	{
		const bool warning = finding.status == 0;
		std::string id = warning ? "keeper-warning" : "keeper-settings";
		id = finding.status == EX_NOUSER ? "keeper-user" : id;
		id = finding.status == EX_UNAVAILABLE ? "keeper-unavailable" : id;
		findings.add(warning ? Severity::warning : Severity::error, file.path, finding.line,
		             {id, finding.text,
		              warning ? "the keeper starts all the same; address or service may not come up, or come up twice"
		                      : "the keeper does not start with it: no address is raised and no service runs",
		              finding.cure});
	}
}

void commandsOf(Findings& findings)
{
	const std::array<std::pair<const CommandRole*, const char*>, 3> verbs{
	    {{&kStartRole, "raise"}, {&kStopRole, "drop"}, {&kKillRole, "stop"}}};
	for (const auto& [role, verb] : verbs)
	{
		const std::string command = keeperCommand(verb);
		// A gate may stand in front: "fence-partner && keeper raise".
		if (!findings.file.text(role->key).value_or("").ends_with(command))
		{
			findings.error(role->key,
			               {"keeper-command", std::string(role->key) + " does not end in " + command,
			                std::string("the keeper does the rest alone: ") + role->useless, "write " + command});
		}
	}
}

void programsOf(Findings& findings, const KeeperFile& file)
{
	const std::vector<std::string> programs = findings.file.programs();
	const std::string address = keeperPath(keeper::kAddressProgram);
	if (programs.empty() || programs.front() != address)
	{
		const bool later = std::ranges::find(programs, address) != programs.end();
		findings.add(later ? Severity::warning : Severity::error, findings.file.path(), findings.lineFor(programKey(1)),
		             {"keeper-address-not-first", programKey(1) + " is not " + address,
		              later ? "the address is dropped only after the services before it have stopped"
		                    : "nothing holds the address: no service starts",
		              "name it first"});
	}
	for (std::size_t i = 0; i < programs.size(); ++i)
	{
		const std::string key = programKey(static_cast<int>(i) + 1);
		const std::string name = programName(programs[i]);
		if (!isKeepers(programs[i]))
		{
			findings.error(key, {"keeper-foreign-program", key + " is no program of the keeper: " + programs[i],
			                     "the kill command does not end it: after a failover it runs on both nodes",
			                     "make it a [service NAME] and write " + keeperPath("ha-NAME")});
		}
		else if (programs[i] != address && file.parsed.settings.find(name) == nullptr)
		{
			findings.error(key, {"keeper-service-missing",
			                     file.path.string() + " has no [service " + name.substr(keeper::kPrefix.size()) +
			                         "] for " + programs[i],
			                     "the program ends at its start: the service moves to and fro",
			                     "write the section, or take the program away"});
		}
	}
	for (const keeper::ServiceSettings& service : file.parsed.settings.services)
	{
		const std::string path = keeperPath(service.program);
		if (std::ranges::find(programs, path) == programs.end())
		{
			findings.add(Severity::warning, file.path, service.line,
			             {"keeper-service-unmanaged", "no PROCESS_PATH is " + path, "the service is never started",
			              "write the path, or take the section away"});
		}
	}
}

} // namespace

void keeperFile(Findings& findings, const KeeperFile& file)
{
	take(findings, file, file.parsed.findings);
	commandsOf(findings);
	programsOf(findings, file);
	const keeper::AddressSettings& address = file.parsed.settings.address;
	const std::string virtualIP = findings.file.text(key::kVirtualIP).value_or("");
	if (!address.text.empty() && address.text != virtualIP)
	{
		findings.add(Severity::error, file.path, address.line,
		             {"keeper-address-differs", "the address is " + address.text + ", and VIRTUAL_IP is " + virtualIP,
		              kStartRole.useless, "write the same address in both"});
	}
	if (!address.interface.empty() && address.interface != kServiceInterface)
	{
		findings.add(
		    Severity::warning, file.path, address.line,
		    {"keeper-another-interface", "the address is raised on " + address.interface,
		     "the agent watches the carrier of eth0: that of " + address.interface + " may go without a failover",
		     "raise it on eth0"});
	}
}

void keeperMachine(Findings& findings, const KeeperFile& file)
{
	take(findings, file, keeper::checkMachine(file.parsed.settings));
	const std::string& address = file.parsed.settings.address.text;
	if (!address.empty() && !host::hasOnLoopback("::" + address))
	{
		findings.add(Severity::warning, file.path, file.parsed.settings.address.line,
		             {"keeper-no-marker", "the interface lo has no IPv6, and no marker ::" + address,
		              "the agent counts down before each start of the address: a take-over lasts five seconds longer",
		              "switch IPv6 on for lo: sysctl -w net.ipv6.conf.lo.disable_ipv6=0, and the same in "
		              "/etc/sysctl.d"});
	}
}

void keeperPair(Findings& findings, const KeeperFile& own, const KeeperFile& partner)
{
	const keeper::AddressSettings& here = own.parsed.settings.address;
	const keeper::AddressSettings& there = partner.parsed.settings.address;
	if (here.line != 0 && there.line != 0 && here.defend == there.defend)
	{
		findings.add(Severity::error, own.path, here.line,
		             {"keeper-on-conflict",
		              std::string("on_conflict is ") + (here.defend ? "defend" : "yield") + " on both nodes",
		              here.defend ? "after a split-brain both nodes keep the address"
		                          : "after a split-brain both nodes drop the address, and services restart",
		              "write defend on the configured master and yield on the other node"});
	}
	const auto servicesOf = [](const KeeperFile& file)
	{
		std::vector<std::tuple<std::string, std::vector<std::string>, std::string, std::string>> services;
		for (const keeper::ServiceSettings& service : file.parsed.settings.services)
		{
			services.emplace_back(service.program, service.command, service.unit, service.user);
		}
		std::ranges::sort(services);
		return services;
	};
	if (std::tie(here.text, here.prefix) != std::tie(there.text, there.prefix) ||
	    servicesOf(own) != servicesOf(partner))
	{
		findings.add(Severity::warning, own.path, 0,
		             {"keeper-files-differ", "address or services are not those of " + partner.path.string(),
		              "after a failover the service is another one",
		              "write the same in both; on_conflict alone differs"});
	}
}

} // namespace velarix::ctl::checks
