/// Lets a fault spoil the commands that an operator has set, by a hook (see
/// SetCommand.h) on a node that is on. A command that is spoilt already, or whose
/// hook cannot be placed, stays as it is.
#pragma once

#include "lab/core/Node.h"
#include "lab/core/SetCommand.h"

namespace velarix::lab
{

/// @throws LabError when the node is off or the command is spoilt already
void requireWhole(const Node& node, SetCommand command);

/// The command ends at once, in silence and without having done anything.
/// @throws LabError as requireWhole, or when the disk does not take the hook
void makeFail(const Node& node, SetCommand command);
/// The command does its work and says something.
/// @throws LabError likewise
void makePrint(const Node& node, SetCommand command);
/// The command does not end until repair(), and then does its work.
/// @throws LabError likewise
void makeHang(const Node& node, SetCommand command);
/// The command works again; one that hangs goes on.
/// @throws LabError when the node is off or the command is not spoilt
void repair(const Node& node, SetCommand command);

} // namespace velarix::lab
