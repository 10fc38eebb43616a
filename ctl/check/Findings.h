/// Collects what the checks find in one settings file and around it.
#pragma once

#include <string>
#include <string_view>

#include "ctl/check/Finding.h"
#include "inspect/SettingsFile.h"

namespace velarix::ctl
{

using namespace inspect;

/// The texts of a finding; see Finding.
struct Words
{
	std::string id;
	std::string what;
	std::string effect;
	std::string remedy;
};

class Findings
{
public:
	Findings(const SettingsFile& settings, CheckReport& report) : file(settings), m_report(report) {}

	/// The settings file that is being checked.
	const SettingsFile& file;

	/// At a key's line; a key that is missing gives its section's line.
	void error(std::string_view key, Words words) { add(Severity::error, file.path(), lineFor(key), std::move(words)); }
	void warning(std::string_view key, Words words)
	{
		add(Severity::warning, file.path(), lineFor(key), std::move(words));
	}

	void add(Severity severity, const std::filesystem::path& where, int line, Words words);

	void notChecked(const std::string& what, const std::string& why) { m_report.notChecked.push_back({what, why}); }

	/// @return whether that has been found at the key's line
	bool has(std::string_view id, std::string_view key) const;

	/// @return whether that has been found in any file
	bool hasAnywhere(std::string_view id) const;

	/// @return the key's line; that of its section when the key is missing, 0
	///         when that is missing too
	int lineFor(std::string_view key) const;

private:
	CheckReport& m_report;
};

} // namespace velarix::ctl
