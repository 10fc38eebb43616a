/// Processes: started with nothing of ours, found, ended.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include <sys/types.h>

#include "keeper/AddressMachine.h"
#include "keeper/Settings.h"

namespace velarix::keeper
{

enum class RunAs : std::uint8_t
{
	self,
	service ///< as the service's user and group
};

/// Starts a program for a service in a session and a process group of its own, with the
/// service's directory and environment, ordinary signals, and no descriptors but the
/// standard ones. It gets SIGTERM when we die, unless the kernel gives it more capabilities than
/// we have kept: then, as root, it lives on.
/// @param output its standard output; -1: ours
/// @return its process id, or -1 with what failed in `error`
pid_t start(const ServiceSettings& service, const std::vector<std::string>& command, RunAs runAs, std::string& error,
            int output = -1);

/// @return "status 1", "signal 9"
std::string howEnded(int status);

/// @return the processes below this one, its children first
std::vector<pid_t> descendants();
void signalAll(const std::vector<pid_t>& processes, int number);
/// TERM, and after `patience` KILL, to what `find` finds, until it finds nothing.
/// @return false when something does not even end by KILL
bool endAll(const std::function<std::vector<pid_t>()>& find, Millis patience);
/// Ends what a supervisor that was killed has left: processes, or the unit.
/// @return whether nothing is left
bool endRemains(const ServiceSettings& service);
/// The same, unless the state file says that nothing was left.
bool endOrphans(const ServiceSettings& service);

/// Waits, at most `limit`, for an ha-address that is being started: it cannot be found and
/// ended yet, and would be there afterwards.
void waitForStart(Millis limit);

/// The name that the agent looks for, as ps shows it.
void setProcessName(const std::string& name);

/// Runs before ordinary processes, for those that have little to do, and that in time: a
/// machine under load must neither be late with the address nor lose it to a probe that it
/// did not answer. What is not allowed is done without. Inherited by what is forked.
void beInTime();

/// Keeps these capabilities and drops all others. What is started as root afterwards gets
/// its full set from the kernel, so that a service can change its user.
void keepCapabilities(std::initializer_list<unsigned> kept);

} // namespace velarix::keeper
