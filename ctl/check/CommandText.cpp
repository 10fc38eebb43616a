#include "ctl/check/CommandText.h"

#include <array>
#include <iterator>
#include <set>
#include <sstream>

#include "ctl/check/Checks.h"
#include "inspect/Number.h"
#include "inspect/Pattern.h"
#include "inspect/SettingsFile.h"

namespace velarix::ctl
{

namespace
{

using checks::contains;

/// The library's regular expressions recurse for each character.
constexpr std::size_t kLookedAt = 4096;

constexpr std::array kShellWords{":",    "true",  "false",   "cd",   "export", "set",   "unset", "exit",  "return",
                                 "wait", "test",  "[",       "trap", "umask",  "shift", "local", "read",  "eval",
                                 "exec", ".",     "command", "type", "printf", "echo",  "kill",  "break", "continue",
                                 "for",  "while", "until",   "in",   "esac",   "fi",    "done",  "hash",  "[["};

/// Words behind which a command begins.
constexpr std::array kOpeners{"do", "then", "else", "elif", "while", "until", "if", "!", "time"};

/// Behind these the text looks whether a program is there.
constexpr std::array kLookers{"-x", "-e", "-f", "-v", "which", "type", "hash"};

/// @return the first group of each match
std::vector<std::string> found(const std::string& text, const char* expression)
{
	std::vector<std::string> result;
	for (const inspect::Pattern::Groups& groups : inspect::Pattern(expression).all(text))
	{
		result.push_back(groups.at(1));
	}
	return result;
}

/// @return the text with each quoted part made one word, cut before a comment
std::string withoutQuotes(const std::string& text, bool& hasComment)
{
	constexpr std::string_view kSeparating = " \t;&|(){}<>#$`";
	constexpr std::string_view kBefore = " \t;&|(";
	std::string result;
	char quote = 0;
	for (std::size_t i = 0; i < text.size(); ++i)
	{
		const char letter = text[i];
		const bool escaped = letter == '\\' && quote != '\'' && i + 1 < text.size();
		if (escaped)
		{
			result += '_';
			++i;
		}
		else if (quote == 0 && (letter == '\'' || letter == '"'))
		{
			quote = letter;
		}
		else if (quote != 0 && letter == quote)
		{
			quote = 0;
		}
		else if (letter == '#' && quote == 0 && (i == 0 || kBefore.find(text[i - 1]) != std::string_view::npos))
		{
			hasComment = true;
			break;
		}
		else
		{
			result += quote != 0 && kSeparating.find(letter) != std::string_view::npos ? '_' : letter;
		}
	}
	return result;
}

bool isSystemDirectory(const std::string& path)
{
	constexpr std::array kSystem{"/bin/", "/sbin/", "/usr/bin/", "/usr/sbin/"};
	return contains(kSystem, path.substr(0, path.rfind('/') + 1));
}

/// A program that runs the command behind its options.
struct Prefix
{
	std::string_view name;
	/// Options whose value is a word of its own.
	std::string_view valued;
	/// How many other words stand before the command.
	std::ptrdiff_t operands;
};

constexpr std::array kPrefixes{
    Prefix{"exec", " -a ", 0},
    Prefix{"env", " -u -C --unset --chdir ", 0},
    Prefix{"nice", " -n --adjustment ", 0},
    Prefix{"ionice", " -c -n --class --classdata ", 0},
    Prefix{"nohup", "", 0},
    Prefix{"setsid", "", 0},
    Prefix{"prlimit", "", 0},
    Prefix{"stdbuf", " -i -o -e --input --output --error ", 0},
    Prefix{"setpriv",
           " --reuid --regid --ruid --euid --rgid --egid --groups --inh-caps --ambient-caps "
           "--bounding-set --securebits --pdeathsig --selinux-label --apparmor-profile ",
           0},
    Prefix{"runuser", " -u -g -G --user --group --supp-group ", 0},
    Prefix{"sudo", " -u -g -h -p -C -D -R -T --user --group --chdir --chroot ", 0},
    Prefix{"unshare", " -R -w -S -G --root --wd --setuid --setgid ", 0},
    Prefix{"taskset", "", 1},
    Prefix{"chrt", " -T -P -D ", 1},
    Prefix{"timeout", " -k -s --kill-after --signal ", 1},
    Prefix{"flock", " -w -E --timeout --wait --conflict-exit-code ", 1},
    Prefix{"chroot", " --userspec --groups ", 1},
};

/// @return whether the next word is the option's value: "-n", "-En" and "--user", not "-n5" and "--user=x"
bool takesValue(const std::string& option, std::string_view valued)
{
	if (option.starts_with("--"))
	{
		return valued.find(" " + option + " ") != std::string_view::npos;
	}
	const auto isValued = [&](char letter)
	{ return valued.find(std::string(" -") + letter + " ") != std::string_view::npos; };
	const auto first = std::find_if(option.begin() + 1, option.end(), isValued);
	return first != option.end() && first + 1 == option.end();
}

} // namespace

CommandText::CommandText(std::string configured) : text(std::move(configured))
{
	static const inspect::Pattern kRedirection(R"((&>>?|[0-9]*(>>|>&|<&|>|<))\s*[^\s;&|()]*)");
	static const inspect::Pattern kExpansion(R"(\$\{[^}]*\})");
	const std::string bare = withoutQuotes(text.substr(0, kLookedAt), hasComment);
	plain = kRedirection.replaced(kExpansion.replaced(bare, "$_"), " ");
}

bool CommandText::matches(const char* expression) const
{
	return !inspect::Pattern(expression).found(text.substr(0, kLookedAt)).empty();
}

std::vector<std::string> CommandText::all(const char* expression) const
{
	return found(text.substr(0, kLookedAt), expression);
}

bool CommandText::asksService() const
{
	return matches(R"((^|[\s;&|(]|/s?bin/)(nmcli|networkctl|netplan|systemctl|service|ifup|ifdown|docker|podman|virsh|)"
	               R"(crm|pcs)(\s|$))");
}

std::vector<std::string> CommandText::programs() const
{
	const std::vector<std::string> tokens = found(plain, R"(([;&|(){}]+|[^\s;&|(){}]+))");
	static const inspect::Pattern kAssignment(R"([A-Za-z_]\w*=.*)");
	std::vector<std::string> result;
	std::set<std::string> known;
	bool expected = true;
	for (std::size_t i = 0; i < tokens.size(); ++i)
	{
		const std::string& word = tokens[i];
		if (word == "case")
		{
			return {}; // its patterns look like commands
		}
		if (std::string_view(";&|(){}").find(word[0]) != std::string_view::npos)
		{
			expected = true;
		}
		else if (i > 0 && contains(kLookers, tokens[i - 1]))
		{
			known.insert(inspect::programName(word));
		}
		else if (expected && i + 1 < tokens.size() && tokens[i + 1].starts_with("()"))
		{
			known.insert(word); // a function of its own
		}
		else if (expected && !contains(kOpeners, word) && kAssignment.matched(word).empty())
		{
			expected = false;
			result.push_back(word);
		}
	}
	std::erase_if(result,
	              [&](const std::string& word)
	              {
		              return contains(kShellWords, word) || known.contains(inspect::programName(word)) ||
		                     word.find_first_of("$`*?[") != std::string::npos;
	              });
	return result;
}

std::vector<std::string> CommandText::ownPrograms() const
{
	std::vector<std::string> result = programs();
	std::erase_if(result, [](const std::string& word)
	              { return word.find('/') == std::string::npos || isSystemDirectory(word); });
	return result;
}

std::vector<std::string> CommandText::addresses(bool raising) const
{
	return all(
	    raising
	        ? R"((?:\ba(?:ddr(?:ess)?)?\s+(?:a|add|replace|change)|\bifconfig\s+\S+(?:\s+add)?)\s+([0-9]+\.[0-9]+\.[0-9]+\.[0-9]+))"
	        : R"((?:\ba(?:ddr(?:ess)?)?\s+(?:d|del|delete)|\bifconfig\s+\S+\s+del)\s+([0-9]+\.[0-9]+\.[0-9]+\.[0-9]+))");
}

std::optional<int> CommandText::prefixOf(const std::string& address) const
{
	// What is no address may hold the end of the quotation, or be too long for an expression.
	if (!checks::isVirtualAddress(address))
	{
		return std::nullopt;
	}
	const std::string expression = "(?<![0-9.])\\Q" + address + "\\E/([0-9]+)";
	const std::vector<std::string> prefixes = found(text, expression.c_str());
	return prefixes.empty() ? std::nullopt : inspect::numberIn<int>(prefixes.front());
}

std::vector<std::string> wordsOf(const std::string& text)
{
	std::istringstream words(text);
	return {std::istream_iterator<std::string>(words), {}};
}

bool isAssignment(const std::string& word)
{
	const std::size_t at = word.find_first_of("=/");
	return at != std::string::npos && at > 0 && word[at] == '=' && word[0] != '-';
}

InnerCommand innerCommand(std::vector<std::string> words)
{
	InnerCommand inner;
	for (auto at = words.begin();;)
	{
		at = std::find_if_not(at, words.end(), isAssignment);
		const std::string name = at == words.end() ? "" : inspect::programName(*at);
		const auto prefix = std::ranges::find(kPrefixes, name, &Prefix::name);
		if (prefix == kPrefixes.end() || (*at != name && !isSystemDirectory(*at)))
		{
			inner.words.assign(at, words.end());
			break;
		}
		bool named = name != "runuser";
		for (++at; at != words.end() && at->starts_with('-');)
		{
			const std::string option = *at++;
			named = named || option.starts_with("-u") || option.starts_with("--user");
			inner.elsewhere = inner.elsewhere || option.starts_with("-R") || option.starts_with("--root") ||
			                  option.starts_with("--chroot");
			if (option == "--")
			{
				break;
			}
			at += takesValue(option, prefix->valued) && at != words.end() ? 1 : 0;
		}
		inner.elsewhere = inner.elsewhere || name == "chroot";
		at = named ? std::find_if_not(at, words.end(), isAssignment) : words.end();
		at += std::min(prefix->operands, words.end() - at);
	}
	// "flock FILE -c TEXT" and the like are for a shell.
	if (!inner.words.empty() &&
	    (inner.words.front().starts_with('-') || inner.words.front().find_first_of(" \t") != std::string::npos))
	{
		inner.words.clear();
	}
	return inner;
}

} // namespace velarix::ctl
