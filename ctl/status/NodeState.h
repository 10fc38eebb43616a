/// What is known of this node now: from its settings, its agent's process, its
/// log and the kernel, each figure with its age or the reason why it is not known.
///
/// A figure that the log reported counts as known only while the agent of the pid
/// file lives and the log's last lines are its own and fresh. A role is never
/// taken from a file alone.
#pragma once

#include <algorithm>

#include "ctl/status/AgentProcess.h"
#include "ctl/status/LogTail.h"
#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/Paths.h"
#include "inspect/SettingsFile.h"
#include "inspect/Tunnel.h"
#include "keeper/Runtime.h"

namespace velarix::ctl
{

/// What a program of the keeper, ha-address or a service, says of itself: /run/velarix-ha/PROGRAM.state,
/// believed as long as the process that wrote it lives.
struct KeeperProgram
{
	std::string name;
	bool runs = false;
	/// The keeper's word: holding, waiting, running, ...; "stopped" or "failed" when it does
	/// not run.
	std::string state;
	std::optional<std::chrono::system_clock::time_point> since;
	/// The hardware address of the host that has the virtual address instead of this one.
	std::string holder;
	int conflicts = 0;
	std::optional<std::chrono::system_clock::time_point> lastConflict;
	/// Of a service, since its supervisor's start.
	int restarts = 0;
	/// "ok", "failed 2", "none"
	std::string check;
	/// Why a service died last.
	std::string reason;
	/// Of ha-reach alone: "ready", "reaches", "fails", "silent", "unknown"; and what it knows of its targets.
	std::string partner;
	std::vector<keeper::TargetState> targets;

	/// @return whether another host has the address
	bool waits() const { return state == "waiting" || state == "yielded"; }
};

struct KeeperState
{
	KeeperProgram address;
	std::vector<KeeperProgram> services;
	/// Without a [reachability] nothing.
	std::optional<KeeperProgram> reach;
	bool marked = false; ///< the marker is there
};

/// How long a sound agent may be silent, from its settings.
/// Those that are missing or negative count as zero here: an agent with such
/// settings does not run for long anyway.
struct Timing
{
	std::chrono::seconds interval{};
	std::chrono::seconds receivingTime{};
	std::chrono::seconds checkCycle{};
	std::chrono::seconds waitingTime{};

	/// What a loaded machine may add.
	static constexpr std::chrono::seconds kSlack{5};
	/// The sender's pause after a failed connect.
	static constexpr std::chrono::seconds kRetry{2};
	/// Three silent pings and the pause after a silence.
	static constexpr std::chrono::seconds kChecks{10};
	/// Two countdowns of five seconds and a round of pings.
	static constexpr std::chrono::seconds kAddress{11};

	static Timing of(const SettingsFile& settings);

	/// Between two lines of any worker: the checker writes one each cycle, the
	/// sender one for each heartbeat or failed connect.
	Milliseconds logPause() const { return std::min(checkCycle, receivingTime + std::max(interval, kRetry)) + kSlack; }

	/// Between two lines of the receiver when it is not starting the service: a
	/// pass with three silent pings and a silence.
	Milliseconds receiverPause() const { return receivingTime + kChecks + kSlack; }

	/// Between two lines that tell the role: whichever of checker and receiver is
	/// the slower.
	Milliseconds rolePause() const { return std::max<Milliseconds>(checkCycle + kSlack, receiverPause()); }

	/// Between two heartbeats of a partner with the same settings.
	Milliseconds heartbeatPause() const { return 2 * (interval + receivingTime) + kSlack; }

	/// A switchover from the end of the programs until they run on the partner,
	/// mostly: the agent notices, asks, the partner counts down twice and waits.
	Milliseconds handOver() const { return interval + kRetry + kAddress + waitingTime + interval; }
};

/// Within it, so many changes of the role make a node one whose service comes and
/// goes; the log is read back as far.
inline constexpr std::chrono::minutes kFlapping{5};
inline constexpr int kFlappingChanges = 3;

/// One configured program and the processes whose names contain its name, as the
/// agent counts them.
struct ProgramCount
{
	std::string path;
	std::string name;
	int processes = 0;
	/// Its file is there and may be executed; empty when that is not known.
	std::optional<bool> executable;
};

struct Programs
{
	std::vector<ProgramCount> each;
	/// The agent's rule: at least as many matches in total as programs.
	bool run = false;
	/// Of all.
	int processes = 0;
};

/// Where the virtual address is on this machine.
struct HeldAddress : host::Address
{
	bool held = false;
};

/// One figure of a node's state: what it is, how old that is, or why it is not
/// known. A figure that was reported by a log which can no longer be trusted keeps
/// what was reported last and is not known all the same.
template <typename Value> struct Figure
{
	/// What was reported or seen last.
	std::optional<Value> reported;
	/// When it was reported or seen last.
	std::optional<std::chrono::system_clock::time_point> at;
	/// When it became what it is; empty when that is not known.
	std::optional<std::chrono::system_clock::time_point> since;
	/// Why it is not known; empty for a known figure.
	std::string why;

	bool known() const { return reported.has_value() && why.empty(); }

	/// @return whether it is known and that value
	bool is(const Value& value) const { return known() && *reported == value; }
};

/// A figure that was seen just now.
template <typename Value> Figure<Value> seen(Value value, std::chrono::system_clock::time_point now)
{
	return {std::move(value), now, std::nullopt, {}};
}

template <typename Value> Figure<Value> notKnown(std::string why)
{
	return {std::nullopt, std::nullopt, std::nullopt, std::move(why)};
}

/// The WireGuard tunnel of the heartbeats.
struct TunnelState
{
	TunnelSettings settings;
	/// Why the session is not known; empty when it is.
	std::string why;
	/// There is an interface.
	bool present = false;
	std::optional<host::TunnelSession> session;
	/// The partner answers beside the tunnel and not in it. Looked for while it is not heard.
	bool down = false;
};

struct NodeState
{
	Instant now;
	/// The files are those of another root: the kernel was not asked.
	bool elsewhere = false;
	/// This machine's; empty for the files of another root.
	std::string host;

