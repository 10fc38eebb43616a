#include "ctl/check/Checks.h"

#include <array>
#include <tuple>
#include <utility>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sysexits.h>

#include "ctl/Keeper.h"
#include "inspect/InputFile.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"
#include "keeper/PartnerLink.h"

namespace velarix::ctl::checks
{

namespace
{

namespace fs = std::filesystem;

/// What the keeper refuses or warns about, in its own words.
void take(Findings& findings, const KeeperFile& file, const std::vector<keeper::Finding>& found)
{
	for (const keeper::Finding& finding : found)
	{
		const char* refused = finding.status == EX_NOUSER ? "keeper-user" : "keeper-settings";
		refused = finding.status == EX_UNAVAILABLE ? "keeper-unavailable" : refused;
		findings.add(finding.status == 0 ? "keeper-warning" : refused, {file.path, finding.line}, finding.text,
		             finding.cure);
	}
}

/// Missing or not to be read, which is the one finding.
bool isNothing(const KeeperFile& file)
{
	return file.parsed.settings.address.line == 0 && file.parsed.settings.services.empty();
}

void commandsOf(Findings& findings)
{
	for (const auto& [role, verb] : {std::pair(&kStartRole, "raise"), {&kStopRole, "drop"}, {&kKillRole, "stop"}})
	{
		const std::string command = keeperCommand(verb);
		// A gate may stand in front: "fence-partner && keeper raise".
		findings.addWhen(!findings.valueOf(role->key).ends_with(command), "keeper-command", role->key, command,
		                 role->useless);
	}
}

void services(Findings& findings, const KeeperFile& file)
{
	const std::vector<std::string> paths = findings.file.programs();
	const std::string address = keeperPath(keeper::kAddressProgram);
	findings.addWhen(paths.empty() || paths.front() != address,
	                 contains(paths, address) ? "keeper-address-not-first/later" : "keeper-address-not-first",
	                 programKey(1), address);
	for (const Program& program : programsOf(findings))
	{
		if (!isKeepers(program.path))
		{
			findings.add("keeper-foreign-program", program.key, program.path, keeperPath("ha-NAME"));
		}
		else if (program.path != address && file.parsed.settings.find(program.name) == nullptr)
		{
			findings.add("keeper-service-missing", program.key, file.path, program.name.substr(keeper::kPrefix.size()),
			             program.path);
		}
	}
	for (const keeper::ServiceSettings& service : file.parsed.settings.services)
	{
		if (const std::string path = keeperPath(service.program); !contains(paths, path))
		{
			findings.add("keeper-service-unmanaged", {file.path, service.line}, path);
		}
	}
}

/// What [reachability] repeats of the agent's settings.
void reachOf(Findings& findings, const KeeperFile& file)
{
	const keeper::ReachSettings& reach = file.parsed.settings.reach;
	for (const auto& [name, value, key] : {std::tuple("address", reach.address, key::kGatewayIP),
	                                       {"own", reach.own, key::kThisServerIP},
	                                       {"partner", reach.partner, key::kPartnerIP}})
	{
		const std::string other = findings.valueOf(key);
		findings.addWhen(!value.empty() && value != other, "reach-address-differs", Place{file.path, reach.line}, name,
		                 value, key, other);
	}
}

fs::path keyBeside(const KeeperFile& file)
{
	return file.path.parent_path() / fs::path(keeper::kKeyFile).filename();
}

void reachMachine(Findings& findings, const KeeperFile& file)
{
	const keeper::ReachSettings& reach = file.parsed.settings.reach;
	for (const host::Address& there : host::addresses())
	{
		findings.addWhen(there.interface != "lo" && !reach.address.empty() && isInNetworkOf(there, reach.address),
		                 "reach-address-attached", Place{file.path, reach.line}, reach.address, there.interface,
		                 there.address, there.prefix);
	}
	const fs::path path = keyBeside(file);
	const host::FileFacts facts = host::fileFacts(path);
	const bool there = facts.kind == host::FileKind::regular;
	findings.addWhen(!there || (facts.mode & 077) != 0 || facts.owner != 0, "reach-key", Place{path},
	                 there ? "others than root may read the key of the reachability"
	                       : "there is no key of the reachability");
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

struct User
{
	uid_t id = 0;
	std::vector<gid_t> groups;
};

/// @return nothing for root, and for one that does not exist, which has a finding of its own
std::optional<User> userOf(const keeper::ServiceSettings& service)
{
	const passwd* found = service.user.empty() ? nullptr : ::getpwnam(service.user.c_str());
	if (found == nullptr || found->pw_uid == 0)
	{
		return std::nullopt;
	}
	User user{.id = found->pw_uid, .groups = std::vector<gid_t>(1024)};
	const group* own = service.group.empty() ? nullptr : ::getgrnam(service.group.c_str());
	int number = static_cast<int>(user.groups.size());
	::getgrouplist(service.user.c_str(), own != nullptr ? own->gr_gid : found->pw_gid, user.groups.data(), &number);
	user.groups.resize(static_cast<std::size_t>(std::clamp(number, 0, static_cast<int>(user.groups.size()))));
	return user;
}

/// @return whether the mode lets the user execute a file, or enter a directory
bool mayEnter(const User& user, const host::FileFacts& facts)
{
	if (facts.owner == user.id)
	{
		return (facts.mode & S_IXUSR) != 0;
	}
	const bool member = std::ranges::find(user.groups, facts.group) != user.groups.end();
	return (facts.mode & (member ? S_IXGRP : S_IXOTH)) != 0;
}

/// @return the first part of the path that stops the user; empty for none
fs::path obstacle(const User& user, const fs::path& path)
{
	std::error_code error;
	const fs::path target = fs::weakly_canonical(path, error);
	for (const fs::path& way : {path, target})
	{
		fs::path at;
		for (const fs::path& part : way)
		{
			at /= part;
			const host::FileFacts facts = host::fileFacts(at);
			const bool known = facts.kind != host::FileKind::missing && facts.kind != host::FileKind::notKnown;
			if (known && !mayEnter(user, facts))
			{
				return at;
			}
		}
	}
	return {};
}

void reach(Findings& findings, const Place& place, const keeper::ServiceSettings& service, const fs::path& path,
           const std::string& effect)
{
	const std::optional<User> user = userOf(service);
	const fs::path stops = user && path.is_absolute() ? obstacle(*user, path) : fs::path();
	if (!stops.empty())
	{
		// An access list may allow what the mode does not.
		findings.add("keeper-user-without-access", place, service.user, path, stops, effect);
	}
}

/// What "nice", "flock FILE" and the like run.
void inner(Findings& findings, const Paths& paths, const Place& place, const std::vector<std::string>& command,
           const std::string& effect, bool stays)
{
	const InnerCommand inner = innerCommand(command);
	const std::string program = inner.words.empty() || inner.elsewhere ? "" : inner.words.front();
	if (program.empty() || program == command.front() ||
	    (!program.starts_with('/') && program.find('/') != std::string::npos))
	{
		return;
	}
	if (const fs::path file = toolPath(paths, program); !file.empty())
	{
		programFile(findings, paths, {.file = file, .place = place, .effect = effect, .stays = stays});
		return;
	}
	// Another one may come with a mount, or a PATH of its own.
	findings.add(program.starts_with("/usr/") ? Severity::error : Severity::warning, "missing-program-file/command",
	             place, command.front(), program, effect);
}

} // namespace

void reachKeys(Findings& findings, const KeeperFile& own, const KeeperFile& partner)
{
	const fs::path here = keyBeside(own);
	const fs::path there = keyBeside(partner);
	findings.addWhen(own.parsed.settings.reach.line != 0 && isFile(here) && isFile(there) &&
	                     readInputFile(here) != readInputFile(there),
	                 "reach-key-differs", Place{here}, there);
}

void keeperFile(Findings& findings, const KeeperFile& file)
{
	take(findings, file, file.parsed.findings);
	commandsOf(findings);
	if (isNothing(file))
	{
		return;
	}
	services(findings, file);
	reachOf(findings, file);
	const keeper::AddressSettings& address = file.parsed.settings.address;
	const std::string virtualIP = findings.valueOf(key::kVirtualIP);
	findings.addWhen(!address.text.empty() && address.text != virtualIP, "keeper-address-differs",
	                 Place{file.path, address.line}, address.text, virtualIP);
	findings.addWhen(!address.interface.empty() && address.interface != kServiceInterface, "keeper-another-interface",
	                 Place{file.path, address.line}, address.interface);
}

void keeperPrograms(Findings& findings, const KeeperFile& file, const Paths& paths)
{
	for (const keeper::ServiceSettings& service : file.parsed.settings.services)
	{
		const std::array<std::tuple<const std::vector<std::string>*, int, const char*>, 2> commands{
		    {{&service.command, service.commandLine, "the service does not start: it fails here and moves on"},
		     {&service.check, service.line, "every check fails: the service is restarted without end, and moves"}}};
		for (const auto& [command, line, effect] : commands)
		{
			const Place place{file.path, line};
			const fs::path program = command->empty() ? fs::path() : toolPath(paths, command->front());
			if (!program.empty())
			{
				const bool stays = command == &service.command;
				programFile(findings, paths, {.file = program, .place = place, .effect = effect, .stays = stays});
				inner(findings, paths, place, *command, effect, stays);
				paths.elsewhere() ? void() : reach(findings, place, service, program, effect);
			}
			else if (!command->empty() && paths.elsewhere())
			{
				findings.add("keeper-unavailable/elsewhere", place, command->front(), effect);
			}
		}
		paths.elsewhere() ? void()
		                  : reach(findings, {file.path, service.line}, service, service.directory,
		                          "the service does not start: it fails here and moves on");
	}
	if (paths.elsewhere())
	{
		findings.notChecked("the users, units, directories and links of the services", "another root");
	}
}

void keeperMachine(Findings& findings, const KeeperFile& file)
{
	if (isNothing(file))
	{
		return;
	}
	std::vector<keeper::Finding> found = keeper::checkMachine(file.parsed.settings);
	const char* missing = findings.has("missing-interface") || findings.has("keeper-another-interface")
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
	findings.addWhen(here.line != 0 && there.line != 0 && here.defend == there.defend, "keeper-on-conflict",
	                 Place{own.path, here.line}, here.defend ? "defend" : "yield",
	                 here.defend ? "keep the address" : "drop the address, and services restart");
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
	findings.addWhen(std::tie(here.text, here.prefix) != std::tie(there.text, there.prefix) ||
	                     servicesOf(own) != servicesOf(partner) || reachOf(own) != reachOf(partner),
	                 "keeper-files-differ", Place{own.path}, partner.path);
}

} // namespace velarix::ctl::checks
