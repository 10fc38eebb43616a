// The two interfaces: their names and their carrier.

#include "ctl/check/Checks.h"

#include <algorithm>
#include <string>
#include <vector>

#include <Poco/Net/IPAddress.h>

#include "inspect/Host.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"
#include "inspect/Tunnel.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

using host::Address;

struct Use
{
	const char* name;
	const char* network;
	const char* effect;
};

constexpr Use kService{kServiceInterface, "service", "a node that becomes master gives up at once"};
constexpr Use kCommunication{kCommunicationInterface, "communication",
                             "a standby counts no missed heartbeats: it does not take over from a partner that does "
                             "not answer while the service address still does"};

/// @return the interface with an address in the network of that one; empty when there is none
std::string interfaceIn(const std::vector<Address>& addresses, const std::string& member)
{
	Poco::Net::IPAddress parsed;
	if (!Poco::Net::IPAddress::tryParse(member, parsed) || parsed.family() != Poco::Net::IPAddress::IPv4)
	{
		return {};
	}
	const auto found = std::ranges::find_if(
	    addresses,
	    [&](const Address& there) {
		    return there.interface != "lo" && networkOf(there.address, there.prefix) == networkOf(member, there.prefix);
	    });
	return found == addresses.end() ? "" : found->interface;
}

/// What the interfaces are called that have the two networks of the settings.
struct Networks
{
	std::string service;
	std::string communication;
};

Networks networksOf(const Findings& findings, const std::vector<Address>& addresses)
{
	const std::optional<TunnelSettings> tunnel = readTunnel(findings.file.path());
	return {interfaceIn(addresses, findings.file.text(key::kVirtualIP).value_or("")),
	        interfaceIn(addresses, tunnel ? tunnel->endpoint : findings.file.text(key::kThisServerIP).value_or(""))};
}

/// @return "; there are ens192 (198.51.100.1/24, service network), ens224 (no address)"
std::string whatIsThere(const Networks& networks, const std::vector<Address>& addresses)
{
	std::string text;
	for (const host::Link& link : host::links())
	{
		std::string facts;
		for (const Address& address : addresses)
		{
			facts +=
			    address.interface == link.name ? address.address + "/" + std::to_string(address.prefix) + ", " : "";
		}
		if (link.type != "ether" || (facts.empty() && !link.kind.empty()))
		{
			continue; // a bridge's or a bond's port, say
		}
		facts += facts.empty() ? "no address, " : "";
		facts += link.name == networks.service ? "service network, " : "";
		facts += link.name == networks.communication ? "communication network, " : "";
		for (const std::string& alternative : link.alternatives)
		{
			const bool meant = alternative == kServiceInterface || alternative == kCommunicationInterface;
			facts += meant ? alternative + " by an alternative name only, " : "";
		}
		text += (text.empty() ? "; there are " : ", ") + link.name + " (" + facts.substr(0, facts.size() - 2) + ")";
	}
	return text;
}

void missing(Findings& findings, const std::vector<Use>& uses)
{
	const std::vector<Address> addresses = host::addresses();
	const Networks networks = networksOf(findings, addresses);
	std::string names;
	std::string effects;
	for (const Use& use : uses)
	{
		names += (names.empty() ? "" : " and no interface ") + std::string(use.name) + " (" + use.network + ")";
		effects += (effects.empty() ? "" : "; ") + std::string(use.effect);
	}
	const bool clear = networks.service != networks.communication;
	const auto shown = [&](const std::string& name) { return clear && !name.empty() ? name : "NAME"; };
	findings.add(Severity::error, findings.file.path(), 0,
	             {"missing-interface", "there is no interface " + names + whatIsThere(networks, addresses), effects,
	              "velarixctl init --service-interface " + shown(networks.service) + " --communication-interface " +
	                  shown(networks.communication) +
	                  " gives them these names, which are fixed; an alternative name (altname) is not enough, since "
	                  "it is not below /sys/class/net: docs/networks.md"});
}

} // namespace

void interfaces(Findings& findings)
{
	std::vector<Use> absent;
	for (const Use& use : {kService, kCommunication})
	{
		const host::Interface interface = host::interface(use.name);
		if (!interface.present)
		{
			absent.push_back(use);
		}
		else if (!interface.carrier.value_or(false))
		{
			findings.add(
			    Severity::warning, findings.file.path(), 0,
			    {"interface-without-carrier",
			     std::string("the interface ") + use.name + ", that of the " + use.network + ", has no carrier",
			     use.effect, "plug in the cable, or bring the interface up"});
		}
	}
	if (!absent.empty())
	{
		missing(findings, absent);
	}
}

} // namespace velarix::ctl::checks
