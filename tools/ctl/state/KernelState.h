/// What the kernel tells of the node: its programs, the virtual address, the cards.
#pragma once

#include "Names.h"
#include "NodeState.h"

namespace velarix::ctl
{

/// Fills the figures that do not come from the log.
void askKernel(NodeState& state, const Paths& paths);

} // namespace velarix::ctl
