#include "ctl/check/CommandOutput.h"

#include <algorithm>
#include <map>
#include <set>

#include "ctl/check/AddressCommand.h"

namespace velarix::ctl::shell
{

namespace
{

using Names = std::set<std::string>;

bool anyOf(const std::vector<std::string>& words, const Names& names)
{
	return std::any_of(words.begin() + 1, words.end(), [&](const std::string& word) { return names.contains(word); });
}

Output unless(bool silent)
{
	return silent ? Output::none : Output::some;
}

Output outputOfIp(const std::vector<std::string>& words)
{
	static const Names kChanges{"add", "del", "delete", "set", "flush", "replace", "change"};
	Command command;
	command.words = words;
	return unless(addressAction(command).has_value() || anyOf(words, kChanges));
}

} // namespace

Output outputOf(const std::vector<std::string>& words)
{
	static const Names kSilent{":",     "true",   "false",     "cd",       "sleep",   "export",  "set",
	                           "unset", "exit",   "return",    "wait",     "test",    "[",       "trap",
	                           "umask", "shift",  "break",     "kill",     "killall", "pkill",   "rm",
	                           "cp",    "mv",     "mkdir",     "touch",    "chmod",   "chown",   "ln",
	                           "exec",  "logger", "systemctl", "continue", "flock",   "modprobe"};
	static const Names kPrinting{"echo",  "printf", "cat", "date", "ls",   "ps",   "ping", "hostname", "id",
	                             "uname", "env",    "ss",  "df",   "find", "head", "tail", "wc"};
	static const Names kQuietOption{"arping", "grep", "egrep", "fgrep", "sysctl"};
	if (words.empty())
	{
		return Output::none;
	}
	const std::string program = baseName(words[0]);
	if (isOwnProgram(words))
	{
		return Output::notKnown;
	}
	if (program == "ip")
	{
		return outputOfIp(words);
	}
	if (program == "ifconfig")
	{
		return unless(words.size() >= 3);
	}
	if (kQuietOption.contains(program))
	{
		return unless(hasOption(words, 'q'));
	}
	if (kPrinting.contains(program))
	{
		return Output::some;
	}
	return kSilent.contains(program) ? Output::none : Output::notKnown;
}

bool runsForEver(const std::vector<std::string>& words)
{
	const std::string program = words.empty() ? "" : baseName(words[0]);
	if (program == "arping")
	{
		return !hasOption(words, 'c') && !hasOption(words, 'w') && !hasOption(words, 'f');
	}
	if (program == "ping")
	{
		return !hasOption(words, 'c') && !hasOption(words, 'w');
	}
	if (program == "tail")
	{
		return hasOption(words, 'f') || hasOption(words, 'F');
	}
	return program == "yes" || (program == "sleep" && words.size() > 1 && words[1] == "infinity");
}

namespace
{

/// "while true", "while ip addr show ... | grep -q ADDRESS": true as long as the
/// command has done its work.
bool holdsForEver(const Command& loop)
{
	static const Names kLasting{"true", ":", "ip", "ifconfig"};
	static const Names kLeaving{"break", "exit", "return"};
	bool lasting = false;
	bool leaving = false;
	for (std::size_t i = 0; i < loop.parts.size(); ++i)
	{
		Script part;
		part.commands = {loop.parts[i]};
		forEachSimple(part,
		              [&](const Command& command, const Place&)
		              {
			              const std::string program = command.words.empty() ? "" : baseName(command.words[0]);
			              lasting = lasting || (i < loop.conditions && kLasting.contains(program));
			              leaving = leaving || kLeaving.contains(program);
		              });
	}
	return loop.words.front() == "while" && lasting && !leaving;
}

} // namespace

bool inEndlessLoop(const Place& place)
{
	return std::ranges::any_of(place.within,
	                           [](const Command* outer) { return outer->kind == Kind::loop && holdsForEver(*outer); });
}

bool isOwnProgram(const std::vector<std::string>& words)
{
	if (words.empty() || words[0].find('/') == std::string::npos)
	{
		return false;
	}
	static const Names kSystem{"/bin/", "/sbin/", "/usr/bin/", "/usr/sbin/"};
	return !kSystem.contains(words[0].substr(0, words[0].rfind('/') + 1));
}

} // namespace velarix::ctl::shell
