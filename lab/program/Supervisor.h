/// The background process that keeps a pair running between two commands.
#pragma once

#include <string>

#include "lab/core/NodeSettings.h"
#include "lab/program/StateDirectory.h"

namespace velarix::lab::program
{

struct SupervisorOptions
{
	std::string installRoot{};
	PairSettings times{.profile = Profile::keeper};
	bool startAgents = true;
	std::string wrapper{}; ///< words in front of the agent's program, with blanks between them
};

/// Makes the lab, serves requests at the control socket until "down", SIGTERM or
/// SIGINT, and removes the state directory.
///
/// Requests: "status" (JSON), "pid HOST" (process 1 of the host), "inject FAULT
/// NODE", "repair FAULT NODE", "timeline", "down". An answer that
/// begins with "error: " tells what was wrong.
/// @throws LabError when the lab cannot be made
void supervise(StateDirectory& directory, const SupervisorOptions& options);

} // namespace velarix::lab::program
