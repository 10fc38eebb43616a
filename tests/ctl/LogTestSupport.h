/// What the tests of the log's readers share.
#pragma once

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/LogReader.h"

/// The local zone of this process, until the end of the test.
class LocalZone
{
public:
	explicit LocalZone(const char* zone)
	{
		if (const char* const before = std::getenv("TZ"))
		{
			m_before = before;
		}
		set(zone);
	}
	~LocalZone() { set(m_before ? m_before->c_str() : nullptr); }
	LocalZone(const LocalZone&) = delete;
	LocalZone& operator=(const LocalZone&) = delete;

private:
	std::optional<std::string> m_before;

	static void set(const char* zone)
	{
		if (zone != nullptr)
		{
			::setenv("TZ", zone, 1);
		}
		else
		{
			::unsetenv("TZ");
		}
		::tzset();
	}
};

/// Clocks of central Europe: forward on 29 March 2026 at 02:00, back on 25
/// October 2026 at 03:00. Needs no time zone database.
inline constexpr char kCentralEurope[] = "CET-1CEST,M3.5.0,M10.5.0/3";

/// @return a moment of 2026
inline velarix::inspect::Instant utc(int month, int day, std::chrono::milliseconds ofDay)
{
	return std::chrono::sys_days(std::chrono::year(2026) / month / day) + ofDay;
}

/// A line of the log with its end.
inline std::string logLine(const std::string& time, const std::string& place, const std::string& text,
                           const std::string& process = "4711:3", char letter = 'D')
{
	return "2026-11-21 " + time + " [" + process + "][" + place + "] <" + letter + "> " + text + "\n";
}

/// "PLACE text", and "text" without a head.
inline std::string textOf(const velarix::inspect::LogLine& line)
{
	return line.hasHead() ? line.place() + " " + line.text : line.text;
}

/// Everything that is there.
template <typename Reader> std::vector<std::string> readAll(Reader& reader)
{
	std::vector<std::string> texts;
	for (velarix::inspect::LogLine line; reader.next(line);)
	{
		texts.push_back(textOf(line));
	}
	return texts;
}
