/// What an operator sets up against attackers, in steps. The rules are the shipped
/// files of packaging/firewall with the lab's values in them.
#pragma once

#include <string>

#include "lab/core/Lab.h"

namespace velarix::lab::hostile
{

enum class Mitigation
{
	none,
	port,       ///< of the shipped rules those for the heartbeat port alone
	firewall,   ///< the shipped rules
	neighbours, ///< besides, fixed ARP entries on nodes and gateway, and their hardware addresses in the rules
	tunnel      ///< heartbeats in the WireGuard tunnel, with the rules that belong to it
};

/// @return "none", "port", "firewall", "neighbours", "tunnel"
const char* nameOf(Mitigation mitigation);
/// @throws LabError when there is none of that name
Mitigation mitigationNamed(const std::string& name);

/// Hardware addresses for the rules; empty: their rules stay out.
struct HardwareAddresses
{
	std::string partner{};
	std::string gateway{};
};

/// velarix-ha.nft, for `nft -f`.
/// @throws LabError when the file lacks what has to be replaced
std::string nftRules(HostId node, const HardwareAddresses& hardware = {});

/// velarix-ha.iptables, for `sh`. @throws LabError likewise
std::string iptablesRules(HostId node, const HardwareAddresses& hardware = {});

/// @return the hardware address of the host's interface on the communication network
std::string hardwareOn(Lab& lab, HostId host);

/// Fixed ARP entries of a node (partner and gateway), or of the gateway (both nodes).
void fixNeighbours(Lab& lab, HostId host);

/// Sets the mitigation up on both nodes, and what of it belongs on the gateway there.
/// @throws LabError when a host does not take it
void applyMitigation(Lab& lab, Mitigation mitigation);

/// Packets that the rules have dropped on the node, by their own counters.
long droppedByFirewall(Lab& lab, HostId node);

} // namespace velarix::lab::hostile
