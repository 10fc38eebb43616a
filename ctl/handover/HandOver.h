/// A planned move of the service to the partner, by the agents' own switchover.
///
/// The programs are ended, nothing else: the agent notices, gives up, drops the
/// address and asks its partner, which takes over. The configured kill command
/// ends them, but without a network: it may drop the address too (the usual one
/// does), and an agent that misses its address before its programs gives up
/// without asking. The node then takes the service back when it is the configured
/// master, so nothing has moved.
#pragma once

#include "ctl/Program.h"
#include "ctl/status/Judgement.h"
#include "inspect/HostProcesses.h"

namespace velarix::ctl
{

/// What it would do, and why it may not be done.
struct HandOverPlan
{
	/// Why not; empty when it may be done.
	std::vector<std::string> refusals;
	/// The kill command for each program, as the agent would run it.
	std::vector<std::string> commands;
	/// The programs' file names, and how many processes the agent must not find
	/// any more to notice that they are gone.
	std::vector<std::string> names;
};

HandOverPlan planHandOver(const NodeState& state, const Judgement& judgement, const Paths& paths);

/// @return the processes that bear exactly one of the names and have not ended
std::vector<host::Process> processesNamed(const std::vector<std::string>& names);

/// Ends the programs and follows what happens; everything is verified from this node. Tells each step
/// as it is seen, and how it ended.
/// @param partner its address, for the report
ExitCode handOver(const HandOverPlan& plan, const std::string& partner, Observer& observer,
                  std::chrono::milliseconds timeOut, const Context& context);

} // namespace velarix::ctl
