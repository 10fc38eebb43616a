/// pgrep and pidof, run in the crowd or where there is nobody.
#pragma once

#include <string>
#include <vector>

/// A process namespace with its own /proc in which a tool can be started.
struct Place
{
	int processes; ///< descriptor of the process namespace
	int mounts;    ///< descriptor of the mount namespace with its /proc
};

/// @return the place of this process
Place thisPlace();

/// Makes a place with a single process in it, which ends with this process.
Place emptyPlace();

/// Runs a program to its end, its output thrown away.
/// @param words the program's path and its arguments
/// @return whether it ended with status 0 (something found) and not 1
/// @throws std::runtime_error when it could not be run or ended with a status
///         other than these
bool runTool(const Place& place, const std::vector<std::string>& words);

/// Runs a program to its end.
/// @return what it printed, 4 KiB at most
/// @throws std::runtime_error as runTool
std::string outputOf(const Place& place, const std::vector<std::string>& words);

/// Starts `number` processes that sleep for ever, the first ones with these names,
/// and returns when all are there.
void startCrowd(long number, const std::vector<std::string>& names);
