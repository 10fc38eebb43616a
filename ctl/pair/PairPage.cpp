// The page of both nodes: plain HTML, with the last day as a picture. All that comes from
// a node is escaped, since an attacker's bytes can be in a log.

#include <Poco/NumberFormatter.h>
#include <Poco/String.h>
#include <nlohmann/json.hpp>

#include "ctl/pair/PairReport.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

constexpr std::int64_t kDay = std::chrono::milliseconds(kReportedEvents).count();
constexpr std::size_t kMostListed = 30;
/// Of the picture, in its own units.
constexpr double kWidth = 1000;
constexpr double kNarrowest = 2;

constexpr std::string_view kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="refresh" content="60">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; img-src data:">
<link rel="icon" href="data:,">
<title>Velarix HA</title>
<style>
:root { color-scheme: light dark; --back: #f6f7f9; --panel: #fff; --text: #1b1f24; --faint: #5b6470; --line: #d8dde3;
  --ok: #1a7f37; --warning: #9a6700; --critical: #c0232c; --unknown: #6e4bb5; --idle: #c9d1d9; }
@media (prefers-color-scheme: dark) { :root { --back: #0e1116; --panel: #171b21; --text: #e6e9ed; --faint: #98a2ae;
  --line: #2c333b; --ok: #3fb950; --warning: #d29922; --critical: #ff6b64; --unknown: #b392f0; --idle: #3a424c; } }
body { margin: 0 auto; max-width: 60rem; padding: 1rem; background: var(--back); color: var(--text);
  font: 16px/1.45 system-ui, sans-serif; overflow-wrap: anywhere; }
h1 { font-size: 1.2rem; margin: 0; } h2 { font-size: 1rem; margin: 1.6rem 0 .5rem; }
.verdict, .panel { background: var(--panel); border: 1px solid var(--line); border-radius: .5rem; padding: .8rem 1rem; margin: .6rem 0; }
.verdict, .problem { border-left: .4rem solid var(--tone); } .verdict b, .problem b { color: var(--tone); }
.OK { --tone: var(--ok); } .WARNING { --tone: var(--warning); } .CRITICAL { --tone: var(--critical); } .UNKNOWN { --tone: var(--unknown); }
.faint, dt { color: var(--faint); } .faint { font-size: .9rem; }
.nodes { display: grid; gap: .6rem; grid-template-columns: repeat(auto-fit, minmax(17rem, 1fr)); } .nodes .panel { margin: 0; }
dl { display: grid; grid-template-columns: 8rem 1fr; gap: .2rem .6rem; margin: .4rem 0 0; } dd { margin: 0; }
svg { width: 100%; height: 1.5rem; display: block; margin-bottom: .4rem; } .ticks { display: flex; justify-content: space-between; }
table { border-collapse: collapse; width: 100%; }
td { text-align: left; vertical-align: top; padding: .25rem .6rem .25rem 0; border-top: 1px solid var(--line); }
td:first-child { white-space: nowrap; }
.master { fill: var(--ok); } .slave { fill: var(--idle); } .mark { fill: var(--critical); }
</style>
</head>
<body>
)";

std::string html(std::string_view bytes)
{
	std::string text = printable(bytes);
	for (const auto& [letter, entity] :
	     {std::pair("&", "&amp;"), std::pair("<", "&lt;"), std::pair(">", "&gt;"), std::pair("\"", "&quot;")})
	{
		Poco::replaceInPlace(text, letter, entity);
	}
	return text;
}

std::string element(const std::string& name, std::string_view text)
{
	return "<" + name + ">" + html(text) + "</" + name + ">";
}

/// @return where a moment of the day up to the end is on its bar
double at(std::int64_t time, std::int64_t end)
{
	const std::int64_t begin = end - kDay;
	return kWidth * static_cast<double>(std::clamp(time, begin, end) - begin) / static_cast<double>(kDay);
}

std::string box(const std::string& kind, double from, double to, const std::string& title)
{
	return "<rect class=\"" + kind + "\" x=\"" + Poco::NumberFormatter::format(from, 1) + "\" y=\"0\" width=\"" +
	       Poco::NumberFormatter::format(std::max(to - from, kNarrowest), 1) + "\" height=\"10\"><title>" +
	       html(title) + "</title></rect>\n";
}

/// @return the role before the first event; empty when it is not known
std::string firstRole(const Json& report)
{
	for (const Json& event : listAt(report, "/pair/events"))
	{
		const std::string word = textAt(event, "/event");
		if (word == "role-changed" || word == "agent-started")
		{
			return textAt(event, "/from");
		}
	}
	return lastRoleOf(report);
}

/// A bar for each role that it had, nothing while it had no agent, and marks for what
/// went wrong.
std::string lane(const Json& report, std::int64_t end)
{
	std::string bars;
	std::string marks;
	std::string role = firstRole(report);
	std::int64_t since = end - kDay;
	const auto change = [&](const std::string& from, const std::string& to, std::int64_t time)
	{
		if ((from == "master" || from == "slave") && time > since)
		{
			bars += box(from, at(since, end), at(time, end), from == "master" ? "master" : "standby");
		}
		since = std::max(since, time);
		role = to;
	};
	for (const Json& event : listAt(report, "/pair/events"))
	{
		const std::string word = textAt(event, "/event");
		const std::int64_t time = numberAt(event, "/time_ms");
		if (word == "role-changed")
		{
			change(textAt(event, "/from"), textAt(event, "/to"), time);
		}
		if (word == "agent-started" || word == "agent-ended")
		{
			change(word == "agent-ended" ? role : "", word == "agent-ended" ? "" : "slave", time);
		}
		if (textAt(event, "/severity") == "problem")
		{
			marks += box("mark", at(time, end), at(time, end), textAt(event, "/time") + " " + textAt(event, "/text"));
		}
	}
	const std::string agent = textAt(report, "/agent/state");
	change(agent == "running" || agent == "frozen" ? role : "", "", end);
	return bars + marks;
}

/// The last day up to the time of the page: a bar for each node. It is as wide as the screen,
/// so no text is in the picture.
std::string picture(const PairReports& reports)
{
	const std::int64_t end =
	    std::chrono::duration_cast<std::chrono::milliseconds>(reports.time.time_since_epoch()).count();
	std::string text;
	for (const Json* report : {&reports.own, &reports.partner})
	{
		text += "<div class=\"faint\">" + html(nameOf(*report)) +
		        "</div><svg viewBox=\"0 0 1000 10\" preserveAspectRatio=\"none\" role=\"img\">\n" + lane(*report, end) +
		        "</svg>\n";
	}
	return text + "<div class=\"ticks faint\"><span>-24 h</span><span>-18 h</span><span>-12 h</span>"
	              "<span>-6 h</span><span>now</span></div>\n";
}

std::string problemPart(const Json& problem)
{
	const std::string word = pluginWordOf(severityOf(problem));
	const std::string cure = textAt(problem, "/cure");
	return "<div class=\"panel problem " + word + "\"><b>" + word + "</b> " + html(textAt(problem, "/node")) + ": " +
	       html(textAt(problem, "/text")) + " <span class=\"faint\">" + html(textAt(problem, "/id")) + "</span>" +
	       (cure.empty() ? "" : "<br>Fix: " + html(cure)) + "</div>\n";
}

std::string problemsPart(const PairProblems& problems)
{
	std::string text;
	for (const Json& problem : problems)
	{
		text += problemPart(problem);
	}
	return text;
}

std::string nodesPart(const std::vector<PairRow>& rows)
{
	std::string text = "<div class=\"nodes\">\n";
	for (const auto column : {&PairRow::own, &PairRow::partner})
	{
		text += "<div class=\"panel\">" + element("h1", rows.front().*column) + "<dl>\n";
		for (auto row = rows.begin() + 1; row != rows.end(); ++row)
		{
			text += element("dt", row->label) + element("dd", (*row).*column) + "\n";
		}
		text += "</dl></div>\n";
	}
	return text + "</div>\n";
}

/// The last events of both, newest first.
std::string eventsPart(const PairReports& reports)
{
	std::vector<std::pair<const Json*, const Json*>> all;
	for (const Json* report : {&reports.own, &reports.partner})
	{
		for (const Json& event : listAt(*report, "/pair/events"))
		{
			all.emplace_back(report, &event);
		}
	}
	std::ranges::stable_sort(all, std::greater(), [](const auto& one) { return numberAt(*one.second, "/time_ms"); });
	all.resize(std::min(all.size(), kMostListed));
	if (all.empty())
	{
		return "<p class=\"faint\">Nothing has happened.</p>\n";
	}
	std::string text = "<table>\n";
	for (const auto& [report, event] : all)
	{
		text += "<tr><td>" + html(shortTime(textAt(*event, "/time"))) + "<br><span class=\"faint\">" +
		        html(nameOf(*report)) + "</span></td><td>" + html(textAt(*event, "/event")) +
		        "<br><span class=\"faint\">" + html(textAt(*event, "/text")) + "</span></td></tr>\n";
	}
	return text + "</table>\n";
}

} // namespace

std::string pairPage(const PairReports& reports, const PairProblems& problems)
{
	const std::string verdict = pluginWordOf(verdictOf(problems));
	const std::string address = textAt(reports.own, "/virtual_ip/address");
	return std::string(kHead) + "<div class=\"verdict " + verdict + "\"><h1>Velarix HA " + html(address) + ": <b>" +
	       verdict + "</b></h1><div class=\"faint\">" + html(localText(reports.time)) +
	       ". When this time is old, nobody refreshes the page.</div></div>\n" + problemsPart(problems) +
	       nodesPart(rowsOf(reports)) + "<h2>The last day</h2>\n<div class=\"panel\">" + picture(reports) +
	       "<div class=\"faint\">Green: master. Grey: standby. Red: something went wrong.</div></div>\n" +
	       "<h2>Events</h2>\n" + eventsPart(reports) + "</body>\n</html>\n";
}

} // namespace velarix::ctl
