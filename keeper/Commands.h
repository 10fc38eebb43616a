/// The verbs of the program keeper. Each returns an exit status (sysexits.h, 0 for done).
/// The agent takes anything on standard output for a failure, and writes it into its log:
/// what these print is one line that says why.
#pragma once

#include <string>

#include "keeper/Settings.h"

namespace velarix::keeper::commands
{

/// Starts ha-address unless it lives, and waits until it holds the address. Silent and 0
/// then; else says who holds it, and ends what it started.
int raise(const Settings& settings);
/// Ends ha-address, removes the address, and looks whether it has gone. Sets the marker,
/// too: the agent calls this right before it looks for the address.
int drop(const Settings& settings);
/// Ends ha-address or a supervisor with all of its service, and waits for that.
int stop(const Settings& settings, const std::string& program);
int mark(const Settings& settings);
int unmark(const Settings& settings);
/// Prints all findings. @return EX_CONFIG or the like when one is an error
int check();

} // namespace velarix::keeper::commands
