#include "Settings.h"

#include <algorithm>
#include <set>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include "Descriptor.h"
#include "SettingsKeys.h"

namespace velarix::keeper
{

namespace
{

constexpr std::string_view kBlanks = " \t\r";
constexpr off_t kLargestFile = 1 << 20;

std::string_view trim(std::string_view text)
{
	const std::size_t begin = text.find_first_not_of(kBlanks);
	return begin == std::string_view::npos ? std::string_view()
	                                       : text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

/// Without the comment behind a blank, outside quotes.
std::string_view withoutComment(std::string_view text)
{
	char quote = 0;
	for (std::size_t i = 0; i < text.size(); ++i)
	{
		const char sign = text[i];
		if (sign == '\\' && quote != '\'')
		{
			++i;
		}
		else if (quote != 0)
		{
			quote = sign == quote ? '\0' : quote;
		}
		else if (sign == '"' || sign == '\'')
		{
			quote = sign;
		}
		else if (sign == ';' && (i == 0 || text[i - 1] == ' ' || text[i - 1] == '\t'))
		{
			return text.substr(0, i);
		}
	}
	return text;
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
		finish();
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
			parseSection(trim(withoutComment(line)));
		}
		else
		{
			parseKey(line);
		}
	}

	void parseSection(std::string_view line)
	{
		m_section = Section::unknown;
		m_inSection = true;
		m_seen.clear();
		const bool closed = line.ends_with(']');
		const std::string_view inner = closed ? trim(line.substr(1, line.size() - 2)) : std::string_view();
		const std::size_t blank = inner.find_first_of(" \t");
		if (inner == "address")
		{
			startAddress();
		}
		else if (inner.substr(0, blank) == "service" && blank != std::string_view::npos)
		{
			startService(std::string(trim(inner.substr(blank))));
		}
		else
		{
			add(m_line, "no such section: " + std::string(line), "there are [address] and [service NAME]");
		}
	}

	void startAddress()
	{
		AddressSettings& address = m_parsed.settings.address;
		if (address.line != 0)
		{
			add(m_line, "a second [address]", "keep one; the first is in line " + std::to_string(address.line));
			return;
		}
		address.line = m_line;
		m_section = Section::address;
	}

	void startService(const std::string& name)
	{
		constexpr std::string_view kAllowed = "abcdefghijklmnopqrstuvwxyz0123456789-_";
		const std::string program = std::string(kPrefix) + name;
		if (name.find_first_not_of(kAllowed) != std::string::npos || program.size() > kLongestName)
		{
			add(m_line, "\"" + name + "\" cannot be a service's name",
			    "take at most 12 of the signs a to z, 0 to 9, - and _: the agent sees 15 characters of " + program);
			return;
		}
		if (const ServiceSettings* other = m_parsed.settings.find(program); other != nullptr)
		{
			add(m_line, "a second [service " + name + "]",
			    "keep one; the first is in line " + std::to_string(other->line));
			return;
		}
		m_parsed.settings.services.push_back({});
		m_parsed.settings.services.back().program = program;
		m_parsed.settings.services.back().line = m_line;
		m_section = Section::service;
	}

	void parseKey(std::string_view line)
	{
		const std::size_t equals = line.find('=');
		if (equals == std::string_view::npos)
		{
			add(m_line, "neither a section nor key = value", "write key = value, or make it a comment with ;");
			return;
		}
		if (m_section == Section::unknown)
		{
			// The keys of a section that was refused are no findings of their own.
			if (!m_inSection)
			{
				add(m_line, "a key before the first section", "begin with [address]");
			}
			return;
		}
		const std::string name(trim(line.substr(0, equals)));
		const std::string_view value = trim(withoutComment(trim(line.substr(equals + 1))));
		const char* section = m_section == Section::address ? "address" : "service";
		const auto key = std::ranges::find_if(
		    keys(), [&](const Key& known)
		    { return std::string_view(known.info.section) == section && name == known.info.name; });
		if (key == keys().end())
		{
			add(m_line, "no such key in [" + std::string(section) + "]: " + name, "see keeper(8) for the keys");
			return;
		}
		if (const auto [seen, isNew] = m_seen.insert(name); !isNew)
		{
			add(m_line, "a second " + name + " in this section", "keep one");
			return;
		}
		if (m_section == Section::address)
		{
			m_addressKeys.insert(name);
		}
		set(*key, value);
	}

