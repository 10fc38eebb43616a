/// The files of the WireGuard tunnel.
///
/// tunnel.conf holds no secret and is made for both nodes. The private key is made on its own
/// node and never leaves it; the public ones are exchanged.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "ctl/init/Answers.h"
#include "ctl/init/Placement.h"

namespace velarix::ctl
{

/// @return tunnel.conf of the node
std::string tunnelText(const Answers& answers, NodeName node);

/// The keys of one node.
struct TunnelKeys
{
	std::string own; ///< private
	std::string publicKey;
};

/// @return the line of a pre-shared key that the operator has added, to be kept; empty without one
std::string presharedKey(const std::filesystem::path& file);

/// Of this node: those that are there, or new ones.
/// @throws Failure refused without wireguard-tools
TunnelKeys tunnelKeys(const std::filesystem::path& directory);

} // namespace velarix::ctl
