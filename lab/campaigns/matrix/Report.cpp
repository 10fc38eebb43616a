#include "lab/campaigns/matrix/Report.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "lab/campaigns/matrix/LegFigures.h"
#include "lab/campaigns/matrix/Statistics.h"
#include "lab/campaigns/matrix/Waits.h"
#include "lab/tables/Table.h"

namespace velarix::lab
{

namespace
{

constexpr Millis medianGoal{150};
constexpr Millis p95Goal{400};

std::vector<const RunRecord*> runsOf(const MatrixResults& results, const Cell& cell)
{
	std::vector<const RunRecord*> runs;
	for (const RunRecord& record : results.records)
	{
		if (record.cell == cell.name)
		{
			runs.push_back(&record);
		}
	}
	return runs;
}

std::string namesOf(const std::vector<Fault>& faults)
{
	std::string text;
	for (const Fault& fault : faults)
	{
		text += (text.empty() ? "" : " ") + toName(fault);
	}
	return text;
}

std::string boundText(const MatrixResults& results, const Outcome& expected)
{
	const std::optional<Millis> bound =
	    outageBound(expected, results.expectations.paths, results.times.pair, results.times.noOutage, Millis(0));
	return expected.path == "-" ? "none" : (bound ? secondsText(*bound) : "no bound");
}

std::string twiceBoundText(const MatrixResults& results, const Outcome& expected)
{
	if (!expected.twice)
	{
		return "for good";
	}
	const Millis bound = sumOf(*expected.twice, results.times.pair);
	return bound == Millis(0) ? "none" : secondsText(bound);
}

struct Leg
{
	const Cell& cell;
	bool first;

