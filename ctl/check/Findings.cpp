#include "ctl/check/Findings.h"

#include <algorithm>

namespace velarix::ctl
{

std::size_t CheckReport::count(Severity severity) const
{
	return static_cast<std::size_t>(std::ranges::count(findings, severity, &Finding::severity));
}

void Findings::add(Severity severity, const std::filesystem::path& where, int line, Words words)
{
	m_report.findings.push_back({std::move(words.id), severity, where, line, std::move(words.what),
	                             std::move(words.effect), std::move(words.remedy)});
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
