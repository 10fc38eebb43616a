/// The lines of the agent's log file and what they tell.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace velarix::lab
{

/// One line in the layout of the agent's log.
struct LogLine
{
	std::chrono::system_clock::time_point time; ///< local time, tenths of a second
	long process = 0;
	long thread = 0;
	std::string source; ///< the label of the source file
	int line = 0;
	char priority = '?';
	std::string text; ///< the first line of the message
};

/// @return the parts; empty for a line that is the continuation of a message or
///         the library's own remark
std::optional<LogLine> parseLogLine(const std::string& text);

/// @return true for the line with which each pass of the receiver begins
bool beginsPass(const LogLine& line);

/// @return true for the line with which a fresh agent begins its work
bool beginsWork(const LogLine& line);

/// What a line tells of a probe, that is of ten pings to one address.
enum class ProbeMark
{
	none,     ///< nothing
	begins,   ///< it begins
	answered, ///< it is over, something answered
	silent    ///< it is over, nothing answered
};

ProbeMark probeMarkOf(const LogLine& line);

/// What a log line means for the lab.
struct LogMeaning
{
	const char* source; ///< label the line must have
	const char* text;   ///< how its message begins
	const char* role;   ///< the role the node has from this line on; null: not told
	const char* action; ///< words for a person; null: not shown
};

/// @return the meaning of the line; null when the lab makes nothing of it
const LogMeaning* meaningOf(const LogLine& line);

} // namespace velarix::lab
