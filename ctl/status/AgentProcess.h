/// The agent's process: what the pid file names and what is true of it; and the maintenance that stops it.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "inspect/HostProcesses.h"
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

/// Maintenance: an administrator works on the node, and nothing fails over or is
/// restarted meanwhile. The service goes on.
///
/// The agent is stopped by a signal (SIGSTOP), and so is what watches the services
/// for the keeper; the address stays watched. A record on the disk tells it to
/// everybody, and outlives a reboot: the service script starts no agent before the
/// maintenance is over or its time has passed.
struct Maintenance
{
	std::chrono::system_clock::time_point since;
	/// After it somebody has forgotten to end it.
	std::chrono::system_clock::time_point until;
	/// One line, as it was typed; may be empty.
	std::string reason;

	/// @return "since ... until ...: REASON", local times
	std::string words() const;
};

/// @return what the record tells; nothing without one
/// @throws Failure noInput for a record that cannot be read, settings for one without times
std::optional<Maintenance> readMaintenance(const std::filesystem::path& record);

/// @throws Failure as replaceFile
void writeMaintenance(const std::filesystem::path& record, const Maintenance& maintenance);

/// What the keeper calls a process that works; its parent, which guards it, has the program's name.
inline constexpr std::string_view kKeeperWorker = "keeper";

/// @return the keeper's processes that start services again, one for each service that
///         runs here, whatever the settings say now
std::vector<host::Process> serviceWatchers();

} // namespace velarix::ctl
