#include "ctl/check/Findings.h"

#include <algorithm>
#include <map>
#include <sstream>

#include "FindingTexts.h"

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
			if (line.starts_with('['))
			{
				const std::size_t end = line.find(']');
				Entry& entry = result[line.substr(1, end - 1)];
				entry.severity = line.ends_with(" error") ? Severity::error : Severity::warning;
				std::getline(lines, entry.what);
				std::getline(lines, entry.effect);
				std::getline(lines, entry.remedy);
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

bool Findings::has(std::string_view id, std::string_view key) const
{
	return std::ranges::any_of(
	    m_report.findings, [&](const Finding& finding)
	    { return finding.id == id && finding.file == file.path() && finding.line == lineFor(key); });
}

bool Findings::hasAnywhere(std::string_view id) const
{
	return std::ranges::find(m_report.findings, id, &Finding::id) != m_report.findings.end();
}

int Findings::lineFor(std::string_view key) const
{
	const int line = file.lineOf(key);
	return line != 0 ? line : file.lineOfSection(key.substr(0, key.find('.')));
}

} // namespace velarix::ctl
