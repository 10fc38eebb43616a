#include "ctl/pair/PairReport.h"

#include <nlohmann/json.hpp>

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

std::string padded(std::string text, std::size_t width)
{
	text.resize(std::max(text.size(), width), ' ');
	return text;
}

std::string firstLine(const PairReports& reports, const PairProblems& problems)
{
	std::vector<std::string> texts;
	for (const Json& problem : problems)
	{
		const std::string node = textAt(problem, "/node");
		texts.push_back((node == "pair" ? "" : node + ": ") + textAt(problem, "/text"));
	}
	if (texts.empty())
	{
		texts.push_back(nameOf(reports.own) + " is " + roleOf(reports.own) + ", " + nameOf(reports.partner) + " is " +
		                roleOf(reports.partner));
	}
	return pluginLine(verdictOf(problems), texts) + "\n";
}

/// The first line is one of a monitoring plug-in; then a table of both and what to do.
std::string pairText(const PairReports& reports, const PairProblems& problems)
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
	for (const Json& problem : problems)
	{
		const auto field = [&](const char* place) { return printable(textAt(problem, place)); };
		text += "\n" + pluginWordOf(severityOf(problem)) + "  " + field("/node") + ": " + field("/text") + "  [" +
		        field("/id") + "]\n";
		text += field("/cure").empty() ? "" : "  fix: " + field("/cure") + "\n";
	}
	return text;
}

/// The reports are as they came, this node's first.
Json pairReportJson(const PairReports& reports, const PairProblems& problems)
{
	return {{"schema_version", kSchemaVersion},
	        {"time", isoText(reports.time)},
	        {"verdict", wordOf(verdictOf(problems))},
	        {"problems", problems},
	        {"nodes", {reports.own, reports.partner}}};
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
	const auto add = [&](const char* label, const auto& of) {
		rows.push_back({label, of(reports.own), of(reports.partner)});
	};
	add("role", roleOf);
	add("agent", agentOf);
	add("virtual address", addressOf);
	add("programs", programsOf);
	add("interfaces", interfacesOf);
	add("gateway",
	    [](const Json& report) { return yesNo(report, "/gateway_answers/value", "answers", "does not answer"); });
	add("failover",
	    [](const Json& report) { return yesNo(report, "/fail_over/works", "would work", "would not work"); });
	add("last change", changeOf);
	add("version", [](const Json& report) { return orUnknown(textAt(report, "/pair/version")); });
	return rows;
}

ExitCode runPair(const PairOptions& options, const Context& context)
{
	const PairReports reports = look(options, context);
	const PairProblems problems = judgePair(reports);
	if (!options.page.empty())
	{
		replaceFile(options.page, pairPage(reports, problems));
	}
	context.out << (options.json ? jsonText(pairReportJson(reports, problems), 2) + "\n" : pairText(reports, problems));
	return static_cast<ExitCode>(verdictOf(problems));
}

} // namespace velarix::ctl
