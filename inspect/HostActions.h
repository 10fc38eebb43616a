/// What a hand-over does to this machine. Part of the seam that Host.h describes.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include <sys/types.h>

namespace velarix::inspect::host
{

enum class CommandEnd
{
	/// It ran to its end, well or not.
	ended,
	/// It took longer than allowed and was killed.
	tooLong,
	/// The kernel gave it no network namespace; it was not run.
	noNamespace,
	/// No process could be made for it.
	notStarted
};

/// Runs a line through /bin/sh in a network namespace of its own, which holds
/// no interface: what the line does to processes and files happens, what it does to
/// addresses and routes does not. What it prints goes to standard error.
CommandEnd runWithoutNetwork(const std::string& command, std::chrono::milliseconds limit);

/// Sends a signal to a process.
/// @param name short name it must have, so that no other process that got the
///             same id meanwhile is hit
/// @return false when it is gone, is another one or may not be signalled
bool signalProcess(pid_t pid, const std::string& name, int signal);

/// Waits; the only wait of the verbs that watch something.
void pause(std::chrono::milliseconds time);

/// @return lines of the terminal that is standard output; 0 when that is not known
std::size_t windowLines();

/// @return a time that no setting of the clock changes, from any beginning
std::chrono::milliseconds elapsed();

} // namespace velarix::inspect::host
