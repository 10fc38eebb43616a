#include "lab/tables/Expectations.h"

#include <algorithm>

#include "lab/campaigns/Filter.h"
#include "lab/campaigns/Waits.h"
#include "lab/tables/Toml.h"

namespace velarix::lab
{

namespace
{

/// An expression of waits, tried out.
std::string sumIn(const TomlTable& row, const std::string& key)
{
	const std::string expression = row.text(key);
	sumOf(expression, {});
	return expression;
}

std::optional<std::string> sumIfAny(const TomlTable& row, const std::string& key)
{
	return row.has(key) ? std::optional<std::string>(sumIn(row, key)) : std::nullopt;
}

std::vector<Fault> faultsIn(const TomlTable& row, const std::string& key)
{
	std::vector<Fault> faults;
	for (const std::string& word : row.texts(key))
	{
		faults.push_back(faultFrom(word));
	}
	return faults;
}

/// Where the service is expected when nothing is said: with the owner.
std::string usualPlace(const std::string& owner)
{
	if (owner == "one")
	{
		return "owner";
	}
	return owner == "unsteady" ? "any" : owner;
}

Outcome outcomeFrom(const TomlTable& row)
{
	row.allowOnly({"owner", "answer", "programs", "moves_max", "split_brain_max", "via", "agent_ends", "log_differs",
	               "unchanged_until", "watched_for"});
	Outcome outcome;
	outcome.owner = row.oneOf("owner", {"a", "b", "a+b", "none", "one", "unsteady", "any"});
	const std::string usual = usualPlace(outcome.owner);
	outcome.answer = row.oneOf("answer", {"a", "b", "none", "owner", "served", "any"}, usual == "a+b" ? "any" : usual);
	outcome.programs = row.oneOf("programs", {"a", "b", "a+b", "none", "owner", "not-both", "any"}, usual);
	outcome.moves = row.limit("moves_max", 0);
	outcome.path = row.text("via", noOutagePath);
	outcome.ended = row.has("agent_ends") ? row.oneOf("agent_ends", {"a", "b", "a+b"}) : std::string();
	outcome.logDiffers = row.flag("log_differs");
	outcome.since = sumIfAny(row, "unchanged_until");
	outcome.lasts = sumIfAny(row, "watched_for");
	outcome.twice = "0";
	if (row.has("split_brain_max"))
	{
		outcome.twice = row.text("split_brain_max") == "for good" ? std::nullopt : sumIfAny(row, "split_brain_max");
	}
	return outcome;
}

Path pathFrom(const TomlTable& row)
{
	row.allowOnly({"name", "before", "after", "decision", "whole_pass"});
	return {row.text("name"), sumIn(row, "before"), sumIn(row, "after"), row.flag("whole_pass"),
	        row.text("decision", "")};
}

/// Takes from the row what it has.
void readCell(const TomlTable& row, Cell& cell)
{
	row.allowOnly({"name", "master", "inject", "during", "repair", "repaired", "note"});
	if (row.has("master"))
	{
		cell.master = *hostNamed(row.oneOf("master", {"a", "b"}));
	}
	if (row.has("inject"))
	{
		cell.inject = faultsIn(row, "inject");
	}
	if (row.has("during"))
	{
		const TomlTable during = row.table("during");
		cell.stands = during.atLine([&] { return outcomeFrom(during); });
	}
	if (row.has("repaired"))
	{
		const TomlTable repaired = row.table("repaired");
		cell.repaired = repaired.atLine([&] { return outcomeFrom(repaired); });
		cell.repair = row.has("repair") ? faultsIn(row, "repair") : cell.inject;
	}
	cell.note = row.text("note", "");
}

Cell cellFrom(const TomlTable& row)
{
	Cell cell;
	cell.name = row.text("name");
	row.text("master");
	row.table("during");
	readCell(row, cell);
	for (const Fault& fault : cell.repair)
	{
		if (infoOf(fault.name).repair == nullptr)
		{
			throw LabError("there is nothing to repair after " + toName(fault));
		}
	}
	if (cell.name.empty() || cell.inject.empty() || cell.repair.empty() != !row.has("repaired") ||
	    (row.has("repair") && !row.has("repaired")))
	{
		throw LabError("a cell has a name, a fault, and an outcome after a repair where there is one");
	}
	return cell;
}

void requirePath(const Expectations& table, const Outcome& outcome)
{
	if (!outcome.path.empty() && outcome.hasOutage() && outcome.isBounded() && !table.paths.contains(outcome.path))
	{
		throw LabError("there is no path \"" + outcome.path + "\"");
	}
}

void addCell(Expectations& table, const Cell& cell)
{
	requirePath(table, cell.stands);
	requirePath(table, cell.repaired);
	if (std::any_of(table.cells.begin(), table.cells.end(), [&](const Cell& other) { return other.name == cell.name; }))
	{
		throw LabError("the cell " + cell.name + " is there twice");
	}
	table.cells.push_back(cell);
}

/// A row of the keeper: a cell of its own where it has a master, else what is different in one.
void addKeeperRow(Expectations& table, const TomlTable& row)
{
	if (row.has("master"))
	{
		addCell(table, cellFrom(row));
		return;
	}
	const std::string name = row.text("name");
	const auto found =
	    std::find_if(table.cells.begin(), table.cells.end(), [&](const Cell& cell) { return cell.name == name; });
	if (found == table.cells.end())
	{
		throw LabError("there is no cell " + name);
	}
	readCell(row, *found);
	requirePath(table, found->stands);
	requirePath(table, found->repaired);
}

Expectations expectationsFrom(const TomlTable& file, Profile profile)
{
	file.allowOnly({"paths", "cells", "keeper", "chaos", "chaos_keeper", "short"});
	Expectations table;
	for (const TomlTable& row : file.tables("paths"))
	{
		row.atLine(
		    [&]
		    {
			    const Path path = pathFrom(row);
			    if (!table.paths.emplace(path.name, path).second)
			    {
				    throw LabError("the path " + path.name + " is there twice");
			    }
		    });
	}
	for (const TomlTable& row : file.tables("cells"))
	{
		row.atLine([&] { addCell(table, cellFrom(row)); });
	}
	if (profile == Profile::keeper && file.has("keeper"))
	{
		for (const TomlTable& row : file.tables("keeper"))
		{
			row.atLine([&] { addKeeperRow(table, row); });
		}
	}
	if (profile == Profile::keeper && file.has("chaos_keeper"))
	{
		table.forChaos = file.texts("chaos_keeper");
	}
	for (const std::string& name : file.texts("chaos"))
	{
		table.forChaos.push_back(name);
	}
	std::ranges::for_each(table.forChaos, infoOf);
	table.shortForm = file.texts("short");
	for (const std::string& name : table.shortForm)
	{
		filtered(table.cells, {name});
	}
	return table;
}

} // namespace

Millis Path::bound(const PairSettings& times) const
{
	return sumOf(before, times) + sumOf(after, times);
}

Expectations parseExpectations(const std::string& text, Profile profile)
{
	return expectationsFrom(TomlTable::parse(text), profile);
}

Expectations readExpectations(const std::string& path, Profile profile)
{
	return expectationsFrom(TomlTable::read(path.empty() ? VELARIX_LAB_EXPECTATIONS : path), profile);
}

std::optional<Millis> outageBound(const Outcome& outcome, const std::map<std::string, Path>& paths,
                                  const PairSettings& times, Millis blink, Millis slack)
{
	if (!outcome.isBounded())
	{
		return std::nullopt;
	}
	return outcome.hasOutage() ? paths.at(outcome.path).bound(times) + slack : blink;
}

} // namespace velarix::lab
