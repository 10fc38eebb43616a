#include "ctl/history/EventStream.h"

#include <algorithm>

#include <Poco/DateTime.h>
#include <Poco/DateTimeParser.h>

#include "inspect/Pattern.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

using namespace std::chrono_literals;

/// "1d12h", "1.5 weeks", "5 minutes ago"
std::optional<std::chrono::milliseconds> spanOf(const std::string& text)
{
	static const std::string kPart = R"((\d{1,10})(?:\.(\d{1,3}))? *)"
	                                 R"((s|secs?|seconds?|m|mins?|minutes?|h|hrs?|hours?|d|days?|w|wks?|weeks?))"
	                                 R"((?![a-z]) *)";
	static const Pattern kParts(kPart);
	static const Pattern kWhole("(?:" + kPart + ")+(?:(?<= )ago)?");
	constexpr std::array<std::chrono::seconds, 5> units{1s, 1min, 1h, 24h, 24h * 7};
	constexpr std::chrono::hours longest = 24h * 366 * 200;
	std::chrono::milliseconds span{0};
	if (kWhole.matched(text).empty())
	{
		return std::nullopt;
	}
	for (const Pattern::Groups& part : kParts.all(text))
	{
		const std::chrono::milliseconds thousandths(std::stoll(part[1] + (part[2] + "000").substr(0, 3)));
		span += units.at(std::string_view("smhdw").find(part[3].front())).count() * thousandths;
		if (span > longest)
		{
			return std::nullopt;
		}
	}
	return span;
}

/// Fills up what is left out: seconds, or the whole time of the day.
/// @return "2026-11-21 09:07:05.0"; empty for another shape
std::string wholeDate(std::string date)
{
	if (date.size() > 10 && date[10] == 'T')
	{
		date[10] = ' ';
	}
	constexpr std::string_view full = "2026-11-21 00:00:00.0";
	const bool known = date.size() == 10 || date.size() == 16 || date.size() == 19;
	return known ? date + std::string(full.substr(date.size())) : std::string();
}

std::optional<Instant> readDate(const std::string& date)
{
	return LogClock().read(wholeDate(date));
}

std::string dayOf(Instant time)
{
	return localText(time).substr(0, sizeof("2026-11-21") - 1);
}

} // namespace

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

std::optional<Instant> dateIn(const std::string& text, const std::string& format)
{
	int zone = 0;
	Poco::DateTime date;
	// The parser makes a date of the year 0 of what is none, and the clock's nanoseconds reach to 2262.
	if (!Poco::DateTimeParser::tryParse(format, text, date, zone) || date.year() < kFirstYear ||
	    date.year() > kLastYear)
	{
		return std::nullopt;
	}
	date.makeUTC(zone);
	return Instant(std::chrono::milliseconds(date.timestamp().epochMicroseconds() / 1000));
}

std::optional<Instant> parseSince(std::string_view text, Instant now)
{
	const std::string date(text);
	const std::string utc = date.substr(0, date.size() - (date.ends_with('Z') ? 1 : 0));
	const std::string today = dayOf(now);
	const std::optional<std::chrono::milliseconds> span = spanOf(date);
	const std::optional<Instant> time = span                  ? std::optional<Instant>(now - *span)
	                                    : date == "today"     ? readDate(today)
	                                    : date == "yesterday" ? readDate(dayOf(*readDate(today) - 12h))
	                                    : date.ends_with('Z') && readDate(utc)
	                                        ? dateIn(wholeDate(utc), "%Y-%m-%d %H:%M:%S.%i")
	                                    : readDate(date) ? readDate(date)
	                                                     : readDate(today + " " + date);
	return time && *time >= Instant() ? time : std::nullopt;
}

} // namespace velarix::ctl
