#include "inspect/LogLine.h"

#include <algorithm>
#include <charconv>
#include <concepts>
#include <ctime>
#include <mutex>
#include <vector>

#include "inspect/Number.h"

namespace velarix::inspect
{

namespace
{

constexpr std::size_t kDateSize = sizeof("2026-11-21 09:07:05.3") - 1;
constexpr std::size_t kMinuteSize = sizeof("2026-11-21 09:07") - 1;
constexpr std::size_t kLongestLabel = 64;

/// These take something from the beginning of a text. @return false when it is not there

bool take(std::string_view& text, std::string_view expected)
{
	const bool there = text.starts_with(expected);
	text.remove_prefix(there ? expected.size() : 0);
	return there;
}

template <std::integral Number> bool take(std::string_view& text, Number& value)
{
	const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
	const bool there = error == std::errc() && isDigit(text.front());
	text.remove_prefix(static_cast<std::size_t>(end - text.data()));
	return there;
}

bool take(std::string_view& text, std::string& label)
{
	const auto end = std::find_if_not(text.begin(), text.end(), isOfLabel);
	label.assign(text.begin(), std::min(end, text.begin() + std::min(text.size(), kLongestLabel + 1)));
	text.remove_prefix(label.size());
	return !label.empty() && label.size() <= kLongestLabel;
}

bool hasDate(std::string_view line)
{
	constexpr std::string_view shape = "####-##-## ##:##:##.#";
	return line.size() >= kDateSize &&
	       std::equal(shape.begin(), shape.end(), line.begin(),
	                  [](char expected, char is) { return expected == '#' ? isDigit(is) : is == expected; });
}

/// @param minute has the shape of one
/// @return nothing when there is none of that date
std::optional<std::tm> dateOf(const std::string& minute)
{
	std::tm date{};
	// It stops within a number that is too large.
	const char* const end = ::strptime(minute.c_str(), "%Y-%m-%d %H:%M", &date);
	if (end == nullptr || *end != '\0')
	{
		return std::nullopt;
	}
	const std::chrono::year_month_day day(std::chrono::year(date.tm_year + 1900),
	                                      std::chrono::month(static_cast<unsigned>(date.tm_mon + 1)),
	                                      std::chrono::day(static_cast<unsigned>(date.tm_mday)));
	const bool known =
	    day.ok() && day.year() >= std::chrono::year(kFirstYear) && day.year() <= std::chrono::year(kLastYear);
	return known ? std::optional(date) : std::nullopt;
}

/// The C library's own lock is one that ThreadSanitizer does not see.
std::chrono::seconds instantOf(std::tm& date)
{
	static std::mutex mutex;
	const std::lock_guard lock(mutex);
	return std::chrono::seconds(std::mktime(&date));
}

/// What a local minute may mean: two instants when the clocks are set back, else
/// one; for a minute that they jump over the one with which the zone goes on.
std::vector<std::chrono::seconds> meaningsOf(const std::tm& date)
{
	std::vector<std::chrono::seconds> meanings;
	for (const int summer : {1, 0})
	{
		std::tm attempt = date;
		attempt.tm_isdst = summer;
		const std::chrono::seconds meaning = instantOf(attempt);
		if (attempt.tm_isdst == summer)
		{
			meanings.push_back(meaning);
		}
	}
	if (meanings.empty())
	{
		std::tm attempt = date;
		attempt.tm_isdst = -1;
		meanings.push_back(instantOf(attempt));
	}
	return meanings;
}

} // namespace

bool isOfLabel(char c)
{
	return isDigit(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

std::string LogLine::place() const
{
	return hasHead() ? label + ":" + std::to_string(number) : std::string();
}

void LogClock::readMinute(std::string_view minute)
{
	m_minute = minute;
	const std::optional<std::tm> date = dateOf(m_minute);
	m_meanings = date ? meaningsOf(*date) : std::vector<std::chrono::seconds>();
}

std::optional<Instant> LogClock::read(std::string_view date)
{
	constexpr int kLeapSecond = 60;
	const int second = date.size() == kDateSize && hasDate(date) ? numberIn<int>(date.substr(17, 2)).value() : -1;
	if (second < 0 || second > kLeapSecond)
	{
		return std::nullopt;
	}
	if (date.substr(0, kMinuteSize) != m_minute)
	{
		readMinute(date.substr(0, kMinuteSize));
	}
	if (m_meanings.empty())
	{
		return std::nullopt;
	}
	const auto within = std::chrono::seconds(second) + std::chrono::milliseconds(100 * (date.back() - '0'));
	Instant best(m_meanings.front() + within);
	if (m_meanings.size() > 1 && m_last)
	{
		const Instant other(m_meanings.back() + within);
		const auto distance = [this](Instant time) { return time > *m_last ? time - *m_last : *m_last - time; };
		best = distance(other) < distance(best) ? other : best;
	}
	m_last = best;
	return best;
}

std::optional<LogLine> parseHead(std::string_view line, LogClock& clock)
{
	std::optional<LogLine> message = parseHead(line);
	if (message)
	{
		message->time = clock.read(line.substr(0, kDateSize));
	}
	return message;
}

std::optional<LogLine> parseHead(std::string_view line)
{
	if (!hasDate(line))
	{
		return std::nullopt;
	}
	LogLine message;
	line.remove_prefix(kDateSize);
	const bool placed = take(line, " [") && take(line, message.process) && take(line, ":") &&
	                    take(line, message.thread) && take(line, "][") && take(line, message.label) &&
	                    take(line, ":") && take(line, message.number) && take(line, "] <") && line.size() > 2;
	if (!placed || line.front() < 'A' || line.front() > 'Z' || line.substr(1, 2) != "> ")
	{
		return std::nullopt;
	}
	message.letter = line.front();
	message.text = line.substr(3);
	return message;
}

std::size_t headInside(std::string_view line)
{
	// Only the main thread: an agent's first message is from there, and a worker's
	// message may quote anything that came over the network.
	constexpr std::string_view mainThread = ":0][";
	for (std::size_t at = line.find(mainThread, kDateSize); at != std::string_view::npos;
	     at = line.find(mainThread, at + 1))
	{
		const std::size_t bracket = line.rfind('[', at);
		if (bracket == std::string_view::npos || bracket < kDateSize + 2)
		{
			continue;
		}
		const std::size_t head = bracket - 1 - kDateSize;
		if (head > 0 && parseHead(line.substr(head)))
		{
			return head;
		}
	}
	return std::string_view::npos;
}

std::optional<Heartbeat> parseHeartbeat(std::string_view text)
{
	// The agent's splitter makes no field of what is behind a "/" at the very end.
	if (!text.empty() && text.back() == '/')
	{
		text.remove_suffix(1);
	}
	std::vector<std::string_view> fields;
	for (std::size_t at = 0; at != std::string_view::npos;)
	{
		const std::size_t end = text.find('/', at);
		fields.push_back(text.substr(at, end - at));
		at = end == std::string_view::npos ? end : end + 1;
	}
	if (fields.size() < 6 || !fields[1].starts_with("process"))
	{
		return std::nullopt;
	}
	Heartbeat heartbeat;
	heartbeat.running = fields[2] == "1";
	heartbeat.master = fields[3] == "1";
	heartbeat.started = fields[4];
	heartbeat.asking = fields[5].starts_with('1');
	return heartbeat;
}

} // namespace velarix::inspect