	std::optional<SettingsFile> settings;
	/// Why there are none; empty when they were read.
	std::string settingsProblem;
	ExitCode settingsCode = ExitCode::fine;
	/// The file was changed after the agent had read it.
	bool settingsNewer = false;
	Timing timing;

	Agent agent;
	std::optional<Maintenance> maintenance;
	/// Why its record cannot be read; empty when it can, or is not there.
	std::string maintenanceProblem;

	/// Empty without settings.
	std::filesystem::path log;
	LogTail tail;
	/// Of this node, from what velarixctl has recorded.
	LastMove lastMove;
	/// Why what the log reported may not be true now; empty when it may be believed.
	std::string distrust;
	/// The agent lives and its log is silent for longer than a sound agent's.
	bool logStale = false;
	/// The agent has not had the time to say anything yet.
	bool starting = false;
	/// The log is fresh by its file's time, and its lines are off by a time zone.
	bool otherZone = false;
	/// The date in the log's first line, from which the library counts the day until
	/// it rotates; set only when it lies in the future.
	std::optional<Instant> logBegunAhead;
	/// Bytes that the agent may still write to its log.
	Figure<std::uintmax_t> logSpace;

	Figure<Role> role;
	/// This node's own verdict on its network.
	Figure<bool> networkOk;
	/// This node asks its partner to take the service.
	Figure<bool> asking;
	/// The last one received. Known although old: its age tells.
	Figure<Heartbeat> heartbeat;
	Figure<Heartbeat> sent;
	/// Of the partner, known only while it is heard.
	Figure<Role> partnerRole;
	Figure<bool> partnerAsks;
	Figure<bool> partnerRuns;
	/// The last change of the own role; what became known of it only with
	/// `searchedTo` when none was found.
	LastChange lastChange;

	Figure<Programs> programs;
	Figure<HeldAddress> address;
	/// Nothing for settings without the keeper, and for the files of another root.
	std::optional<KeeperState> keeper;
	/// Likewise, for settings without a tunnel.
	std::optional<TunnelState> tunnel;
	/// True: has carrier. Not known for an interface that is not there or down.
	Figure<bool> serviceInterface;
	Figure<bool> communicationInterface;
	Figure<bool> gatewayAnswers;
	/// Hardware address of another host that has the virtual address too. Looked for
	/// by a master that hears no partner; empty otherwise.
	std::string otherHolder;

	/// A node that has given up asks as standby. The ask stays in the heartbeats of one that has taken
	/// the service back without an answer, and means nothing there.
	bool asks() const { return asking.is(true) && !role.is(Role::master); }
	bool isAsked() const { return partnerAsks.is(true) && !partnerRole.is(Role::master); }

	const Snapshot& snapshot() const { return tail.snapshot; }
	/// @return how its log is read
	LogWish logWish() const;
	/// @return a setting's text; empty without it
	std::string setting(const char* name) const;
	/// @return how old it is; nothing without a time
	std::optional<Milliseconds> age(const std::optional<Instant>& time) const;
	template <typename Value> std::optional<Milliseconds> age(const Figure<Value>& figure) const
	{
		return age(figure.at);
	}
};

/// Looks again and again, and keeps what need not be read anew.
class Observer
{
public:
	/// @param search looks for the last change of the role also far back in the log
	explicit Observer(Paths paths, bool search = true) : m_paths(std::move(paths)), m_search(search) {}

	NodeState look(Instant now);

private:
	Paths m_paths;
	bool m_search;
	std::optional<Instant> m_lastLook;
	long m_process = 0;
	LastChange m_change;

	void noteChange(NodeState& state);
};

/// Fills the figures that the kernel tells: programs, virtual address, interfaces.
void askKernel(NodeState& state, const Paths& paths);

/// Names of the configured programs as the agent looks for them.
std::vector<std::string> programNames(const SettingsFile& settings);

/// @return how many of the names the status line contains, the agent's rule
int matches(const std::string& statusLine, const std::vector<std::string>& names);

} // namespace velarix::ctl
