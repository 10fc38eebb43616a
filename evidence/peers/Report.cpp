#include "evidence/peers/Report.h"

#include <algorithm>
#include <sstream>

namespace velarix::evidence::peers
{

namespace
{

nlohmann::json jsonOf(const Cell& cell)
{
	const std::string place = cell.fault->onNode ? std::string(":") + nameOf(cell.node) : std::string();
	return {{"name", cell.name}, {"fault", cell.fault->name + place}, {"repaired", cell.fault->repair != nullptr}};
}

} // namespace

bool Results::complete() const
{
	const auto whole = [&](const Table& table)
	{
		return table.records.size() == cells.size() * static_cast<std::size_t>(runs) &&
		       std::all_of(table.records.begin(), table.records.end(),
		                   [](const RunRecord& record) { return record.differences.empty(); });
	};
	return std::all_of(tables.begin(), tables.end(), whole);
}

std::string toText(const Results& results)
{
	std::ostringstream text;
	text << results.runs << (results.runs == 1 ? " run" : " runs") << " of each cell, seed " << results.seed << ", "
	     << results.jobs << " side by side; " << results.machine << "\n\n";
	for (const Table& table : results.tables)
	{
		text << toText(table.settings) << ": " << table.records.size() << " runs\n";
		for (const RunRecord& record : table.records)
		{
			for (const std::string& difference : record.differences)
			{
				text << "  not run to the end: " << record.cell << ", run " << record.run << ": " << difference << '\n';
			}
		}
	}
	return text.str();
}

nlohmann::json jsonOf(const Results& results)
{
	nlohmann::json cells = nlohmann::json::array();
	for (const Cell& cell : results.cells)
	{
		cells.push_back(jsonOf(cell));
	}
	nlohmann::json tables = nlohmann::json::array();
	for (const Table& table : results.tables)
	{
		tables.push_back({{"program", nameOf(table.settings.program)},
		                  {"settings", table.settings.name},
		                  {"description", toText(table.settings)},
		                  {"records", table.records}});
	}
	return {
	    {"campaign", "peers"},        {"seed", results.seed},           {"runs", results.runs}, {"jobs", results.jobs},
	    {"machine", results.machine}, {"complete", results.complete()}, {"cells", cells},       {"peers", tables}};
}

} // namespace velarix::evidence::peers
