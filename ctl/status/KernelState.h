/// What the kernel tells of the node: its programs, the virtual address, the interfaces.
#pragma once

#include "ctl/status/NodeState.h"
#include "inspect/Names.h"

namespace velarix::ctl
{

using namespace inspect;

/// Fills the figures that do not come from the log.
void askKernel(NodeState& state, const Paths& paths);

} // namespace velarix::ctl
