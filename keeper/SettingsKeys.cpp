#include "SettingsKeys.h"

#include <algorithm>
#include <charconv>

#include <arpa/inet.h>
#include <net/if.h>

namespace velarix::keeper
{

namespace
{

bool readNumber(std::string_view text, int low, int high, int& number)
{
	const char* end = text.data() + text.size();
	int read = 0;
	const auto result = std::from_chars(text.data(), end, read);
	if (result.ec != std::errc() || result.ptr != end || read < low || read > high)
	{
		return false;
	}
	number = read;
	return true;
}

std::string setAddress(AddressSettings& address, std::string_view value)
{
	const std::size_t slash = value.find('/');
	const std::string dotted(value.substr(0, slash));
	in_addr read{};
	if (::inet_pton(AF_INET, dotted.c_str(), &read) != 1)
	{
		return "is no IPv4 address";
	}
	const std::uint32_t host = ntohl(read.s_addr);
	if (host == 0 || host == INADDR_BROADCAST || IN_MULTICAST(host) || (host >> 24U) == 127)
	{
		return "is no address of a host";
	}
	if (slash != std::string_view::npos && !readNumber(value.substr(slash + 1), 8, 32, address.prefix))
	{
		return "has a prefix that is not between 8 and 32";
	}
	address.address = read.s_addr;
	address.text = dotted;
	return {};
}

std::string setInterface(AddressSettings& address, std::string_view value)
{
	if (value.empty() || value.size() >= IFNAMSIZ || value.find_first_of(" \t/:") != std::string_view::npos)
	{
		return "is no name of an interface";
	}
	address.interface = value;
	return {};
}

std::string setOnConflict(AddressSettings& address, std::string_view value)
{
	address.defend = value == "defend";
	return value == "defend" || value == "yield" ? "" : "is neither defend nor yield";
}

std::string setWords(std::vector<std::string>& words, std::string_view value)
{
	std::string error;
	words.clear();
	if (!splitArguments(value, words, error))
	{
		return error;
	}
	return words.empty() || words.front().empty() ? "names no program" : "";
}

std::string setCommand(ServiceSettings& service, std::string_view value)
{
	return setWords(service.command, value);
}

std::string setCheck(ServiceSettings& service, std::string_view value)
{
	return setWords(service.check, value);
}

std::string setUnit(ServiceSettings& service, std::string_view value)
{
	constexpr std::string_view kAllowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789:-_.\\@";
	if (value.size() > 255 || !value.ends_with(".service") || value.starts_with('.') || value.starts_with('-') ||
	    value.find_first_not_of(kAllowed) != std::string_view::npos)
	{
		return "is no name of a unit, as postgresql.service";
	}
	service.unit = value;
	return {};
}

std::string setEnvironment(ServiceSettings& service, std::string_view value)
{
	const std::string error = setWords(service.environment, value);
	if (!error.empty())
	{
		return error;
	}
	const bool pairs = std::ranges::all_of(service.environment, [](const std::string& word)
	                                       { return word.find('=') != std::string::npos && word[0] != '='; });
	return pairs ? "" : "is not NAME=value, separated by blanks";
}

template <std::string ServiceSettings::*Member> std::string setText(ServiceSettings& service, std::string_view value)
{
	service.*Member = value;
	return value.empty() ? "is empty" : "";
}

std::string setDirectory(ServiceSettings& service, std::string_view value)
{
	service.directory = value;
	return value.starts_with('/') ? "" : "is no absolute path";
}

template <int ServiceSettings::*Member, int Low, int High>
std::string setNumber(ServiceSettings& service, std::string_view value)
{
	return readNumber(value, Low, High, service.*Member)
	           ? ""
	           : "is no number between " + std::to_string(Low) + " and " + std::to_string(High);
}

std::string setRestarts(ServiceSettings& service, std::string_view value)
{
	const std::size_t in = value.find(" in ");
	if (in == std::string_view::npos || !readNumber(value.substr(0, in), 0, 1000, service.restarts) ||
	    !readNumber(value.substr(in + 4), 1, 86400, service.restartsWithin))
	{
		return "is not NUMBER in SECONDS, as 3 in 60";
	}
	return {};
}

using S = ServiceSettings;
constexpr std::array<Key, 15> kKeys{{
    {{"address", "address", "the virtual address, with its prefix when it is not a host route (/32)", "",
      "IPv4[/8 to /32]"},
     setAddress,
     nullptr},
    {{"address", "interface", "the service interface, which carries it", "", "a name of at most 15 characters"},
     setInterface,
     nullptr},
    {{"address", "on_conflict",
      "when another host holds it as well: announce it (the configured master) or give it up (the other node)", "",
      "defend or yield"},
     setOnConflict,
     nullptr},
    {{"service", "command", "the program with its arguments, without a shell", "", "this or unit"},
     nullptr,
     setCommand},
    {{"service", "unit", "the systemd unit instead of a command; it has to be disabled", "", "NAME.service"},
     nullptr,
     setUnit},
    {{"service", "user", "who runs it", "root", "a user"}, nullptr, setText<&S::user>},
    {{"service", "group", "its group", "the user's", "a group"}, nullptr, setText<&S::group>},
    {{"service", "directory", "where it runs", "/", "an absolute path"}, nullptr, setDirectory},
    {{"service", "environment", "added to its environment", "nothing", "NAME=value ..."}, nullptr, setEnvironment},
    {{"service", "check", "a command that ends with 0 while the service is well, run as its user", "none", "a command"},
     nullptr,
     setCheck},
    {{"service", "check_interval", "seconds between two checks", "2", "1 to 3600"},
     nullptr,
     setNumber<&S::checkInterval, 1, 3600>},
    {{"service", "check_failures", "failed checks in a row that make it as good as dead", "3", "1 to 100"},
     nullptr,
     setNumber<&S::checkFailures, 1, 100>},
    {{"service", "check_timeout", "seconds after which a check is ended and has failed", "half of check_interval",
      "1 to 3600"},
     nullptr,
     setNumber<&S::checkTimeout, 1, 3600>},
    {{"service", "restarts", "how often it may be started again on this node, before the other one gets it", "3 in 60",
      "0 to 1000 in 1 to 86400 seconds"},
     nullptr,
     setRestarts},
    {{"service", "stop_timeout", "seconds between TERM and KILL", "20", "0 to 3600"},
     nullptr,
     setNumber<&S::stopTimeout, 0, 3600>},
}};

} // namespace

std::span<const Key> keys()
{
	return kKeys;
}

std::vector<KeyInfo> keyTable()
{
	std::vector<KeyInfo> table;
	for (const Key& key : kKeys)
	{
		table.push_back(key.info);
	}
	return table;
}

} // namespace velarix::keeper
