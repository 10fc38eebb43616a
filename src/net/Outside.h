/// The calls that leave the process: commands, programs, pings. They live alone
/// in one source file so that a test can link a recording one in its place.
///
/// No descriptor of the daemon (sockets, log file) reaches a command or a
/// managed program, only the standard streams do: a program that inherits the
/// listening socket keeps it alive after the daemon has dropped it and swallows
/// half of the partner's heartbeats. Each launch marks everything above
/// standard error close-on-exec first. The receiver's thread both listens and
/// launches, so its sockets are always covered. What another thread opens within
/// the same microseconds could slip through: a heartbeat's socket of the sender,
/// half-closed, the run-info record that it reads, a log file begun anew.
///
/// The worker threads block SIGQUIT, SIGTERM and SIGPIPE. What they start does
/// not inherit that: a managed program must be stoppable by an ordinary kill.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include <Poco/Process.h>

namespace outside
{

/// Starts `command` in a shell with its standard output on a pipe.
/// @return the stream to read from, to be closed with closePipe; null, with
///         errno set, when the command cannot be started
std::FILE* openPipe(const std::string& command);

/// Waits for the command behind `pipe` to end.
/// @return its wait status, -1 on failure
int closePipe(std::FILE* pipe);

/// Runs `command` in a shell and waits for it.
/// @return the raw value of system(): a wait status, or -1
int runShell(const std::string& command);

/// Starts a program directly, `path` being the whole program path.
/// @throws Poco::SystemException when the fork fails; a program that does not
///         exist raises nothing (its process ends with status 72)
Poco::ProcessHandle launch(const std::string& path, const std::vector<std::string>& arguments);

/// Sends `count` ICMP echo requests one after the other.
/// @return the number of replies, 0 to `count`
/// @throws Poco::Exception for an address that cannot be resolved or without
///         the privilege for raw sockets; an unreachable network only gives no
///         replies
int ping(const std::string& address, int count);

} // namespace outside
