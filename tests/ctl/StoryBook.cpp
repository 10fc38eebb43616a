#include "StoryBook.h"

#include <algorithm>
#include <fstream>
#include <ostream>
#include <stdexcept>

#include <Poco/String.h>

namespace
{

std::string bytesOf(const std::string& text)
{
	static const std::map<char, char> kBytes{{'n', '\n'}, {'r', '\r'}, {'t', '\t'}, {'e', '\x1b'}, {'\\', '\\'}};
	std::string bytes;
	for (std::size_t at = 0; at < text.size(); ++at)
	{
		const char next = text[at] == '\\' && at + 1 < text.size() ? text[at + 1] : '\0';
		if (next == 'x')
		{
			bytes += static_cast<char>(std::stoi(text.substr(at + 2, 2), nullptr, 16));
			at += 3;
			continue;
		}
		const bool known = kBytes.contains(next);
		bytes += known ? kBytes.at(next) : text[at];
		at += known ? 1 : 0;
	}
	return bytes;
}

} // namespace

void PrintTo(const Story& story, std::ostream* out)
{
	*out << story.name;
}

StoryBook::StoryBook(const std::filesystem::path& path)
{
	if (!std::filesystem::is_directory(path))
	{
		read(path);
		return;
	}
	for (const auto& entry : std::filesystem::directory_iterator(path))
	{
		entry.path().extension() == ".txt" ? read(entry.path()) : void();
	}
}

void StoryBook::read(const std::filesystem::path& path)
{
	std::ifstream file(path);
	if (!file)
	{
		throw std::runtime_error("cannot read " + path.string());
	}
	std::vector<std::string>* lines = nullptr;
	std::vector<std::string> begin;
	for (std::string line; std::getline(file, line);)
	{
		if (line.starts_with("== "))
		{
			m_stories.push_back({line.substr(3), begin});
			lines = &m_stories.back().lines;
		}
		else if (line == "begin" || line.starts_with("begin "))
		{
			begin.assign(line.size() > 6 ? 1 : 0, line.substr(std::min(line.size(), std::size_t{6})));
		}
		else if (line.starts_with("def "))
		{
			const auto [shorthand, isNew] = m_shorthands.try_emplace(line.substr(4));
			if (!isNew)
			{
				throw std::runtime_error(path.string() + ": twice: " + line);
			}
			lines = &shorthand->second;
		}
		else if (!line.empty() && !line.starts_with('#'))
		{
			lines->push_back(bytesOf(line));
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
		const std::size_t mark = rest.find(" => ");
		for (std::string one : shorthand->second)
		{
			Poco::replaceInPlace(one, std::string("$1"), rest.substr(0, mark));
			Poco::replaceInPlace(one, std::string("$2"), rest.substr(mark == rest.npos ? rest.size() : mark + 4));
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
