/// The names of this machine's interfaces: eth0 and eth1, which the agent reads, given by
/// systemd.link(5) files.
///
/// They hold hardware addresses, so each node makes its own.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "ctl/init/Placement.h"
#include "inspect/Paths.h"

namespace velarix::ctl
{

/// What the interfaces are called now; both empty when they are not asked for.
struct InterfaceNames
{
	std::string service;
	std::string communication;
};

/// @return the .link files, and what makes udev try again when a name was taken; nothing
///         without names
/// @throws Failure usage or refused, with what to do instead
std::vector<NewFile> linkFiles(const InterfaceNames& names, const inspect::Paths& paths);

/// What the operator has to do: the lines of other files that name the interfaces, the
/// next steps, and the way back. Changes nothing.
/// @param files what `linkFiles` gave
void printRenaming(const InterfaceNames& names, const std::vector<NewFile>& files, const inspect::Paths& paths,
                   std::ostream& out);

} // namespace velarix::ctl
