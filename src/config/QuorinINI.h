/// Reads a small INI file and rewrites single values in it in place.
///
/// Used for the run-info record alone. Objects are short-lived: made on the
/// stack, loadFile, one getter or changeINI, and gone. Reading goes through the
/// library's parser, writing is a line-oriented rewrite of our own.
#pragma once

#include <array>
#include <string>

#include <Poco/AutoPtr.h>
#include <Poco/Util/IniFileConfiguration.h>

class initialization
{
public:
	/// Remembers `path` (at most 99 characters) and parses the file. Ends the
	/// daemon, after an error line, when that cannot be done.
	/// @return true
	bool loadFile(const std::string& path);

	/// Getters on the file as loaded; keys are "SECTION.KEY".
	/// @throws Poco::NotFoundException for a missing key, Poco::SyntaxException
	///         for a value that cannot be converted
	std::string getString(const std::string& key);
	/// Not called by the daemon.
	int getInt(const std::string& key);
	bool getBool(const std::string& key);
	double getDouble(const std::string& key);
	unsigned getUInt(const std::string& key);

	/// Replaces the value of every line "KEY=..." or "KEY ..." of the section in
	/// the file given to loadFile; the parsed copy is not updated. A section or
	/// key that is not there is not added.
	///
	/// @param key "SECTION.KEY", at most 99 characters; a longer one is refused
	///            and nothing is touched
	/// @return true when the file was rewritten (also without a match); false
	///         when the key is refused, or, after a line on standard output,
	///         when the file cannot be opened. In that last case the editor
	///         stays locked: other threads that come later wait for ever.
	bool changeINI(const std::string& key, const std::string& value);

private:
	static constexpr std::size_t kPathSize = 100;

	std::array<char, kPathSize> m_filePath{};
	Poco::AutoPtr<Poco::Util::IniFileConfiguration> m_pFile;
};
