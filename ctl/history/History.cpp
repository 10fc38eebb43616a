#include <algorithm>
#include <tuple>

#include <Poco/String.h>

#include "ctl/history/History.h"
#include "inspect/Catalogue.h"
#include "inspect/Pattern.h"

namespace velarix::ctl
{

namespace
{

using namespace std::chrono_literals;

/// What counts as a gap: four times the longest usual one, which the settings'
/// intervals give, and no less than half a minute; before that is known, five
/// minutes.
constexpr auto kGap = 30s;
constexpr auto kGapAtFirst = 5min;
constexpr int kUsual = 4;
constexpr int kEnoughMessages = 100;
/// Workers' messages are written a little out of their order.
constexpr auto kSetBack = 2s;
/// An error behind which the daemon ends is its last word, but for what other
/// threads say meanwhile.
constexpr auto kLastWord = 1s;
constexpr auto kRepeat = 1h;
/// The log's times are cut to tenths of a second.
constexpr auto kTick = 100ms;
/// An agent whose programs were ended notices it no later: at its next check of them.
constexpr auto kMove = 5min;
constexpr std::size_t kMostErrors = 256;
constexpr std::size_t kMostThreads = 16;
constexpr std::size_t kLongestDetail = 300;

Milliseconds between(Instant from, Instant to)
{
	return std::chrono::duration_cast<Milliseconds>(to - from);
}

} // namespace

std::string oneLine(std::string_view text)
{
	static const Pattern kBlanks(R"(\s+)");
	return Poco::trim(kBlanks.replaced(std::string(text.substr(0, kLongestDetail)), " "));
}

History::History(Sink sink, Commands commands, LastMove lastMove)
    : m_sink(std::move(sink)), m_commands(std::move(commands)), m_lastMove(std::move(lastMove))
{
}

void History::feed(const LogLine& line)
{
	m_line = &line;
	// A message without a date happened when the one before did.
	const std::optional<Instant> time = line.time ? line.time : m_snapshot.lastMessage;
	if (!line.hasHead() || !time)
	{
		return;
	}
	m_now = *time;
	noteAgent();
	noteGap();
	m_snapshot.lastMessage = m_now;
	noteReceiver();
	if (const Handler handler = handlerOf(line.label, line.number))
	{
		handler(*this);
	}
	else if (line.letter == 'E')
	{
		noteError();
	}
}

void History::noteGap()
{
	if (!m_snapshot.lastMessage)
	{
		return;
	}
	const std::chrono::nanoseconds passed = m_now - *m_snapshot.lastMessage;
	const std::chrono::nanoseconds usual = kUsual * m_agent.usualGap;
	const std::chrono::nanoseconds limit =
	    ++m_agent.messages > kEnoughMessages ? std::max<std::chrono::nanoseconds>(kGap, usual) : kGapAtFirst;
	if (passed >= limit)
	{
		emit(EventKind::logGap, Cause::none, {}, {}, between(*m_snapshot.lastMessage, m_now));
	}
	else if (passed <= -kSetBack)
	{
		emit(EventKind::clockSetBack, Cause::none, {}, {}, between(m_now, *m_snapshot.lastMessage));
	}
	else
	{
		m_agent.usualGap = std::max(m_agent.usualGap, passed);
	}
}

void History::noteAgent()
{
	const bool mainThread = m_line->thread == 0;
	if (m_before && m_line->process == m_before->first.process && m_line->process != m_snapshot.process && !mainThread)
	{
		resume();
	}
	else if (m_line->process != m_snapshot.process || startsAnew())
	{
		begin();
	}
	m_agent.startSeen = m_agent.startSeen || m_line->is("CAgent", 25);
	m_agent.workersSeen = m_agent.workersSeen || !mainThread;
}

/// The same process id again, as after a reboot: the main thread speaks at the
/// start alone.
bool History::startsAnew() const
{
	if (m_line->is("CAgent", 25))
	{
		return m_agent.startSeen || m_agent.workersSeen;
	}
	const bool ofStart = m_line->is("CAgent", 38) || m_line->is("CAgent", 179) || m_line->is("ProcessChecker", 69);
	return ofStart && m_line->thread == 0 && m_agent.workersSeen;
}

void History::begin()
{
	const bool first = m_snapshot.process == 0;
	const bool fromItsStart = m_line->thread == 0;
	std::optional<Milliseconds> without;
	if (!first)
	{
		end();
		without = since(*m_snapshot.lastMessage);
		m_before.emplace(m_snapshot, m_agent);
	}
	const Snapshot former = std::exchange(m_snapshot, {});
	m_snapshot.lastRoleChange = former.lastRoleChange;
	m_snapshot.roleChanges = former.roleChanges;
	m_snapshot.process = m_line->process;
	m_agent = {};
	if (first && !fromItsStart)
	{
		return;
	}
	m_snapshot.agentStarted = m_now;
	emit(EventKind::agentStarted, Cause::none, {}, fromItsStart ? "" : "its first messages are missing", without);
	if (former.role && former.role->value == Role::master)
	{
		m_snapshot.role = former.role;
		setRole(Role::slave, Cause::agentStart);
	}
	tell(m_snapshot.role, Role::slave);
}

/// Of the agent whose messages end here.
void History::end()
{
	const Instant last = m_snapshot.lastMessage.value_or(m_now);
	if (m_snapshot.takeOver)
	{
		Event unfinished = event(EventKind::takeOverUnfinished, m_snapshot.takeOver->cause);
		unfinished.time = last;
		unfinished.duration = between(m_snapshot.takeOver->time, last);
		unfinished.detail = "the agent ended";
		unfinished.place.clear();
		emit(unfinished);
	}
	Event ended = event(EventKind::agentEnded, Cause::killed);
	ended.place.clear();
	if (m_agent.fatal && last - m_agent.fatal->time <= kLastWord)
	{
		ended = *m_agent.fatal;
	}
	ended.time = last;
	ended.duration = m_snapshot.agentStarted ? std::optional(between(*m_snapshot.agentStarted, last)) : std::nullopt;
	emit(ended);
}

/// The agent that was taken for gone speaks again: another one was started
/// beside it and could not stay.
void History::resume()
{
	end();
	std::tie(m_snapshot, m_agent) = *m_before;
	m_before.reset();
	emit(EventKind::agentResumed);
}

void History::noteReceiver()
{
	if (m_line->thread != 0 && m_line->label == "CHeartReciver" && m_agent.receivers.size() < kMostThreads)
	{
		m_agent.receivers.insert(m_line->thread);
	}
	if (m_agent.receivers.contains(m_line->thread))
	{
		m_snapshot.lastOfReceiver = m_now;
	}
}

void History::noteError()
{
	const std::string place = m_line->place();
	const CatalogueRow* const row = findMessage(m_line->label, m_line->number);
	if (row != nullptr && row->fatal != 0)
	{
		m_agent.fatal = event(EventKind::agentEnded, Cause::fatalError);
		m_agent.fatal->detail = oneLine(m_line->text);
	}
	if (m_line->text.find("======") != std::string::npos)
	{
		return; // a banner
	}
	const auto reported = m_errors.find(place);
	if (reported != m_errors.end() && reported->second.first == m_line->text &&
	    m_now - reported->second.second < kRepeat)
	{
		return;
	}
	if (m_errors.size() >= kMostErrors)
	{
		m_errors.clear();
	}
	m_errors[place] = {m_line->text, m_now};
	emit(EventKind::error, Cause::none, {}, oneLine(m_line->text));
}

Event History::event(EventKind kind, Cause cause) const
{
	Event event;
	event.kind = kind;
	event.cause = cause;
	event.time = m_now;
	event.process = m_snapshot.process;
	event.place = m_line->place();
	return event;
}

void History::emit(const Event& event)
{
	if (event.kind == EventKind::roleChanged)
	{
		noteChange(event);
		m_snapshot.lastRoleChange = event;
	}
	if (m_sink)
	{
		m_sink(event);
	}
}

/// An agent's start ends the master's role, and is no failover of the pair. Neither is a
/// planned move. Of one that the partner began this node sees only that it is asked: what it
/// takes so just before it gives it away as planned, or just after, is the other way of the move.
void History::noteChange(const Event& event)
{
	std::vector<Instant>& changes = m_snapshot.roleChanges;
	const Event before = m_snapshot.lastRoleChange.value_or(Event());
	const bool planned = event.cause == Cause::switchover;
	if (planned && before.cause == Cause::partnerAsked && !changes.empty() && changes.back() == before.time)
	{
		changes.pop_back();
	}
	const bool wayBack = event.cause == Cause::partnerAsked && before.cause == Cause::switchover;
	if (!planned && !wayBack && event.cause != Cause::agentStart)
	{
		changes.push_back(event.time);
		changes.erase(changes.begin(), changes.end() - std::min(std::ssize(changes), kRoleChangesKept));
	}
}

/// Whether the programs of this master were ended to move the service.
bool History::isPlanned() const
{
	if (!m_lastMove || !m_snapshot.role || m_snapshot.role->value != Role::master)
	{
		return false;
	}
	const std::optional<Instant> move = m_lastMove(m_now + kTick);
	return move && *move >= m_snapshot.role->since && m_now - *move < kMove;
}

void History::emit(EventKind kind, Cause cause, std::string subject, std::string detail,
                   std::optional<Milliseconds> duration)
{
	Event one = event(kind, cause);
	one.subject = std::move(subject);
	one.detail = std::move(detail);
	one.duration = duration;
	emit(one);
}

Milliseconds History::since(Instant time) const
{
	return between(time, m_now);
}

std::optional<Milliseconds> History::lasted(std::optional<Instant>& begun) const
{
	const std::optional<Instant> begin = std::exchange(begun, std::nullopt);
	return begin ? std::optional(since(*begin)) : std::nullopt;
}

std::string History::behind(std::string_view prefix) const
{
	return m_line->text.starts_with(prefix) ? m_line->text.substr(prefix.size()) : m_line->text;
}

} // namespace velarix::ctl
