/// One command of a rehearsal (HostTrial.h).
#pragma once

#include <functional>
#include <string>

#include <sys/types.h>

#include "inspect/HostTrial.h"

namespace velarix::inspect::host
{

/// Runs a command as the agent does and waits for its end, its output's and its work's,
/// each within limits.
/// @param done whether the command has done its work
/// @param program a process that is no part of the command; 0 for none
CommandRun runInTrial(const TrialPlan& plan, const std::string& command, const std::function<bool()>& done,
                      pid_t program = 0);

} // namespace velarix::inspect::host