	void set(const Key& key, std::string_view value)
	{
		std::string error;
		if (key.address != nullptr)
		{
			error = key.address(m_parsed.settings.address, value);
		}
		else
		{
			ServiceSettings& service = m_parsed.settings.services.back();
			error = key.service(service, value);
			const std::string_view name = key.info.name;
			service.commandLine = name == "command" || name == "unit" ? m_line : service.commandLine;
			service.userLine = name == "user" || name == "group" ? m_line : service.userLine;
		}
		if (!error.empty())
		{
			add(m_line, std::string(key.info.name) + " = " + std::string(value) + " " + error,
			    std::string("it is ") + key.info.meaning + ": " + key.info.range);
		}
	}

	void finish()
	{
		finishAddress();
		std::vector<ServiceSettings>& services = m_parsed.settings.services;
		for (ServiceSettings& service : services)
		{
			finishService(service);
			for (const ServiceSettings& other : services)
			{
				if (&other != &service && other.program.find(service.program) != std::string::npos)
				{
					add(other.line, service.program + " is contained in " + other.program,
					    "rename one: the agent would count and end both for one");
				}
			}
			if (std::string(kAddressProgram).find(service.program) != std::string::npos)
			{
				add(service.line, service.program + " is contained in ha-address", "take another name");
			}
		}
	}

	void finishAddress()
	{
		const AddressSettings& address = m_parsed.settings.address;
		if (address.line == 0)
		{
			add(0, "there is no [address]", "write one, with address, interface and on_conflict");
			return;
		}
		require(m_addressKeys, "address", address.line);
		require(m_addressKeys, "interface", address.line);
		require(m_addressKeys, "on_conflict", address.line);
	}

	/// A key that was refused was there, and has its finding already.
	void require(const std::set<std::string>& seen, const char* key, int line)
	{
		if (!seen.contains(key))
		{
			add(line, std::string("there is no ") + key + " in [address]", std::string("write ") + key + " = ...");
		}
	}

	void finishService(ServiceSettings& service)
	{
		if (service.commandLine == 0)
		{
			add(service.line, "[service] without a command",
			    "write command = PROGRAM ARGUMENTS, or unit = NAME.service");
		}
		else if (!service.command.empty() && !service.unit.empty())
		{
			add(service.commandLine, "both a command and a unit", "keep one");
		}
	}

	enum class Section : std::uint8_t
	{
		unknown,
		address,
		service
	};

	ParsedSettings m_parsed;
	Section m_section = Section::unknown;
	std::set<std::string> m_seen;
	std::set<std::string> m_addressKeys;
	bool m_inSection = false;
	int m_line = 0;
};

} // namespace

const ServiceSettings* Settings::find(std::string_view program) const
{
	const auto found = std::ranges::find(services, program, &ServiceSettings::program);
	return found == services.end() ? nullptr : &*found;
}

const Finding* ParsedSettings::error() const
{
	const auto found = std::ranges::find_if(findings, [](const Finding& finding) { return finding.status != 0; });
	return found == findings.end() ? nullptr : &*found;
}

ParsedSettings parseSettings(std::string_view text)
{
	return Parser().parse(text);
}

ParsedSettings readSettings(const char* path)
{
	// Not blocked by a fifo that somebody put there.
	const Descriptor file(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
	struct stat status = {};
	if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size > kLargestFile)
	{
		return {{}, {{0, EX_CONFIG, std::string(path) + " cannot be read", "make it with \"velarixctl init\""}}};
	}
	std::string text(static_cast<std::size_t>(status.st_size), '\0');
	const ssize_t length = ::read(file.get(), text.data(), text.size());
	text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
	return parseSettings(text);
}

} // namespace velarix::keeper
