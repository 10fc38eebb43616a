#include "ctl/history/EventStream.h"

#include <algorithm>

#include "inspect/SettingsKeys.h"

namespace velarix::ctl
{

Commands commandsOf(const SettingsFile& settings)
{
	return {settings.text(key::kStartCommand).value_or(""), settings.text(key::kStopCommand).value_or(""),
	        settings.text(key::kKillCommand).value_or("")};
}

/// The settings tell where the log is; a log that is named needs them no more.
EventSource EventSource::of(const Paths& paths, const std::filesystem::path& log)
{
	EventSource source{log, log.empty() ? paths.keeperLog : log.parent_path() / "keeper.log", {}};
	try
	{
		const SettingsFile settings = SettingsFile::load(paths.settings);
		source.commands = commandsOf(settings);
		const std::string configured = settings.text(key::kLogPath).value_or("");
		if (log.empty() && configured.empty())
		{
			throw Failure(ExitCode::settings, settings.path().string() + " has no LOG.PATH");
		}
		source.log = log.empty() ? paths.below(configured) : log;
	}
	catch (const Failure& failure)
	{
		if (log.empty())
		{
			throw Failure(failure.code(), std::string(failure.what()) + "; name the log with --log");
		}
	}
	return source;
}

EventStream::EventStream(const EventSource& source, std::optional<Instant> since, AgentSink agent, KeeperSink keeper)
    : m_keeper(source.keeperLog), m_keeperSink(std::move(keeper)),
      m_history(
          [this, sink = std::move(agent)](const Event& event)
          {
	          readKeeper(event.time);
	          sink(withKeeper(event));
          },
          source.commands,
          [this](Instant until)
          {
	          readKeeper(until);
	          return m_lastMove;
          }),
      m_reader(source.log, since)
{
}

void EventStream::feed()
{
	m_anything = true;
	m_at = m_line.time.value_or(m_at);
	m_history.feed(m_line);
}

void EventStream::read(const std::function<bool()>& goOn)
{
	while ((!goOn || goOn()) && m_reader.next(m_line))
	{
		feed();
	}
}

void EventStream::note(const KeeperEvent& event)
{
	constexpr std::array<std::string_view, 3> away{"waiting", "yielded", "offline"};
	constexpr std::array<std::string_view, 4> over{"raised", "lowered", "started", "stopped"};
	m_lastMove = isMove(event) ? event.time : m_lastMove;
	if (event.program != "ha-address")
	{
		return;
	}
	if (std::ranges::find(away, event.word) != away.end())
	{
		m_notHere = event.word + ": " + event.detail;
	}
	else if (std::ranges::find(over, event.word) != over.end())
	{
		m_notHere.clear();
	}
}

/// The agent takes itself for the one that serves while the keeper waits for the address.
Event EventStream::withKeeper(Event event) const
{
	constexpr std::array claims{EventKind::takeOverDone, EventKind::addressUp, EventKind::programsRunning};
	if (!m_notHere.empty() && std::ranges::find(claims, event.kind) != claims.end())
	{
		event.detail += (event.detail.empty() ? "" : "; ") + ("to the agent alone, ha-address is " + m_notHere);
	}
	return event;
}

void EventStream::readKeeper(Instant until)
{
	while (const std::optional<KeeperEvent> event = m_keeper.next(until))
	{
		note(*event);
		m_keeperSink(*event);
	}
}

void EventStream::finish()
{
	while (m_reader.last(m_line))
	{
		feed();
	}
}

} // namespace velarix::ctl
