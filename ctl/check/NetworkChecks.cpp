// Addresses and routes of this machine, and who else has the virtual IP.

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
using Poco::Net::IPAddress;

constexpr int kPings = 3;

/// @return whether it is on the interface whose carrier counts, or that of the tunnel on lo
bool ownAddress(Findings& findings, const std::vector<Address>& addresses, bool tunnel)
{
	const std::string own = findings.file.text(key::kThisServerIP).value_or("");
	IPAddress parsed;
	if (!IPAddress::tryParse(own, parsed) || parsed.isWildcard() || parsed.family() != IPAddress::IPv4)
	{
		return false; // reported by the check of the addresses
	}
	const auto found = std::ranges::find(addresses, own, &Address::address);
	if (found == addresses.end())
	{
		findings.error(key::kThisServerIP,
		               {"not-this-node", "THIS_SERVER_IP is " + own + ", which is no address of this machine",
		                "the agent cannot listen there and ends at its start",
		                "write this node's address on the communication network"});
	}
	else if (tunnel && found->interface != "lo")
	{
		findings.warning(key::kThisServerIP,
		                 {"tunnel-address", "THIS_SERVER_IP is on " + found->interface + ", not on lo",
		                  "the address goes away with the tunnel, and the agent ends",
		                  "systemctl restart velarix-tunnel raises it on lo"});
	}
	else if (!tunnel && found->interface != kCommunicationInterface && !parsed.isLoopback() &&
	         host::interface(kCommunicationInterface).present)
	{
		findings.warning(key::kThisServerIP,
		                 {"not-on-communication-interface",
		                  "THIS_SERVER_IP is on " + found->interface + ", not on eth1",
		                  "the agent watches the carrier of eth1 while the heartbeats come over " + found->interface +
		                      ": it counts missed heartbeats, or does not, for the wrong reason",
		                  "use the address on eth1"});
	}
	return found != addresses.end() && found->interface == (tunnel ? "lo" : kCommunicationInterface);
}

IPAddress maskOf(int prefix)
{
	return {static_cast<unsigned>(std::clamp(prefix, 0, 32)), IPAddress::IPv4};
}

/// "ifconfig" lists the broadcast address too.
std::string broadcastOf(const Address& address)
{
	return (IPAddress(address.address) | ~maskOf(address.prefix)).toString();
}

/// @return the first address of the network that an address of that prefix is in
} // namespace

std::string networkOf(const std::string& address, int prefix)
{
	return (IPAddress(address) & maskOf(prefix)).toString();
}

namespace
{

/// @return what "ifconfig" shows of an address
std::vector<std::string> listed(const Address& address)
{
	return address.listed ? std::vector<std::string>{address.address, broadcastOf(address)}
	                      : std::vector<std::string>{};
}

void listing(Findings& findings, const std::vector<Address>& addresses)
{
	const std::string wanted = findings.file.text(key::kVirtualIP).value_or("");
	const std::string own = findings.file.text(key::kThisServerIP).value_or("");
	if (wanted.empty())
	{
		return;
	}
	for (const Address& address : addresses)
	{
		if (address.prefix < 31 &&
		    (wanted == broadcastOf(address) || wanted == networkOf(address.address, address.prefix)))
		{
			findings.error(key::kVirtualIP,
			               {"unusable-address",
			                "VIRTUAL_IP is the network or the broadcast address of " + address.address + "/" +
			                    std::to_string(address.prefix) + " on " + address.interface,
			                "no client can connect to it", "write an address of a single host"});
			return;
		}
		for (const std::string& text : listed(address))
		{
			// The text of the node's own address is looked at without the machine too.
			if (text != wanted && text != own && text.find(wanted) != std::string::npos)
			{
				addressInside(findings, wanted, text + ", which \"ifconfig\" lists on " + address.interface);
				return;
			}
		}
	}
}

/// The way to another host: by the interface whose carrier counts.
/// @return whether it is that
bool route(Findings& findings, const char* key, const char* by, const char* unreached, const char* elsewhere)
{
	const std::string address = findings.file.text(key).value_or("");
	if (!isVirtualAddress(address) || address == findings.file.text(key::kThisServerIP) ||
	    findings.has("unusable-address", key))
	{
		return false; // reported by the check of the addresses
	}
	const std::optional<std::string> way = host::interfaceTo(address);
	const std::string name = std::string(key).substr(std::string(key).find('.') + 1) + " (" + address + ")";
	if (!way)
	{
		findings.warning(key,
		                 {"no-route", "there is no route to " + name, unreached,
		                  "write an address of the communication network, or add the route: ip route get " + address});
	}
	else if (*way == "lo")
	{
		findings.warning(key, {"address-of-this-node", name + " is an address of this very machine",
		                       "it always answers: a node that is cut off does not notice", "write the other host's"});
	}
	else if (*way != by)
	{
		findings.warning(
		    key, {"route-elsewhere", "packets to " + name + " leave by " + *way + ", not by " + by, elsewhere,
		          "use an address of the communication network, or correct the route: ip route get " + address});
	}
	return way == by;
}

/// A host answers ARP for each of its addresses on every interface (unless arp_ignore is
/// set), so the partner is known by the answer for PARTNER_IP on the service network.
void holder(Findings& findings, const std::vector<Address>& addresses)
{
	const std::string address = findings.file.text(key::kVirtualIP).value_or("");
	const std::string partner = findings.file.text(key::kPartnerIP).value_or("");
	if (!isVirtualAddress(address) || !host::interface(kServiceInterface).carrier.value_or(false))
	{
		return;
	}
	const std::optional<std::string> other = host::holderOf(address, kServiceInterface);
	const bool here = std::ranges::find(addresses, address, &Address::address) != addresses.end();
	if (!other)
	{
		return;
	}
	const std::optional<std::string> partners = host::holderOf(partner, kServiceInterface);
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
	findings.warning(
	    key::kVirtualIP,
	    {"address-in-use",
	     address + (here ? " is held by this node, and by the host " : " is held by another host, ") + *other,
	     "two hosts have the address: clients reach the one or the other, as their ARP caches have it",
	     "find the host by its hardware address, and give one of the two another address"});
}

} // namespace

