#include "lab/campaigns/hostile/CaseTable.h"

#include <algorithm>
#include <set>

#include "lab/campaigns/hostile/Heartbeats.h"
#include "lab/tables/Toml.h"

namespace velarix::lab::hostile
{

namespace
{

/// In the order of the enumerators.
constexpr std::array<const char*, 5> outages{"none", "some", "mostly", "lasting", "any"};

Outage outageFrom(const TomlTable& row)
{
	const std::string word = row.oneOf("outage", {outages.begin(), outages.end()}, outages[0]);
	return static_cast<Outage>(std::ranges::find(outages, word) - outages.begin());
}

Outcome outcomeFrom(const TomlTable& row)
{
	row.allowOnly({"owner", "outage", "duplicate", "after"});
	const std::string owner = row.oneOf("owner", {"a", "b", "a+b", "none", "either", "any"});
	const std::string duplicate = row.oneOf("duplicate", {"never", "some", "perhaps"}, "never");
	return {owner, outageFrom(row), duplicate == "perhaps" ? std::optional<bool>() : duplicate == "some",
	        row.oneOf("after", {"a", "b", "either"}, owner)};
}

void requireDetail(const Case& cell)
{
	attackNamed(cell.attack);
	static const std::set<std::string> forging{"forged", "forged-service", "repeated", "spoofed-partner"};
	if (forging.contains(cell.attack))
	{
		forgedHeartbeat(cell.detail);
	}
	else if (cell.attack == "replay")
	{
		if (cell.detail != "a" && cell.detail != "b")
		{
			throw LabError("\"" + cell.detail + "\" is no node");
		}
	}
	else if (cell.attack == "icmp-wrong-id" || cell.attack == "icmp-requests")
	{
		if (cell.detail != "gateway" && cell.detail != "partner")
		{
			throw LabError("\"" + cell.detail + "\" is no source of forged ICMP: gateway, partner");
		}
	}
	else if (!cell.detail.empty())
	{
		throw LabError("the attack " + cell.attack + " has no detail");
	}
}

Case caseFrom(const TomlTable& row)
{
	constexpr std::array<const char*, 5> mitigations{"open", "port", "firewall", "neighbours", "tunnel"};
	row.allowOnly(
	    {"attack", "detail", "serves", "target", "event", "open", "port", "firewall", "neighbours", "tunnel", "note"});
	Case cell;
	cell.attack = row.text("attack");
	cell.detail = row.text("detail", "");
	cell.master = *hostNamed(row.oneOf("serves", {"a", "b"}));
	cell.target = *hostNamed(row.oneOf("target", {"a", "b"}));
	requireDetail(cell);
	cell.name = cell.attack + (cell.detail.empty() ? "" : "/" + cell.detail) + "/" + nameOf(cell.target) + "/" +
	            (cell.master == cell.target ? "master" : "standby");
	if (row.has("event"))
	{
		cell.event = faultFrom(row.text("event"));
		cell.name += "/" + row.text("event");
	}
	for (std::size_t step = 0; step < mitigations.size(); ++step)
	{
		const char* name = mitigations[step];
		// The tunnel comes with the firewall, and without fixed neighbours.
		const std::size_t former = name == std::string("tunnel") ? step - 2 : step - 1;
		cell.outcomes[step] = step == 0 || row.has(name) ? outcomeFrom(row.table(name)) : cell.outcomes[former];
	}
	const bool open = std::any_of(cell.outcomes.begin(), cell.outcomes.end(),
	                              [](const Outcome& outcome) { return outcome.after == "either"; });
	if (open && attackNamed(cell.attack).lasting)
	{
		throw LabError("the node that serves after the attack " + cell.attack + " has to be given");
	}
	cell.note = row.text("note", "");
	return cell;
}

std::vector<Case> casesFrom(const TomlTable& file)
{
	file.allowOnly({"cases"});
	std::vector<Case> cells;
	for (const TomlTable& row : file.tables("cases"))
	{
		const Case cell = row.atLine([&] { return caseFrom(row); });
		if (std::any_of(cells.begin(), cells.end(), [&](const Case& other) { return other.name == cell.name; }))
		{
			throw LabError("the case " + cell.name + " is there twice");
		}
		cells.push_back(cell);
	}
	return cells;
}

} // namespace

const char* nameOf(Outage outage)
{
	return outage == Outage::none ? "-" : outages.at(static_cast<std::size_t>(outage));
}

bool isOwner(const std::string& owners, const std::string& word)
{
	return word == "any" || owners == word || (word == "either" && (owners == "a" || owners == "b"));
}

std::vector<Case> parseTable(const std::string& text)
{
	return casesFrom(TomlTable::parse(text));
}

std::vector<Case> readTable(const std::string& path)
{
	return casesFrom(TomlTable::read(path.empty() ? VELARIX_LAB_HOSTILE : path));
}

} // namespace velarix::lab::hostile
