#include "inspect/SettingsFile.h"

#include <algorithm>
#include <sstream>

#include <Poco/Ascii.h>
#include <Poco/Exception.h>
#include <Poco/String.h>

#include "inspect/InputFile.h"
#include "inspect/SettingsKeys.h"

namespace velarix::inspect
{

namespace
{

/// Walks over the text as the library's parser does: white space before a line,
/// empty lines included, is skipped, and what follows the "]" of a section is
/// looked at like a line of its own.
class Splitter
{
public:
	explicit Splitter(std::string_view text) : m_text(text) {}

	SettingLines split()
	{
		while (skipSpace())
		{
			if (m_text[m_at] == ';')
			{
				takeUntil("\n");
			}
			else if (m_text[m_at] == '[')
			{
				takeSection();
			}
			else
			{
				takeKey();
			}
		}
		return std::move(m_result);
	}

private:
	/// @return false at the end of the text
	bool skipSpace()
	{
		while (m_at < m_text.size() && Poco::Ascii::isSpace(static_cast<unsigned char>(m_text[m_at])))
		{
			step();
		}
		return m_at < m_text.size();
	}

	void step()
	{
		if (m_text[m_at] == '\n')
		{
			++m_line;
		}
		++m_at;
	}

	/// @return what stands before the first of the stops, which is consumed
	std::string takeUntil(std::string_view stops)
	{
		const std::size_t end = std::min(m_text.find_first_of(stops, m_at), m_text.size());
		std::string taken(m_text.substr(m_at, end - m_at));
		m_at = end;
		m_stop = '\0';
		if (m_at < m_text.size())
		{
			m_stop = m_text[m_at];
			step();
		}
		return taken;
	}

	void takeSection()
	{
		const int line = m_line;
		++m_at;
		m_section = Poco::trim(takeUntil("]\n"));
		m_result.sections.push_back({m_section, line});
	}

	void takeKey()
	{
		SettingLine line;
		line.line = m_line;
		line.key = Poco::trim(takeUntil("=\n"));
		if (!m_section.empty())
		{
			line.key.insert(0, m_section + ".");
		}
		line.assigned = m_stop == '=';
		if (line.assigned)
		{
			line.value = Poco::trim(takeUntil("\n"));
		}
		m_result.keys.push_back(std::move(line));
	}

	std::string_view m_text;
	std::size_t m_at = 0;
	int m_line = 1;
	char m_stop = '\0';
	std::string m_section;
	SettingLines m_result;
};

} // namespace

SettingLines splitSettings(std::string_view text)
{
	return Splitter(text).split();
}

SettingsFile SettingsFile::load(const std::filesystem::path& path)
{
	return parse(path, readInputFile(path));
}

SettingsFile SettingsFile::parse(const std::filesystem::path& path, const std::string& text)
{
	SettingsFile file;
	file.m_path = path;
	file.m_lines = splitSettings(text);
	std::istringstream stream(text);
	file.m_values = new Poco::Util::IniFileConfiguration(stream);
	return file;
}

const SettingLine* SettingsFile::find(std::string_view key) const
{
	const SettingLine* found = nullptr;
	for (const SettingLine& line : m_lines.keys)
	{
		if (sameKey(line.key, key))
		{
			found = &line;
		}
	}
	return found;
}

int SettingsFile::lineOfSection(std::string_view name) const
{
	const auto found =
	    std::ranges::find_if(m_lines.sections, [&](const SectionLine& section) { return sameKey(section.name, name); });
	return found == m_lines.sections.end() ? 0 : found->line;
}

bool SettingsFile::lacksSection(std::string_view key) const
{
	const std::string_view section = key.substr(0, key.find('.'));
	return lineOfSection(section) == 0 &&
	       std::ranges::none_of(m_lines.keys, [&](const SettingLine& line)
	                            { return sameKey(line.key.substr(0, line.key.find('.')), section); });
}

int SettingsFile::lineOf(std::string_view key) const
{
	const SettingLine* line = find(key);
	return line == nullptr ? 0 : line->line;
}

std::string SettingsFile::textOrThrow(const std::string& key) const
{
	return m_values->getString(key);
}

int SettingsFile::integerOrThrow(const std::string& key) const
{
	return m_values->getInt(key);
}

std::optional<std::string> SettingsFile::text(const std::string& key) const
{
	try
	{
		return textOrThrow(key);
	}
	catch (const Poco::Exception&)
	{
		return std::nullopt;
	}
}

std::optional<int> SettingsFile::integer(const std::string& key) const
{
	try
	{
		return integerOrThrow(key);
	}
	catch (const Poco::Exception&)
	{
		return std::nullopt;
	}
}

std::vector<std::string> SettingsFile::programs() const
{
	std::vector<std::string> result;
	const int number = integer(key::kProcessNumber).value_or(0);
	for (int i = 1; i <= number; ++i)
	{
		const std::optional<std::string> program = text(programKey(i));
		if (!program)
		{
			break;
		}
		result.push_back(*program);
	}
	return result;
}

std::string programName(const std::string& configured)
{
	return configured.substr(configured.rfind('/') + 1);
}

} // namespace velarix::inspect
