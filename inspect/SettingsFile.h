/// The settings file as the daemon sees it, with the line each value stands on.
///
/// Values come from the library's own INI parser, which the daemon uses too, so
/// that no rule of it (the last of two lines wins, keys of any letter case,
/// `${SECTION.KEY}` expanded, hexadecimal integers) is reported twice. The lines
/// come from a reader of our own that splits the text in the same way.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Poco::Util
{
class IniFileConfiguration;
}

namespace velarix::inspect
{

/// One line that the parser takes as a key.
struct SettingLine
{
	/// "SECTION.KEY" as written; the bare key before the first section.
	std::string key;
	/// Trimmed, not expanded.
	std::string value;
	/// From 1.
	int line = 0;
	/// The line has a "="; without one the parser makes a key with an empty value.
	bool assigned = false;
};

struct SectionLine
{
	std::string name;
	int line = 0;
};

/// A text split as the library's parser splits it.
struct SettingLines
{
	/// Every key line, in the order of the file, duplicates included.
	std::vector<SettingLine> keys;
	std::vector<SectionLine> sections;
};

SettingLines splitSettings(std::string_view text);

class SettingsFile
{
public:
	/// Reads a file.
	/// @throws Failure noInput when it is missing, a directory or unreadable,
	///         noPermission when only the rights are lacking
	static SettingsFile load(const std::filesystem::path& path);

	/// Takes a text as if it stood in the file `path`, which is not touched.
	static SettingsFile parse(const std::filesystem::path& path, const std::string& text);

	const std::filesystem::path& path() const { return m_path; }

	/// Every key line, duplicates included.
	const std::vector<SettingLine>& lines() const { return m_lines.keys; }

	/// @return the line of the section's first header; 0 when there is none
	int lineOfSection(std::string_view name) const;

	/// @return whether the key's section has neither a header nor a key
	bool lacksSection(std::string_view key) const;

	/// @return the line whose value counts (the last one), null for a missing key
	const SettingLine* find(std::string_view key) const;

	/// @return the number of that line; 0 for a missing key
	int lineOf(std::string_view key) const;

	/// @return the value as the daemon gets it, expanded; nothing for a missing
	///         key or one whose expansion never ends
	std::optional<std::string> text(const std::string& key) const;

	/// @return the value as the daemon gets it; nothing for a missing key or a
	///         value that the library does not take for an integer
	std::optional<int> integer(const std::string& key) const;

	/// As the two above, with the library's own words for what is wrong.
	/// @throws Poco::Exception
	std::string textOrThrow(const std::string& key) const;
	int integerOrThrow(const std::string& key) const;

	/// @return the configured programs that can be read, PROCESS_PATH1 to
	///         PROCESS_PATH<PROCESS_NUM>, as written
	std::vector<std::string> programs() const;

private:
	std::filesystem::path m_path;
	SettingLines m_lines;
	std::shared_ptr<Poco::Util::IniFileConfiguration> m_values;
};

/// @return what the daemon looks for in the kernel's process names: the part of
///         the whole configured text behind its last "/", arguments included
std::string programName(const std::string& configured);

} // namespace velarix::inspect
