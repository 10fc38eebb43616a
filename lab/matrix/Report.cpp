#include "Report.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "Statistics.h"
#include "Table.h"
#include "Waits.h"

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
	    outageBound(expected, results.expectations.paths, results.times.pair, results.times.blink, Millis(0));
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

std::vector<const LegRecord*> legsOf(const MatrixResults& results, const Leg& leg)
{
	std::vector<const LegRecord*> found;
	for (const RunRecord* run : runsOf(results, leg.cell))
	{
		if (run->legs.size() > leg.index())
		{
			found.push_back(&run->legs[leg.index()]);
		}
	}
	return found;
}

template <typename Value> std::vector<Value> valuesOf(const std::vector<const LegRecord*>& legs, Value LegRecord::*part)
{
	std::vector<Value> values;
	values.reserve(legs.size());
	for (const LegRecord* leg : legs)
	{
		values.push_back(leg->*part);
	}
	return values;
}

std::vector<Millis> overheadsOf(const std::vector<const LegRecord*>& legs)
{
	std::vector<Millis> values;
	for (const LegRecord* leg : legs)
	{
		if (leg->overhead)
		{
			values.push_back(*leg->overhead);
		}
	}
	return values;
}

std::string ownersText(const std::vector<const LegRecord*>& legs)
{
	std::vector<std::string> owners;
	owners.reserve(legs.size());
	for (const LegRecord* leg : legs)
	{
		owners.push_back(leg->steady ? leg->owner : "unsteady");
	}
	return tally(owners);
}

std::string movesText(const std::vector<const LegRecord*>& legs)
{
	int most = 0;
	for (const LegRecord* leg : legs)
	{
		most = std::max(most, leg->moves);
	}
	return std::to_string(most);
}

/// Whether the logs tell who holds the address, in all of the runs or in how many not.
std::string logText(const std::vector<const LegRecord*>& legs)
{
	const auto differ =
	    std::count_if(legs.begin(), legs.end(), [](const LegRecord* leg) { return !leg->disagreements.empty(); });
	return differ == 0 ? "agrees" : "differs " + std::to_string(differ);
}

/// How many runs of the cell differ in this leg, or in the whole when it is the only one.
std::string verdictOf(const MatrixResults& results, const Leg& leg)
{
	std::size_t good = 0;
	const std::vector<const RunRecord*> runs = runsOf(results, leg.cell);
	for (const RunRecord* run : runs)
	{
		const bool differs = std::any_of(run->differences.begin(), run->differences.end(),
		                                 [&](const std::string& text)
		                                 {
			                                 const bool inFirst = text.starts_with("fault: ");
			                                 const bool inSecond = text.starts_with("healed: ");
			                                 return leg.first ? inFirst || !inSecond : inSecond;
		                                 });
		good += differs ? 0 : 1;
	}
	return std::to_string(good) + " of " + std::to_string(runs.size());
}

const Row& head()
{
	static const Row titles{"cell",     "leg",    "expected owner", "owner",      "answer",
	                        "programs", "outage", "bound",          "two owners", "bound",
	                        "none",     "moves",  "overhead",       "log",        "as expected"};
	return titles;
}

Row rowOf(const MatrixResults& results, const Leg& leg)
{
	const std::vector<const LegRecord*> legs = legsOf(results, leg);
	return {leg.first ? leg.cell.name : "",
	        leg.first ? namesOf(leg.cell.inject) : "healed",
	        leg.expected().owner,
	        ownersText(legs),
	        tally(valuesOf(legs, &LegRecord::answer)),
	        tally(valuesOf(legs, &LegRecord::programs)),
	        toText(summaryOf(valuesOf(legs, &LegRecord::outage))),
	        boundText(results, leg.expected()),
	        toText(summaryOf(valuesOf(legs, &LegRecord::twoOwners))),
	        twiceBoundText(results, leg.expected()),
	        toText(summaryOf(valuesOf(legs, &LegRecord::noOwner))),
	        movesText(legs),
	        toText(summaryOf(overheadsOf(legs))),
	        logText(legs),
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

/// One row for each path that was taken.
std::vector<Row> pathRows(const MatrixResults& results)
{
	std::map<std::string, std::vector<Millis>> overheads;
	for (const Cell& cell : results.cells)
	{
		for (const Leg& leg : {Leg{cell, true}, Leg{cell, false}})
		{
			const std::vector<Millis> here = overheadsOf(legsOf(results, leg));
			overheads[leg.expected().path].insert(overheads[leg.expected().path].end(), here.begin(), here.end());
		}
	}
	std::vector<Row> rows;
	for (const auto& [name, values] : overheads)
	{
		const std::optional<Summary> summary = summaryOf(values);
		if (!summary)
		{
			continue;
		}
		const Path& path = results.expectations.paths.at(name);
		const bool reached = summary->median <= medianGoal && summary->p95 <= p95Goal;
		rows.push_back({name, explained(path.before, results.times.pair), explained(path.after, results.times.pair),
		                std::to_string(summary->count), toText(summary), reached ? "yes" : "no"});
	}
	return rows;
}

const Row& pathHead()
{
	static const Row titles{"path",     "waits until the decision, at most", "waits after it", "times",
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
		for (const std::string& difference : record.differences)
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
	       std::all_of(records.begin(), records.end(),
	                   [](const RunRecord& record) { return record.differences.empty(); });
}

std::string toText(const MatrixResults& results)
{
	std::string text = settingsText(results) + "\n" + legend + "\n\n" + aligned(head(), rowsOf(results));
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
	std::string text = settingsText(results) + ".\n\n" + legend + "\n\n" + markdownTable(head(), rowsOf(results));
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
