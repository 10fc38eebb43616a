// The keys of keeper.ini, each with what it sets.
#include "keeper/Settings.h"

#include <algorithm>
#include <array>
#include <optional>
#include <type_traits>
#include <utility>

#include <arpa/inet.h>
#include <net/if.h>

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

} // namespace

std::string AddressSettings::label() const
{
	std::string name = interface + ":ha";
	return name.size() < IFNAMSIZ ? name : interface;
}

std::string splitArguments(std::string_view text, Words& arguments, Words* written)
{
	std::string word;
	bool inWord = false;
	char quote = 0;
	std::size_t begin = 0;
	std::size_t i = 0;
	const auto finish = [&]
	{
		if (std::exchange(inWord, false))
		{
			arguments.push_back(std::exchange(word, {}));
			if (written != nullptr)
			{
				written->emplace_back(text.substr(begin, i - begin));
			}
		}
	};
	for (; i < text.size(); ++i)
	{
		const char sign = text[i];
		begin = inWord ? begin : i;
		if (sign == '\\' && quote != '\'')
		{
			if (i + 1 == text.size())
			{
				return "ends in a backslash";
			}
			const char following = text[++i];
			word += quote == '"' && following != '"' && following != '\\' ? std::string{sign, following}
			                                                              : std::string{following};
			inWord = true;
		}
		else if (sign == quote || (quote == 0 && (sign == '"' || sign == '\'')))
		{
			quote = quote == 0 ? sign : '\0';
			inWord = true;
		}
		else if (quote == 0 && (sign == ' ' || sign == '\t'))
		{
			finish();
		}
		else if (quote == 0 && sign == ';' && !inWord)
		{
			break;
		}
		else
		{
			word += sign;
			inWord = true;
		}
	}
	finish();
	return quote != 0 ? "has an open quote" : "";
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

} // namespace velarix::keeper
