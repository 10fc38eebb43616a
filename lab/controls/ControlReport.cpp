#include "ControlReport.h"

#include <algorithm>
#include <map>

#include <nlohmann/json.hpp>

#include "Statistics.h"

namespace velarix::lab
{

namespace
{

using Row = std::vector<std::string>;

/// How often each value was seen; the number is left out when there is one only.
std::string tally(const std::map<std::string, int>& counts)
{
	std::string text;
	for (const auto& [value, count] : counts)
	{
		text += (text.empty() ? "" : ", ") + value + (counts.size() > 1 ? " " + std::to_string(count) : "");
	}
	return text.empty() ? "-" : text;
}

/// One leg of one cell over all its runs.
struct Collected
{
	std::map<std::string, int> owners;
	std::map<std::string, int> answers;
	std::map<std::string, int> programs;
	std::vector<Millis> outages;
	std::vector<Millis> twoOwners;
	std::vector<Millis> noOwner;
	int moves = 0;
	std::size_t open = 0; ///< outages that lasted to the end of the leg

	void add(const LegRecord& leg)
	{
		++owners[leg.steady ? leg.owner : "unsteady"];
		++answers[leg.answer];
		++programs[leg.programs];
		outages.push_back(leg.outage);
		twoOwners.push_back(leg.twoOwners);
		noOwner.push_back(leg.noOwner);
		moves = std::max(moves, leg.moves);
		open += leg.outageOpen ? 1 : 0;
	}
};

Collected collect(const ControlTable& table, const std::string& cell, std::size_t leg)
{
	Collected collected;
	for (const RunRecord& record : table.records)
	{
		if (record.cell == cell && record.legs.size() > leg)
		{
			collected.add(record.legs[leg]);
		}
	}
	return collected;
}

/// An outage that did not end has no length.
std::string outageText(const Collected& collected)
{
	if (collected.open == 0 || collected.outages.empty())
	{
		return toText(summaryOf(collected.outages));
	}
	return collected.open == collected.outages.size()
	           ? "for good"
	           : toText(summaryOf(collected.outages)) + ", for good " + std::to_string(collected.open);
}

Row rowOf(const ControlTable& table, const ControlCell& cell, bool first)
{
	const Collected collected = collect(table, cell.name, first ? 0 : 1);
	const std::string place = cell.fault->onNode ? std::string(":") + nameOf(cell.node) : std::string();
	return {first ? cell.name : "",
	        first ? cell.fault->name + place : "healed",
	        tally(collected.owners),
	        tally(collected.answers),
	        tally(collected.programs),
	        outageText(collected),
	        toText(summaryOf(collected.twoOwners)),
	        toText(summaryOf(collected.noOwner)),
	        std::to_string(collected.moves)};
}

const Row& head()
{
	static const Row titles{"cell", "leg", "owner", "answer", "programs", "outage", "two owners", "none", "moves"};
	return titles;
}

std::vector<Row> rowsOf(const ControlResults& results, const ControlTable& table)
{
	std::vector<Row> rows;
	for (const ControlCell& cell : results.cells)
	{
		rows.push_back(rowOf(table, cell, true));
		if (cell.fault->heal != nullptr)
		{
			rows.push_back(rowOf(table, cell, false));
		}
	}
	return rows;
}

std::string aligned(std::vector<Row> rows)
{
	rows.insert(rows.begin(), head());
	std::vector<std::size_t> widths(head().size(), 0);
	for (const Row& row : rows)
	{
		for (std::size_t column = 0; column < row.size(); ++column)
		{
			widths[column] = std::max(widths[column], row[column].size());
		}
	}
	std::string text;
	for (const Row& row : rows)
	{
		std::string line;
		for (std::size_t column = 0; column < row.size(); ++column)
		{
			line += row[column] + std::string(widths[column] - row[column].size() + 2, ' ');
		}
		text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
	}
	return text;
}

std::string markdownLine(const Row& row)
{
	std::string text = "|";
	for (const std::string& cell : row)
	{
		text += " " + cell + " |";
	}
	return text + "\n";
}

std::string markdownTable(const std::vector<Row>& rows)
{
	std::string text = markdownLine(head()) + markdownLine(Row(head().size(), "---"));
	for (const Row& row : rows)
	{
		text += markdownLine(row);
	}
	return text;
}

std::string settingsText(const ControlResults& results)
{
	return std::to_string(results.runs) + (results.runs == 1 ? " run" : " runs") + " of each cell, seed " +
	       std::to_string(results.seed) + ", " + std::to_string(results.jobs) + " side by side";
}

std::vector<std::string> failures(const ControlResults& results)
{
	std::vector<std::string> lines;
	for (const ControlTable& table : results.tables)
	{
		for (const RunRecord& record : table.records)
		{
			for (const std::string& difference : record.differences)
			{
				lines.push_back(std::string(nameOf(table.settings.program)) + " (" + table.settings.name + "), " +
				                record.cell + ", run " + std::to_string(record.run) + ": " + difference);
			}
		}
	}
	return lines;
}

constexpr const char* legend =
    "Times in seconds: median / p95 / max over the runs. Outage: longest time without an answer to the client; "
    "none: time in which nobody held the address. The managed program runs on both nodes all the time, and the "
    "controls speak on the service network: deaf and mute are one-way losses there, service-cut is what "
    "communication-cut is to the agents.";

} // namespace

bool ControlResults::complete() const
{
	const auto whole = [&](const ControlTable& table)
	{
		return table.records.size() == cells.size() * static_cast<std::size_t>(runs) &&
		       std::all_of(table.records.begin(), table.records.end(),
		                   [](const RunRecord& record) { return record.differences.empty(); });
	};
	return std::all_of(tables.begin(), tables.end(), whole);
}

std::string toText(const ControlResults& results)
{
	std::string text = settingsText(results) + "\n" + legend + "\n";
	for (const ControlTable& table : results.tables)
	{
		text += "\n" + toText(table.settings) + "\n\n" + aligned(rowsOf(results, table));
	}
	for (const std::string& line : failures(results))
	{
		text += "\nnot run to the end: " + line + "\n";
	}
	return text;
}

std::string toMarkdown(const ControlResults& results)
{
	std::string text = settingsText(results) + ". " + legend + "\n";
	for (const ControlTable& table : results.tables)
	{
		text += "\n### " + std::string(nameOf(table.settings.program)) + ", " + table.settings.name + "\n\n" +
		        toText(table.settings) + ".\n\n" + markdownTable(rowsOf(results, table));
	}
	for (const std::string& line : failures(results))
	{
		text += "\nNot run to the end: " + line + "\n";
	}
	return text;
}

std::string toJson(const ControlResults& results)
{
	nlohmann::ordered_json controls = nlohmann::ordered_json::array();
	for (const ControlTable& table : results.tables)
	{
		nlohmann::ordered_json records = nlohmann::ordered_json::array();
		for (RunRecord record : table.records)
		{
			record.timeline.clear();
			records.push_back(nlohmann::ordered_json::parse(toJson(record)));
		}
		controls.push_back({{"program", nameOf(table.settings.program)},
		                    {"settings", table.settings.name},
		                    {"records", std::move(records)}});
	}
	const nlohmann::ordered_json whole{{"seed", results.seed},
	                                   {"runs", results.runs},
	                                   {"jobs", results.jobs},
	                                   {"complete", results.complete()},
	                                   {"controls", std::move(controls)}};
	return whole.dump(1, '\t') + "\n";
}

} // namespace velarix::lab
