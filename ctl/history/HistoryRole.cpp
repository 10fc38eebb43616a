#include "ctl/history/HistoryMachine.h"

namespace velarix::ctl
{

void HistoryMachine::setRole(Role role, Cause cause)
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
void HistoryMachine::passBegins()
{
	if (m_snapshot.takeOver)
	{
		endTakeOver(EventKind::takeOverUnfinished, m_agent.takeOverError);
	}
	m_agent.doing = Cause::none;
	m_agent.awaited = Awaited::notKnown;
}

void HistoryMachine::judgedAsMaster()
{
	if (m_snapshot.role)
	{
		setRole(Role::master, Cause::notLogged);
	}
	else
	{
		tell(m_snapshot.role, Role::master);
	}
}

/// A node that goes back to its configured role as standby, and whose programs do
/// not run, does not say so: its next judgement does.
void HistoryMachine::judgedAsSlave()
{
	if (m_snapshot.role)
	{
		setRole(Role::slave, m_snapshot.fault(Fault::bothMasters).there ? Cause::bothMasters : Cause::notLogged);
	}
	else
	{
		tell(m_snapshot.role, Role::slave);
	}
}

/// What a master gives up for; the next message says that it does.
void HistoryMachine::lost(Fault fault, Cause cause)
{
	found(fault);
	m_agent.giveUpCause = cause;
}

void HistoryMachine::givesUp()
{
	setRole(Role::slave, m_agent.giveUpCause);
	m_agent.doing = Cause::giveUp;
	m_agent.awaited = Awaited::kill;
}

void HistoryMachine::givesUpAndAsks()
{
	givesUp();
	m_agent.awaited = Awaited::killThenStop;
	ask();
}

void HistoryMachine::givesUpWithoutPrograms()
{
	m_agent.giveUpCause = isPlanned() ? Cause::switchover : Cause::programsGone;
	givesUp();
	m_agent.awaited = Awaited::stop;
	ask();
}

/// A first message of it may be missing: the kill before the start, or the start.
void HistoryMachine::takesOver(Cause cause)
{
	setRole(Role::master, cause);
	m_agent.doing = Cause::takeOver;
	m_agent.awaited = Awaited::kill;
	if (!m_snapshot.takeOver)
	{
		m_snapshot.takeOver = event(EventKind::takeOverBegan, cause);
		m_agent.takeOverError.clear();
		emit(*m_snapshot.takeOver);
	}
}

void HistoryMachine::takesOverAsAsked()
{
	takesOver(Cause::partnerAsked);
	m_agent.awaited = Awaited::stop;
}

void HistoryMachine::leavesForConfiguredRole()
{
	setRole(Role::slave, m_agent.resetCause);
	m_agent.doing = m_agent.resetCause;
	m_agent.awaited = Awaited::killThenStop;
}

void HistoryMachine::bothSlaves()
{
	m_agent.resetCause = Cause::configuredRole;
	gone(Fault::bothMasters);
}

void HistoryMachine::bothMasters(bool ok)
{
	m_agent.resetCause = Cause::bothMasters;
	setNetwork(ok);
	found(Fault::bothMasters);
}

void HistoryMachine::judged(bool ok)
{
	setNetwork(ok);
	gone(Fault::bothMasters);
}

void HistoryMachine::setNetwork(bool ok)
{
	tell(m_snapshot.networkOk, ok);
}

void HistoryMachine::endTakeOver(EventKind kind, std::string detail)
{
	if (m_snapshot.takeOver)
	{
		const Event began = *m_snapshot.takeOver;
		m_snapshot.takeOver.reset();
		emit(kind, began.cause, {}, std::move(detail), since(began.time));
	}
}

void HistoryMachine::ask()
{
	m_agent.askMade = m_now;
	tell(m_snapshot.asking, true);
	emit(EventKind::askMade, m_agent.giveUpCause);
}

void HistoryMachine::endAsk(EventKind kind)
{
	if (!m_snapshot.asking || !m_snapshot.asking->value)
	{
		return;
	}
	std::optional<Milliseconds> duration;
	if (m_agent.askMade)
	{
		duration = since(*m_agent.askMade);
	}
	m_agent.askMade.reset();
	tell(m_snapshot.asking, false);
	emit(kind, Cause::none, {}, {}, duration);
}

/// A master's heartbeat, judged with the own status OK: without an ask of its own
/// it ends this node's.
void HistoryMachine::answerSeen()
{
	judged(true);
	if (!behind("szTmp[1] szPartnerProcessRunning[").starts_with('1'))
	{
		endAsk(EventKind::askAnswered);
	}
}

} // namespace velarix::ctl
