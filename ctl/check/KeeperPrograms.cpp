// What the keeper runs: whether the kernel takes it, and whether the service's user reaches it.

#include "ctl/check/KeeperChecks.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <tuple>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include "ctl/Keeper.h"
#include "ctl/check/Checks.h"
#include "ctl/check/CommandText.h"
#include "inspect/Host.h"

namespace velarix::ctl::checks
{

namespace
{

namespace fs = std::filesystem;

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
		findings.add(Severity::warning, place.file, place.line,
		             {"keeper-user-without-access",
		              service.user + " does not reach " + path.string() + ": the mode of " + stops.string() +
		                  " does not let it in",
		              effect,
		              "chmod, or another user; try it: runuser -u " + service.user + " -- test -x " + path.string()});
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
		serviceProgram(findings, paths, place, file, effect, stays);
		return;
	}
	// Another one may come with a mount, or a PATH of its own.
	findings.add(program.starts_with("/usr/") ? Severity::error : Severity::warning, place.file, place.line,
	             {"missing-program-file", command.front() + " runs " + program + ", which is no program there", effect,
	              "install it, or correct its path"});
}

} // namespace

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
				serviceProgram(findings, paths, place, program, effect, stays);
				inner(findings, paths, place, *command, effect, stays);
				paths.elsewhere() ? void() : reach(findings, place, service, program, effect);
			}
			else if (!command->empty() && paths.elsewhere())
			{
				findings.add(Severity::error, place.file, place.line,
				             {"keeper-unavailable", command->front() + " is no program there", effect,
				              "install it, or correct its path"});
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

} // namespace velarix::ctl::checks
