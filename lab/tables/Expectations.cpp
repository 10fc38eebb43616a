#include "lab/tables/Expectations.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <set>
#include <sstream>

#include "lab/campaigns/matrix/Waits.h"
#include "lab/campaigns/matrix/Wishes.h"
#include "lab/core/Files.h"

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

/// "-" stands for no faults.
std::vector<Fault> faultsFrom(const std::string& column)
{
	std::vector<Fault> faults;
	if (column == "-")
	{
		return faults;
	}
	if (column.empty())
	{
		throw LabError("there are no faults in a column of faults (\"-\" stands for none)");
	}
	for (const std::string& word : wordsOf(column))
	{
		faults.push_back(faultFrom(word));
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
	if (!cell.heal.empty())
	{
		cell.healed = outcomeFrom(columns[5]);
	}
	else if (columns[5] != "-")
	{
		throw LabError("an outcome of a healing where nothing is healed: \"" + columns[5] + "\"");
	}
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

std::vector<std::string> wordsOfRow(const std::vector<std::string>& columns)
{
	std::vector<std::string> words = columns.size() == 2 ? wordsOf(columns[1]) : std::vector<std::string>();
	if (words.empty())
	{
		throw LabError("a row of " + columns.front() + " has two columns, and words in the second");
	}
	return words;
}

void addChaos(Expectations& expectations, const std::vector<std::string>& columns)
{
	for (const std::string& word : wordsOfRow(columns))
	{
		const std::optional<FaultKind> kind = faultNamed(word);
		if (!kind)
		{
			throw LabError("there is no fault \"" + word + "\"");
		}
		expectations.forChaos.push_back(*kind);
	}
}

/// Calls, and tells the line's number with whatever goes wrong.
void atLine(int number, const std::function<void()>& call)
{
	try
	{
		call();
	}
	catch (const LabError& error)
	{
		throw LabError("line " + std::to_string(number) + " of the expectations: " + error.what());
	}
}

/// The table as far as it is read, and on which lines it has said what.
class Reader
{
public:
	void addRow(int number, const std::string& line);
	/// What is left to look at when all rows are known.
	void checkNames() const;
	const Expectations& table() const { return m_table; }

private:
	Expectations m_table;
	std::vector<int> m_lineOfCell;  ///< by index of the cell
	std::vector<int> m_lineOfShort; ///< by index of the name

	void requirePath(const Cell& cell, const Outcome& outcome) const;
};

void Reader::addRow(int number, const std::string& line)
{
	const std::vector<std::string> columns = columnsOf(line);
	if (columns.front() == "path")
	{
		addPath(m_table, columns);
	}
	else if (columns.front() == "chaos")
	{
		addChaos(m_table, columns);
	}
	else if (columns.front() == "short")
	{
		const std::vector<std::string> words = wordsOfRow(columns);
		m_table.shortForm.insert(m_table.shortForm.end(), words.begin(), words.end());
		m_lineOfShort.insert(m_lineOfShort.end(), words.size(), number);
	}
	else
	{
		addCell(m_table, columns);
		m_lineOfCell.push_back(number);
	}
}

void Reader::requirePath(const Cell& cell, const Outcome& outcome) const
{
	const std::string& path = outcome.path;
	if (!path.empty() && path != "-" && path != "*" && !m_table.paths.contains(path))
	{
		throw LabError("the cell " + cell.name + " takes a path that is not there: " + path);
	}
}

void Reader::checkNames() const
{
	for (std::size_t index = 0; index < m_table.cells.size(); ++index)
	{
		const Cell& cell = m_table.cells[index];
		atLine(m_lineOfCell[index],
		       [&]
		       {
			       requirePath(cell, cell.stands);
			       requirePath(cell, cell.healed);
		       });
	}
	for (std::size_t index = 0; index < m_table.shortForm.size(); ++index)
	{
		atLine(m_lineOfShort[index], [&] { chosenCells(m_table, {m_table.shortForm[index]}); });
	}
}

} // namespace

Millis Path::bound(const PairTimes& times) const
{
	return sumOf(before, times) + sumOf(after, times);
}

Expectations parseExpectations(const std::string& text)
{
	Reader reader;
	std::istringstream stream(text);
	int number = 0;
	for (std::string line; std::getline(stream, line);)
	{
		++number;
		const std::string content = trimmed(line.substr(0, line.find('#')));
		if (!content.empty())
		{
			atLine(number, [&] { reader.addRow(number, content); });
		}
	}
	reader.checkNames();
	return reader.table();
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
	return wished(expectations.cells, only);
}

} // namespace velarix::lab
