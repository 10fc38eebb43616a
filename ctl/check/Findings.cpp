#include "ctl/check/Findings.h"

#include <sstream>

#include <Poco/String.h>
#include <nlohmann/json.hpp>

#include "FindingTexts.h"
#include "ctl/render/StateViews.h"
#include "inspect/ExitCode.h"
#include "inspect/InputFile.h"
#include "inspect/Printable.h"

namespace velarix::ctl
{

namespace
{

/// An entry of findings.txt.
struct Entry
{
	Severity severity = Severity::error;
	std::string what;
	std::string effect;
	std::string remedy;
};

const std::map<std::string, Entry>& entries()
{
	static const auto kEntries = []
	{
		std::map<std::string, Entry> result;
		std::istringstream lines(kFindingTexts);
		for (std::string line; std::getline(lines, line);)
		{
			Entry entry;
			std::vector<std::string> names;
			for (; line.starts_with('['); std::getline(lines, line))
			{
				names.push_back(line.substr(1, line.find(']') - 1));
				entry.severity = line.ends_with(" error") ? Severity::error : Severity::warning;
			}
			if (!names.empty())
			{
				entry.what = line;
				std::getline(lines, entry.effect);
				std::getline(lines, entry.remedy);
			}
			for (const std::string& name : names)
			{
				result[name] = entry;
			}
		}
		return result;
	}();
	return kEntries;
}

/// @return the text with each "{N}" replaced by a value
std::string filled(const std::string& text, const std::vector<std::string>& values)
{
	std::string result;
	for (std::size_t i = 0; i < text.size(); ++i)
	{
		const bool braced = text[i] == '{' && i + 2 < text.size() && text[i + 2] == '}';
		const std::size_t index = braced ? static_cast<std::size_t>(text[i + 1] - '0') : values.size();
		if (index < values.size())
		{
			result += values[index];
			i += 2;
		}
		else
		{
			result += text[i];
		}
	}
	return result;
}

std::string word(Severity severity)
{
	return severity == Severity::error ? "error" : "warning";
}

std::string coloured(Severity severity, bool colour)
{
	const std::string text = word(severity);
	const std::string begin = severity == Severity::error ? "\033[1;31m" : "\033[1;33m";
	return colour ? begin + text + "\033[0m" : text;
}

std::string counted(std::size_t number, const std::string& what)
{
	return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

using Json = nlohmann::ordered_json;

Json json(const std::vector<Finding>& findings)
{
	Json result = Json::array();
	for (const Finding& finding : findings)
	{
		result.push_back({{"id", finding.id},
		                  {"severity", word(finding.severity)},
		                  {"file", finding.file.string()},
		                  {"line", finding.line == 0 ? Json(nullptr) : Json(finding.line)},
		                  {"what", finding.what},
		                  {"effect", finding.effect},
		                  {"remedy", finding.remedy}});
	}
	return result;
}

/// What is quoted from the file may hold anything, and a terminal obeys it.
void print(std::ostream& out, const Finding& finding, bool colour)
{
	out << printable(finding.file.string());
	if (finding.line != 0)
	{
		out << ':' << finding.line;
	}
	out << ": " << coloured(finding.severity, colour) << ": " << printable(finding.what) << " [" << finding.id << "]\n"
	    << "    if left: " << printable(finding.effect) << '\n'
	    << "    fix: " << printable(finding.remedy) << '\n';
}

} // namespace

bool isFinding(std::string_view id)
{
	return std::ranges::any_of(entries(),
	                           [&](const auto& entry) { return entry.first.substr(0, entry.first.find('/')) == id; });
}

std::size_t CheckReport::count(Severity severity) const
{
	return static_cast<std::size_t>(std::ranges::count(findings, severity, &Finding::severity));
}

void CheckReport::add(const std::string& entry, std::optional<Severity> severity, const Place& place,
                      const std::vector<std::string>& values)
{
	const Entry& texts = entries().at(entry);
	findings.push_back({entry.substr(0, entry.find('/')), severity.value_or(texts.severity), place.file, place.line,
	                    filled(texts.what, values), filled(texts.effect, values), filled(texts.remedy, values)});
}

Findings::Findings(const SettingsFile& settings, CheckReport& report) : file(settings), m_report(report)
{
	for (const SettingLine& line : file.lines())
	{
		m_lines[Poco::toUpper(line.key)] = &line;
	}
}

std::optional<std::string> Findings::read(const std::filesystem::path& path)
{
	try
	{
		return readInputFile(path);
	}
	catch (const Failure& failure)
	{
		notChecked(path.string(), failure.what());
		return std::nullopt;
	}
}

bool Findings::has(std::string_view id, std::string_view key) const
{
	return std::ranges::any_of(m_report.findings,
	                           [&](const Finding& finding)
	                           {
		                           const bool isThere =
		                               key.empty() || (finding.file == file.path() && finding.line == lineFor(key));
		                           return finding.id == id && isThere;
	                           });
}

const SettingLine* Findings::find(std::string_view key) const
{
	const auto found = m_lines.find(Poco::toUpper(std::string(key)));
	return found == m_lines.end() ? nullptr : found->second;
}

int Findings::lineFor(std::string_view key) const
{
	const SettingLine* line = find(key);
	return line != nullptr ? line->line : file.lineOfSection(key.substr(0, key.find('.')));
}

void printReport(std::ostream& out, const CheckReport& report, bool colour)
{
	for (const Finding& finding : report.findings)
	{
		print(out, finding, colour);
	}
	for (const Finding& finding : report.acknowledged)
	{
		out << "acknowledged: " << printable(finding.what) << " [" << finding.id << "]\n";
	}
	for (const NotChecked& gap : report.notChecked)
	{
		out << "not checked: " << printable(gap.what) << " (" << printable(gap.why) << ")\n";
	}
	out << counted(report.count(Severity::error), "error") << ", "
	    << counted(report.count(Severity::warning), "warning") << '\n';
}

void printReportJson(std::ostream& out, const CheckReport& report)
{
	Json gaps = Json::array();
	for (const NotChecked& gap : report.notChecked)
	{
		gaps.push_back({{"what", gap.what}, {"why", gap.why}});
	}
	const Json whole{{"findings", json(report.findings)},
	                 {"acknowledged", json(report.acknowledged)},
	                 {"not_checked", gaps},
	                 {"errors", report.count(Severity::error)},
	                 {"warnings", report.count(Severity::warning)}};
	out << jsonText(whole, 2) << '\n';
}

} // namespace velarix::ctl
