/// What each message of the agent tells.
///
/// Feed a History the messages in order (LogReader gives them so); it hands out
/// events as they become known and keeps the snapshot up to date. It knows nothing
/// of files, settings, processes or the present time: whether the log is fresh
/// and its agent alive is for the caller to find out.
///
/// The messages that matter are in one table (HistoryService.cpp), place by place
/// with what is done at it. Roles are taken from the receiver's messages alone:
/// it changes them, the other workers only read them, a little early or late.
#pragma once

#include <map>
#include <set>
#include <utility>

#include "ctl/history/Events.h"

namespace velarix::ctl
{

class History
{
public:
	using Sink = std::function<void(const Event&)>;

	/// @param sink gets each event; may be empty
	explicit History(Sink sink = {}, Commands commands = {}, LastMove lastMove = {});

	void feed(const LogLine& line);
	const Snapshot& snapshot() const { return m_snapshot; }

private:
	/// Says which of the operations below is done at which message.
	friend struct HistoryTable;

	/// What the next command of the receiver (or of the start) is.
	enum class Awaited
	{
		notKnown,
		stop,
		start,
		kill,
		killThenStop
	};

	/// What is forgotten when another agent starts.
	struct Agent
	{
		bool startSeen = false;
		bool workersSeen = false;
		/// The receiver's threads, from the label of its own messages.
		std::set<long> receivers;

		/// What is going on, for the cause of commands: agentStart, giveUp, takeOver,
		/// bothMasters or configuredRole.
		Cause doing = Cause::none;
		Cause giveUpCause = Cause::notLogged;
		Cause resetCause = Cause::notLogged;
		Awaited awaited = Awaited::notKnown;
		std::optional<Instant> askMade;
		int beatsThatDiffer = 0;

		std::optional<Instant> scriptBegun;
		std::optional<Instant> addressBegun;
		std::string addressError;
		Cause killedFor = Cause::none;
		int cyclesWithoutPrograms = 0;
		std::string probeError;
		std::string takeOverError;

		/// The longest time between two messages so far that was no gap.
		std::chrono::nanoseconds usualGap{0};
		int messages = 0;

		/// The last error behind which the daemon ends.
		std::optional<Event> fatal;
	};

	Sink m_sink;
	Commands m_commands;
	LastMove m_lastMove;
	Snapshot m_snapshot;
	Agent m_agent;
	/// The agent before this one, in case it is not gone.
	std::optional<std::pair<Snapshot, Agent>> m_before;
	const LogLine* m_line = nullptr;
	Instant m_now;
	/// The last text of an error by its place, so that it is reported once.
	std::map<std::string, std::pair<std::string, Instant>> m_errors;

	// History.cpp
	void noteGap();
	void noteAgent();
	bool startsAnew() const;
	void begin();
	void end();
	void resume();
	void noteReceiver();
	void noteError();

	// Shared
	Event event(EventKind kind, Cause cause = Cause::none) const;
	void emit(const Event& event);
	void noteChange(const Event& event);
	bool isPlanned() const;
	void emit(EventKind kind, Cause cause = Cause::none, std::string subject = {}, std::string detail = {},
	          std::optional<Milliseconds> duration = std::nullopt);
	Milliseconds since(Instant time) const;
	/// How long something has lasted that ends with this; nothing without its begin.
	std::optional<Milliseconds> lasted(std::optional<Instant>& begun) const;
	/// The text behind `prefix`; all of it when it begins differently.
	std::string behind(std::string_view prefix) const;
	template <typename Value> void tell(std::optional<Reported<Value>>& reported, const Value& value);

	// HistoryRole.cpp
	void setRole(Role role, Cause cause);
	void passBegins();
	void judgedAs(Role role);
	/// @param ok how the node judges its own network
	void judged(bool ok);
	void bothMasters(bool ok);
	void bothSlaves();
	void lost(Fault fault, Cause cause);
	/// @param doing what the next commands belong to, and which is the first
	void begins(Cause doing, Awaited next);
	void givesUp(Awaited next);
	void givesUpAndAsks(Awaited next);
	void givesUpWithoutPrograms();
	/// @param next the next command of it
	void takesOver(Cause cause, Awaited next = Awaited::kill);
	void leavesForConfiguredRole();
	void endTakeOver(EventKind kind, std::string detail = {});
	void endAsk(EventKind kind);
	void answerSeen();

	void found(Fault fault, std::string detail = {});
	void gone(Fault fault, std::string detail = {});
	FaultState& state(Fault fault) { return m_snapshot.faults[static_cast<std::size_t>(fault)]; }
	void unanswered(Fault fault);
	void probeError();
	void serverError();
	void heartbeatReceived();
	void heard(const Heartbeat& heartbeat);
	void heartbeatSent();
	void partnerRefuses();
	void nobodyConnected();
	void countSilence(int silences);

	// HistoryService.cpp
	void commandRun();
	void scriptWasRun();
	void addressUp(const std::string& how);
	void addressNotListed();
	void addressPinged();
	void addressFailed();
	void programsCounted();
	void dropped(const std::string& output);
};

template <typename Value> void History::tell(std::optional<Reported<Value>>& reported, const Value& value)
{
	if (!reported || !(reported->value == value))
	{
		reported = Reported<Value>{value, m_now, m_now};
	}
	reported->at = m_now;
}

/// What is done at a place of the log.
using Handler = void (*)(History&);

/// The words of a text on one line, no more than a line holds.
std::string oneLine(std::string_view text);

/// @return null when the history makes nothing of the place
Handler handlerOf(std::string_view label, int number);

} // namespace velarix::ctl
