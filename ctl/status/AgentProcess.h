/// The agent's process: what the pid file names and what is true of it.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "inspect/Paths.h"

namespace velarix::ctl
{

using namespace inspect;

enum class AgentState
{
	running,
	/// Stopped by a signal or a debugger: it does nothing until it is continued.
	frozen,
	/// The pid file is there, its process is not.
	dead,
	/// The pid file's number belongs to another program now.
	otherProgram,
	noPidFile,
	/// It is not known; `text` says why.
	notKnown
};

/// The word for JSON and metrics: "running", "frozen", "dead", ...
std::string_view wordOf(AgentState state);

struct Agent
{
	AgentState state = AgentState::notKnown;
	/// What a person reads when it does not run; empty for a running one.
	std::string text;
	/// From the pid file; 0 without a number in it.
	pid_t pid = 0;
	/// Of a running or frozen agent.
	int threads = 0;
	std::optional<std::chrono::system_clock::time_point> since = {};
	/// The pipe or terminal to which it echoes its log, in words; empty otherwise.
	std::string console = {};
	/// Another agent's process that the pid file does not name; 0 for none.
	pid_t foreign = 0;

	/// @return whether the process of the pid file is there and an agent
	bool lives() const { return state == AgentState::running || state == AgentState::frozen; }
};

/// Threads of a sound agent: the main thread, checker, receiver and sender.
inline constexpr int kAgentThreads = 4;

Agent lookForAgent(const Paths& paths);

} // namespace velarix::ctl
