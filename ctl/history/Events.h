/// What happened on this node, reported from its log: events for a history, and the
/// snapshot of the node that they add up to.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/LogLine.h"

namespace velarix::ctl
{

using namespace inspect;

using Milliseconds = std::chrono::milliseconds;

enum class Role
{
	unknown,
	master,
	slave
};

enum class EventKind
{
	agentStarted,
	agentResumed,       ///< two agents at once: the earlier one goes on
	agentEnded,         ///< found when the next agent starts; time: its last message; duration: its life
	roleChanged,        ///< duration: how long the role before was held
	takeOverBegan,      ///< the node takes the service; the cause tells why
	takeOverDone,       ///< the run script was run; duration: since takeOverBegan
	takeOverUnfinished, ///< the agent ended in the middle; duration: until its last message
	askMade,            ///< gave up the service and asks the partner to take it
	askAnswered,        ///< the partner is master; duration: since askMade
	askUnanswered,      ///< the partner stayed slave; duration: since askMade
	askReceived,        ///< the partner's heartbeats ask this node
	faultFound,         ///< `subject` tells what is wrong
	faultGone,          ///< duration: since faultFound
	silenceCounted,     ///< a standby counts silent passes; detail: "1 of 3"
	partnerLost,        ///< first silent pass; duration: since its last heartbeat
	partnerBack,        ///< a heartbeat again; duration: since the last one before
	partnerChanged,     ///< the partner's heartbeats tell another role
	partnerRestarted,   ///< the partner's heartbeats tell another start
	addressDropped,     ///< the stop command was run
	addressStarting,    ///< not there; the start command follows after the countdown
	addressWaiting,     ///< the start command was run, but the address does not answer
	addressFailed,      ///< the start command printed something or the wait failed; tried again
	addressUp,          ///< listed or answering; duration: since addressStarting
	programKilled,      ///< the kill command was run; subject: the program
	programsStarted,    ///< the run script was run; duration: since it was begun
	programsRunning,    ///< the checker counts enough programs; duration: without them
	programsStopped,    ///< the checker misses programs; duration: with them
	logGap,             ///< nothing was logged for `duration`, much longer than usual
	clockSetBack,       ///< by `duration`
	error               ///< an error line that none of the above tells
};

inline constexpr std::size_t kEventKinds = 30;

/// Why something happened. `none` when there is no cause to tell.
enum class Cause
{
	none,
	agentStart,              ///< every start begins clean and as standby
	killed,                  ///< ended without a last word: killed, or its host went down
	fatalError,              ///< ended with the error in the detail
	gatewaySilent,           ///< (1) a master cannot ping its gateway
	serviceAddressSilent,    ///< (2) a master cannot ping the service address
	serviceInterfaceDown,    ///< (3) a master's service interface has no carrier
	programsGone,            ///< a master's programs do not run
	partnerSilent,           ///< three silences, and the partner's address does not answer
	partnerAndServiceSilent, ///< neither the partner nor the service answers, the gateway does
	partnerAsked,            ///< the partner gave up and asked
	configuredRole,          ///< both were standby: back to the configured role
	bothMasters,             ///< both were master: back to the configured role
	takeOver,                ///< part of a take-over
	giveUp,                  ///< part of giving up the service
	switchover,              ///< an administrator ended a master's programs to move the service
	notLogged                ///< the log does not tell
};

/// What a fault is about.
enum class Fault
{
	gateway,                ///< does not answer pings
	partnerAddress,         ///< does not answer pings
	serviceAddress,         ///< does not answer pings
	serviceInterface,       ///< no carrier
	communicationInterface, ///< no carrier
	programs,               ///< a master's programs do not run
	heartbeats,             ///< the partner's host answers, its heartbeats do not come
	partnerPort,            ///< the partner does not accept this node's heartbeats
	bothMasters,            ///< two masters met
	foreignMessage          ///< something else than a heartbeat on the heartbeat port
};
inline constexpr std::size_t kFaults = 10;

struct Event
{
	EventKind kind = EventKind::error;
	Instant time;
	/// The agent's process id.
	long process = 0;
	Cause cause = Cause::none;
	/// Role before and after; set for roleChanged and partnerChanged.
	Role from = Role::unknown;
	Role to = Role::unknown;
	/// What it is about: a fault's word, a program's name.
	std::string subject;
	std::string detail;
	std::optional<Milliseconds> duration;
	/// The place of the line that reported it, "CHeartReciver:549".
	std::string place;
};

/// The words that JSON, metrics and texts use; they do not change.
std::string_view wordOf(EventKind kind);
std::string_view wordOf(Cause cause);
std::string_view wordOf(Fault fault);
/// @return "master", "slave" or "not known"
std::string_view wordOf(Role role);
/// @return the same for people: "standby" for what the log calls slave
std::string_view textOf(Role role);

/// What an event means to whoever is informed: "problem", "recovery" (a problem is over),
/// "change" (the service begins or ends to move) or "detail".
std::string_view severityOf(const Event& event);

/// What happened, in words: "standby -> master: the partner gave up and asked".
std::string describe(const Event& event);

enum class AddressState
{
	unknown,
	dropped,
	starting,
	waiting,
	up
};

/// What the last message said about something, and when.
template <typename Value> struct Reported
{
	Value value{};
	/// When the value became what it is; no earlier than the first message read.
	Instant since;
	/// When it was said last.
	Instant at;
};

/// A fault stays until it was looked at again and found gone, and each is looked
/// at in some situations only: gateway, service address and service interface on a
/// master, the partner's address and the communication interface when the partner is
/// silent.
struct FaultState
{
	bool there = false;
	Instant since;
	/// When it was found last.
	Instant at;
};

/// Enough to see that the service comes and goes.
inline constexpr std::ptrdiff_t kRoleChangesKept = 16;

/// Everything the messages so far add up to. Empty optionals: not reported.
struct Snapshot
{
	long process = 0;
	std::optional<Instant> agentStarted;
	std::optional<Instant> lastMessage;
	/// To see a receiver that has died.
	std::optional<Instant> lastOfReceiver;

