/// What a planned move of the service would do, and why it may not be done.
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

#include "ctl/status/Judgement.h"
#include "ctl/status/NodeState.h"
#include "inspect/HostProcesses.h"
#include "inspect/Paths.h"

namespace velarix::ctl
{

using namespace inspect;

struct HandOverPlan
{
	/// Why not; empty when it may be done.
	std::vector<std::string> refusals;
	/// The kill command for each program, as the agent would run it.
	std::vector<std::string> commands;
	/// The programs' file names, and how many processes the agent must not find
	/// any more to notice that they are gone.
	std::vector<std::string> names;
	/// The processes that are the programs.
	std::vector<host::Process> targets;
};

HandOverPlan planHandOver(const NodeState& state, const Judgement& judgement, const Paths& paths);

/// @return the processes that bear exactly one of the names and have not ended
std::vector<host::Process> processesNamed(const std::vector<std::string>& names);

} // namespace velarix::ctl
