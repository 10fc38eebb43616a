/// Starting programs, on this host or inside the namespaces of a lab's host.
///
/// A program started here gets the three standard streams and nothing else: no
/// descriptor of the lab, no blocked signal, a small environment of its own and,
/// unless it belongs to a terminal, a session of its own (so that Ctrl-C at the
/// keyboard reaches the lab only).
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

#include "lab/core/Basics.h"

namespace velarix::lab
{

/// Where a program runs. Default: where the lab itself runs.
struct Inside
{
	int pidFd = -1;     ///< pidfd of the process whose namespaces are entered
	int namespaces = 0; ///< CLONE_NEW... flags of those that are entered
};

struct SpawnPlan
{
	std::vector<std::string> argv;
	Inside inside{};
	int input = -1;        ///< descriptor for standard input, -1: /dev/null
	int output = -1;       ///< descriptor for standard output, -1: /dev/null
	int error = -1;        ///< descriptor for standard error, -1: /dev/null
	bool terminal = false; ///< stays in the caller's session
};

/// @return pointers to the words and a null, for exec; they last as long as the words
std::vector<char*> pointersTo(std::vector<std::string>& words);

/// Starts a program.
/// @return pid of a child of the caller that ends with the program's own exit
///         status, or 128 + signal; 127 when it cannot be executed, 126 when the
///         namespaces cannot be entered
/// @throws LabError when no process can be made
pid_t spawn(const SpawnPlan& plan);

struct CommandResult
{
	int status = -1;       ///< as for spawn
	bool timedOut = false; ///< the limit was reached and the program killed
	std::string output;    ///< standard output and standard error together

	bool ok() const { return status == 0 && !timedOut; }
};

struct Command
{
	std::vector<std::string> argv;
	std::string input{}; ///< fed to standard input
	Inside inside{};
	Millis limit{15000};
};

/// Runs a program to its end.
/// @throws LabError when no process can be made
CommandResult run(const Command& command);

/// The same; a failure is an error.
/// @throws LabError with the command, its status and its output
std::string runOrThrow(const Command& command);

/// Waits for a child.
/// @return exit status or 128 + signal; empty when the limit passed first
std::optional<int> waitForChild(pid_t child, Millis limit);

} // namespace velarix::lab
