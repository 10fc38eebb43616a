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

void name(Findings& findings, const std::string& key, const std::string& text)
{
	if (key == key::kVirtualIP)
	{
		findings.error(key, {"address-is-a-name", key + " is a name, " + text,
		                     "\"ifconfig\" lists numbers: the agent never finds the address on its interfaces",
		                     "write the IPv4 address"});
		return;
	}
	findings.warning(key, {"address-is-a-name", key + " is a name, " + text,
	                       key == key::kThisServerIP
	                           ? "it is looked up at the start: when the name is not found then, the receiver thread "
	                             "ends, and the node never hears its partner"
	                           : "it is looked up at each use: without a name server pings count as lost and "
	                             "heartbeats are not sent",
	                       "write the IPv4 address"});
}

/// The library takes "10.1" for 10.0.0.1, and what stands behind a blank for nothing.
bool inFull(Findings& findings, const std::string& key, const std::string& text, const IPAddress& parsed)
{
	if (parsed.family() != IPAddress::IPv4)
	{
		findings.error(key, {"address-not-ipv4", key + " is no IPv4 address: " + text,
		                     "the agent pings IPv4 addresses only: this one never answers", "write an IPv4 address"});
		return false;
	}
	if (text.substr(0, text.find_first_of(" \t")) != parsed.toString())
	{
		findings.error(key, {"not-an-address", key + " is no full address: " + text,
		                     "it is taken for " + parsed.toString(), "write all four numbers in decimal"});
		return false;
	}
	return true;
}

/// @return whether it is an IPv4 address in dots
bool form(Findings& findings, const std::string& key, const std::string& text)
{
	IPAddress parsed;
	if (text.empty())
	{
		findings.error(key, {"empty-address", key + " is empty", emptyEffect(*findKey(key)), "write the address"});
	}
	else if (IPAddress::tryParse(text, parsed))
	{
		return inFull(findings, key, text, parsed);
	}
	else if (looksLikeAName(text))
	{
		name(findings, key, text);
	}
	else
	{
		findings.error(key,
		               {"not-an-address", key + " is no address: " + text,
		                key == key::kThisServerIP ? emptyEffect(*findKey(key))
		                                          : "it is never found: no ping is answered and nothing sent there",
		                withoutRest(text)});
	}
	return false;
}

std::string unusable(const std::string& key, const IPAddress& address)
{
	if (key == key::kThisServerIP)
	{
		return "the partner cannot send its heartbeats there";
	}
	return address.isLoopback() ? "the node asks itself and always gets an answer" : "it never answers a ping";
}

void use(Findings& findings, const std::string& key, const std::string& text)
{
	const IPAddress address(text);
	if (address.isWildcard() && key == key::kThisServerIP)
	{
		findings.warning(key, {"listens-everywhere", key + " is " + text,
		                       "heartbeats are taken on every network, and whoever can send one moves the service",
		                       "write this node's address on the communication network"});
	}
	else if (address.isWildcard() || address.isMulticast() || address.isBroadcast() || address.isLoopback())
	{
		findings.error(key, {"unusable-address", key + " is " + text + ", which is no address of a single other host",
		                     unusable(key, address), "write the address meant"});
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
			findings.error(clash.left,
			               {"same-address", std::string(clash.left) + " and " + clash.right + " are the same, " + *left,
			                clash.effect, "write the address of each"});
		}
	}
}

/// The agent looks for the text of the address in the listing of its interfaces.
void insideOther(Findings& findings)
{
	const std::string address = findings.file.text(key::kVirtualIP).value_or("");
	const std::string own = findings.file.text(key::kThisServerIP).value_or("");
	if (!address.empty() && own != address && own.find(address) != std::string::npos)
	{
		addressInside(findings, address, own + ", an address of this node");
	}
}

} // namespace

void addressInside(Findings& findings, const std::string& address, const std::string& other)
{
	findings.error(key::kVirtualIP,
	               {"address-inside-another", "the text " + address + " is a part of " + other,
	                "the agent finds it in the output of \"ifconfig\" and takes the virtual IP for raised: it never is",
	                "choose an address whose text is no part of another one on the node"});
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
