// What is found wrong, and the partner's heartbeats.
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

void History::found(Fault fault, std::string detail)
{
	FaultState& is = state(fault);
	is.reported.at = m_now;
	if (is.there || (fault == Fault::programs && isPlanned()))
	{
		return;
	}
	is.there = true;
	is.reported.since = m_now;
	is.reported.value = detail;
	emit(EventKind::faultFound, Cause::none, std::string(wordOf(fault)), std::move(detail));
}

void History::gone(Fault fault, std::string detail)
{
	FaultState& is = state(fault);
	is.reported.at = m_now;
	if (!is.there)
	{
		return;
	}
	const Milliseconds there = since(is.reported.since);
	is.there = false;
	is.reported.since = m_now;
	is.reported.value.clear();
	emit(EventKind::faultGone, Cause::none, std::string(wordOf(fault)), std::move(detail), there);
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
	if (state(Fault::foreignMessage).there && m_now - state(Fault::foreignMessage).reported.at >= kQuiet)
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
