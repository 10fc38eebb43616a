/// What the daemon's log leaves: lines in its file and on the two standard streams.
#pragma once

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Sandbox.h"

/// @return the lines of the file as they are, without the library's remark "# ..."; empty
///         without a file
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

/// @return the same from the caller's label on, "[SOURCE:LINE] <LETTER> TEXT"
inline std::vector<std::string> logFileTexts(const std::string& path)
{
	std::vector<std::string> texts = logFileLines(path);
	for (std::string& line : texts)
	{
		line.erase(0, line.find("][") + 1);
	}
	return texts;
}

struct Console
{
	std::string out;
	std::string err;
};

/// Runs `call`, which does not throw, with both streams captured.
inline Console consoleOf(const std::function<void()>& call)
{
	testing::internal::CaptureStdout();
	testing::internal::CaptureStderr();
	call();
	const std::string out = testing::internal::GetCapturedStdout();
	return {out, testing::internal::GetCapturedStderr()};
}
