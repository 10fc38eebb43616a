/// The packet filter of each node, made from the answers: the shipped velarix-ha.nft with
/// the pair's values in its defines.
#pragma once

#include <string>

#include "ctl/init/Answers.h"

namespace velarix::ctl
{

/// The file's name, beside the settings. The unit velarix-ha-firewall loads it from there.
inline constexpr const char* kFirewallFile = "firewall.nft";

/// @return a file for `nft -f`
std::string firewallRules(const Answers& answers, NodeName node);

} // namespace velarix::ctl
