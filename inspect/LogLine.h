/// One message of the agent's log file, taken apart.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velarix::inspect
{

using Instant = std::chrono::system_clock::time_point;

/// The years of a log. An instant counts nanoseconds and ends in 2262, and the
/// distance of any two of these must fit, too; all other years are no dates.
inline constexpr int kFirstYear = 1970;
inline constexpr int kLastYear = 2200;

/// A message: its head line in the layout
///
///     2026-11-21 09:07:05.3 [4711:2][CHeartSender:124] <D> text
///
/// and the lines that follow it up to the next head. What is before the first
/// head of a file (the library's remark, the rest of a line whose beginning is
/// gone) is a message without a head: `label` is empty, `text` holds it.
struct LogLine
{
	/// Empty without a head, and when the date does not exist.
	std::optional<Instant> time;
	long process = 0;
	/// The library's number of the thread; 0 is the main thread.
	long thread = 0;
	std::string label;
	int number = 0;
	/// D, I, W, E or C; '?' without a head.
	char letter = '?';
	/// The bytes as they are, lines separated by '\n', none at the end.
	std::string text;
	/// Bytes of the text that were left out because it is too long.
	std::uint64_t cut = 0;

	bool hasHead() const { return letter != '?'; }
	bool is(std::string_view source, int line) const { return number == line && label == source; }
	/// @return "CHeartSender:124"; empty without a head
	std::string place() const;
};

/// Local dates of the log turned into instants. A date that exists twice (the
/// clocks were set back an hour) is taken to be the one nearer to the date before.
class LogClock
{
public:
	LogClock() = default;
	/// The first date is read as the one nearer to `near`.
	explicit LogClock(Instant near) : m_last(near) {}

	/// @param date "2026-11-21 09:07:05.3"
	/// @return empty when it is no such text or no date
	std::optional<Instant> read(std::string_view date);

private:
	std::optional<Instant> m_last;
	/// The last minute read and what it may mean, since asking the C library for
	/// each line costs more than the line.
	std::string m_minute;
	std::vector<std::chrono::seconds> m_meanings;

	void readMinute(std::string_view minute);
};

/// @return whether it can stand in a label of the log
bool isOfLabel(char c);

/// Reads the head of a line and takes the rest as text.
/// @return empty when the line has no head
std::optional<LogLine> parseHead(std::string_view line, LogClock& clock);

/// The same without its time, whose reading takes ten times as long as the rest.
std::optional<LogLine> parseHead(std::string_view line);

/// Where in a line a head begins that is not at its beginning: the agent was
/// killed while it wrote, or the power failed, and the next agent's first message
/// stands behind the rest.
/// @return the position; npos when there is none
std::size_t headInside(std::string_view line);

/// A heartbeat as the two agents exchange it and as the log shows it.
struct Heartbeat
{
	bool running = false;
	bool master = false;
	/// 14 digits or empty.
	std::string started;
	bool asking = false;

	bool operator==(const Heartbeat&) const = default;
};

/// Splits "/process/1/1/20261121090601/0/" by the rules of the agent's receiver.
/// @return empty when the receiver would drop the text
std::optional<Heartbeat> parseHeartbeat(std::string_view text);

} // namespace velarix::inspect
