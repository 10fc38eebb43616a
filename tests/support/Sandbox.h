/// A place of its own for a test program: new mount, network and PID namespaces
/// with an overlay on /usr, so that /usr/velarix can be written while the host's
/// is never touched. The kernel removes all of it when the program ends.
#pragma once

#include <string>

namespace sandbox
{

/// Runs `body` in a new process inside a fresh sandbox: its own /proc and /sys,
/// loopback up, /usr/velarix with its directories and the run-info record. Works
/// as root and, with a user namespace, without. Call it before any thread starts.
/// Ends the calling process with the exit status of `body`, 128 + n when signal n
/// ended it.
/// @return only without a sandbox: what `body` returned in this very process
int run(int argc, char** argv, int (*body)(int, char**));

/// @return why there is no sandbox; empty inside one
const std::string& whyUnavailable();

/// Empties /usr/velarix down to its directories, so that no test finds what
/// another one left.
void cleanDirectories();

/// Makes the network interface `name` (a virtual pair) and raises it.
/// @param carrier whether it has carrier
void addInterface(const std::string& name, bool carrier);

/// Gives or takes the carrier of a interface made by addInterface.
void setCarrier(const std::string& name, bool carrier);

/// Puts an empty tmpfs over /proc, for a /proc made by hand. Undone by showRealProc.
void coverProc();
void showRealProc();

/// Runs `command` in a shell; fails the current test when its status is not 0.
void shell(const std::string& command);

/// Replaces or makes the file `path`.
void writeFile(const std::string& path, const std::string& content);

/// @return the whole file; an empty text when it cannot be read
std::string readFile(const std::string& path);

} // namespace sandbox
