// Lines that do not do what they look like, and addresses that are none.

#include <array>
#include <iterator>
#include <limits>

#include <Poco/Exception.h>
#include <Poco/Net/IPAddress.h>
#include <Poco/String.h>

#include "ctl/Nearest.h"
#include "ctl/check/Checks.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

namespace
{

/// Some editors begin a file with it. It turns what follows into a key.
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// @return the known key that is spelled most alike; empty when none is near
std::string likelyMeant(const std::string& key)
{
	std::vector<std::string> known;
	std::ranges::transform(settingsKeys(), std::back_inserter(known),
	                       [](const KeyInfo& info) { return std::string(info.name); });
	return nearest(Poco::toUpper(key), known, 4);
}

bool isComment(const SettingLine& line)
{
	const std::size_t name = line.key.rfind('.') + 1;
	return line.key.compare(name, 1, "#") == 0;
}

Place at(const Findings& findings, const SettingLine& line)
{
	return {findings.file.path(), line.line};
}

bool isQuoted(const std::string& value)
{
	return value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.front() == value.back();
}

/// Integers with a comment or quotes behind them are no integers, which is reported there.
void decoratedValue(Findings& findings, const SettingLine& line, KeyType type)
{
	findings.addWhen(type == KeyType::command && isQuoted(line.value) &&
	                     line.value.find(line.value[0], 1) + 1 == line.value.size() &&
	                     line.value.find(' ') != std::string::npos,
	                 "quoted-value/command", line.key);
	if (type == KeyType::command || type == KeyType::integer)
	{
		return;
	}
	const auto isIn = [&](const char* sign) { return line.value.find(sign) != std::string::npos; };
	if (std::ranges::any_of(std::array{" ;", "\t;", " #", "\t#"}, isIn))
	{
		// The library reads an address up to the first blank, the agent itself does not.
		const bool harmless = type == KeyType::address && !sameKey(line.key, key::kVirtualIP);
		findings.add(harmless ? Severity::warning : Severity::error, "comment-in-value", at(findings, line), line.key);
	}
	else if (isQuoted(line.value))
	{
		findings.add("quoted-value", line.key);
	}
}

/// What "${...}" in a value becomes.
void reference(Findings& findings, const SettingLine& line, KeyType type)
{
	const std::size_t begin = line.value.find("${");
	if (begin == std::string::npos)
	{
		return;
	}
	findings.addWhen(line.value.find('}', begin) == std::string::npos, "reference-not-closed", line.key);
	findings.addWhen(type != KeyType::command && findings.valueOf(line.key).find("${") != std::string::npos,
	                 "reference-to-nothing", line.key);
}

/// @return ".KEY" of each known key whose section is not there, which is reported as such
std::vector<std::string> displacedKeys(const SettingsFile& file)
{
	std::vector<std::string> result;
	for (const KeyInfo& info : settingsKeys())
	{
		if (const std::string name(info.name); file.lacksSection(name))
		{
			result.push_back(name.substr(name.find('.')));
		}
	}
	return result;
}

void unknownKey(Findings& findings, const SettingLine& line, const std::vector<std::string>& displaced)
{
	const std::string name = "." + Poco::toUpper(line.key.substr(line.key.rfind('.') + 1));
	if (std::ranges::none_of(displaced, [&](const std::string& known) { return name.starts_with(known); }))
	{
		const std::string meant = likelyMeant(line.key);
		findings.add("unknown-key", at(findings, line), line.key,
		             meant.empty() ? "remove the line" : "write " + meant + " (spelled so) if that is meant");
	}
}

void value(Findings& findings, const SettingLine& line, const KeyInfo& info)
{
	if (const SettingLine* counts = findings.find(line.key); counts != &line)
	{
		findings.addWhen(counts->line != line.line, "repeated-key", at(findings, line), line.key, counts->line);
		return;
	}
	if (info.name == key::kProcessPath)
	{
		const int number = findings.file.integer(key::kProcessNumber).value_or(std::numeric_limits<int>::max());
		const std::string digits = line.key.substr(std::string(key::kProcessPath).size());
		findings.addWhen(digits.size() > 9 || std::stoi(digits) > number, "program-not-counted", at(findings, line),
		                 line.key, number);
	}
	decoratedValue(findings, line, info.type);
	reference(findings, line, info.type);
}

/// The agent misses a key or a section, or does not understand a value. A dash may be in the name of a file, and a
/// comment behind an address.
bool isPasted(const Findings& findings, const SettingLine& line)
{
	const std::string key = withoutPasted(line.key);
	const KeyInfo* info = findKey(key);
	if (key != line.key)
	{
		const auto isSection = [&](const KeyInfo& known)
		{
			const std::string name(known.name);
			return key.ends_with("[" + name.substr(0, name.find('.')) + "]") && findings.file.lacksSection(name);
		};
		return std::ranges::any_of(settingsKeys(), isSection) ||
		       (info != nullptr && info->whenRead != "never" && info->name != key::kProcessPath &&
		        findings.find(key) == nullptr);
	}
	const std::string value = line.value.substr(0, line.value.find_first_of(" \t"));
	return info != nullptr && (info->type == KeyType::integer || info->type == KeyType::address) &&
	       findings.find(key) == &line && withoutPasted(value) != value;
}

using Poco::Net::IPAddress;

constexpr std::array kAddressKeys{key::kThisServerIP, key::kPartnerIP, key::kGatewayIP, key::kVirtualIP};

/// @return whether a name server or a hosts file could know it
bool looksLikeAName(const std::string& text)
{
	constexpr char kLetters[] = "0123456789.-_abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
	return text.find_first_not_of(kLetters) == std::string::npos &&
	       text.find_first_not_of("0123456789.") != std::string::npos;
}

/// @return what to write instead: an address with something behind it is common
std::string withoutRest(const std::string& text)
{
	IPAddress address;
	const std::string front = text.substr(0, text.find_first_of("/:"));
	return IPAddress::tryParse(front, address) ? "write " + front + " alone" : "write an IPv4 address";
}

/// @return whether it is an IPv4 address in dots
bool form(Findings& findings, const std::string& key, const std::string& text)
{
	IPAddress parsed;
	if (text.empty())
	{
		findings.add("empty-address", key, emptyEffect(*findKey(key)));
	}
	else if (IPAddress::tryParse(text, parsed))
	{
		// The library takes "10.1" for 10.0.0.1, and what stands behind a blank for nothing.
		const bool full = text.substr(0, text.find_first_of(" \t")) == parsed.toString();
		if (parsed.family() == IPAddress::IPv4 && full)
		{
			return true;
		}
		findings.add(parsed.family() != IPAddress::IPv4 ? "address-not-ipv4" : "not-an-address/short", key, text,
		             parsed.toString());
	}
	else if (looksLikeAName(text))
	{
		const char* entry = key == key::kThisServerIP ? "address-is-a-name/own" : "address-is-a-name";
		findings.add(key == key::kVirtualIP ? "address-is-a-name/virtual" : entry, key, text);
	}
	else
	{
		findings.add("not-an-address", key, text,
		             key == key::kThisServerIP ? emptyEffect(*findKey(key))
		                                       : "it is never found: no ping is answered and nothing sent there",
		             withoutRest(text));
	}
	return false;
}

void use(Findings& findings, const std::string& key, const std::string& text)
{
	const IPAddress address(text);
	if (address.isWildcard() && key == key::kThisServerIP)
	{
		findings.add("listens-everywhere", key, text);
	}
	else if (address.isWildcard() || address.isMulticast() || address.isBroadcast() || address.isLoopback())
	{
		const char* effect =
		    address.isLoopback() ? "the node asks itself and always gets an answer" : "it never answers a ping";
		findings.add("unusable-address", key, text,
		             key == key::kThisServerIP ? "the partner cannot send its heartbeats there" : effect);
	}
}

struct Clash
{
	const char* left;
	const char* right;
	const char* effect;
};

constexpr std::array kClashes{
    Clash{key::kThisServerIP, key::kPartnerIP, "the node sends its heartbeats to itself and never hears its partner"},
    Clash{key::kGatewayIP, key::kThisServerIP, "the gateway always answers: a node that is cut off does not notice"},
    Clash{key::kGatewayIP, key::kPartnerIP,
          "a dead partner looks like a fault of the own network: the master gives up, and no standby takes over"},
    Clash{key::kGatewayIP, key::kVirtualIP,
          "while nobody holds the address the gateway does not answer, so that no standby takes over"},
    Clash{key::kVirtualIP, key::kThisServerIP,
          "the address is always there: it is never raised, and the stop command cuts the node off"},
    Clash{key::kVirtualIP, key::kPartnerIP, "the partner's own address counts as the service's"},
};

} // namespace