	const Outcome& expected() const { return first ? cell.stands : cell.healed; }
	std::size_t index() const { return first ? 0 : 1; }
};

/// How many runs of the cell do not differ in this leg; what differs in a run as a
/// whole counts for the first one.
std::string verdictOf(const MatrixResults& results, const Leg& leg)
{
	std::size_t good = 0;
	const std::vector<const RunRecord*> runs = runsOf(results, leg.cell);
	for (const RunRecord* run : runs)
	{
		const bool wholeDiffers = leg.first && !run->differences.empty();
		const bool ran = run->legs.size() > leg.index();
		good += ran && !wholeDiffers && run->legs[leg.index()].differences.empty() ? 1U : 0U;
	}
	return std::to_string(good) + " of " + std::to_string(runs.size());
}

LegFigures figuresOf(const MatrixResults& results, const Leg& leg)
{
	return {results.records, leg.cell.name, leg.index()};
}

const Row& legHead()
{
	static const Row titles{"cell",     "leg",    "expected owner", "owner",      "answer",
	                        "programs", "outage", "bound",          "two owners", "bound",
	                        "none",     "moves",  "overhead",       "log",        "as expected"};
	return titles;
}

Row rowOf(const MatrixResults& results, const Leg& leg)
{
	const LegFigures figures = figuresOf(results, leg);
	return {leg.first ? leg.cell.name : "",
	        leg.first ? namesOf(leg.cell.inject) : "healed",
	        leg.expected().owner,
	        figures.owners(),
	        figures.answers(),
	        figures.programs(),
	        figures.outage(),
	        boundText(results, leg.expected()),
	        figures.twoOwners(),
	        twiceBoundText(results, leg.expected()),
	        figures.noOwner(),
	        figures.moves(),
	        toText(summaryOf(figures.overheads())),
	        figures.log(),
	        verdictOf(results, leg)};
}

std::vector<Row> rowsOf(const MatrixResults& results)
{
	std::vector<Row> rows;
	for (const Cell& cell : results.cells)
	{
		rows.push_back(rowOf(results, {cell, true}));
		if (!cell.heal.empty())
		{
			rows.push_back(rowOf(results, {cell, false}));
		}
	}
	return rows;
}

struct PathTimes
{
	std::vector<Millis> noticed;
	std::vector<Millis> overheads;
};

std::map<std::string, PathTimes> timesByPath(const MatrixResults& results)
{
	std::map<std::string, PathTimes> times;
	for (const Cell& cell : results.cells)
	{
		for (const Leg& leg : {Leg{cell, true}, Leg{cell, false}})
		{
			const LegFigures figures = figuresOf(results, leg);
			PathTimes& path = times[leg.expected().path];
			const std::vector<Millis> noticed = figures.noticed();
			const std::vector<Millis> overheads = figures.overheads();
			path.noticed.insert(path.noticed.end(), noticed.begin(), noticed.end());
			path.overheads.insert(path.overheads.end(), overheads.begin(), overheads.end());
		}
	}
	return times;
}

/// One row for each path that was taken.
std::vector<Row> pathRows(const MatrixResults& results)
{
	std::vector<Row> rows;
	for (const auto& [name, times] : timesByPath(results))
	{
		const std::optional<Summary> summary = summaryOf(times.overheads);
		if (!summary)
		{
			continue;
		}
		const Path& path = results.expectations.paths.at(name);
		const bool reached = summary->median <= medianGoal && summary->p95 <= p95Goal;
		rows.push_back({name, explained(path.before, results.times.pair), toText(summaryOf(times.noticed)),
		                explained(path.after, results.times.pair), std::to_string(summary->count), toText(summary),
		                reached ? "yes" : "no"});
	}
	return rows;
}

const Row& pathHead()
{
	static const Row titles{
	    "path",     "waits until the decision, at most", "until the decision", "waits after it", "times",
	    "overhead", "median <= 150 ms, p95 <= 400 ms"};
	return titles;
}

std::string settingsText(const MatrixResults& results)
{
	const PairTimes& times = results.times.pair;
	std::ostringstream text;
	text << "interval " << times.interval << " s, receiving time " << times.receivingTime << " s, waiting time "
	     << times.waitingTime << " s; node a is configured as master; " << results.runs << " run"
	     << (results.runs == 1 ? "" : "s") << " of each cell, seed " << results.seed << ", " << results.jobs
	     << " side by side; " << results.machine;
	return text.str();
}

std::vector<std::string> differenceLines(const MatrixResults& results)
{
	std::vector<std::string> lines;
	for (const RunRecord& record : results.records)
	{
		for (const std::string& difference : differencesOf(record))
		{
			lines.push_back(record.cell + ", run " + std::to_string(record.run) + ": " + difference);
		}
	}
	return lines;
}

constexpr const char* legend =
    "Times in seconds: median / p95 / max over the runs. Outage: longest time without an answer to the client; "
    "bound: sum of the prescribed waits on the path; none: time in which nobody held the address.";

} // namespace

bool MatrixResults::allAsExpected() const
{
	return records.size() == cells.size() * static_cast<std::size_t>(runs) &&
	       std::all_of(records.begin(), records.end(), [](const RunRecord& record) { return record.asExpected(); });
}

std::string toText(const MatrixResults& results)
{
	std::string text = settingsText(results) + "\n" + legend + "\n\n" + aligned(legHead(), rowsOf(results));
	const std::vector<Row> paths = pathRows(results);
	text += paths.empty() ? "" : "\n" + aligned(pathHead(), paths);
	const std::vector<std::string> lines = differenceLines(results);
	text += lines.empty() ? "\nevery run was as expected\n" : "\nnot as expected:\n";
	for (const std::string& line : lines)
	{
		text += "  " + line + "\n";
	}
	return text;
}

std::string toMarkdown(const MatrixResults& results)
{
	std::string text = settingsText(results) + ".\n\n" + legend + "\n\n" + markdownTable(legHead(), rowsOf(results));
	const std::vector<Row> paths = pathRows(results);
	text += paths.empty() ? "" : "\n" + markdownTable(pathHead(), paths);
	std::string notes;
	for (const Cell& cell : results.cells)
	{
		notes += cell.note.empty() ? "" : "- `" + cell.name + "`: " + cell.note + "\n";
	}
	text += notes.empty() ? "" : "\n" + notes;
	const std::vector<std::string> lines = differenceLines(results);
	text += lines.empty() ? "\nEvery run was as expected.\n" : "\nNot as expected:\n\n";
	for (const std::string& line : lines)
	{
		text += "- " + line + "\n";
	}
	return text;
}

std::string toJson(const MatrixResults& results)
{
	nlohmann::ordered_json records = nlohmann::ordered_json::array();
	for (const RunRecord& record : results.records)
	{
		records.push_back(nlohmann::ordered_json::parse(toJson(record)));
	}
	const PairTimes& times = results.times.pair;
	const nlohmann::ordered_json whole{{"seed", results.seed},
	                                   {"runs", results.runs},
	                                   {"jobs", results.jobs},
	                                   {"intervalS", times.interval},
	                                   {"receivingTimeS", times.receivingTime},
	                                   {"waitingTimeS", times.waitingTime},
	                                   {"slackMs", results.times.slack.count()},
	                                   {"machine", results.machine},
	                                   {"asExpected", results.allAsExpected()},
	                                   {"records", std::move(records)}};
	return whole.dump(1, '\t') + "\n";
}

MatrixResults matrixFrom(const std::string& json, const Expectations& expectations)
try
{
	const auto whole = nlohmann::ordered_json::parse(json);
	MatrixResults results;
	results.expectations = expectations;
	results.seed = whole.at("seed").get<std::uint64_t>();
	results.runs = whole.at("runs").get<int>();
	results.jobs = whole.at("jobs").get<int>();
	results.machine = whole.at("machine").get<std::string>();
	results.times.pair.interval = whole.at("intervalS").get<int>();
	results.times.pair.receivingTime = whole.at("receivingTimeS").get<int>();
	results.times.pair.waitingTime = whole.at("waitingTimeS").get<int>();
	results.times.slack = Millis(whole.at("slackMs").get<Millis::rep>());
	std::set<std::string> names;
	for (const auto& record : whole.at("records"))
	{
		results.records.push_back(recordFrom(record.dump()));
		names.insert(results.records.back().cell);
	}
	std::copy_if(expectations.cells.begin(), expectations.cells.end(), std::back_inserter(results.cells),
	             [&](const Cell& cell) { return names.erase(cell.name) != 0; });
	if (!names.empty())
	{
		throw LabError("the table of expectations has no cell \"" + *names.begin() + "\"");
	}
	return results;
}
catch (const nlohmann::json::exception& error)
{
	throw LabError(std::string("this is no report of a matrix: ") + error.what());
}

} // namespace velarix::lab
