/// Processes: started with nothing of ours, found, ended.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include <sys/types.h>

#include "Settings.h"

namespace velarix::keeper
{

/// In the environment of everything a service starts: PROGRAM. What remains of a
/// supervisor that was killed is found by it.
inline constexpr const char* kServiceVariable = "VELARIX_SERVICE";

struct Identity
{
	std::string user; ///< empty: as we are
	uid_t uid = 0;
	gid_t gid = 0;
	std::vector<gid_t> groups;
	std::string home;
};

/// @return false when there is no such user or group
bool resolve(const ServiceSettings& service, Identity& identity);

struct Launch
{
	std::vector<std::string> command;
	std::vector<std::string> environment; ///< added to ours
	Identity identity;
	std::string directory = "/";
	int output = -1; ///< standard output; -1: as ours
};

/// Starts a program in a session and a process group of its own, with ordinary signals
/// and no descriptors but the standard ones. It gets SIGTERM when we die.
/// @return its process id, or -1 with what failed in `error`
pid_t start(const Launch& launch, std::string& error);

/// @return the processes below `pid`, its children first
std::vector<pid_t> descendantsOf(pid_t pid);
/// @return all processes that have `program` in VELARIX_SERVICE, except this one
std::vector<pid_t> remainsOf(const std::string& program);
void signalAll(const std::vector<pid_t>& processes, int number);
/// TERM, and after `patience` KILL, to what `find` finds, until it finds nothing.
/// @return false when something does not even end by KILL
bool endAll(std::vector<pid_t> (*find)(const std::string&), const std::string& program, int patience);

/// The name that the agent looks for, as ps shows it.
void setProcessName(const std::string& name);

/// Runs before ordinary processes, for those that have little to do, and that in time: a
/// machine under load must neither be late with the address nor lose it to a probe that it
/// did not answer. What is not allowed is done without. Inherited by what is forked.
void beInTime();

/// Keeps these capabilities and drops all others. What is started as root afterwards gets
/// its full set from the kernel, so that a service can change its user.
void keepCapabilities(std::initializer_list<int> kept);

} // namespace velarix::keeper
