/// What the kernel tells of the node: its programs, the virtual address, the cards.
#pragma once

#include "NodeState.h"

namespace velarix::ctl
{

/// The card that carries the virtual address, and the one of the heartbeats. The
/// agent knows no others.
inline constexpr char kServiceCard[] = "eth0";
inline constexpr char kCommunicationCard[] = "eth1";

/// Fills the figures that do not come from the log.
void askKernel(NodeState& state, const Paths& paths);

} // namespace velarix::ctl
