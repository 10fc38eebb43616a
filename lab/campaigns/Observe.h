/// Watching a lab until nothing happens any more, and looking what is on it then.
#pragma once

#include <string>
#include <vector>

#include "lab/campaigns/Record.h"
#include "lab/core/Lab.h"

namespace velarix::lab
{

/// Starts both agents and waits until this node serves and the other one is on standby.
/// @throws LabError when it does not come to that within twice the limit
void letServe(Lab& lab, HostId master, Millis limit);

/// Waits until owners and roles have not changed for `quiet`, at most `limit`
/// since `from`, and measures the whole.
/// @param took  see PhaseRecord
PhaseRecord observe(Lab& lab, Millis from, Millis quiet, Millis limit, Millis took = Millis(0));

/// Nodes on which the managed program runs (zombies left out).
std::string programsOf(Lab& lab);

/// What is on the nodes and should not be: zombies, programs where the address is
/// not, announcers of an address that is not held, commands that do not end. Takes
/// two looks, a second and a half apart.
std::vector<std::string> leftOn(Lab& lab);

/// The errors that the nodes' logs tell, one line each, but for the two that every
/// silence brings.
std::string errorsIn(Lab& lab);

} // namespace velarix::lab
