#include "inspect/LogLine.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <ctime>
#include <ranges>
#include <vector>

#include "inspect/Number.h"

namespace velarix::inspect
{

namespace
{

constexpr std::size_t kDateSize = sizeof("2026-11-21 09:07:05.3") - 1;
constexpr std::size_t kMinuteSize = sizeof("2026-11-21 09:07") - 1;
constexpr std::size_t kLongestLabel = 64;

/// Takes a text apart from its beginning; everything after a failure fails.
class Scanner
{
public:
	explicit Scanner(std::string_view text) : m_rest(text) {}

	bool skip(std::string_view expected)
	{
		if (!m_rest.starts_with(expected))
		{
			return false;
		}
		m_rest.remove_prefix(expected.size());
		return true;
	}

	template <typename Number> bool read(Number& value)
	{
		if (m_rest.empty() || !isDigit(m_rest.front()))
		{
			return false;
		}
		const auto [end, error] = std::from_chars(m_rest.data(), m_rest.data() + m_rest.size(), value);
		m_rest.remove_prefix(static_cast<std::size_t>(end - m_rest.data()));
		return error == std::errc();
	}

	bool read(std::string& label)
	{
		const auto end = std::find_if_not(m_rest.begin(), m_rest.end(), isOfLabel);
		const auto size = static_cast<std::size_t>(end - m_rest.begin());
		if (size == 0 || size > kLongestLabel)
		{
			return false;
		}
		label.assign(m_rest.data(), size);
		m_rest.remove_prefix(size);
		return true;
	}

	bool readLetter(char& letter)
	{
		if (m_rest.empty() || m_rest.front() < 'A' || m_rest.front() > 'Z')
		{
			return false;
		}
		letter = m_rest.front();
		m_rest.remove_prefix(1);
		return true;
	}

	std::string_view rest() const { return m_rest; }

private:
	std::string_view m_rest;
};

bool hasDate(std::string_view line)
{
	constexpr std::string_view shape = "####-##-## ##:##:##.#";
	return line.size() >= kDateSize &&
	       std::equal(shape.begin(), shape.end(), line.begin(),
	                  [](char expected, char is) { return expected == '#' ? isDigit(is) : is == expected; });
}

/// @param date has the shape of one
int digits(std::string_view date, std::size_t at, std::size_t count)
{
	int value = 0;
	for (const char c : date.substr(at, count))
	{
		value = value * 10 + (c - '0');
	}
	return value;
}

bool sameMinute(const std::tm& left, const std::tm& right)
{
	return left.tm_year == right.tm_year && left.tm_mon == right.tm_mon && left.tm_mday == right.tm_mday &&
	       left.tm_hour == right.tm_hour && left.tm_min == right.tm_min;
}

/// @param minute has the shape of one
std::tm dateOf(std::string_view minute)
{
	std::tm date{};
	date.tm_year = digits(minute, 0, 4) - 1900;
	date.tm_mon = digits(minute, 5, 2) - 1;
	date.tm_mday = digits(minute, 8, 2);
	date.tm_hour = digits(minute, 11, 2);
	date.tm_min = digits(minute, 14, 2);
	date.tm_isdst = -1;
	return date;
}

bool exists(const std::tm& date)
{
	const std::chrono::year_month_day day(std::chrono::year(date.tm_year + 1900),
	                                      std::chrono::month(static_cast<unsigned>(date.tm_mon + 1)),
	                                      std::chrono::day(static_cast<unsigned>(date.tm_mday)));
	return day.ok() && date.tm_year + 1900 >= kFirstYear && date.tm_year + 1900 <= kLastYear && date.tm_hour < 24 &&
	       date.tm_min < 60;
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
		const std::chrono::seconds meaning(std::mktime(&attempt));
		if (attempt.tm_isdst == summer && sameMinute(attempt, date))
		{
			meanings.push_back(meaning);
		}
	}
	if (meanings.empty())
	{
		std::tm attempt = date;
		meanings.emplace_back(std::mktime(&attempt));
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
	const std::tm date = dateOf(minute);
	m_meanings = exists(date) ? meaningsOf(date) : std::vector<std::chrono::seconds>();
}

std::optional<Instant> LogClock::read(std::string_view date)
{
	if (date.size() != kDateSize || !hasDate(date) || digits(date, 17, 2) > 60)
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
	const auto within =
	    std::chrono::seconds(digits(date, 17, 2)) + std::chrono::milliseconds(100 * digits(date, 20, 1));
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
	Scanner scanner(line.substr(kDateSize));
	if (!scanner.skip(" [") || !scanner.read(message.process) || !scanner.skip(":") || !scanner.read(message.thread) ||
	    !scanner.skip("][") || !scanner.read(message.label) || !scanner.skip(":") || !scanner.read(message.number) ||
	    !scanner.skip("] <") || !scanner.readLetter(message.letter) || !scanner.skip("> "))
	{
		return std::nullopt;
	}
	message.text = scanner.rest();
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
	for (const auto field : std::views::split(text, '/'))
	{
		fields.emplace_back(field.begin(), field.end());
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
