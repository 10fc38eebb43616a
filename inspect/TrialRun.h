/// One command of a rehearsal (HostTrial.h), and the file system around it.
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

/// Makes a copy of this machine's files the root directory of the calling process,
/// which must be alone in mount and process namespaces of its own: reads show the
/// real files, writes go to memory, or fail where no overlay is to be had.
/// @return why it cannot be had; empty when it is
std::string enterTrialRoot();

/// Puts `source` in the place of the file `path` of the copy.
/// @return whether `path` is now what `source` is
bool replaceFile(const std::string& source, const std::string& path);

} // namespace velarix::inspect::host