std::string withoutPasted(std::string text)
{
	constexpr std::array kPasted{"\xE2\x80\x98", "\xE2\x80\x99", "\xE2\x80\x9A", "\xE2\x80\x9C", "\xE2\x80\x9D",
	                             "\xE2\x80\x9E", "\xC2\xAB",     "\xC2\xBB",     "\xE2\x80\x93", "\xE2\x80\x94",
	                             "\xE2\x80\x8B", "\xC2\xA0",     "\xE2\x80\xAF"};
	for (const char* letter : kPasted)
	{
		Poco::replaceInPlace(text, letter, "");
	}
	return text;
}

bool writtenForOthers(Findings& findings)
{
	const auto first =
	    std::ranges::find_if(findings.file.lines(), [&](const SettingLine& line) { return isPasted(findings, line); });
	const auto quoted = [&](const SettingLine& line)
	{
		const KeyInfo* info = findKey(line.key);
		return info != nullptr && info->type != KeyType::command && info->type != KeyType::text &&
		       findings.find(line.key) == &line && isQuoted(line.value);
	};
	if (first != findings.file.lines().end())
	{
		findings.add("pasted-characters", at(findings, *first));
	}
	else if (std::ranges::count_if(findings.file.lines(), quoted) > 2)
	{
		findings.add("quoted-value/all", at(findings, *std::ranges::find_if(findings.file.lines(), quoted)));
	}
	else
	{
		return false;
	}
	return true;
}

