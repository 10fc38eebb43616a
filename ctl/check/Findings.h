/// What the checks report, and how it is collected.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "inspect/SettingsFile.h"

namespace velarix::ctl
{

using namespace inspect;

/// An error keeps the agent from running, or the pair from doing its work. With
/// a warning it works, but worse than it could in some situation.
enum class Severity
{
	error,
	warning
};

struct Finding
{
	/// Short and stable, for scripts: "port-out-of-range".
	std::string id;
	Severity severity = Severity::error;
	std::filesystem::path file;
	/// From 1; 0 when it concerns the file as a whole.
	int line = 0;
	/// What is wrong.
	std::string what;
	/// What happens if it is left.
	std::string effect;
	/// How to fix it.
	std::string remedy;
};

/// Something that could not be looked at, and why.
struct NotChecked
{
	std::string what;
	std::string why;
};

struct CheckReport
{
	/// Sorted by file and line.
	std::vector<Finding> findings;
	/// Those that the operator has accepted; they do not count.
	std::vector<Finding> acknowledged;
	std::vector<NotChecked> notChecked;

	std::size_t count(Severity severity) const;
};

/// The texts of a finding; see Finding.
struct Words
{
	std::string id;
	std::string what;
	std::string effect;
	std::string remedy;
};

/// Collects what is found in one settings file and around it.
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
