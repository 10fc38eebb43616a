#include "ctl/check/Checks.h"

#include <array>
#include <string>

#include <Poco/Net/IPAddress.h>

#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

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
		const char* entry = address.isLoopback() ? "unusable-address/loopback" : "unusable-address";
		findings.add(key == key::kThisServerIP ? "unusable-address/own" : entry, key, text);
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

void clashes(Findings& findings)
{
	for (const Clash& clash : kClashes)
	{
		const std::optional<std::string> left = findings.file.text(clash.left);
		const std::optional<std::string> right = findings.file.text(clash.right);
		if (left && right && !left->empty() && *left == *right)
		{
			findings.add("same-address", clash.left, clash.right, *left, clash.effect);
		}
	}
}

/// The agent looks for the text of the address in the listing of its interfaces.
void insideOther(Findings& findings)
{
	const std::string address = findings.valueOf(key::kVirtualIP);
	const std::string own = findings.valueOf(key::kThisServerIP);
	if (!address.empty() && own != address && own.find(address) != std::string::npos)
	{
		addressInside(findings, address, own + ", an address of this node");
	}
}

} // namespace

void addressInside(Findings& findings, const std::string& address, const std::string& other)
{
	findings.add("address-inside-another", key::kVirtualIP, address, other);
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
	clashes(findings);
	insideOther(findings);
}

} // namespace velarix::ctl::checks
