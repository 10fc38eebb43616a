/// A place of its own for a test program: new mount, network and PID namespaces
/// with an overlay on /usr, so that /usr/velarix can be written while the host's
/// is never touched. The kernel removes all of it when the program ends.
#pragma once

#include <string>

namespace sandbox
{

/// Runs this program again inside a fresh sandbox: its own /proc and /sys, loopback up. Works
/// as root and, with a user namespace, without. Call it before anything else.
/// @return inside the sandbox, and where there can be none
void enter(char** argv);

/// @return whether this is one
bool isOne();

/// Makes /usr/velarix anew with its directories and nothing else, so that no test finds
/// what another one left.
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
