#include "lab/campaigns/hostile/HostileTable.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "lab/campaigns/hostile/Words.h"
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

HostId nodeFrom(const std::string& word)
{
	const std::optional<HostId> node = hostNamed(word);
	if (!node || !isNode(*node))
	{
		throw LabError("\"" + word + "\" is no node");
	}
	return *node;
}

std::string oneOf(const std::string& word, const std::set<std::string>& allowed, const char* what)
{
	if (!allowed.contains(word))
	{
		throw LabError("\"" + word + "\" is no " + what);
	}
	return word;
}

Away awayFrom(const std::string& word)
{
	for (const Away away : {Away::none, Away::some, Away::mostly, Away::lasting, Away::any})
	{
		if (word == nameOf(away))
		{
			return away;
		}
	}
	throw LabError("\"" + word + "\" does not tell how the service is away (-, some, mostly, lasting, any)");
}

std::optional<bool> twiceFrom(const std::string& word)
{
	oneOf(word, {"0", "+", "*"}, "word for two owners (0, +, *)");
	return word == "*" ? std::optional<bool>() : word == "+";
}

HostileOutcome outcomeFrom(const std::string& column)
{
	std::istringstream stream(column);
	std::string owner;
	std::string away;
	std::string twice;
	std::string after;
	std::string more;
	if (!(stream >> owner >> away >> twice >> after) || stream >> more)
	{
		throw LabError("an outcome is owner, how the service is away, two owners, owner after it: \"" + column +
		               "\" is not");
	}
	return {oneOf(owner, {"a", "b", "a+b", "none", "either", "any"}, "owner"), awayFrom(away), twiceFrom(twice),
	        oneOf(after, {"a", "b", "either"}, "node")};
}

void readAttack(const std::string& word, HostileCell& cell)
{
	const std::size_t colon = word.find(':');
	cell.attack = word.substr(0, colon);
	cell.detail = colon == std::string::npos ? std::string() : word.substr(colon + 1);
	attackNamed(cell.attack);
	static const std::set<std::string> forging{"forged", "forged-service", "repeated", "spoofed"};
	if (forging.contains(cell.attack))
	{
		forgedHeartbeat(cell.detail);
	}
	else if (cell.attack == "replay")
	{
		nodeFrom(cell.detail);
	}
	else if (!cell.detail.empty())
	{
		throw LabError("the attack " + cell.attack + " has no further words");
	}
}

HostileCell cellFrom(const std::vector<std::string>& columns)
{
	if (columns.size() < 7 || columns.size() > 8)
	{
		throw LabError("a row has seven or eight columns: attack, node that serves, target, event, outcome without "
		               "guard, with the firewall, with fixed neighbours, note");
	}
	HostileCell cell;
	readAttack(columns[0], cell);
	cell.master = nodeFrom(columns[1]);
	cell.target = nodeFrom(columns[2]);
	cell.name = cell.attack + (cell.detail.empty() ? "" : "/" + cell.detail) + "/" + columns[2] + "/" +
	            (cell.master == cell.target ? "master" : "standby");
	if (columns[3] != "-")
	{
		cell.event = faultFrom(columns[3]);
		cell.name += "/" + columns[3];
	}
	cell.outcomes[0] = outcomeFrom(columns[4]);
	cell.outcomes[1] = outcomeFrom(columns[5]);
	cell.outcomes[2] = columns[6] == "=" ? cell.outcomes[1] : outcomeFrom(columns[6]);
	const bool open = std::any_of(cell.outcomes.begin(), cell.outcomes.end(),
	                              [](const HostileOutcome& outcome) { return outcome.after == "either"; });
	if (open && attackNamed(cell.attack).lasting)
	{
		throw LabError("the node that serves after the attack " + cell.attack + " has to be told");
	}
	cell.note = columns.size() == 8 ? columns[7] : std::string();
	return cell;
}

} // namespace

const char* nameOf(Away away)
{
	switch (away)
	{
	case Away::none:
		return "-";
	case Away::some:
		return "some";
	case Away::mostly:
		return "mostly";
	case Away::lasting:
		return "lasting";
	default:
		return "any";
	}
}

bool isOwner(const std::string& owners, const std::string& word)
{
	return word == "any" || owners == word || (word == "either" && (owners == "a" || owners == "b"));
}

std::vector<HostileCell> parseHostileTable(const std::string& text)
{
	std::vector<HostileCell> cells;
	std::istringstream stream(text);
	int number = 0;
	for (std::string line; std::getline(stream, line);)
	{
		++number;
		const std::string content = trimmed(line.substr(0, line.find('#')));
		if (content.empty())
		{
			continue;
		}
		try
		{
			const HostileCell cell = cellFrom(columnsOf(content));
			if (std::any_of(cells.begin(), cells.end(),
			                [&](const HostileCell& other) { return other.name == cell.name; }))
			{
				throw LabError("the case " + cell.name + " is there twice");
			}
			cells.push_back(cell);
		}
		catch (const LabError& error)
		{
			throw LabError("line " + std::to_string(number) + " of the table of attacks: " + error.what());
		}
	}
	return cells;
}

std::vector<HostileCell> readHostileTable(const std::string& path)
{
	return parseHostileTable(contentOf(path.empty() ? VELARIX_LAB_HOSTILE : path));
}

} // namespace velarix::lab
