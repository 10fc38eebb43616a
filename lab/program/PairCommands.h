/// The commands for a pair that is kept running: up, down, status, exec, inject,
/// repair, timeline. Each returns the exit status of velarix-lab and throws
/// LabError with a sentence for the person at the keyboard.
#pragma once

#include <string>
#include <vector>

#include "lab/program/StateDirectory.h"
#include "lab/program/Supervisor.h"

namespace velarix::lab::program
{

/// Starts the supervisor and waits, if `wait`, until one node holds the address
/// and answers.
int pairUp(StateDirectory& directory, const SupervisorOptions& options, bool wait);

/// Ends the supervisor, and with it everything of the pair.
int pairDown(const StateDirectory& directory);

/// Prints roles, owner of the address and answer, as text or as JSON.
int pairStatus(const StateDirectory& directory, bool json);

/// Runs a program on a host of the pair with the caller's standard streams.
/// @return the program's exit status
int pairExec(const StateDirectory& directory, const std::string& host, const std::vector<std::string>& command);

/// Sends one request whose answer is printed when it is not just "ok".
int pairRequest(const StateDirectory& directory, const std::string& request);

} // namespace velarix::lab::program
