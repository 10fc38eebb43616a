#include "evidence/peers/ControlReport.h"

#include <algorithm>

#include <set>

#include <nlohmann/json.hpp>

#include "lab/campaigns/matrix/LegFigures.h"
#include "lab/tables/Table.h"

namespace velarix::lab
{

namespace
{

Row rowOf(const ControlTable& table, const ControlCell& cell, bool first)
{
	const LegFigures figures(table.records, cell.name, first ? 0 : 1);
	const std::string place = cell.fault->onNode ? std::string(":") + nameOf(cell.node) : std::string();
	return {first ? cell.name : "", first ? cell.fault->name + place : "healed",
	        figures.owners(),       figures.answers(),
	        figures.programs(),     figures.outage(),
	        figures.twoOwners(),    figures.noOwner(),
	        figures.moves()};
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

std::string settingsText(const ControlResults& results)
{
	return std::to_string(results.runs) + (results.runs == 1 ? " run" : " runs") + " of each cell, seed " +
	       std::to_string(results.seed) + ", " + std::to_string(results.jobs) + " side by side; " + results.machine;
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
		text += "\n" + toText(table.settings) + "\n\n" + aligned(head(), rowsOf(results, table));
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
		        toText(table.settings) + ".\n\n" + markdownTable(head(), rowsOf(results, table));
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
	const nlohmann::ordered_json whole{{"seed", results.seed},           {"runs", results.runs},
	                                   {"jobs", results.jobs},           {"machine", results.machine},
	                                   {"complete", results.complete()}, {"controls", std::move(controls)}};
	return whole.dump(1, '\t') + "\n";
}

ControlResults controlsFrom(const std::string& json)
try
{
	const auto whole = nlohmann::ordered_json::parse(json);
	ControlResults results;
	results.seed = whole.at("seed").get<std::uint64_t>();
	results.runs = whole.at("runs").get<int>();
	results.jobs = whole.at("jobs").get<int>();
	results.machine = whole.at("machine").get<std::string>();
	std::set<std::string> names;
	for (const auto& control : whole.at("controls"))
	{
		ControlTable table{
		    settingsNamed(control.at("program").get<std::string>(), control.at("settings").get<std::string>()), {}};
		for (const auto& record : control.at("records"))
		{
			table.records.push_back(recordFrom(record.dump()));
			names.insert(table.records.back().cell);
		}
		results.tables.push_back(std::move(table));
	}
	const std::vector<ControlCell> all = controlCells({});
	std::copy_if(all.begin(), all.end(), std::back_inserter(results.cells),
	             [&](const ControlCell& cell) { return names.contains(cell.name); });
	return results;
}
catch (const nlohmann::json::exception& error)
{
	throw LabError(std::string("this is no report of the controls: ") + error.what());
}

} // namespace velarix::lab
