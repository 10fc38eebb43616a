#include "StoryBook.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <utility>

#include <Poco/String.h>

StoryBook::StoryBook(const std::string& path)
{
	std::ifstream file(path);
	if (!file)
	{
		throw std::runtime_error("cannot read " + path);
	}
	std::vector<std::string>* lines = nullptr;
	for (std::string line; std::getline(file, line);)
	{
		if (line.starts_with("== "))
		{
			m_stories.push_back({line.substr(3), {}});
			lines = &m_stories.back().lines;
		}
		else if (line.starts_with("def "))
		{
			lines = &m_shorthands[line.substr(4)];
		}
		else if (!line.empty() && !line.starts_with('#'))
		{
			for (const auto& [escape, byte] :
			     {std::pair("\\n", "\n"), {"\\r", "\r"}, {"\\e", "\x1b"}, {"\\xff", "\xff"}})
			{
				Poco::replaceInPlace(line, std::string(escape), std::string(byte));
			}
			lines->push_back(line);
		}
	}
}

void StoryBook::expand(const std::string& line, const std::function<void(const std::string&)>& take) const
{
	std::string rest = line;
	const std::string word = cutWord(rest);
	const auto shorthand =
	    std::ranges::find_if(m_shorthands, [&](const auto& one) { return one.first == line || one.first == word; });
	if (rest.starts_with("x "))
	{
		for (int times = std::stoi(word); times > 0; --times)
		{
			for (const std::string& one : split(rest.substr(2), " | "))
			{
				expand(one, take);
			}
		}
	}
	else if (shorthand != m_shorthands.end())
	{
		for (const std::string& one : shorthand->second)
		{
			expand(Poco::replace(one, std::string("$"), rest), take);
		}
	}
	else
	{
		take(line);
	}
}

std::string cutWord(std::string& text)
{
	const std::string word = text.substr(0, text.find(' '));
	text.erase(0, word.size() + 1);
	return word;
}

std::vector<std::string> split(std::string text, const std::string& separator)
{
	std::vector<std::string> parts;
	for (std::size_t end = 0; end != std::string::npos;)
	{
		end = text.find(separator);
		parts.push_back(text.substr(0, end));
		text.erase(0, end == std::string::npos ? end : end + separator.size());
	}
	return parts;
}
