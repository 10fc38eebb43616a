#include "ctl/render/CheckOutput.h"

#include <string>

#include <nlohmann/json.hpp>

#include "ctl/render/StateViews.h"
#include "inspect/Printable.h"

namespace velarix::ctl
{

namespace
{

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
