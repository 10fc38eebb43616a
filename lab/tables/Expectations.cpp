#include "lab/tables/Expectations.h"

#include <algorithm>
#include <cmath>

#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/Times.h"
#include "lab/core/Basics.h"
#include "lab/tables/Toml.h"

namespace velarix::lab
{

TomlTable TomlTable::parse(const std::string& text)
try
{
	return TomlTable(std::make_shared<const toml::table>(toml::parse(text)));
}
catch (const toml::parse_error& error)
{
	throw LabError("line " + std::to_string(error.source().begin.line) +
	               " of the table: " + std::string(error.description()));
}

void TomlTable::fail(const std::string& problem) const
{
	// A problem of a table within this one has its line already.
	throw LabError(problem.starts_with("line ") ? problem
	                                            : "line " + std::to_string(line()) + " of the table: " + problem);
}

template <typename Value> const auto& TomlTable::valueOf(const std::string& key, const char* kind) const
{
	const toml::node* node = m_table->get(key);
	if (node == nullptr)
	{
		fail("there is no \"" + key + "\"");
	}
	const auto* value = node->as<Value>();
	if (value == nullptr)
	{
		fail("\"" + key + "\" is no " + kind);
	}
	return *value;
}

std::string TomlTable::text(const std::string& key, const std::optional<std::string>& otherwise) const
{
	return otherwise && !has(key) ? *otherwise : valueOf<std::string>(key, "text").get();
}

std::string TomlTable::oneOf(const std::string& key, const std::set<std::string>& words,
                             const std::optional<std::string>& otherwise) const
{
	std::string word = text(key, otherwise);
	if (!words.contains(word))
	{
		fail("\"" + word + "\" is no \"" + key + "\"");
	}
	return word;
}

bool TomlTable::flag(const std::string& key) const
{
	return has(key) && valueOf<bool>(key, "truth value").get();
}

std::optional<int> TomlTable::limit(const std::string& key, int otherwise) const
{
	if (!has(key))
	{
		return otherwise;
	}
	const std::optional<double> number = m_table->get(key)->value<double>();
	if (!number)
	{
		fail("\"" + key + "\" is no number");
	}
	if (std::isinf(*number))
	{
		return std::nullopt;
	}
	if (*number < 0 || *number > 1e6 || *number != std::floor(*number))
	{
		fail("\"" + key + "\" is no whole number from 0 on");
	}
	return static_cast<int>(*number);
}

std::vector<std::string> TomlTable::texts(const std::string& key) const
{
	std::vector<std::string> list;
	for (const toml::node& value : valueOf<toml::array>(key, "list"))
	{
		if (!value.is_string())
		{
			fail("\"" + key + "\" is no list of texts");
		}
		list.push_back(value.ref<std::string>());
	}
	return list;
}

TomlTable TomlTable::table(const std::string& key) const
{
	return TomlTable({m_table, &valueOf<toml::table>(key, "table")});
}

std::vector<TomlTable> TomlTable::tables(const std::string& key) const
{
	std::vector<TomlTable> list;
	for (const toml::node& value : valueOf<toml::array>(key, "list"))
	{
		if (!value.is_table())
		{
			fail("\"" + key + "\" is no list of tables");
		}
		list.push_back(TomlTable({m_table, value.as_table()}));
	}
	return list;
}

void TomlTable::allowOnly(const std::set<std::string>& keys) const
{
	for (const auto& [key, value] : *m_table)
	{
		if (!keys.contains(std::string(key.str())))
		{
			fail("\"" + std::string(key.str()) + "\" means nothing here");
		}
	}
}

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
	return parseExpectations(contentOf(std::filesystem::path(path.empty() ? VELARIX_LAB_EXPECTATIONS : path)), profile);
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
