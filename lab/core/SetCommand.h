/// The commands that an operator sets, and the hook each of them looks for first:
/// a piece of shell on the node's disk, which it includes. There is none until a
/// fault puts one there.
#pragma once

#include <string>

namespace velarix::lab
{

enum class SetCommand
{
	start, ///< of the virtual address
	stop,  ///< of the virtual address
	kill   ///< of the managed programs
};

/// The hook's file inside a node.
inline std::string hookPath(SetCommand command)
{
	const char* name = command == SetCommand::start ? "start" : (command == SetCommand::stop ? "stop" : "kill");
	return std::string("/usr/velarix/app/on-") + name;
}

/// What a command of the settings begins with.
inline std::string hookGuard(SetCommand command)
{
	return "[ ! -e " + hookPath(command) + " ] || . " + hookPath(command) + "; ";
}

} // namespace velarix::lab
