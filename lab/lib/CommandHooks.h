/// Lets a fault spoil the commands that an operator has set: each command of the
/// lab's settings first looks for a hook, a piece of shell on the node's disk,
/// and includes it. There is none until a fault puts one there.
#pragma once

#include <string>

#include "Basics.h"
#include "Node.h"

namespace velarix::lab
{

enum class SetCommand
{
	start, ///< of the virtual address
	stop,  ///< of the virtual address
	kill   ///< of the managed programs
};

/// What a command of the settings begins with.
std::string hookGuard(SetCommand command);

/// The command ends at once, in silence and without having done anything.
void makeFail(const Node& node, SetCommand command);
/// The command does its work and says something.
void makePrint(const Node& node, SetCommand command);
/// The command does not end until repair(), and then does its work.
void makeHang(const Node& node, SetCommand command);
/// The command works again; one that hangs goes on.
void repair(const Node& node, SetCommand command);

} // namespace velarix::lab
