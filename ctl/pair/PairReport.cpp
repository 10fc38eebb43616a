#include "ctl/pair/PairReport.h"

#include <algorithm>
#include <array>
#include <utility>

#include <Poco/String.h>

#include "inspect/Printable.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

constexpr int kSchemaVersion = 1;
constexpr std::size_t kGap = 2;

std::string orUnknown(const std::string& text)
{
	return text.empty() ? "not known" : text;
}

std::string roleOf(const Json& report)
{
	const std::string role = textAt(report, "/role/value");
	return role == "slave" ? "standby" : orUnknown(role);
}

std::string agentOf(const Json& report)
{
	const std::string maintenance = textAt(report, "/maintenance/until");
	return maintenance.empty() ? orUnknown(textAt(report, "/agent/state"))
	                           : "maintenance until " + shortTime(maintenance);
}

std::string yesNo(const Json& report, const char* place, const char* yes, const char* no)
{
	return isTrueAt(report, place) ? yes : isFalseAt(report, place) ? no : "not known";
}

std::string addressOf(const Json& report)
{
	const std::string interface = textAt(report, "/virtual_ip/value/interface");
	return yesNo(report, "/virtual_ip/value/held", ("here, on " + interface).c_str(), "-");
}

std::string programsOf(const Json& report)
{
	std::string text;
	for (const Json& service : listAt(report, "/keeper/services"))
	{
		const std::string name = textAt(service, "/name");
		text += (text.empty() ? "" : ", ") + name + " " + textAt(service, "/state");
	}
	return text.empty() ? yesNo(report, "/programs/value/run", "run", "-") : text;
}

std::string interfacesOf(const Json& report)
{
	std::string text;
	if (report.contains("interfaces") && report["interfaces"].is_object())
	{
		for (const auto& [name, figure] : report["interfaces"].items())
		{
			text += (text.empty() ? "" : ", ") + name + " " + yesNo(figure, "/value", "up", "no carrier");
		}
	}
	return orUnknown(text);
}

std::string changeOf(const Json& report)
{
	const std::string time = textAt(report, "/last_change/time");
	return time.empty() ? "-" : shortTime(time) + ", " + textAt(report, "/last_change/text");
}

struct Row
{
	const char* label;
	std::string (*of)(const Json&);
};

constexpr std::array kRows{
    Row{"role", roleOf},
    Row{"agent", agentOf},
    Row{"virtual address", addressOf},
    Row{"programs", programsOf},
    Row{"interfaces", interfacesOf},
    Row{"gateway",
        [](const Json& report) { return yesNo(report, "/gateway_answers/value", "answers", "does not answer"); }},
    Row{"failover",
        [](const Json& report) { return yesNo(report, "/fail_over/works", "would work", "would not work"); }},
    Row{"last change", changeOf},
    Row{"version", [](const Json& report) { return orUnknown(textAt(report, "/pair/version")); }},
};

std::string padded(std::string text, std::size_t width)
{
	text.resize(std::max(text.size(), width), ' ');
	return text;
}

/// The first line of a plug-in: a bar would begin its figures.
std::string firstLine(const PairReports& reports, const std::vector<PairProblem>& problems)
{
	std::string text;
	for (const PairProblem& problem : problems)
	{
		const bool first = text.empty();
		text += (first ? "" : "; ") + (problem.node == "pair" ? "" : problem.node + ": ") + problem.text;
	}
	if (text.empty())
	{
		text = nameOf(reports.own) + " is " + roleOf(reports.own) + ", " + nameOf(reports.partner) + " is " +
		       roleOf(reports.partner);
	}
	std::ranges::replace(text, '|', '/');
	return std::string("VELARIX ") + wordOf(verdictOf(problems)) + " - " + printable(text) + "\n";
}

} // namespace

std::string shortTime(const std::string& iso)
{
	std::string text = iso.substr(0, sizeof("2026-11-21T07:59:24") - 1);
	std::ranges::replace(text, 'T', ' ');
	return text.empty() ? text : text + " UTC";
}

std::vector<PairRow> rowsOf(const PairReports& reports)
{
	std::vector<PairRow> rows{
	    {"node", nameOf(reports.own), reports.partner.is_null() ? "partner" : nameOf(reports.partner)}};
	for (const Row& row : kRows)
	{
		rows.push_back({row.label, row.of(reports.own), row.of(reports.partner)});
	}
	return rows;
}

std::string pairText(const PairReports& reports, const std::vector<PairProblem>& problems)
{
	std::string text = firstLine(reports, problems) + "\n";
	const std::vector<PairRow> rows = rowsOf(reports);
	std::size_t own = 0;
	for (const PairRow& row : rows)
	{
		own = std::max(own, row.label == "last change" ? 0 : printable(row.own).size());
	}
	for (const PairRow& row : rows)
	{
		// Too long for a column: one line for each node.
		const bool wide = row.label == "last change";
		const std::string label = padded(row.label, sizeof("virtual address") - 1 + kGap);
		text += label +
		        (wide ? printable(row.own) + "\n" + std::string(label.size(), ' ')
		              : padded(printable(row.own), own + kGap)) +
		        printable(row.partner) + "\n";
	}
	for (const PairProblem& problem : problems)
	{
		text += "\n" + std::string(wordOf(problem.severity)) + "  " + printable(problem.node) + ": " +
		        printable(problem.text) + "  [" + printable(problem.id) + "]\n";
		text += problem.cure.empty() ? "" : "  fix: " + printable(problem.cure) + "\n";
	}
	return text;
}

Json pairReportJson(const PairReports& reports, const std::vector<PairProblem>& problems)
{
	Json all = Json::array();
	for (const PairProblem& problem : problems)
	{
		all.push_back({{"id", problem.id},
		               {"severity", Poco::toLower(std::string(wordOf(problem.severity)))},
		               {"node", problem.node},
		               {"text", problem.text},
		               {"cure", problem.cure}});
	}
	return {{"schema_version", kSchemaVersion},
	        {"time", isoText(reports.time)},
	        {"verdict", Poco::toLower(std::string(wordOf(verdictOf(problems))))},
	        {"problems", std::move(all)},
	        {"nodes", {reports.own, reports.partner}}};
}

} // namespace velarix::ctl
