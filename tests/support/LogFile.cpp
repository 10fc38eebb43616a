#include "LogFile.h"

#include <array>
#include <cstdio>
#include <sstream>

#include "Sandbox.h"

namespace
{

/// Takes one line of the log's layout apart:
/// "2026-01-31 23:59:59.9 [4711:2][CAgent:25] <D> text"
/// @return false for a line of another form
bool parse(const std::string& line, LogFileLine& result)
{
	std::array<char, 22> time{};
	std::array<char, 64> source{};
	char letter = 0;
	int textBegin = -1;
	const int found = std::sscanf(line.c_str(), "%21c [%d:%d][%63[A-Za-z0-9_:]] <%c>%n", time.data(), &result.process,
	                              &result.thread, source.data(), &letter, &textBegin);
	const auto begin = static_cast<std::size_t>(textBegin);
	if (found != 5 || textBegin < 0 || line.size() <= begin || line[begin] != ' ')
	{
		return false;
	}
	result.time = time.data();
	result.letter = letter;
	result.source = source.data();
	result.text = line.substr(begin + 1);
	return true;
}

} // namespace

std::vector<LogFileLine> readLogFile(const std::string& path)
{
	std::istringstream file(sandbox::readFile(path));
	std::vector<LogFileLine> lines;
	for (std::string line; std::getline(file, line);)
	{
		LogFileLine parsed;
		if (parse(line, parsed))
		{
			lines.push_back(parsed);
		}
		else if (!lines.empty())
		{
			lines.back().text += "\n" + line;
		}
	}
	return lines;
}

std::vector<std::string> eventsOf(const std::vector<LogFileLine>& lines)
{
	std::vector<std::string> events;
	for (const LogFileLine& line : lines)
	{
		events.push_back(line.event());
	}
	return events;
}

std::vector<std::string> logFileLines(const std::string& path)
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

std::vector<std::string> logFileTexts(const std::string& path)
{
	std::vector<std::string> texts = logFileLines(path);
	for (std::string& line : texts)
	{
		line.erase(0, line.find("][") + 1);
	}
	return texts;
}
