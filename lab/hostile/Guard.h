/// What an operator does against strangers, taken from the documents that tell him:
/// the rules and commands are read there, fitted to the lab's addresses, and
/// nothing else is set. A document that goes wrong makes the lab go wrong.
#pragma once

#include <string>

#include "Lab.h"

namespace velarix::lab
{

enum class Guard
{
	none,
	firewall,  ///< the packet filter of docs/operating.md
	neighbours ///< besides, the fixed neighbours of docs/security.md
};

/// @return "none", "firewall", "neighbours"
const char* nameOf(Guard guard);

/// The rules for nftables in the document of that text, with the node's port,
/// partner and card in place of the example's.
/// @throws LabError when they are not there, or lack what has to be replaced
std::string firewallRules(const std::string& document, HostId node);

/// Likewise for iptables: a shell script.
std::string iptablesCommands(const std::string& document, HostId node);

/// The commands that fix the neighbours, likewise: a shell script.
/// @param partnerHardware, gatewayHardware  addresses of their cards
std::string neighbourCommands(const std::string& document, HostId node, const std::string& partnerHardware,
                              const std::string& gatewayHardware);

/// The documents of this source tree.
/// @throws LabError when they cannot be read
std::string operatingDocument();
std::string securityDocument();

/// Sets up the guard on both nodes.
/// @throws LabError when a node does not take it
void setUpGuard(Lab& lab, Guard guard);

/// Packets that the firewall has dropped on the node, as its own counter tells.
long droppedByFirewall(Lab& lab, HostId node);

} // namespace velarix::lab
