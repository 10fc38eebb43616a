// Interfaces, addresses and routes of this machine, and who else has the virtual IP.

#include "ctl/check/Checks.h"

#include <Poco/Net/IPAddress.h>

#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"
#include "inspect/Tunnel.h"

namespace velarix::ctl::checks
{

namespace
{

using host::Address;
using Poco::Net::IPAddress;

constexpr int kPings = 3;

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
	IPAddress parsed;
	if (!IPAddress::tryParse(member, parsed) || parsed.family() != IPAddress::IPv4)
	{
		return {};
	}
	const auto found = std::ranges::find_if(addresses, [&](const Address& there)
	                                        { return there.interface != "lo" && isInNetworkOf(there, member); });
	return found == addresses.end() ? "" : found->interface;
}

/// @return "; there are ens192 (198.51.100.1/24, service network), ens224 (no address)"
std::string whatIsThere(const std::string& service, const std::string& communication,
                        const std::vector<Address>& addresses)
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
		facts += link.name == service ? "service network, " : "";
		facts += link.name == communication ? "communication network, " : "";
		for (const std::string& alternative : link.alternatives)
		{
			const bool meant = alternative == kServiceInterface || alternative == kCommunicationInterface;
			facts += meant ? alternative + " by an alternative name only, " : "";
		}
		text += (text.empty() ? "; there are " : ", ") + link.name + " (" + facts.substr(0, facts.size() - 2) + ")";
	}
	return text;
}

void missing(Findings& findings, const std::vector<Use>& uses, const std::vector<Address>& addresses)
{
	const std::optional<TunnelSettings> tunnel = readTunnel(findings.file.path());
	const std::string service = interfaceIn(addresses, findings.valueOf(key::kVirtualIP));
	const std::string communication =
	    interfaceIn(addresses, tunnel ? tunnel->endpoint : findings.valueOf(key::kThisServerIP));
	std::string names;
	std::string effects;
	for (const Use& use : uses)
	{
		names += (names.empty() ? "" : " and no interface ") + std::string(use.name) + " (" + use.network + ")";
		effects += (effects.empty() ? "" : "; ") + std::string(use.effect);
	}
	const bool clear = service != communication;
	const auto shown = [&](const std::string& name) { return clear && !name.empty() ? name : "NAME"; };
	findings.add("missing-interface", {findings.file.path()}, names, whatIsThere(service, communication, addresses),
	             effects, shown(service), shown(communication));
}

void interfaces(Findings& findings, const std::vector<Address>& addresses)
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
			findings.add("interface-without-carrier", {findings.file.path()}, use.name, use.network, use.effect);
		}
	}
	if (!absent.empty())
	{
		missing(findings, absent, addresses);
	}
}

/// @return whether it is on the interface whose carrier counts, or that of the tunnel on lo
bool ownAddress(Findings& findings, const std::vector<Address>& addresses, bool tunnel)
{
	const std::string own = findings.valueOf(key::kThisServerIP);
	IPAddress parsed;
	if (!IPAddress::tryParse(own, parsed) || parsed.isWildcard() || parsed.family() != IPAddress::IPv4)
	{
		return false; // reported by the check of the addresses
	}
	const auto found = std::ranges::find(addresses, own, &Address::address);
	if (found == addresses.end())
	{
		findings.add("not-this-node", key::kThisServerIP, own);
	}
	else if (tunnel && found->interface != "lo")
	{
		findings.add("tunnel-address", key::kThisServerIP, found->interface);
	}
	else if (!tunnel && found->interface != kCommunicationInterface && !parsed.isLoopback() &&
	         host::interface(kCommunicationInterface).present)
	{
		findings.add("not-on-communication-interface", key::kThisServerIP, found->interface);
	}
	return found != addresses.end() && found->interface == (tunnel ? "lo" : kCommunicationInterface);
}

IPAddress maskOf(int prefix)
{
	return {static_cast<unsigned>(std::clamp(prefix, 0, 32)), IPAddress::IPv4};
}

std::string networkOf(const std::string& address, int prefix)
{
	return (IPAddress(address) & maskOf(prefix)).toString();
}

/// "ifconfig" lists the broadcast address too.
std::string broadcastOf(const Address& address)
{
	return (IPAddress(address.address) | ~maskOf(address.prefix)).toString();
}

void listing(Findings& findings, const std::vector<Address>& addresses)
{
	const std::string wanted = findings.valueOf(key::kVirtualIP);
	const std::string own = findings.valueOf(key::kThisServerIP);
	if (wanted.empty())
	{
		return;
	}
	for (const Address& address : addresses)
	{
		if (address.prefix < 31 &&
		    (wanted == broadcastOf(address) || wanted == networkOf(address.address, address.prefix)))
		{
			findings.add("unusable-address/network", key::kVirtualIP, address.address, address.prefix,
			             address.interface);
			return;
		}
		for (const std::string& text : {address.address, broadcastOf(address)})
		{
			// The text of the node's own address is looked at without the machine too.
			if (address.listed && text != wanted && text != own && text.find(wanted) != std::string::npos)
			{
				findings.add("address-inside-another", key::kVirtualIP, wanted,
				             text + ", which \"ifconfig\" lists on " + address.interface);
				return;
			}
		}
	}
}