void lines(Findings& findings)
{
	const std::vector<std::string> displaced = displacedKeys(findings.file);
	for (const SettingLine& line : findings.file.lines())
	{
		if (line.key.starts_with(kByteOrderMark))
		{
			const bool section = line.key.compare(kByteOrderMark.size(), 1, "[") == 0;
			findings.add(section ? Severity::error : Severity::warning, "byte-order-mark", at(findings, line),
			             section ? "the section behind it is none: its keys count as missing"
			                     : "the line behind it has no effect");
			continue;
		}
		if (isComment(line))
		{
			continue;
		}
		findings.addWhen(!line.assigned, "no-assignment", at(findings, line), line.key);
		const KeyInfo* info = findKey(line.key);
		info == nullptr ? unknownKey(findings, line, displaced) : value(findings, line, *info);
	}
}

void addresses(Findings& findings)
{
	for (const std::string key : kAddressKeys)
	{
		const std::optional<std::string> text = findings.file.text(key);
		if (text && form(findings, key, *text))
		{
			use(findings, key, *text);
		}
	}
	for (const Clash& clash : kClashes)
	{
		const std::string both = findings.valueOf(clash.left);
		findings.addWhen(!both.empty() && both == findings.valueOf(clash.right), "same-address", clash.left,
		                 clash.right, both, clash.effect);
	}
	// The agent looks for the text of the address in the listing of its interfaces.
	const std::string address = findings.valueOf(key::kVirtualIP);
	const std::string own = findings.valueOf(key::kThisServerIP);
	findings.addWhen(!address.empty() && own != address && own.find(address) != std::string::npos,
	                 "address-inside-another", key::kVirtualIP, address, own + ", an address of this node");
}

} // namespace velarix::ctl::checks
