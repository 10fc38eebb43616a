#include "ctl/pair/PairReport.h"

#include "ctl/verbs/Verbs.h"
#include "inspect/InputFile.h"
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
	return isAt(report, place, true) ? yes : isAt(report, place, false) ? no : "not known";
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
	return "VELARIX " + pluginWordOf(verdictOf(problems)) + " - " + printable(text) + "\n";
}

using std::chrono::milliseconds;

/// @return null for what is no report
Json reportIn(const std::string& text)
{
	Json report = Json::parse(text, nullptr, false);
	return report.is_object() && report.contains("schema_version") && report.contains("pair") ? report : Json();
}

Json reportOf(const std::string& file)
{
	Json report = reportIn(readInputFile(file));
	if (report.is_null())
	{
		throw Failure(ExitCode::noInput, file + " holds no output of velarixctl status --for-pair");
	}
	return report;
}

void askPartner(const PairOptions& options, const Context& context, PairReports& reports)
{
	const Partner partner(options.ssh, milliseconds(static_cast<long>(options.timeOut * 1000)), context.paths);
	const auto begin = context.now();
	const host::ProgramEnd end = partner.run({"status", "--for-pair"});
	reports.asked = std::chrono::duration_cast<milliseconds>(context.now() - begin);
	// A node without an agent tells so with its status, and is a good answer.
	reports.partner = end.inTime ? reportIn(end.output) : Json();
	reports.whyNot = "ssh " + partner.target() + " " + end.reason();
}

PairReports look(const PairOptions& options, const Context& context)
{
	PairReports reports;
	reports.time = context.now();
	if (!options.partnerFile.empty())
	{
		reports.partner = reportOf(options.partnerFile);
	}
	else
	{
		askPartner(options, context, reports);
	}
	if (!options.ownFile.empty())
	{
		reports.own = reportOf(options.ownFile);
		return reports;
	}
	const NodeState state = Observer(context.paths).look(context.now());
	reports.own = statusJson(state, judge(state));
	reports.own["pair"] = pairJson(state, context.paths);
	return reports;
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
		text += "\n" + pluginWordOf(problem.severity) + "  " + printable(problem.node) + ": " +
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
		               {"severity", wordOf(problem.severity)},
		               {"node", problem.node},
		               {"text", problem.text},
		               {"cure", problem.cure}});
	}
	return {{"schema_version", kSchemaVersion},
	        {"time", isoText(reports.time)},
	        {"verdict", wordOf(verdictOf(problems))},
	        {"problems", std::move(all)},
	        {"nodes", {reports.own, reports.partner}}};
}

ExitCode runPair(const PairOptions& options, const Context& context)
{
	const PairReports reports = look(options, context);
	const std::vector<PairProblem> problems = judgePair(reports);
	if (!options.page.empty())
	{
		replaceFile(options.page, pairPage(reports, problems));
	}
	context.out << (options.json ? jsonText(pairReportJson(reports, problems), 2) + "\n" : pairText(reports, problems));
	return static_cast<ExitCode>(verdictOf(problems));
}

} // namespace velarix::ctl
