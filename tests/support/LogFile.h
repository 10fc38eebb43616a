/// The daemon's real log file, taken apart.
#pragma once

#include <string>
#include <vector>

struct LogFileLine
{
	std::string time;   ///< "2026-01-31 23:59:59.9"
	int process = 0;    ///< process id
	int thread = 0;     ///< number of the library's thread; 0 for the main thread
	std::string letter; ///< priority
	std::string source; ///< "CAgent:25"
	std::string text;   ///< further lines of the message included

	/// @return "D CAgent:25 text"
	std::string event() const { return letter + " " + source + " " + text; }
};

/// @return the lines of `path` in order, without the library's remark at its
///         top; a line that does not have the log's layout belongs to the message before it
std::vector<LogFileLine> readLogFile(const std::string& path = "/usr/velarix/log/velarix.log");

/// @return the events of `lines`
std::vector<std::string> eventsOf(const std::vector<LogFileLine>& lines);

/// @return the lines of the file as they are, without the library's remark "# ..."; empty
///         without a file
std::vector<std::string> logFileLines(const std::string& path);

/// @return the same from the caller's label on, "[SOURCE:LINE] <LETTER> TEXT"
std::vector<std::string> logFileTexts(const std::string& path);
