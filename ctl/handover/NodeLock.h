/// One command at a time changes what a node does: a switchover, a maintenance that begins or ends.
/// Each of them looks, decides and signals; two at once could stop an agent that is giving the
/// service away, and nobody would serve.
#pragma once

#include "inspect/Descriptor.h"
#include "inspect/Paths.h"

namespace velarix::ctl
{

using namespace inspect;

/// @return the lock, held until it is closed; no program that is run meanwhile inherits it. It is on
///         the directory of the settings: that is there also on a full or read-only disk, it is not
///         replaced as the files in it are, and not everybody may open it
/// @throws Failure refused when another command holds it, noInput when the directory cannot be locked
Descriptor lockNode(const Paths& paths);

} // namespace velarix::ctl