	std::optional<Reported<Role>> role;
	std::optional<Event> lastRoleChange;
	/// A take-over that has begun and is not done.
	std::optional<Event> takeOver;
	/// The node's verdict on its own network; false after a failed check and after
	/// a take-over by probes, until a heartbeat has been judged.
	std::optional<Reported<bool>> networkOk;
	/// This node asks its partner to take the service.
	std::optional<Reported<bool>> asking;
	std::optional<Reported<bool>> programsRun;
	AddressState address = AddressState::unknown;

	std::optional<Reported<Heartbeat>> sent;
	std::optional<Reported<Heartbeat>> received;
	/// Since when the partner is silent; empty while it is heard.
	std::optional<Instant> partnerLost;
	int silences = 0;
	/// Heartbeats in a row that the partner did not accept.
	int refusals = 0;
	/// Starts of the virtual address in a row that failed.
	int failedStarts = 0;
	/// What the start command printed the last time.
	std::string startOutput;
	/// The last kRoleChangesKept changes of the role but for those of an agent's
	/// start and of planned moves, oldest first.
	std::vector<Instant> roleChanges;

	std::array<FaultState, kFaults> faults;
	const FaultState& fault(Fault which) const { return faults[static_cast<std::size_t>(which)]; }
};

/// The configured commands, by which their lines in the log are distinguished. The
/// history learns them from the agent's start; given ones serve as long as the
/// log has none (its beginning was purged or is not read).
struct Commands
{
	std::string start;
	std::string stop;
	std::string kill;
};

/// @return the last planned move (switchover) up to then; the agent's log tells of none
using LastMove = std::function<std::optional<Instant>(Instant until)>;

} // namespace velarix::ctl
