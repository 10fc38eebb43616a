#include "ctl/history/Dates.h"

#include <array>
#include <chrono>

#include <Poco/DateTime.h>
#include <Poco/DateTimeParser.h>

#include "inspect/Pattern.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

using namespace std::chrono_literals;
using inspect::LogClock;
using inspect::Pattern;

/// "1d12h", "1.5 weeks", "5 minutes ago"
std::optional<std::chrono::milliseconds> spanOf(std::string text)
{
	// Part by part: for a repeated group the library's expressions recurse once per repetition.
	static const Pattern kPart(R"((\d{1,10})(?:\.(\d{1,3}))? *)"
	                           R"((s|secs?|seconds?|m|mins?|minutes?|h|hrs?|hours?|d|days?|w|wks?|weeks?)(?![a-z]) *)");
	constexpr std::array<std::chrono::seconds, 5> units{1s, 1min, 1h, 24h, 24h * 7};
	constexpr std::chrono::hours longest = 24h * 366 * 200;
	text.resize(text.size() - (text.ends_with(" ago") ? sizeof(" ago") - 1 : 0));
	std::chrono::milliseconds span{0};
	std::size_t read = 0;
	for (const Pattern::Groups& part : kPart.all(text))
	{
		const std::chrono::milliseconds thousandths(std::stoll(part[1] + (part[2] + "000").substr(0, 3)));
		span += units.at(std::string_view("smhdw").find(part[3].front())).count() * thousandths;
		read += part[0].size();
		if (span > longest)
		{
			return std::nullopt;
		}
	}
	const bool nothingElse = read > 0 && read == text.size();
	return nothingElse ? std::optional(span) : std::nullopt;
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

/// The library's parser takes more than dates of this shape, so the log's reads it first.
std::optional<Instant> readUtc(const std::string& date)
{
	return readDate(date) ? dateIn(wholeDate(date), "%Y-%m-%d %H:%M:%S.%i") : std::nullopt;
}

std::string dayOf(Instant time)
{
	return inspect::localText(time).substr(0, sizeof("2026-11-21") - 1);
}

/// A date, a time of today, or the word for a day.
std::optional<Instant> momentOf(const std::string& text, Instant now)
{
	const std::string today = dayOf(now);
	if (text == "today")
	{
		return readDate(today);
	}
	if (text == "yesterday")
	{
		return readDate(dayOf(*readDate(today) - 12h));
	}
	if (text.find('-') == std::string::npos)
	{
		return readDate(today + " " + text);
	}
	return text.ends_with('Z') ? readUtc(text.substr(0, text.size() - 1)) : readDate(text);
}

} // namespace

std::optional<Instant> dateIn(const std::string& text, const std::string& format)
{
	int zone = 0;
	Poco::DateTime date;
	// The parser makes a date of the year 0 of what is none, and a log has no year after kLastYear.
	if (!Poco::DateTimeParser::tryParse(format, text, date, zone) || date.year() < inspect::kFirstYear ||
	    date.year() > inspect::kLastYear)
	{
		return std::nullopt;
	}
	date.makeUTC(zone);
	return Instant(std::chrono::milliseconds(date.timestamp().epochMicroseconds() / 1000));
}

std::optional<Instant> parseSince(std::string_view text, Instant now)
{
	if (text.empty())
	{
		return std::nullopt;
	}
	const std::string date(text);
	const std::optional<std::chrono::milliseconds> span = spanOf(date);
	const std::optional<Instant> time = span ? now - *span : momentOf(date, now);
	return time && *time >= Instant() ? time : std::nullopt;
}

} // namespace velarix::ctl
