/// The processes of this machine, as /proc shows them. Part of the seam that
/// Host.h describes.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "inspect/Names.h"

namespace velarix::inspect::host
{

struct Process
{
	pid_t pid = 0;
	/// First line of the status file without its line feed, "Name:\tlabhttpd": the
	/// text in which the agent looks for its programs' names.
	std::string statusLine;
	/// Short name, 15 characters at most, as the kernel escapes it.
	std::string name;
	/// R, S, D, T (stopped), Z (ended, not yet awaited by its parent) ...
	char state = '?';
	int threads = 0;
	/// Effective user.
	uid_t user = 0;
	/// It lives in a PID namespace below this one (a container's).
	bool inContainer = false;
	/// Its program's file, with " (deleted)" behind one that was replaced; empty
	/// when this user may not ask.
	std::string executable = {};
	/// Its parent. 0: outside of what this process sees.
	pid_t parent = -1;
	/// In the innermost process namespace that it is in.
	pid_t pidInside = -1;
};

/// @return whether it is an agent of this node: root's, and of the agent's own
///         file. Any user can give a process of his the agent's name
inline bool isAgent(const Process& process)
{
	// Who may not ask for the file has the user alone to go by.
	const bool fileFits = process.executable.empty() || process.executable == kAgentFile ||
	                      process.executable == std::string(kAgentFile) + " (deleted)";
	return process.name == kAgentName && process.user == 0 && !process.inContainer && fileFits;
}

/// @param directory of /proc, as "/proc/1/task" for the threads of a process
/// @return the ids of all processes, ascending; nothing when it cannot be listed
std::optional<std::vector<pid_t>> processIds(const std::string& directory = "/proc");

/// @return every process, by ascending pid; nothing when /proc cannot be listed
std::optional<std::vector<Process>> processes();

/// @return one process; nothing when there is none of that id
std::optional<Process> process(pid_t pid);

/// @return whether there is a process of that id, also one that /proc hides from
///         this user
bool isThere(pid_t pid);

/// @return when it was started, to about a second; nothing when it is gone
std::optional<std::chrono::system_clock::time_point> startOf(pid_t pid);

/// @return where its standard output goes, as /proc names it ("pipe:[4711]",
///         "/dev/pts/0"); empty when it is closed or this user may not ask
std::string standardOutput(pid_t pid);

} // namespace velarix::inspect::host
