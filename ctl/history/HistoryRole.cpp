// The roles, what is found wrong, and the partner's heartbeats.

#include "ctl/history/History.h"

namespace velarix::ctl
{

namespace
{

using namespace std::chrono_literals;

/// A third host that has been quiet for so long is gone.
constexpr auto kQuiet = 1min;

Role roleOf(const Heartbeat& heartbeat)
{
	return heartbeat.master ? Role::master : Role::slave;
}

} // namespace

void History::setRole(Role role, Cause cause)
{
	const Role before = m_snapshot.role ? m_snapshot.role->value : Role::unknown;
	if (before == role)
	{
		m_snapshot.role->at = m_now;
		return;
	}
	if (role == Role::slave)
	{
		endTakeOver(EventKind::takeOverUnfinished);
	}
	Event change = event(EventKind::roleChanged, cause);
	change.from = before;
	change.to = role;
	if (m_snapshot.role)
	{
		change.duration = since(m_snapshot.role->since);
	}
	tell(m_snapshot.role, role);
	emit(change);
	if (role == Role::slave)
	{
		gone(Fault::programs, "the service was given up");
	}
}

/// Each pass of the receiver begins here; whatever an action of the pass before
/// was interrupted by, it is over.
void History::passBegins()
{
	endTakeOver(EventKind::takeOverUnfinished, m_agent.takeOverError);
	begins(Cause::none, Awaited::notKnown);
}

/// A node that goes back to its configured role as standby, and whose programs do
/// not run, does not say so: its next judgement does.
void History::judgedAs(Role role)
{
	if (!m_snapshot.role)
	{
		tell(m_snapshot.role, role);
		return;
	}
	const bool silently = role == Role::slave && m_snapshot.fault(Fault::bothMasters).there;
	setRole(role, silently ? Cause::bothMasters : Cause::notLogged);
}

/// What a master gives up for; the next message says that it does.
void History::lost(Fault fault, Cause cause)
{
	found(fault);
	m_agent.giveUpCause = cause;
}

void History::begins(Cause doing, Awaited next)
{
	m_agent.doing = doing;
	m_agent.awaited = next;
}

void History::givesUp(Awaited next)
{
	setRole(Role::slave, m_agent.giveUpCause);
	begins(Cause::giveUp, next);
}

void History::givesUpAndAsks(Awaited next)
{
	givesUp(next);
	m_agent.askMade = m_now;
	tell(m_snapshot.asking, true);
	emit(EventKind::askMade, m_agent.giveUpCause);
}

void History::givesUpWithoutPrograms()
{
	m_agent.giveUpCause = isPlanned() ? Cause::switchover : Cause::programsGone;
	givesUpAndAsks(Awaited::stop);
}

/// A first message of it may be missing: the kill before the start, or the start.
void History::takesOver(Cause cause, Awaited next)
{
	setRole(Role::master, cause);
	begins(Cause::takeOver, next);
	if (!m_snapshot.takeOver)
	{
		m_snapshot.takeOver = event(EventKind::takeOverBegan, cause);
		m_agent.takeOverError.clear();
		emit(*m_snapshot.takeOver);
	}
}

void History::leavesForConfiguredRole()
{
	setRole(Role::slave, m_agent.resetCause);
	begins(m_agent.resetCause, Awaited::killThenStop);
}

void History::bothSlaves()
{
	m_agent.resetCause = Cause::configuredRole;
	gone(Fault::bothMasters);
}

void History::bothMasters(bool ok)
{
	m_agent.resetCause = Cause::bothMasters;
	tell(m_snapshot.networkOk, ok);
	found(Fault::bothMasters);
}

void History::judged(bool ok)
{
	tell(m_snapshot.networkOk, ok);
	gone(Fault::bothMasters);
}

void History::endTakeOver(EventKind kind, std::string detail)
{
	if (const std::optional<Event> began = std::exchange(m_snapshot.takeOver, std::nullopt))
	{
		emit(kind, began->cause, {}, std::move(detail), since(began->time));
	}
}

void History::endAsk(EventKind kind)
{
	if (!m_snapshot.asking || !m_snapshot.asking->value)
	{
		return;
	}
	tell(m_snapshot.asking, false);
	emit(kind, Cause::none, {}, {}, lasted(m_agent.askMade));
}

/// A master's heartbeat, judged with the own status OK: without an ask of its own
/// it ends this node's.
void History::answerSeen()
{
	judged(true);
	if (!behind("szTmp[1] szPartnerProcessRunning[").starts_with('1'))
	{
		endAsk(EventKind::askAnswered);
	}
}

void History::found(Fault fault, std::string detail)
{
	FaultState& is = state(fault);
	is.at = m_now;
	if (is.there || (fault == Fault::programs && isPlanned()))
	{
		return;
	}
	is.there = true;
	is.since = m_now;
	emit(EventKind::faultFound, Cause::none, std::string(wordOf(fault)), std::move(detail));
}

void History::gone(Fault fault, std::string detail)
{
	if (std::exchange(state(fault).there, false))
	{
		emit(EventKind::faultGone, Cause::none, std::string(wordOf(fault)), std::move(detail),
		     since(state(fault).since));
	}
}

/// A probe that nobody answered, with the reason that a line before it reported.
void History::unanswered(Fault fault)
{
	found(fault, std::exchange(m_agent.probeError, {}));
}

/// "service IP Check Failed: TEXT[CODE:1]": the reason, which the line behind it
/// does not tell.
void History::probeError()
{
	constexpr std::string_view mark = " Check Failed: ";
	const std::size_t at = m_line->text.find(mark);
	m_agent.probeError = oneLine(at == std::string::npos ? m_line->text : m_line->text.substr(at + mark.size()));
}

/// Also ends an action on a heartbeat in its middle.
void History::serverError()
{
	m_agent.takeOverError = oneLine(behind("Server Error: "));
	noteError();
}

void History::heartbeatReceived()
{
	const std::string text = behind("received message: ");
	if (const std::optional<Heartbeat> heartbeat = parseHeartbeat(text))
	{
		heard(*heartbeat);
	}
	else
	{
		found(Fault::foreignMessage, oneLine(text));
	}
}

void History::heard(const Heartbeat& heartbeat)
{
	const std::optional<Reported<Heartbeat>> before = m_snapshot.received;
	tell(m_snapshot.received, heartbeat);
	if (m_snapshot.partnerLost)
	{
		m_snapshot.partnerLost.reset();
		emit(EventKind::partnerBack, Cause::none, {}, {}, before ? std::optional(since(before->at)) : std::nullopt);
	}
	gone(Fault::heartbeats);
	// A master never pings it again.
	gone(Fault::partnerAddress, "its heartbeat came");
	if (state(Fault::foreignMessage).there && m_now - state(Fault::foreignMessage).at >= kQuiet)
	{
		gone(Fault::foreignMessage);
	}
	if (before && !before->value.started.empty() && before->value.started != heartbeat.started)
	{
		emit(EventKind::partnerRestarted, Cause::none, {}, heartbeat.started);
	}
	if (before && before->value.master != heartbeat.master)
	{
		Event change = event(EventKind::partnerChanged);
		change.from = roleOf(before->value);
		change.to = roleOf(heartbeat);
		emit(change);
	}
	if (heartbeat.asking && (!before || !before->value.asking))
	{
		emit(EventKind::askReceived);
	}
}

void History::heartbeatSent()
{
	const std::size_t begin = m_line->text.find("]:");
	const std::optional<Heartbeat> heartbeat = parseHeartbeat(
	    begin == std::string::npos ? std::string_view() : std::string_view(m_line->text).substr(begin + 2));
	m_snapshot.refusals = 0;
	gone(Fault::partnerPort);
	if (!heartbeat)
	{
		return;
	}
	tell(m_snapshot.sent, *heartbeat);
	// A heartbeat composed just before a change tells the old value, one after it
	// never does.
	const bool differs = m_snapshot.asking && m_snapshot.asking->value != heartbeat->asking;
	m_agent.beatsThatDiffer = differs ? m_agent.beatsThatDiffer + 1 : 0;
	if (!differs || m_agent.beatsThatDiffer >= 2)
	{
		m_agent.beatsThatDiffer = 0;
		tell(m_snapshot.asking, heartbeat->asking);
	}
}

void History::partnerRefuses()
{
	++m_snapshot.refusals;
	const std::string text = behind("Sender ");
	found(Fault::partnerPort, oneLine(text.substr(0, text.rfind('['))));
}

void History::nobodyConnected()
{
	if (m_snapshot.partnerLost)
	{
		return;
	}
	m_snapshot.partnerLost = m_now;
	const std::optional<Reported<Heartbeat>>& last = m_snapshot.received;
	emit(EventKind::partnerLost, Cause::none, {}, last ? "" : "no heartbeat yet",
	     last ? std::optional(since(last->at)) : std::nullopt);
}

/// Once it is known that the partner's host is there, the count begins again and
/// again and tells nothing new.
void History::countSilence(int silences)
{
	m_snapshot.silences = silences;
	if (!m_snapshot.fault(Fault::heartbeats).there)
	{
		emit(EventKind::silenceCounted, Cause::none, {}, std::to_string(silences) + " of 3");
	}
}

} // namespace velarix::ctl
