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
std::optional<std::chrono::milliseconds> spanOf(std::string text)
{
	static const Pattern kPart(R"(^(\d{1,10})(?:\.(\d{1,3}))? *)"
	                           R"((?:(s|secs?|seconds?)|(m|mins?|minutes?)|(h|hrs?|hours?)|(d|days?)|(w|wks?|weeks?)))"
	                           R"((?![a-z]) *)");
	constexpr std::array<std::chrono::seconds, 5> units{1s, 1min, 1h, 24h, 24h * 7};
	constexpr std::int64_t most = 1'000'000'000;
	constexpr std::chrono::hours longest = 24h * 366 * 200;
	text.resize(text.size() - (text.ends_with(" ago") ? sizeof(" ago") - 1 : 0));
	std::chrono::milliseconds span{0};
	do
	{
		const Pattern::Groups part = kPart.found(text);
		const std::int64_t whole = part.empty() ? most + 1 : std::stoll(part[1]);
		if (whole > most)
		{
			return std::nullopt;
		}
		const std::int64_t thousandths = std::stoll((part[2] + "000").substr(0, 3));
		const auto unit = std::find_if(part.begin() + 3, part.end(), [](const auto& word) { return !word.empty(); });
		span += std::chrono::milliseconds(units.at(static_cast<std::size_t>(unit - part.begin() - 3)).count() *
		                                  (whole * 1000 + thousandths));
		if (span > longest)
		{
			return std::nullopt;
		}
		text.erase(0, part[0].size());
	} while (!text.empty());
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

std::optional<Instant> readUtc(const std::string& date)
{
	int zone = 0;
	Poco::DateTime time;
	return readDate(date) && Poco::DateTimeParser::tryParse("%Y-%m-%d %H:%M:%S.%i", wholeDate(date), time, zone)
	           ? std::optional<Instant>(std::chrono::microseconds(time.timestamp().epochMicroseconds()))
	           : std::nullopt;
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

std::optional<Instant> parseSince(std::string_view text, Instant now)
{
	const std::string date(text);
	const bool hasTime = date.find(':') != std::string::npos;
	const bool hasDate = date.find('-') != std::string::npos;
	std::optional<Instant> time;
	if (date == "today")
	{
		time = readDate(dayOf(now));
	}
	else if (date == "yesterday")
	{
		time = readDate(dayOf(*readDate(dayOf(now)) - 12h));
	}
	else if (date.ends_with('Z') && hasDate)
	{
		time = readUtc(date.substr(0, date.size() - 1));
	}
	else if (hasDate || hasTime)
	{
		time = readDate(hasDate ? date : dayOf(now) + " " + date);
	}
	else if (const std::optional<std::chrono::milliseconds> span = spanOf(date))
	{
		time = now - *span;
	}
	return time && *time >= Instant() ? time : std::nullopt;
}

} // namespace velarix::ctl
