/// The daemon's real log file line by line, as it is on the disk.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "Sandbox.h"

/// @return the lines of the log file at `path`, without the remark "# ..." with
///         which the library begins a file that it makes; empty without a file
inline std::vector<std::string> logFileLines(const std::string& path)
{
	std::vector<std::string> lines;
	std::istringstream file(sandbox::readFile(path));
	for (std::string line; std::getline(file, line);)
	{
		if (!line.empty() && line.front() != '#')
		{
			lines.push_back(line);
		}
	}
	return lines;
}

/// @return the same lines from the caller's label on, "[SOURCE:LINE] <LETTER> TEXT":
///         what is left without time, process and thread
inline std::vector<std::string> logFileTexts(const std::string& path)
{
	std::vector<std::string> texts = logFileLines(path);
	for (std::string& line : texts)
	{
		line.erase(0, line.find("][") + 1);
	}
	return texts;
}
