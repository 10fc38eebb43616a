/// What the checks report, and how it is collected.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "inspect/Paths.h"
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

/// @return whether findings.txt has a finding of that name
bool isFinding(std::string_view id);

/// Something that could not be looked at, and why.
struct NotChecked
{
	std::string what;
	std::string why;
};

/// Where a finding belongs.
struct Place
{
	std::filesystem::path file;
	int line = 0;
	/// Whose line it is; empty for a place that is none of a key's.
	std::string key = {};
};

struct CheckReport
{
	/// Sorted by file and line.
	std::vector<Finding> findings;
	/// Those that the operator has accepted; they do not count.
	std::vector<Finding> acknowledged;
	std::vector<NotChecked> notChecked;

	std::size_t count(Severity severity) const;

	/// @param entry the heading in findings.txt, which has the texts
	/// @param severity where it is not the one given there
	/// @param values what the texts have in place of {0}, {1} ...
	void add(const std::string& entry, std::optional<Severity> severity, const Place& place,
	         const std::vector<std::string>& values);
};

/// Collects what is found in one settings file and around it.
class Findings
{
public:
	Findings(const SettingsFile& settings, CheckReport& report);

	/// The settings file that is being checked.
	const SettingsFile& file;

	/// Reports an entry of findings.txt.
	/// @param values in place of {1}, {2} ... in its texts; {0} is the key or the file
	/// @param severity where it is not the one given there
	template <typename... Values>
	void add(std::optional<Severity> severity, const std::string& entry, const Place& place, const Values&... values)
	{
		m_report.add(entry, severity, place, {place.key.empty() ? place.file.string() : place.key, text(values)...});
	}

	template <typename... Values> void add(const std::string& entry, const Place& place, const Values&... values)
	{
		add(std::nullopt, entry, place, values...);
	}

	/// At a key's line; a key that is missing gives its section's line.
	template <typename... Values> void add(const std::string& entry, std::string_view key, const Values&... values)
	{
		add(entry, at(key), values...);
	}

	/// The same when something is so.
	template <typename... Rest> void addWhen(bool is, const Rest&... rest)
	{
		if (is)
		{
			add(rest...);
		}
	}

	void notChecked(const std::string& what, const std::string& why) { m_report.notChecked.push_back({what, why}); }

	/// @return the file's text; nothing for one that cannot be read, which is noted
	std::optional<std::string> read(const std::filesystem::path& path);

	/// @return whether that has been found at the key's line; without a key, anywhere
	bool has(std::string_view id, std::string_view key = {}) const;

	/// @return the line whose value counts, null for a missing key; fast also where there are tens of thousands
	const SettingLine* find(std::string_view key) const;

	/// @return the key's line; that of its section when the key is missing, 0
	///         when that is missing too
	int lineFor(std::string_view key) const;
	Place at(std::string_view key) const { return {file.path(), lineFor(key), std::string(key)}; }

	/// @return the value of a key; empty when it has none
	std::string valueOf(std::string_view key) const { return file.text(std::string(key)).value_or(""); }

private:
	template <typename Value> static std::string text(const Value& value)
	{
		if constexpr (std::is_integral_v<Value>)
		{
			return std::to_string(value);
		}
		else
		{
			return std::string(value);
		}
	}

	CheckReport& m_report;
	/// By the keys in capitals.
	std::map<std::string, const SettingLine*> m_lines;
};

/// One paragraph for each finding: "FILE:LINE: error: WHAT [ID]", what happens,
/// how to fix it; then what was not checked, then the count.
void printReport(std::ostream& out, const CheckReport& report, bool colour);

/// {"findings": [...], "not_checked": [...], "errors": N, "warnings": N}; the
/// line is null where there is none.
void printReportJson(std::ostream& out, const CheckReport& report);

struct CheckRequest
{
	/// Empty: the installed one.
	std::string file = {};
	/// The partner's; empty: not compared.
	std::string partner = {};
	/// Look at nothing but the two files.
	bool filesOnly = false;
	/// Findings that do not count, by their names.
	std::vector<std::string> ignored = {};
	/// Warnings count as errors.
	bool strict = false;
	bool json = false;
};

/// @param paths where the node's other files are
/// @throws Failure noPermission when a file may not be read
CheckReport check(const CheckRequest& request, const Paths& paths);

/// What a node is to have: its settings, and its keeper.ini unless that is empty.
struct NodeTexts
{
	SettingsFile settings;
	std::filesystem::path keeperFile;
	std::string keeperText;
};

/// The checks of the texts alone, of both nodes.
CheckReport checkTexts(const NodeTexts& own, const NodeTexts& partner);

} // namespace velarix::ctl
