#include "inspect/SettingsFile.h"

#include <algorithm>
#include <sstream>

#include <Poco/Ascii.h>
#include <Poco/Exception.h>
#include <Poco/String.h>
#include <Poco/Util/IniFileConfiguration.h>

#include "inspect/InputFile.h"
#include "inspect/SettingsKeys.h"

namespace velarix::inspect
{

namespace
{

/// Without the white space at its beginning, as the library's parser sees it.
std::string_view withoutFront(std::string_view text)
{
	const auto* const begin = std::ranges::find_if_not(text, [](unsigned char c) { return Poco::Ascii::isSpace(c); });
	return {begin, text.end()};
}

std::string trimmed(std::string_view text)
{
	return Poco::trim(std::string(text));
}

/// @return whether the name is PROCESS_PATH with a number from 1 behind it
bool isProgramPath(std::string_view name)
{
	const std::string_view stem(key::kProcessPath);
	if (name.size() <= stem.size() || !sameKey(name.substr(0, stem.size()), stem))
	{
		return false;
	}
	const std::string_view digits = name.substr(stem.size());
	return digits.front() != '0' && digits.find_first_not_of("0123456789") == std::string_view::npos;
}

template <typename Read> auto ifAny(const Read& read) -> std::optional<decltype(read())>
{
	try
	{
		return read();
	}
	catch (const Poco::Exception&)
	{
		return std::nullopt;
	}
}

} // namespace

bool sameKey(std::string_view left, std::string_view right)
{
	return Poco::icompare(std::string(left), std::string(right)) == 0;
}

const KeyInfo* findKey(std::string_view name)
{
	const std::string_view wanted = isProgramPath(name) ? key::kProcessPath : name;
	const auto found =
	    std::ranges::find_if(settingsKeys(), [&](const KeyInfo& info) { return sameKey(info.name, wanted); });
	if (found == settingsKeys().end() || (found->name == key::kProcessPath && !isProgramPath(name)))
	{
		return nullptr;
	}
	return &*found;
}

std::string emptyEffect(const KeyInfo& info)
{
	constexpr std::string_view kFront("empty: ");
	return std::string(info.zero.starts_with(kFront) ? info.zero.substr(kFront.size()) : info.zero);
}

std::string programKey(int number)
{
	return key::kProcessPath + std::to_string(number);
}

SettingLines splitSettings(std::string_view text)
{
	SettingLines result;
	std::string section;
	for (int number = 1; !text.empty(); ++number)
	{
		const std::size_t end = std::min(text.find('\n'), text.size());
		std::string_view line = text.substr(0, end);
		text.remove_prefix(std::min(end + 1, text.size()));
		// What follows the "]" of a section is looked at like a line of its own.
		while (!(line = withoutFront(line)).empty() && line.front() == '[')
		{
			const std::size_t close = std::min(line.find(']'), line.size());
			section = trimmed(line.substr(1, close - 1));
			result.sections.push_back({section, number});
			line.remove_prefix(std::min(close + 1, line.size()));
		}
		if (!line.empty() && line.front() != ';')
		{
			const std::size_t equals = line.find('=');
			const bool assigned = equals != std::string_view::npos;
			result.keys.push_back({(section.empty() ? "" : section + ".") + trimmed(line.substr(0, equals)),
			                       assigned ? trimmed(line.substr(equals + 1)) : "", number, assigned});
		}
	}
	return result;
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
	file.m_values.reset(new Poco::Util::IniFileConfiguration(stream), [](auto* values) { values->release(); });
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
	return ifAny([&] { return textOrThrow(key); });
}

std::optional<int> SettingsFile::integer(const std::string& key) const
{
	return ifAny([&] { return integerOrThrow(key); });
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
