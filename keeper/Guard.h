/// The managed programs, as they are run by their links. Each is two processes: the guard,
/// which has the name that the agent counts and does nothing, and its only child, the
/// worker, which does everything.
///
/// Neither leaves anything behind when the other one is killed: the worker ends in good
/// order when its guard dies, and the guard ends what its worker left. Both adopt the
/// orphans of their descendants, so that nothing that a service forks gets away.
#pragma once

#include "keeper/Settings.h"

namespace velarix::keeper
{

/// ha-address and ha-NAME. @return the worker's exit status; EX_OK when another one lives
/// already, which goes on; EX_SOFTWARE when the worker was killed
int runAddress(const Settings& settings);
int runService(const AddressSettings& address, const ServiceSettings& service);
/// ha-reach, which the agent does not know. Killed, it leaves its address behind (Reachability.cpp).
int runReach(const Settings& settings);

/// What their workers do, until SIGTERM. @return the exit status
/// @param services the programs that run only where the address is
int holdAddress(const AddressSettings& settings, const std::vector<std::string>& services);
/// EX_TEMPFAIL to be started with changed settings
int watchTargets(const Settings& settings);

/// Takes the name of ha-address from its guard. The agent misses a program then, gives up
/// in good order, and asks its partner; the address is here until the agent drops it. When the
/// agent does nothing, nothing changes.
void hideAddressProgram();
/// @return whether that has happened to the guard of this worker
bool addressIsHidden();

} // namespace velarix::keeper
