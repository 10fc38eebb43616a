/// What an operator does against strangers, taken from the documents that tell him:
/// the rules and commands are read there, fitted to the lab's addresses, and
/// nothing else is set. A document that goes wrong makes the lab go wrong.
#pragma once

#include <string>

#include "lab/core/Lab.h"

namespace velarix::lab
{

enum class Guard
{
	none,
	firewall,  ///< the packet filter of docs/operating.md
	neighbours ///< besides, the fixed neighbours of docs/security.md, on nodes and gateway
};

/// @return "none", "firewall", "neighbours"
const char* nameOf(Guard guard);

/// The rules for nftables in the document of that text, with the node's port,
/// partner and card in place of the example's.
/// @throws LabError when they are not there, or lack what has to be replaced
std::string firewallRules(const std::string& document, HostId node);

/// The same rules, with the partner's hardware address in the accepting one as
/// docs/security.md offers it.
std::string firewallRulesWithCard(const std::string& operating, const std::string& security, HostId node,
                                  const std::string& partnerHardware);

/// Likewise for iptables: a shell script.
std::string iptablesCommands(const std::string& document, HostId node);

/// The same with the partner's hardware address, as for nftables.
std::string iptablesCommandsWithCard(const std::string& operating, const std::string& security, HostId node,
                                     const std::string& partnerHardware);

/// The commands that fix a node's neighbours, likewise: a shell script.
/// @param partnerHardware, gatewayHardware  addresses of their cards
std::string neighbourCommands(const std::string& document, HostId node, const std::string& partnerHardware,
                              const std::string& gatewayHardware);

/// The commands that fix the gateway's neighbours, likewise.
/// @param hardwareA, hardwareB  addresses of the nodes' cards
std::string gatewayCommands(const std::string& document, const std::string& hardwareA, const std::string& hardwareB);

/// The commands that make a node drop packets which come in by the service card from
/// the partner's address, likewise.
/// @param directory  for the file that keeps the setting, in place of the example's
std::string reversePathCommands(const std::string& document, const std::string& directory);

/// @return the hardware address of the host's card on the communication network
std::string hardwareOn(Lab& lab, HostId host);

/// The documents of this source tree.
/// @throws LabError when they cannot be read
std::string operatingDocument();
std::string securityDocument();

/// Sets up the guard on both nodes, and what of it belongs on the gateway there.
/// @throws LabError when a host does not take it
void setUpGuard(Lab& lab, Guard guard);

/// Packets that the firewall has dropped on the node, as its own counter tells.
long droppedByFirewall(Lab& lab, HostId node);

} // namespace velarix::lab