void network(Findings& findings, const std::vector<Address>& addresses, bool reach)
{
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
		const std::string gateway = findings.file.text(key::kGatewayIP).value_or("");
		if (there && !host::answersPing(gateway, kPings).value_or(true))
		{
			findings.warning(key::kGatewayIP,
			                 {"gateway-silent", "the gateway " + gateway + " does not answer pings",
			                  "whichever node becomes master gives up: the service moves to and fro",
			                  "see why it does not (ping " + gateway + "), or write an address that answers"});
		}
	}
}

void raisedAddress(Findings& findings, const Address& raised, const std::vector<Address>& addresses,
                   const std::optional<Place>& keeper)
{
	const std::string shown = raised.address + "/" + std::to_string(raised.prefix);
	std::vector<int> around;
	const auto isNeighbour = [&](const Address& there)
	{
		return there.interface == raised.interface && there.address != raised.address &&
		       networkOf(there.address, there.prefix) == networkOf(raised.address, there.prefix);
	};
	for (const Address& there : addresses)
	{
		// The keeper drops it whatever its prefix.
		const bool stays = there.interface != raised.interface || (!keeper && there.prefix != raised.prefix);
		const bool other = stays || (there.label == there.interface && raised.label != raised.interface);
		if (there.address == raised.address && other)
		{
			const bool own = !stays && std::ranges::none_of(addresses, isNeighbour);
			findings.add(
			    stays || own || keeper ? Severity::error : Severity::warning, findings.file.path(),
			    findings.lineFor(key::kVirtualIP),
			    {"address-already-there",
			     own ? raised.address + " is this node's own address on " + there.interface + ", its only one there"
			         : there.address + "/" + std::to_string(there.prefix) + " is on " + there.label +
			               " already, not as " + (keeper ? "the keeper" : "the start command") +
			               " raises it: " + shown + " on " + raised.label,
			     stays ? "the stop command does not drop it: both nodes hold it (split-brain)"
			           : "the agent drops it at its start: whatever counts on it is cut off",
			     "take it out of the network configuration of this machine, or write the service's address"});
			return;
		}
		if (there.address != raised.address && there.interface == raised.interface)
		{
			const bool inside = networkOf(there.address, there.prefix) == networkOf(raised.address, there.prefix);
			around.push_back(inside ? there.prefix : -1);
		}
	}
	const bool inside = std::ranges::any_of(around, [](int prefix) { return prefix >= 0; });
	if (!around.empty() && !inside)
	{
		findings.warning(key::kVirtualIP,
		                 {"address-of-another-network",
		                  raised.address + " is in none of the networks of " + raised.interface,
		                  "only hosts with a route of their own to it reach it", "write an address of that network"});
	}
	else if (inside && raised.prefix != 32 && std::ranges::find(around, raised.prefix) == around.end())
	{
		const Place place = keeper.value_or(Place{findings.file.path(), findings.lineFor(kStartRole.key)});
		findings.add(Severity::warning, place.file, place.line,
		             {"prefix-of-no-network",
		              raised.address + " is raised as /" + std::to_string(raised.prefix) + ", and the network of " +
		                  raised.interface + " is a /" + std::to_string(*std::ranges::max_element(around)),
		              "while the node holds it, it takes other hosts for neighbours than before, or routes past them",
		              keeper ? "write the prefix of the network, or none"
		                     : "write the prefix of the network, in all three commands"});
	}
}

} // namespace velarix::ctl::checks
