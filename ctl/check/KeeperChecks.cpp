#include "ctl/check/KeeperChecks.h"

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

#include <sysexits.h>

#include "ctl/Keeper.h"
#include "ctl/check/Checks.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"
#include "keeper/PartnerLink.h"

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

/// Missing or not to be read, which is the one finding.
bool isNothing(const KeeperFile& file)
{
	return file.parsed.settings.address.line == 0 && file.parsed.settings.services.empty();
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
			findings.add(Severity::error, file.path, service.line,
			             {"keeper-service-unmanaged", "no PROCESS_PATH up to PROCESS_NUM is " + path,
			              "the service is never started, and the keeper takes it for one that has ended",
			              "write the path and raise PROCESS_NUM, or take the section away"});
		}
	}
}

/// What [reachability] repeats of the agent's settings.
void reachOf(Findings& findings, const KeeperFile& file)
{
	const keeper::ReachSettings& reach = file.parsed.settings.reach;
	const std::array<std::tuple<const char*, const std::string*, const char*>, 3> same{
	    {{"address", &reach.address, key::kGatewayIP},
	     {"own", &reach.own, key::kThisServerIP},
	     {"partner", &reach.partner, key::kPartnerIP}}};
	for (const auto& [name, value, key] : same)
	{
		const std::string other = findings.file.text(key).value_or("");
		if (!value->empty() && *value != other)
		{
			findings.add(Severity::error, file.path, reach.line,
			             {"reach-address-differs",
			              std::string(name) + " of [reachability] is " + *value + ", and " + key + " is " + other,
			              "the agent pings an address that nobody keeps, or the partner is never asked",
			              "write the same address in both"});
		}
	}
}

std::filesystem::path keyBeside(const KeeperFile& file)
{
	return file.path.parent_path() / std::filesystem::path(keeper::kKeyFile).filename();
}

void reachMachine(Findings& findings, const KeeperFile& file)
{
	const keeper::ReachSettings& reach = file.parsed.settings.reach;
	for (const host::Address& there : host::addresses())
	{
		if (there.interface != "lo" && !reach.address.empty() &&
		    networkOf(there.address, there.prefix) == networkOf(reach.address, there.prefix))
		{
			findings.add(Severity::error, file.path, reach.line,
			             {"reach-address-attached",
			              reach.address + " is inside the network of " + there.interface + ", " + there.address + "/" +
			                  std::to_string(there.prefix),
			              "another host may have it and answer: a node that is cut off does not notice",
			              "take one that no network has, as 192.0.0.8, here and as GATEWAY_IP"});
		}
	}
	const std::filesystem::path path = keyBeside(file);
	const host::FileFacts facts = host::fileFacts(path);
	if (facts.kind == host::FileKind::regular && (facts.mode & 077) == 0 && facts.owner == 0)
	{
		return;
	}
	findings.add(Severity::error, path, 0,
	             {"reach-key",
	              facts.kind == host::FileKind::regular ? "others than root may read the key of the reachability"
	                                                    : "there is no key of the reachability",
	              "the partner cannot be asked, or anybody can answer for it: a node that loses its targets gives up",
	              "copy reachability.key from the other node: owner root, chmod 600"});
}

/// The keeper's own address on this machine has its label, and is no finding.
void addressMachine(Findings& findings, const KeeperFile& file)
{
	const keeper::AddressSettings& address = file.parsed.settings.address;
	if (address.address == 0 || address.interface.empty())
	{
		return; // has a finding of its own
	}
	raisedAddress(findings,
	              {.interface = address.interface,
	               .label = address.label(),
	               .address = address.text,
	               .prefix = address.prefix,
	               .listed = true},
	              host::addresses(), Place{file.path, address.line});
}

} // namespace

void reachKeys(Findings& findings, const KeeperFile& own, const KeeperFile& partner)
{
	const std::filesystem::path here = keyBeside(own);
	const std::filesystem::path there = keyBeside(partner);
	const auto isFile = [](const std::filesystem::path& path)
	{ return host::fileFacts(path).kind == host::FileKind::regular; };
	if (own.parsed.settings.reach.line != 0 && isFile(here) && isFile(there) &&
	    readInputFile(here) != readInputFile(there))
	{
		findings.add(Severity::error, here, 0,
		             {"reach-key-differs", "the key is not that of " + there.string(),
		              "neither node believes the other one: whoever loses its targets gives up",
		              "copy one node's key to the other one, and restart velarix-reach there"});
	}
}

void keeperFile(Findings& findings, const KeeperFile& file)
{
	take(findings, file, file.parsed.findings);
	commandsOf(findings);
	if (isNothing(file))
	{
		return;
	}
	programsOf(findings, file);
	reachOf(findings, file);
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
	if (isNothing(file))
	{
		return;
	}
	std::vector<keeper::Finding> found = keeper::checkMachine(file.parsed.settings);
	const char* missing = findings.hasAnywhere("missing-interface") || findings.hasAnywhere("keeper-another-interface")
	                          ? "there is no interface "
	                          : nullptr;
	std::erase_if(found, [&](const keeper::Finding& finding) { return missing && finding.text.starts_with(missing); });
	take(findings, file, found);
	addressMachine(findings, file);
	if (file.parsed.settings.reach.line != 0)
	{
		reachMachine(findings, file);
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
	const auto reachOf = [](const KeeperFile& file)
	{
		const keeper::ReachSettings& reach = file.parsed.settings.reach;
		return std::tuple(reach.line != 0, reach.interval, reach.failures, reach.port);
	};
	if (std::tie(here.text, here.prefix) != std::tie(there.text, there.prefix) ||
	    servicesOf(own) != servicesOf(partner) || reachOf(own) != reachOf(partner))
	{
		findings.add(Severity::warning, own.path, 0,
		             {"keeper-files-differ",
		              "address, services or reachability are not those of " + partner.path.string(),
		              "after a failover the service is another one",
		              "write the same in both; on_conflict differs, and may the targets"});
	}
}

} // namespace velarix::ctl::checks
