/// The WireGuard tunnel of a pair, set up by the installed programs as on a server.
#pragma once

#include "lab/core/Node.h"

namespace velarix::lab
{

/// Runs "velarixctl init --wireguard" on both nodes, which are on and connected, and exchanges
/// their public keys. The settings files are to be written anew afterwards.
/// @throws LabError when the installed tree lacks the tunnel, or a step fails
void makeTunnel(const Node& a, const Node& b);

/// Loads the rules and brings the tunnel up, as the units do at boot.
/// @throws LabError when one of them fails
void startTunnel(const Node& node);

/// Makes a new key for each node and takes them into the running tunnel, the first one's alone for a moment.
void changeTunnelKeys(const Node& a, const Node& b);

} // namespace velarix::lab
