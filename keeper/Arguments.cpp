#include "Settings.h"

#include <cstdlib>
#include <utility>

#include <sys/stat.h>

namespace velarix::keeper
{

bool splitArguments(std::string_view text, std::vector<std::string>& arguments, std::string& error)
{
	std::string word;
	bool inWord = false;
	char quote = 0;
	for (std::size_t i = 0; i < text.size(); ++i)
	{
		const char sign = text[i];
		const bool last = i + 1 == text.size();
		if (sign == '\\' && quote != '\'')
		{
			if (last)
			{
				error = "ends in a backslash";
				return false;
			}
			inWord = true;
			const char following = text[++i];
			if (quote == '"' && following != '"' && following != '\\')
			{
				word += sign;
			}
			word += following;
		}
		else if (quote != 0)
		{
			sign == quote ? quote = 0 : (word += sign, 0);
		}
		else if (sign == '"' || sign == '\'')
		{
			quote = sign;
			inWord = true;
		}
		else if (sign == ' ' || sign == '\t')
		{
			if (inWord)
			{
				arguments.push_back(std::exchange(word, {}));
				inWord = false;
			}
		}
		else
		{
			word += sign;
			inWord = true;
		}
	}
	if (quote != 0)
	{
		error = "has an open quote";
		return false;
	}
	if (inWord)
	{
		arguments.push_back(word);
	}
	return true;
}

std::string findCommand(const std::string& command)
{
	const auto runs = [](const std::string& path)
	{
		struct stat status = {};
		return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && (status.st_mode & 0111U) != 0;
	};
	if (command.find('/') != std::string::npos)
	{
		return runs(command) ? command : "";
	}
	const char* set = std::getenv("PATH");
	std::string_view path = set != nullptr ? set : "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
	while (!path.empty())
	{
		const std::size_t end = path.find(':');
		const std::string candidate = std::string(path.substr(0, end)) + "/" + command;
		if (candidate.front() == '/' && runs(candidate))
		{
			return candidate;
		}
		path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
	}
	return {};
}

} // namespace velarix::keeper
