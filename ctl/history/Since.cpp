#include "ctl/history/Since.h"

#include "inspect/Pattern.h"
#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <string>
#include <utility>

namespace velarix::ctl
{

using namespace inspect;

namespace
{

using namespace std::chrono_literals;

std::optional<std::chrono::seconds> unitOf(const std::string& word)
{
	static const std::array<std::pair<Pattern, std::chrono::seconds>, 5> kUnits{{{Pattern("s|secs?|seconds?"), 1s},
	                                                                             {Pattern("m|mins?|minutes?"), 1min},
	                                                                             {Pattern("h|hrs?|hours?"), 1h},
	                                                                             {Pattern("d|days?"), 24h},
	                                                                             {Pattern("w|wks?|weeks?"), 24h * 7}}};
	const auto* const unit =
	    std::ranges::find_if(kUnits, [&](const auto& one) { return !one.first.matched(word).empty(); });
	return unit == kUnits.end() ? std::nullopt : std::optional(unit->second);
}

/// "1d12h", "1.5 weeks", "5 minutes ago"
std::optional<std::chrono::milliseconds> spanOf(std::string text)
{
	static const Pattern kPart(R"(^(\d{1,10})(?:\.(\d{1,3}))? *([a-z]+) *)");
	constexpr std::int64_t most = 1'000'000'000;
	constexpr std::chrono::hours longest = 24h * 366 * 200;
	text.resize(text.size() - (text.ends_with(" ago") ? sizeof(" ago") - 1 : 0));
	std::chrono::milliseconds span{0};
	do
	{
		const Pattern::Groups part = kPart.found(text);
		if (part.empty())
		{
			return std::nullopt;
		}
		const std::int64_t whole = std::stoll(part[1]);
		const std::int64_t thousandths = std::stoll((part[2] + "000").substr(0, 3));
		const std::optional<std::chrono::seconds> unit = unitOf(part[3]);
		if (!unit || whole > most)
		{
			return std::nullopt;
		}
		span += std::chrono::milliseconds(unit->count() * (whole * 1000 + thousandths));
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
std::string wholeDate(std::string_view text)
{
	std::string date(text);
	if (date.size() > 10 && date[10] == 'T')
	{
		date[10] = ' ';
	}
	constexpr std::string_view full = "2026-11-21 00:00:00.0";
	const bool known = date.size() == 10 || date.size() == 16 || date.size() == 19;
	return known ? date + std::string(full.substr(date.size())) : std::string();
}

std::string dayOf(Instant time)
{
	const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
	std::tm date{};
	::localtime_r(&seconds, &date);
	std::array<char, 16> text{};
	const std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%d", &date);
	return {text.data(), size};
}

/// @param date whole and of a day that exists
std::optional<Instant> readUtc(const std::string& date)
{
	std::tm parts{};
	if (::strptime(date.c_str(), "%Y-%m-%d %H:%M:%S", &parts) == nullptr)
	{
		return std::nullopt;
	}
	return std::chrono::system_clock::from_time_t(::timegm(&parts));
}

} // namespace

std::optional<Instant> parseSince(std::string_view text, Instant now)
{
	LogClock clock;
	std::optional<Instant> time;
	if (text == "today")
	{
		time = clock.read(wholeDate(dayOf(now)));
	}
	else if (text == "yesterday")
	{
		const std::optional<Instant> today = clock.read(wholeDate(dayOf(now)));
		time = LogClock().read(wholeDate(dayOf(*today - 12h)));
	}
	else if (text.ends_with('Z') && LogClock().read(wholeDate(text.substr(0, text.size() - 1))))
	{
		time = readUtc(wholeDate(text.substr(0, text.size() - 1)));
	}
	else if (text.find(':') != std::string_view::npos && text.find('-') == std::string_view::npos)
	{
		time = clock.read(wholeDate(dayOf(now) + " " + std::string(text)));
	}
	else if (text.find('-') != std::string_view::npos)
	{
		time = clock.read(wholeDate(text));
	}
	else if (const std::optional<std::chrono::milliseconds> span = spanOf(std::string(text)))
	{
		time = now - *span;
	}
	return time && *time >= Instant() ? time : std::nullopt;
}

} // namespace velarix::ctl
