#include "ctl/history/HistoryMachine.h"

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

void HistoryMachine::heartbeatReceived()
{
	const std::string text = behind("received message: ");
	if (const std::optional<Heartbeat> heartbeat = parseHeartbeat(text))
	{
		heard(*heartbeat);
	}
	else
	{
		found(Fault::stranger, oneLine(text));
	}
}

void HistoryMachine::heard(const Heartbeat& heartbeat)
{
	++m_picture.heartbeatsReceived;
	const std::optional<Told<Heartbeat>> before = m_picture.received;
	tell(m_picture.received, heartbeat);
	if (m_picture.partnerLost)
	{
		m_picture.partnerLost.reset();
		emit(EventKind::partnerBack, Cause::none, {}, {}, before ? std::optional(since(before->at)) : std::nullopt);
	}
	gone(Fault::heartbeats);
	// A master never pings it again.
	gone(Fault::partnerAddress, "its heartbeat came");
	if (state(Fault::stranger).there && m_now - state(Fault::stranger).told.at >= kQuiet)
	{
		gone(Fault::stranger);
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

void HistoryMachine::heartbeatSent()
{
	const std::size_t begin = m_line->text.find("]:");
	const std::optional<Heartbeat> heartbeat = parseHeartbeat(
	    begin == std::string::npos ? std::string_view() : std::string_view(m_line->text).substr(begin + 2));
	m_picture.refusals = 0;
	gone(Fault::partnerPort);
	if (!heartbeat)
	{
		return;
	}
	++m_picture.heartbeatsSent;
	tell(m_picture.sent, *heartbeat);
	// A heartbeat composed just before a change tells the old value, one after it
	// never does.
	const bool differs = m_picture.asking && m_picture.asking->value != heartbeat->asking;
	m_agent.beatsThatDiffer = differs ? m_agent.beatsThatDiffer + 1 : 0;
	if (!differs || m_agent.beatsThatDiffer >= 2)
	{
		m_agent.beatsThatDiffer = 0;
		tell(m_picture.asking, heartbeat->asking);
	}
}

void HistoryMachine::partnerRefuses()
{
	++m_picture.refusals;
	const std::string text = behind("Sender ");
	found(Fault::partnerPort, oneLine(text.substr(0, text.rfind('['))));
}

void HistoryMachine::nobodyConnected()
{
	if (m_picture.partnerLost)
	{
		return;
	}
	m_picture.partnerLost = m_now;
	const std::optional<Told<Heartbeat>>& last = m_picture.received;
	emit(EventKind::partnerLost, Cause::none, {}, last ? "" : "no heartbeat yet",
	     last ? std::optional(since(last->at)) : std::nullopt);
}

/// Once it is known that the partner's host is there, the count begins again and
/// again and tells nothing new.
void HistoryMachine::countSilence(int silences)
{
	m_picture.silences = silences;
	if (!m_picture.fault(Fault::heartbeats).there)
	{
		emit(EventKind::silenceCounted, Cause::none, {}, std::to_string(silences) + " of 3");
	}
}

} // namespace velarix::ctl
