#include "lab/campaigns/hostile/CaseTable.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "lab/campaigns/hostile/IcmpForgery.h"
#include "lab/campaigns/hostile/Payload.h"
#include "lab/core/Files.h"

namespace velarix::lab::hostile
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

Outage outageFrom(const std::string& word)
{
	for (const Outage outage : {Outage::none, Outage::some, Outage::mostly, Outage::lasting, Outage::any})
	{
		if (word == nameOf(outage))
		{
			return outage;
		}
	}
	throw LabError("\"" + word + "\" is no outage (-, some, mostly, lasting, any)");
}

std::optional<bool> duplicateFrom(const std::string& word)
{
	oneOf(word, {"0", "+", "*"}, "word for a duplicate address (0, +, *)");
	return word == "*" ? std::optional<bool>() : word == "+";
}

Outcome outcomeFrom(const std::string& column)
{
	std::istringstream stream(column);
	std::string owner;
	std::string outage;
	std::string duplicate;
	std::string after;
	std::string more;
	if (!(stream >> owner >> outage >> duplicate >> after) || stream >> more)
	{
		throw LabError("an outcome is owner, outage, duplicate address, owner after it: \"" + column + "\" is not");
	}
	return {oneOf(owner, {"a", "b", "a+b", "none", "either", "any"}, "owner"), outageFrom(outage),
	        duplicateFrom(duplicate), oneOf(after, {"a", "b", "either"}, "node")};
}

void readAttack(const std::string& word, Case& cell)
{
	const std::size_t colon = word.find(':');
	cell.attack = word.substr(0, colon);
	cell.detail = colon == std::string::npos ? std::string() : word.substr(colon + 1);
	attackNamed(cell.attack);
	static const std::set<std::string> forging{"forged", "forged-service", "repeated", "spoofed-partner"};
	if (forging.contains(cell.attack))
	{
		forgedHeartbeat(cell.detail);
	}
	else if (cell.attack == "replay")
	{
		nodeFrom(cell.detail);
	}
	else if (cell.attack == "icmp-wrong-id" || cell.attack == "icmp-requests")
	{
		sourcesNamed(cell.target, cell.detail);
	}
	else if (!cell.detail.empty())
	{
		throw LabError("the attack " + cell.attack + " has no detail");
	}
}

Case cellFrom(const std::vector<std::string>& columns)
{
	if (columns.size() < 8 || columns.size() > 9)
	{
		throw LabError("a row has eight or nine columns: attack, node that serves, target, event, outcome without "
		               "mitigation, with the port closed, with the firewall, with fixed neighbours, note");
	}
	Case cell;
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
	for (std::size_t step = 1; step < cell.outcomes.size(); ++step)
	{
		const std::string& column = columns[4 + step];
		cell.outcomes[step] = column == "=" ? cell.outcomes[step - 1] : outcomeFrom(column);
	}
	const bool open = std::any_of(cell.outcomes.begin(), cell.outcomes.end(),
	                              [](const Outcome& outcome) { return outcome.after == "either"; });
	if (open && attackNamed(cell.attack).lasting)
	{
		throw LabError("the node that serves after the attack " + cell.attack + " has to be given");
	}
	cell.note = columns.size() == 9 ? columns[8] : std::string();
	return cell;
}

} // namespace

const char* nameOf(Outage outage)
{
	switch (outage)
	{
	case Outage::none:
		return "-";
	case Outage::some:
		return "some";
	case Outage::mostly:
		return "mostly";
	case Outage::lasting:
		return "lasting";
	default:
		return "any";
	}
}

bool isOwner(const std::string& owners, const std::string& word)
{
	return word == "any" || owners == word || (word == "either" && (owners == "a" || owners == "b"));
}

std::vector<Case> parseTable(const std::string& text)
{
	std::vector<Case> cells;
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
			const Case cell = cellFrom(columnsOf(content));
			if (std::any_of(cells.begin(), cells.end(), [&](const Case& other) { return other.name == cell.name; }))
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

std::vector<Case> readTable(const std::string& path)
{
	return parseTable(contentOf(path.empty() ? VELARIX_LAB_HOSTILE : path));
}

} // namespace velarix::lab::hostile
