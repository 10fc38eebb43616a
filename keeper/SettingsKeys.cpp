// The keys of keeper.ini, each with what it sets; and what this machine lacks for the settings.
#include "keeper/Settings.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <type_traits>

#include <arpa/inet.h>
#include <glob.h>
#include <grp.h>
#include <net/if.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include "inspect/Number.h"

namespace velarix::keeper
{

namespace
{

using Words = std::vector<std::string>;

bool readNumber(std::string_view text, int low, int high, int& number)
{
	const auto read = inspect::numberIn<int>(text);
	number = read.value_or(number);
	return read && *read >= low && *read <= high;
}

/// @return in network byte order; nothing for what no host can have
std::optional<std::uint32_t> hostAddress(const std::string& text)
{
	in_addr read{};
	const bool dotted = ::inet_pton(AF_INET, text.c_str(), &read) == 1;
	const std::uint32_t host = ntohl(read.s_addr);
	const bool usable = dotted && host != 0 && host != INADDR_BROADCAST && !IN_MULTICAST(host) && (host >> 24U) != 127;
	return usable ? std::optional(read.s_addr) : std::nullopt;
}

bool setAddress(Settings& settings, const Words& words)
{
	AddressSettings& address = settings.address;
	const std::size_t slash = words[0].find('/');
	address.text = words[0].substr(0, slash);
	const std::optional<std::uint32_t> read = hostAddress(address.text);
	if (!read)
	{
		return false;
	}
	address.address = *read;
	return slash == std::string::npos || readNumber(words[0].substr(slash + 1), 8, 32, address.prefix);
}

bool setInterface(Settings& settings, const Words& words)
{
	settings.address.interface = words[0];
	return words[0].size() < IFNAMSIZ && words[0].find_first_of(" \t/:") == std::string::npos;
}

bool setOnConflict(Settings& settings, const Words& words)
{
	settings.address.defend = words[0] == "defend";
	return words[0] == "defend" || words[0] == "yield";
}

template <Words ServiceSettings::*Member> bool setWords(Settings& settings, const Words& words)
{
	settings.services.back().*Member = words;
	return true;
}

template <std::string ServiceSettings::*Member> bool setText(Settings& settings, const Words& words)
{
	settings.services.back().*Member = words[0];
	return true;
}

template <auto Member, int Low, int High> bool setNumber(Settings& settings, const Words& words)
{
	if constexpr (std::is_same_v<decltype(Member), int ReachSettings::*>)
	{
		return readNumber(words[0], Low, High, settings.reach.*Member);
	}
	else
	{
		return readNumber(words[0], Low, High, settings.services.back().*Member);
	}
}

bool setUnit(Settings& settings, const Words& words)
{
	constexpr std::string_view kAllowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789:-_.\\@";
	const std::string& unit = words[0];
	return setText<&ServiceSettings::unit>(settings, words) && unit.size() <= 255 && unit.ends_with(".service") &&
	       !unit.starts_with('.') && !unit.starts_with('-') && unit.find_first_not_of(kAllowed) == std::string::npos;
}

bool setDirectory(Settings& settings, const Words& words)
{
	return setText<&ServiceSettings::directory>(settings, words) && words[0].starts_with('/');
}

bool setEnvironment(Settings& settings, const Words& words)
{
	settings.services.back().environment = words;
	return std::ranges::all_of(words, [](const std::string& word)
	                           { return word.find('=') != std::string::npos && word[0] != '='; });
}

bool setRestarts(Settings& settings, const Words& words)
{
	ServiceSettings& service = settings.services.back();
	return words.size() == 3 && words[1] == "in" && readNumber(words[0], 0, 1000, service.restarts) &&
	       readNumber(words[2], 1, 86400, service.restartsWithin);
}

template <std::string ReachSettings::*Member> bool setReachAddress(Settings& settings, const Words& words)
{
	settings.reach.*Member = words[0];
	return hostAddress(words[0]).has_value();
}

bool setTargets(Settings& settings, const Words& words)
{
	constexpr std::size_t kMost = 8;
	settings.reach.targets = words;
	return words.size() <= kMost &&
	       std::ranges::all_of(words, [](const std::string& word) { return hostAddress(word).has_value(); });
}

using S = ServiceSettings;
using R = ReachSettings;
constexpr std::array<KeyInfo, 23> kKeys{{
    {"address", "address", "the virtual address, with its prefix when it is not a host route (/32)", "",
     "an IPv4 address of a host, with a prefix of /8 to /32 if wanted", setAddress},
    {"address", "interface", "the service interface, which carries it", "", "a name of at most 15 characters",
     setInterface},
    {"address", "on_conflict",
     "when another host holds it as well: announce it (the configured master) or give it up (the other node)", "",
     "defend or yield", setOnConflict},
    {"service", "command", "the program with its arguments, without a shell", "", "this or unit", setWords<&S::command>,
     true},
    {"service", "unit", "the systemd unit instead of a command; it has to be disabled", "", "NAME.service", setUnit},
    {"service", "user", "who runs it", "root", "a user", setText<&S::user>},
    {"service", "group", "its group", "the user's", "a group", setText<&S::group>},
    {"service", "directory", "where it runs", "/", "an absolute path", setDirectory},
    {"service", "environment", "added to its environment", "nothing", "NAME=value ...", setEnvironment, true},
    {"service", "check", "a command that ends with 0 while the service is well, run as its user", "none", "a command",
     setWords<&S::check>, true},
    {"service", "check_interval", "seconds between two checks", "2", "1 to 3600",
     setNumber<&S::checkInterval, 1, 3600>},
    {"service", "check_failures", "failed checks in a row that make it as good as dead", "3", "1 to 100",
     setNumber<&S::checkFailures, 1, 100>},
    {"service", "check_timeout", "seconds after which a check is ended and has failed", "half of check_interval",
     "1 to 3600", setNumber<&S::checkTimeout, 1, 3600>},
    {"service", "restarts", "how often it may be started again on this node, before the other one gets it", "3 in 60",
     "0 to 1000 in 1 to 86400 seconds, as 3 in 60", setRestarts, true},
    {"service", "stop_timeout", "seconds between TERM and KILL", "20", "0 to 3600",
     setNumber<&S::stopTimeout, 0, 3600>},
    {"reachability", "targets", "hosts that answer pings as long as this node's networks work", "",
     "1 to 8 IPv4 addresses", setTargets, true},
    {"reachability", "needed", "how many of the targets have to answer", "1", "1 to the number of targets",
     setNumber<&R::needed, 1, 8>},
    {"reachability", "interval", "seconds between two pings of each target, the same on both nodes", "1", "1 to 60",
     setNumber<&R::interval, 1, 60>},
    {"reachability", "failures", "unanswered pings in a row after which a target is lost, the same on both nodes", "3",
     "3 to 100", setNumber<&R::failures, 3, 100>},
    {"reachability", "address", "the same as GATEWAY_IP: on lo while enough targets answer", "",
     "an IPv4 address outside of all attached networks", setReachAddress<&R::address>},
    {"reachability", "own", "the same as THIS_SERVER_IP", "", "an IPv4 address", setReachAddress<&R::own>},
    {"reachability", "partner", "the same as PARTNER_IP, which is asked whether it reaches its targets", "",
     "an IPv4 address", setReachAddress<&R::partner>},
    {"reachability", "port", "UDP port of the question and the answer, the same on both nodes", "7000", "1 to 65535",
     setNumber<&R::port, 1, 65535>},
}};

// What this machine lacks for them.

using Findings = std::vector<Finding>;

void checkProgram(const std::vector<std::string>& words, const char* key, int line, Findings& findings)
{
	if (!words.empty() && findCommand(words.front()).empty())
	{
		findings.push_back({line, EX_UNAVAILABLE, std::string(key) + ": " + words.front() + " is no program here",
		                    "install it, or correct its path"});
	}
}

void checkUser(const ServiceSettings& service, Findings& findings)
{
	if (!service.user.empty() && ::getpwnam(service.user.c_str()) == nullptr)
	{
		findings.push_back(
		    {service.userLine, EX_NOUSER, "there is no user " + service.user, "make the user, or correct the name"});
	}
	if (!service.group.empty() && ::getgrnam(service.group.c_str()) == nullptr)
	{
		findings.push_back(
		    {service.userLine, EX_NOUSER, "there is no group " + service.group, "make the group, or correct the name"});
	}
}

/// Before each start the service makes a link that is missing.
void checkLink(const std::string& program, int line, Findings& findings)
{
	const std::string link = std::string(kLinkDirectory) + "/" + program;
	struct stat status = {};
	const bool there = ::lstat(link.c_str(), &status) == 0;
	if (::stat(link.c_str(), &status) != 0 && (there || ::access("/usr/libexec/velarix-ha/service", X_OK) != 0))
	{
		findings.push_back({line, 0, there ? link + " is a link to nothing" : "there is no " + link,
		                    "ln -sfn /usr/libexec/velarix-ha/keeper " + link + ", and name it as PROCESS_PATH"});
	}
}

/// @param pattern may have {this,that} and *
/// @return the first file of it; empty for none
std::string firstOf(const std::string& pattern)
{
	glob_t found{};
	const bool any = ::glob(pattern.c_str(), GLOB_BRACE | GLOB_NOESCAPE, nullptr, &found) == 0;
	std::string first = any ? found.gl_pathv[0] : "";
	::globfree(&found);
	return first;
}

/// Its ExecStart does nothing, and it counts as running afterwards: other units do its work.
bool isUmbrella(const std::string& file)
{
	std::ifstream lines(file);
	bool remains = false;
	bool nothing = false;
	for (std::string line; std::getline(lines, line);)
	{
		remains =
		    remains || line == "RemainAfterExit=yes" || line == "RemainAfterExit=on" || line == "RemainAfterExit=true";
		nothing = nothing || (line.starts_with("ExecStart=") && line.ends_with("/bin/true"));
	}
	return remains && nothing;
}

void checkEnabled(const std::string& unit, int line, Findings& findings)
{
	if (!firstOf("/etc/systemd/system/*.{wants,requires}/" + unit).empty())
	{
		findings.push_back({line, 0, unit + " is enabled: at boot it would run without the address",
		                    "systemctl disable --now " + unit});
	}
}

void checkUnit(const std::string& unit, int line, Findings& findings)
{
	// As systemd looks for them: its own file, a template's, and what systemctl enable makes.
	const std::string directories = "{/etc,/run,/usr/local/lib,/usr/lib,/lib}/systemd/system/";
	const std::string own = firstOf(directories + unit);
	const std::string file = own.empty() ? firstOf(directories + unit.substr(0, unit.find('@')) + "@.service") : own;
	std::error_code error;
	if (::access("/run/systemd/system", F_OK) != 0)
	{
		findings.push_back({line, EX_UNAVAILABLE, "unit: this machine does not run systemd", "use command instead"});
	}
	else if (file.empty())
	{
		findings.push_back({line, EX_UNAVAILABLE, "there is no unit " + unit, "install it, or correct its name"});
	}
	else if (std::filesystem::canonical(file, error) == "/dev/null")
	{
		findings.push_back({line, EX_UNAVAILABLE, unit + " is masked", "systemctl unmask " + unit});
	}
	else
	{
		checkEnabled(unit, line, findings);
	}
	if (isUmbrella(file))
	{
		findings.push_back({line, 0, unit + " runs nothing itself: that its service has died is not noticed",
		                    "name the unit that runs it, as postgresql@15-main.service"});
	}
}

} // namespace

std::string AddressSettings::label() const
{
	std::string name = interface + ":ha";
	return name.size() < IFNAMSIZ ? name : interface;
}

std::span<const KeyInfo> keyTable()
{
	return kKeys;
}

std::string setKey(Settings& settings, const KeyInfo& key, std::string_view value)
{
	Words words;
	std::string error = splitArguments(value, words);
	if (error.empty() && (words.empty() || words[0].empty()))
	{
		error = "is empty";
	}
	const bool fits = error.empty() && (words.size() == 1 || key.many) && key.set(settings, words);
	return fits || !error.empty() ? error : std::string("is not ") + key.range;
}

std::vector<Finding> checkMachine(const Settings& settings)
{
	Findings findings;
	const AddressSettings& address = settings.address;
	if (!address.interface.empty() && ::if_nametoindex(address.interface.c_str()) == 0)
	{
		findings.push_back(
		    {address.line, 0, "there is no interface " + address.interface, "correct its name, or bring it up"});
	}
	checkLink(kAddressProgram, address.line, findings);
	for (const ServiceSettings& service : settings.services)
	{
		checkProgram(service.command, "command", service.commandLine, findings);
		checkProgram(service.check, "check", service.line, findings);
		checkUser(service, findings);
		if (!service.unit.empty())
		{
			checkUnit(service.unit, service.commandLine, findings);
		}
		else if (!service.command.empty())
		{
			// As a distribution enables it when the package is installed.
			const std::string program = std::filesystem::path(service.command.front()).filename();
			checkEnabled(program + ".service", service.commandLine, findings);
		}
		struct stat status = {};
		if (!service.directory.empty() && (::stat(service.directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)))
		{
			findings.push_back({service.line, EX_UNAVAILABLE, "there is no directory " + service.directory, "make it"});
		}
		checkLink(service.program, service.line, findings);
	}
	return findings;
}

std::string findCommand(const std::string& command)
{
	const auto runs = [](const std::string& path)
	{
		struct stat status = {};
		return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && (status.st_mode & 0111U) != 0;
	};
	if (command.find('/') != std::string::npos)
	{
		return runs(command) ? command : "";
	}
	const char* set = std::getenv("PATH");
	std::string_view path = set != nullptr ? set : "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
	while (!path.empty())
	{
		const std::size_t end = path.find(':');
		std::string candidate = std::string(path.substr(0, end)) + "/" + command;
		if (candidate.front() == '/' && runs(candidate))
		{
			return candidate;
		}
		path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
	}
	return {};
}

} // namespace velarix::keeper
