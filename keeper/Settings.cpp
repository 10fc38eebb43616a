#include "keeper/Settings.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include <sysexits.h>

#include "inspect/ExitCode.h"
#include "inspect/InputFile.h"

namespace velarix::keeper
{

namespace
{

constexpr std::string_view kBlanks = " \t\r";

std::string_view trim(std::string_view text)
{
	const std::size_t begin = text.find_first_not_of(kBlanks);
	return begin == std::string_view::npos ? std::string_view()
	                                       : text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

/// "|", "&&", ">/dev/null", "2>&1", "x;": only a shell understands it.
bool isForShell(std::string_view word)
{
	const bool numbered = word.size() > 1 && word[0] >= '0' && word[0] <= '9' && (word[1] == '<' || word[1] == '>');
	return numbered || word.find_first_of("|&<>") == 0 || (word.ends_with(';') && !word.ends_with("\\;"));
}

bool hasTypographicQuotes(std::string_view value)
{
	constexpr std::array<std::string_view, 4> kQuotes{"\xE2\x80\x98", "\xE2\x80\x99", "\xE2\x80\x9C", "\xE2\x80\x9D"};
	return std::ranges::any_of(kQuotes, [&](std::string_view sign) { return value.find(sign) != value.npos; });
}

class Parser
{
public:
	ParsedSettings parse(std::string_view text)
	{
		while (!text.empty())
		{
			++m_line;
			const std::size_t end = text.find('\n');
			parseLine(trim(text.substr(0, end)));
			text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
		}
		finishAddress();
		finishReach();
		for (const ServiceSettings& service : m_settings.services)
		{
			finishService(service);
		}
		return std::move(m_parsed);
	}

private:
	void add(int line, std::string what, std::string cure)
	{
		m_parsed.findings.push_back({line, EX_CONFIG, std::move(what), std::move(cure)});
	}

	void parseLine(std::string_view line)
	{
		if (line.empty() || line.front() == ';' || line.front() == '#')
		{
			return;
		}
		if (line.find_first_of(std::string_view("\0\x1b", 2)) != std::string_view::npos)
		{
			add(m_line, "there is a control character", "write the line anew");
		}
		else if (line.front() == '[')
		{
			parseSection(trim(line.substr(0, line.find(" ;"))));
		}
		else if (line.find('=') == std::string_view::npos)
		{
			add(m_line, "neither a section nor key = value", "write key = value, or make it a comment with ;");
		}
		else if (m_section.empty())
		{
			add(m_line, "a key before the first section", "begin with [address]");
		}
		else if (m_section != kRefused)
		{
			parseKey(trim(line.substr(0, line.find('='))), trim(line.substr(line.find('=') + 1)));
		}
	}

	void parseSection(std::string_view line)
	{
		m_section = kRefused;
		m_sectionLine = m_line;
		const std::string_view inner = line.ends_with(']') ? trim(line.substr(1, line.size() - 2)) : std::string_view();
		const std::size_t blank = std::min(inner.find_first_of(" \t"), inner.size());
		if (inner == "address" || inner == "reachability")
		{
			int& former = inner == "address" ? m_settings.address.line : m_settings.reach.line;
			m_section = isFirst(std::string(inner), former) ? inner : kRefused;
			former = former == 0 ? m_line : former;
		}
		else if (inner.substr(0, blank) == "service" && blank < inner.size())
		{
			startService(std::string(trim(inner.substr(blank))));
		}
		else
		{
			add(m_line, "no such section: " + std::string(line),
			    "there are [address], [service NAME] and [reachability]");
		}
	}

	/// @param former the line of that section before, 0 for none; a second one is a finding
	bool isFirst(const std::string& section, int former)
	{
		if (former != 0)
		{
			add(m_line, "a second [" + section + "]", "keep one; the first is in line " + std::to_string(former));
		}
		return former == 0;
	}

	void startService(const std::string& name)
	{
		const std::string program = std::string(kPrefix) + name;
		const ServiceSettings* other = m_settings.find(program);
		if (!isServiceName(name))
		{
			add(m_line, "\"" + name + "\" cannot be a service's name", kServiceName);
		}
		else if (isFirst("service " + name, other != nullptr ? other->line : 0))
		{
			ServiceSettings& service = m_settings.services.emplace_back();
			service.program = program;
			service.line = m_line;
			m_section = "service";
		}
	}

	void parseKey(std::string_view name, std::string_view value)
	{
		const auto key = std::ranges::find_if(keyTable(), [&](const KeyInfo& known)
		                                      { return m_section == known.section && name == known.name; });
		if (key == keyTable().end())
		{
			add(m_line, "no such key in [" + std::string(m_section) + "]: " + std::string(name),
			    "see keeper(8) for the keys");
			return;
		}
		if (!m_seen.emplace(m_sectionLine, name).second)
		{
			add(m_line, "a second " + std::string(name) + " in this section", "keep one");
			return;
		}
		if (name == "command" || name == "unit")
		{
			m_settings.services.back().commandLine = m_line;
		}
		if (name == "user" || name == "group")
		{
			m_settings.services.back().userLine = m_line;
		}
		if (const std::string error = setKey(m_settings, *key, value); !error.empty())
		{
			add(m_line, std::string(name) + " = " + std::string(value) + " " + error,
			    std::string("it is ") + key->meaning + ": " + key->range);
		}
		if (name == "command" || name == "check")
		{
			warnOfShell(std::string(name), value);
		}
	}

	/// The keeper runs commands without a shell, and gives them such words as arguments.
	void warnOfShell(const std::string& name, std::string_view value)
	{
		std::vector<std::string> words;
		std::vector<std::string> written;
		splitArguments(value, words, &written);
		if (const auto word = std::ranges::find_if(written, isForShell); word != written.end())
		{
			m_parsed.findings.push_back({m_line, 0, name + " has the word " + *word + ", and no shell runs it",
			                             "write sh -c '...', or quote the word if it is an argument"});
		}
		if (hasTypographicQuotes(value))
		{
			m_parsed.findings.push_back(
			    {m_line, 0, name + " has typographic quotes, which are letters", "write \" or ' at the keyboard"});
		}
	}

	void finishAddress()
	{
		const int line = m_settings.address.line;
		if (line == 0)
		{
			add(0, "there is no [address]", "write one, with address, interface and on_conflict");
			return;
		}
		demand("address", line, {"address", "interface", "on_conflict"});
	}

	void demand(const std::string& section, int line, std::initializer_list<std::string> keys)
	{
		for (const std::string& key : keys)
		{
			// One that was refused was there, and has its finding already.
			if (!m_seen.contains({line, key}))
			{
				add(line, std::string("there is no ").append(key).append(" in [").append(section).append("]"),
				    "write " + key + " = ...");
			}
		}
	}

	void finishReach()
	{
		const ReachSettings& reach = m_settings.reach;
		if (reach.line == 0)
		{
			return;
		}
		demand("reachability", reach.line, {"address", "targets", "own", "partner"});
		const std::set<std::string> targets(reach.targets.begin(), reach.targets.end());
		if (targets.size() != reach.targets.size())
		{
			add(reach.line, "a target stands there twice", "name each once");
		}
		if (reach.needed > static_cast<int>(targets.size()) && !targets.empty())
		{
			add(reach.line,
			    "needed = " + std::to_string(reach.needed) + " of " + std::to_string(targets.size()) +
			        " targets can never answer",
			    "name more targets, or need fewer");
		}
		for (const std::string& address : {reach.address, reach.own, reach.partner, m_settings.address.text})
		{
			if (targets.contains(address))
			{
				add(reach.line, "the target " + address + " is an address of the pair",
				    "take hosts that answer as long as this node's networks work, and no longer");
			}
		}
		if (!reach.own.empty() && reach.own == reach.partner)
		{
			add(reach.line, "own and partner are the same", "write THIS_SERVER_IP and PARTNER_IP");
		}
	}

	void finishService(const ServiceSettings& service)
	{
		const bool command = m_seen.contains({service.line, "command"});
		if (!command && !m_seen.contains({service.line, "unit"}))
		{
			add(service.line, "[service] without a command",
			    "write command = PROGRAM ARGUMENTS, or unit = NAME.service");
		}
		else if (command && m_seen.contains({service.line, "unit"}))
		{
			add(service.commandLine, "both a command and a unit", "keep one");
		}
		for (const ServiceSettings& other : m_settings.services)
		{
			if (&other != &service && other.program.find(service.program) != std::string::npos)
			{
				add(other.line, service.program + " is contained in " + other.program,
				    "rename one: the agent would count and end both for one");
			}
		}
		for (const std::string_view own : {kAddressProgram, kReachProgram})
		{
			if (own.find(service.program) != std::string_view::npos)
			{
				add(service.line, service.program + " is contained in " + std::string(own), "take another name");
			}
		}
	}

	/// The keys of a section that was refused are no findings of their own.
	static constexpr std::string_view kRefused = "refused";

	ParsedSettings m_parsed;
	Settings& m_settings = m_parsed.settings;
	std::string_view m_section;
	int m_sectionLine = 0;
	std::set<std::pair<int, std::string>> m_seen; ///< by the section's line
	int m_line = 0;
};

} // namespace

const ServiceSettings* Settings::find(std::string_view program) const
{
	const auto found = std::ranges::find(services, program, &ServiceSettings::program);
	return found == services.end() ? nullptr : &*found;
}

bool isServiceName(std::string_view name)
{
	constexpr std::string_view kAllowed = "abcdefghijklmnopqrstuvwxyz0123456789-_";
	return !name.empty() && name.find_first_not_of(kAllowed) == name.npos &&
	       kPrefix.size() + name.size() <= kLongestName;
}

const Finding* ParsedSettings::error() const
{
	const auto found = std::ranges::find_if(findings, [](const Finding& finding) { return finding.status != 0; });
	return found == findings.end() ? nullptr : &*found;
}

std::string splitArguments(std::string_view text, std::vector<std::string>& arguments,
                           std::vector<std::string>* written)
{
	std::string word;
	bool inWord = false;
	char quote = 0;
	std::size_t begin = 0;
	std::size_t i = 0;
	const auto finish = [&]
	{
		if (std::exchange(inWord, false))
		{
			arguments.push_back(std::exchange(word, {}));
			if (written != nullptr)
			{
				written->emplace_back(text.substr(begin, i - begin));
			}
		}
	};
	for (; i < text.size(); ++i)
	{
		const char sign = text[i];
		begin = inWord ? begin : i;
		if (sign == '\\' && quote != '\'')
		{
			if (i + 1 == text.size())
			{
				return "ends in a backslash";
			}
			const char following = text[++i];
			word += quote == '"' && following != '"' && following != '\\' ? std::string{sign, following}
			                                                              : std::string{following};
			inWord = true;
		}
		else if (sign == quote || (quote == 0 && (sign == '"' || sign == '\'')))
		{
			quote = quote == 0 ? sign : '\0';
			inWord = true;
		}
		else if (quote == 0 && (sign == ' ' || sign == '\t'))
		{
			finish();
		}
		else if (quote == 0 && sign == ';' && !inWord)
		{
			break;
		}
		else
		{
			word += sign;
			inWord = true;
		}
	}
	finish();
	return quote != 0 ? "has an open quote" : "";
}

ParsedSettings parseSettings(std::string_view text)
{
	return Parser().parse(text);
}

ParsedSettings readSettings(const char* path)
{
	try
	{
		std::error_code missing;
		const auto written = std::filesystem::last_write_time(path, missing);
		ParsedSettings parsed = parseSettings(inspect::readInputFile(path));
		parsed.settings.written = written;
		return parsed;
	}
	catch (const inspect::Failure& failure)
	{
		const bool forbidden = failure.code() == inspect::ExitCode::noPermission;
		return {{},
		        {{0, forbidden ? EX_NOPERM : EX_CONFIG,
		          std::string(path) + " cannot be read" + (forbidden ? ": Permission denied" : ""),
		          forbidden ? "run this as root" : "make it with \"velarixctl init\""}}};
	}
}

} // namespace velarix::keeper
