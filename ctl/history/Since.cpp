#include "ctl/history/Since.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <string>
#include <utility>

#include "inspect/Number.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

using namespace std::chrono_literals;

std::string_view takeDigits(std::string_view& text)
{
	const auto end = std::find_if_not(text.begin(), text.end(), isDigit);
	const std::string_view digits = text.substr(0, static_cast<std::size_t>(end - text.begin()));
	text.remove_prefix(digits.size());
	return digits;
}

void skipBlanks(std::string_view& text)
{
	while (text.starts_with(' '))
	{
		text.remove_prefix(1);
	}
}

std::optional<std::chrono::seconds> unitOf(std::string_view word)
{
	static constexpr std::array<std::pair<std::string_view, std::chrono::seconds>, 24> units{
	    {{"s", 1s},      {"sec", 1s},     {"secs", 1s},     {"second", 1s},    {"seconds", 1s},    {"m", 1min},
	     {"min", 1min},  {"mins", 1min},  {"minute", 1min}, {"minutes", 1min}, {"h", 1h},          {"hr", 1h},
	     {"hrs", 1h},    {"hour", 1h},    {"hours", 1h},    {"d", 24h},        {"day", 24h},       {"days", 24h},
	     {"w", 24h * 7}, {"wk", 24h * 7}, {"wks", 24h * 7}, {"week", 24h * 7}, {"weeks", 24h * 7}, {"", 0s}}};
	const auto* const unit =
	    std::find_if(units.begin(), units.end() - 1, [word](const auto& one) { return one.first == word; });
	return unit == units.end() - 1 ? std::nullopt : std::optional(unit->second);
}

/// @return a number like "2" or "1.5" that the text begins with, times 1000;
///         nothing for another text, a larger number or more decimals
std::optional<std::int64_t> takeThousandths(std::string_view& text)
{
	constexpr std::int64_t most = 1'000'000'000;
	const std::optional<std::int64_t> whole = numberIn<std::int64_t>(takeDigits(text));
	if (!whole || *whole > most)
	{
		return std::nullopt;
	}
	if (!text.starts_with('.'))
	{
		return *whole * 1000;
	}
	text.remove_prefix(1);
	const std::string_view digits = takeDigits(text);
	if (digits.empty() || digits.size() > 3)
	{
		return std::nullopt;
	}
	const std::int64_t fraction = numberIn<std::int64_t>(digits).value_or(0);
	return *whole * 1000 + (digits.size() == 1 ? fraction * 100 : digits.size() == 2 ? fraction * 10 : fraction);
}

/// "1d12h", "2 weeks", "5 minutes ago"
std::optional<std::chrono::milliseconds> spanOf(std::string_view text)
{
	if (text.ends_with(" ago"))
	{
		text.remove_suffix(sizeof(" ago") - 1);
	}
	constexpr std::chrono::hours longest = 24h * 366 * 200;
	std::chrono::milliseconds span{0};
	do
	{
		const std::optional<std::int64_t> thousandths = takeThousandths(text);
		skipBlanks(text);
		const auto end = std::find_if(text.begin(), text.end(), [](char c) { return isDigit(c) || c == ' '; });
		const std::string_view word = text.substr(0, static_cast<std::size_t>(end - text.begin()));
		text.remove_prefix(word.size());
		skipBlanks(text);
		const std::optional<std::chrono::seconds> unit = unitOf(word);
		if (!unit || !thousandths)
		{
			return std::nullopt;
		}
		span += std::chrono::milliseconds(unit->count() * *thousandths);
		if (span > longest)
		{
			return std::nullopt;
		}
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
	else if (const std::optional<std::chrono::milliseconds> span = spanOf(text))
	{
		time = now - *span;
	}
	return time && *time >= Instant() ? time : std::nullopt;
}

} // namespace velarix::ctl