/// The way to another host: by the interface whose carrier counts.
/// @return whether it is that
bool route(Findings& findings, const char* key, const char* by, const char* unreached, const char* elsewhere)
{
	const std::string address = findings.valueOf(key);
	if (!isVirtualAddress(address) || address == findings.file.text(key::kThisServerIP) ||
	    findings.has("unusable-address", key))
	{
		return false; // reported by the check of the addresses
	}
	const std::optional<std::string> way = host::interfaceTo(address);
	const std::string name = std::string(key).substr(std::string(key).find('.') + 1) + " (" + address + ")";
	if (!way)
	{
		findings.add("no-route", key, name, unreached, address);
	}
	else if (*way == "lo")
	{
		findings.add("address-of-this-node", key, name);
	}
	else if (*way != by)
	{
		findings.add("route-elsewhere", key, name, *way, by, elsewhere, address);
	}
	return way == by;
}

/// A host answers ARP for each of its addresses on every interface (unless arp_ignore is
/// set), so the partner is known by the answer for PARTNER_IP on the service network.
void holder(Findings& findings, const std::vector<Address>& addresses)
{
	const std::string address = findings.valueOf(key::kVirtualIP);
	const std::string partner = findings.valueOf(key::kPartnerIP);
	if (!isVirtualAddress(address) || !host::interface(kServiceInterface).carrier.value_or(false))
	{
		return;
	}
	const std::optional<std::string> other = host::holderOf(address, kServiceInterface);
	if (!other)
	{
		return;
	}
	const std::optional<std::string> partners = host::holderOf(partner, kServiceInterface);
	const bool here = contains(addresses, address, &Address::address);
	if (!here && partners == other)
	{
		return; // the partner serves
	}
	if (!here && !partners && host::answersPing(partner, 1).value_or(true))
	{
		findings.notChecked("whether another host than the partner has " + address,
		                    *other + " answers for it, and the partner's hardware address is not known");
		return;
	}
	// No error: where both nodes have it, this one's start is what drops it here.
	findings.add("address-in-use", key::kVirtualIP, address,
	             (here ? "this node, and by the host " : "another host, ") + *other);
}

} // namespace

bool isInNetworkOf(const Address& there, const std::string& address)
{
	return networkOf(there.address, there.prefix) == networkOf(address, there.prefix);
}

void network(Findings& findings, const std::vector<Address>& addresses, bool reach)
{
	interfaces(findings, addresses);
	listing(findings, addresses);
	holder(findings, addresses);
	const bool tunnel = readTunnel(findings.file.path()).has_value();
	if (ownAddress(findings, addresses, tunnel))
	{
		route(findings, key::kPartnerIP, tunnel ? kTunnelInterface : kCommunicationInterface,
		      "no heartbeat is sent: each node takes the other for dead",
		      "the agent watches the carrier of eth1 while the heartbeats go another way");
		if (reach)
		{
			return; // on lo, and only while enough targets answer
		}
		const bool there = route(
		    findings, key::kGatewayIP, kCommunicationInterface,
		    "no ping of it is answered: whichever node becomes master gives up at once",
		    "its answers say nothing about the communication network: when that breaks the master does not notice, "
		    "and when the other one breaks the master gives up");
		const std::string gateway = findings.valueOf(key::kGatewayIP);
		findings.addWhen(there && !host::answersPing(gateway, kPings).value_or(true), "gateway-silent", key::kGatewayIP,
		                 gateway);
	}
}

void raisedAddress(Findings& findings, const Address& raised, const std::vector<Address>& addresses,
                   const std::optional<Place>& keeper)
{
	std::vector<int> around;
	const auto isNeighbour = [&](const Address& there)
	{
		return there.interface == raised.interface && there.address != raised.address &&
		       isInNetworkOf(there, raised.address);
	};
	for (const Address& there : addresses)
	{
		// The keeper drops it whatever its prefix.
		const bool stays = there.interface != raised.interface || (!keeper && there.prefix != raised.prefix);
		const bool other = stays || (there.label == there.interface && raised.label != raised.interface);
		if (there.address == raised.address && other)
		{
			const bool own = !stays && std::ranges::none_of(addresses, isNeighbour);
			findings.add(stays || own || keeper ? Severity::error : Severity::warning,
			             own ? "address-already-there/own" : "address-already-there", findings.at(key::kVirtualIP),
			             raised.address, there.prefix, own ? there.interface : there.label, raised.prefix, raised.label,
			             keeper ? "the keeper" : "the start command",
			             stays ? "the stop command does not drop it: both nodes hold it (split-brain)"
			                   : "the agent drops it at its start: whatever counts on it is cut off");
			return;
		}
		if (there.address != raised.address && there.interface == raised.interface)
		{
			around.push_back(isInNetworkOf(there, raised.address) ? there.prefix : -1);
		}
	}
	const int widest = around.empty() ? -1 : std::ranges::max(around);
	if (!around.empty() && widest < 0)
	{
		findings.add("address-of-another-network", key::kVirtualIP, raised.address, raised.interface);
	}
	else if (widest >= 0 && raised.prefix != 32 && !contains(around, raised.prefix))
	{
		findings.add("prefix-of-no-network", keeper.value_or(findings.at(kStartRole.key)), raised.address,
		             raised.prefix, raised.interface, widest, keeper ? "or none" : "in all three commands");
	}
}

} // namespace velarix::ctl::checks
