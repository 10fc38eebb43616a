#include "LogFile.h"

#include <sstream>

#include "Sandbox.h"

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
