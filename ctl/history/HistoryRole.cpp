#include "ctl/history/History.h"

namespace velarix::ctl
{

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
	m_agent.doing = Cause::none;
	m_agent.awaited = Awaited::notKnown;
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

void History::givesUp()
{
	setRole(Role::slave, m_agent.giveUpCause);
	m_agent.doing = Cause::giveUp;
	m_agent.awaited = Awaited::kill;
}

void History::givesUpAndAsks()
{
	givesUp();
	m_agent.awaited = Awaited::killThenStop;
	ask();
}

void History::givesUpWithoutPrograms()
{
	m_agent.giveUpCause = isPlanned() ? Cause::switchover : Cause::programsGone;
	givesUp();
	m_agent.awaited = Awaited::stop;
	ask();
}

/// A first message of it may be missing: the kill before the start, or the start.
void History::takesOver(Cause cause, Awaited next)
{
	setRole(Role::master, cause);
	m_agent.doing = Cause::takeOver;
	m_agent.awaited = next;
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
	m_agent.doing = m_agent.resetCause;
	m_agent.awaited = Awaited::killThenStop;
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

void History::ask()
{
	m_agent.askMade = m_now;
	tell(m_snapshot.asking, true);
	emit(EventKind::askMade, m_agent.giveUpCause);
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

} // namespace velarix::ctl
