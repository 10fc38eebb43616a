/// The processes of one host, seen from the machine, and signals to them.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "inspect/HostProcesses.h"

namespace velarix::lab
{

using inspect::host::Process;

/// Every process in the process namespace of `hostInit`, process 1 included, in
/// the order of their pids. Empty when the host is off.
std::vector<Process> processesOf(pid_t hostInit);

/// The host's processes of that short name, zombies left out.
std::vector<Process> processesNamed(pid_t hostInit, const std::string& name);

/// Sends a signal to a process of the host.
/// @return false when it is gone, or is not the host's: then nothing is sent
bool signalInHost(pid_t hostInit, pid_t pid, int signal);

/// What the kernel tells in /proc/PID/NAME; empty when the process is gone.
std::string procText(pid_t pid, const char* name);

/// The number behind "KEY:" in such a text of lines; empty when it is not there.
std::optional<long> numberBehind(const std::string& text, const std::string& key);

/// What each open descriptor of a process is, for example "socket:[123]", by its number.
std::map<int, std::string> descriptorsOf(pid_t pid);

} // namespace velarix::lab
