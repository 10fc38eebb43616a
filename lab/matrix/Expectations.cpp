#include "Expectations.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <sstream>

#include "Files.h"
#include "Waits.h"

namespace velarix::lab
{

namespace
{

std::string trimmed(const std::string& text)
{
	const std::size_t begin = text.find_first_not_of(" \t\r");
	const std::size_t end = text.find_last_not_of(" \t\r");
	return begin == std::string::npos ? std::string() : text.substr(begin, end - begin + 1);
}

std::vector<std::string> columnsOf(const std::string& line)
{
	std::vector<std::string> columns;
	std::istringstream stream(line);
	for (std::string column; std::getline(stream, column, '|');)
	{
		columns.push_back(trimmed(column));
	}
	return columns;
}

std::vector<std::string> wordsOf(const std::string& text)
{
	std::istringstream stream(text);
	std::vector<std::string> words;
	for (std::string word; stream >> word;)
	{
		words.push_back(word);
	}
	return words;
}

void requireOneOf(const std::string& word, const std::set<std::string>& allowed, const char* what)
{
	if (!allowed.contains(word))
	{
		throw LabError("\"" + word + "\" is no " + what);
	}
}

std::vector<Fault> faultsFrom(const std::string& column)
{
	std::vector<Fault> faults;
	for (const std::string& word : wordsOf(column))
	{
		if (word != "-")
		{
			faults.push_back(faultFrom(word));
		}
	}
	return faults;
}

std::optional<int> movesFrom(const std::string& word)
{
	if (word == "*")
	{
		return std::nullopt;
	}
	int moves = -1;
	const auto [end, failure] = std::from_chars(word.data(), word.data() + word.size(), moves);
	if (failure != std::errc() || end != word.data() + word.size() || moves < 0)
	{
		throw LabError("\"" + word + "\" is no number of moves");
	}
	return moves;
}

std::string requiredSum(const std::string& expression)
{
	sumOf(expression, {});
	return expression;
}

void addRemark(Outcome& outcome, const std::string& word)
{
	if (word == "log=differs")
	{
		outcome.logDiffers = true;
	}
	else if (word.starts_with("since="))
	{
		outcome.since = requiredSum(word.substr(6));
	}
	else if (word.starts_with("for="))
	{
		outcome.lasts = requiredSum(word.substr(4));
	}
	else if (word.starts_with("ended="))
	{
		outcome.ended = word.substr(6);
		requireOneOf(outcome.ended, {"a", "b", "a+b"}, "set of nodes");
	}
	else
	{
		throw LabError("\"" + word + "\" is no remark on an outcome (ended=NODE, log=differs, since=SUM, for=SUM)");
	}
}

Outcome outcomeFrom(const std::string& column)
{
	const std::vector<std::string> words = wordsOf(column);
	if (words.size() < 6)
	{
		throw LabError("an outcome is owner, answer, programs, moves, time with two owners and path: \"" + column +
		               "\" is not");
	}
	requireOneOf(words[0], {"a", "b", "a+b", "none", "one", "unsteady", "any"}, "owner");
	requireOneOf(words[1], {"a", "b", "none", "owner", "served", "any"}, "answer");
	requireOneOf(words[2], {"a", "b", "a+b", "none", "owner", "not-both", "any"}, "place of programs");
	Outcome outcome;
	outcome.owner = words[0];
	outcome.answer = words[1];
	outcome.programs = words[2];
	outcome.moves = movesFrom(words[3]);
	outcome.path = words[5];
	if (words[4] != "*")
	{
		outcome.twice = requiredSum(words[4]);
	}
	for (std::size_t index = 6; index < words.size(); ++index)
	{
		addRemark(outcome, words[index]);
	}
	return outcome;
}

void addPath(Expectations& expectations, const std::vector<std::string>& columns)
{
	if (columns.size() != 6 || columns[1].empty())
	{
		throw LabError("a path has six columns: path, name, before, after, line or pass, anchor");
	}
	requireOneOf(columns[4], {"line", "pass"}, "kind of anchor (line, pass)");
	const Path path{columns[1], columns[2], columns[3], columns[4] == "pass", columns[5] == "-" ? "" : columns[5]};
	path.bound({});
	if (!expectations.paths.emplace(path.name, path).second)
	{
		throw LabError("the path " + path.name + " is there twice");
	}
}

void addCell(Expectations& expectations, const std::vector<std::string>& columns)
{
	if (columns.size() < 6 || columns.size() > 7)
	{
		throw LabError("a cell has six or seven columns: name, master, faults, outcome, healed faults, outcome "
		               "after that, note");
	}
	requireOneOf(columns[1], {"a", "b"}, "node");
	Cell cell;
	cell.name = columns[0];
	cell.master = *hostNamed(columns[1]);
	cell.inject = faultsFrom(columns[2]);
	cell.stands = outcomeFrom(columns[3]);
	cell.heal = faultsFrom(columns[4]);
	cell.healed = cell.heal.empty() ? Outcome{} : outcomeFrom(columns[5]);
	cell.note = columns.size() == 7 ? columns[6] : std::string();
	for (const Fault& fault : cell.heal)
	{
		if (infoOf(fault.kind).heal == nullptr)
		{
			throw LabError("there is nothing to heal after " + toName(fault));
		}
	}
	const bool known = std::any_of(expectations.cells.begin(), expectations.cells.end(),
	                               [&](const Cell& other) { return other.name == cell.name; });
	if (cell.name.empty() || cell.inject.empty() || known)
	{
		throw LabError(known ? "the cell " + cell.name + " is there twice" : "a cell without a name or a fault");
	}
	expectations.cells.push_back(cell);
}

void addChaos(Expectations& expectations, const std::vector<std::string>& columns)
{
	for (const std::string& word : wordsOf(columns.size() == 2 ? columns[1] : std::string()))
	{
		const std::optional<FaultKind> kind = faultNamed(word);
		if (!kind)
		{
			throw LabError("there is no fault \"" + word + "\"");
		}
		expectations.forChaos.push_back(*kind);
	}
}

void addShort(Expectations& expectations, const std::vector<std::string>& columns)
{
	for (const std::string& word : wordsOf(columns.size() == 2 ? columns[1] : std::string()))
	{
		expectations.shortForm.push_back(word);
	}
}

void addRow(Expectations& expectations, const std::string& line)
{
	const std::vector<std::string> columns = columnsOf(line);
	if (columns.front() == "path")
	{
		addPath(expectations, columns);
	}
	else if (columns.front() == "chaos")
	{
		addChaos(expectations, columns);
	}
	else if (columns.front() == "short")
	{
		addShort(expectations, columns);
	}
	else
	{
		addCell(expectations, columns);
	}
}

void requirePaths(const Expectations& expectations)
{
	for (const Cell& cell : expectations.cells)
	{
		for (const Outcome* outcome : {&cell.stands, &cell.healed})
		{
			const std::string& path = outcome->path;
			if (!path.empty() && path != "-" && path != "*" && !expectations.paths.contains(path))
			{
				throw LabError("the cell " + cell.name + " takes a path that is not there: " + path);
			}
		}
	}
}

} // namespace

Millis Path::bound(const PairTimes& times) const
{
	return sumOf(before, times) + sumOf(after, times);
}

Expectations parseExpectations(const std::string& text)
{
	Expectations expectations;
	std::istringstream stream(text);
	int number = 0;
	for (std::string line; std::getline(stream, line);)
	{
		++number;
		const std::string content = trimmed(line.substr(0, line.find('#')));
		try
		{
			content.empty() ? void() : addRow(expectations, content);
		}
		catch (const LabError& error)
		{
			throw LabError("line " + std::to_string(number) + " of the expectations: " + error.what());
		}
	}
	requirePaths(expectations);
	expectations.shortForm.empty() ? void() : void(chosenCells(expectations, expectations.shortForm));
	return expectations;
}

Expectations readExpectations(const std::string& path)
{
	return parseExpectations(contentOf(path.empty() ? VELARIX_LAB_EXPECTATIONS : path));
}

std::optional<Millis> outageBound(const Outcome& outcome, const std::map<std::string, Path>& paths,
                                  const PairTimes& times, Millis blink, Millis slack)
{
	if (outcome.path == "*")
	{
		return std::nullopt;
	}
	return outcome.path == "-" ? blink : paths.at(outcome.path).bound(times) + slack;
}

std::vector<Cell> chosenCells(const Expectations& expectations, const std::vector<std::string>& only)
{
	if (only.empty())
	{
		return expectations.cells;
	}
	std::vector<Cell> chosen;
	for (const std::string& name : only)
	{
		const std::size_t before = chosen.size();
		std::copy_if(expectations.cells.begin(), expectations.cells.end(), std::back_inserter(chosen),
		             [&](const Cell& cell) { return cell.name == name || cell.name.starts_with(name + "/"); });
		if (chosen.size() == before)
		{
			throw LabError("there is no cell \"" + name + "\" (velarix-lab matrix --list)");
		}
	}
	return chosen;
}

} // namespace velarix::lab
