#include "lab/campaigns/hostile/Attacks.h"

#include <algorithm>
#include <array>
#include <set>
#include <string_view>

#include "lab/core/Basics.h"
#include "lab/tables/Toml.h"

namespace velarix::lab::hostile
{

namespace
{

constexpr long highestPort = 65535;

constexpr AttackGoal receivedOnce{.messages = 1, .received = 1};
/// Of a message a second, in the shortest time that a pair is watched.
constexpr AttackGoal holdsReceiver{.messages = 10, .read = 10};

/// It lasts, and does not use the heartbeat port.
constexpr AttackInfo beside(const char* name, const char* what, Mitigation stoppedBy,
                            TakenAddress takes = TakenAddress::nothing, bool slowPings = false, bool relays = false)
{
	return {.name = name,
	        .lasting = true,
	        .takes = takes,
	        .relays = relays,
	        .slowPings = slowPings,
	        .what = what,
	        .portUse = PortUse::none,
	        .stoppedBy = stoppedBy};
}

/// On the service network, where no mitigation keeps it out.
constexpr AttackInfo onKeeper(const char* name, const char* what, long leastTries, bool lasting = true)
{
	AttackInfo attack = beside(name, what, Mitigation::none);
	attack.lasting = lasting;
	attack.onKeeper = true;
	attack.leastTries = leastTries;
	return attack;
}

using enum Mitigation;

constexpr std::array<AttackInfo, 39> attacks{{
    {.name = "random",
     .what = "random messages, each on a connection of its own",
     .goal = {.messagesPer = 1, .readPer = 500}},
    {.name = "random-one-by-one",
     .what = "random messages on one connection, each waited for",
     .goal = {.messagesPer = 20, .readPer = 20}},
    {.name = "client-pool",
     .lasting = true,
     .what = "200 clients at once that say nothing",
     // Open: what the kernel lets wait at a port that the agent opens for 64.
     .goal = {.atOnce = 200, .open = 64}},
    {.name = "silent", .lasting = true, .what = "a connection that says nothing, again and again"},
    {.name = "slow",
     .lasting = true,
     .mark = "received message: ~",
     .what = "20 clients that write one byte a second",
     .partner = PartnerReceived::hardly,
     .goal = holdsReceiver},
    {.name = "hold-connection",
     .lasting = true,
     .mark = "received message: /held/",
     .what = "one client that says something every second",
     .partner = PartnerReceived::hardly,
     .goal = holdsReceiver},
    {.name = "half-closed",
     .lasting = true,
     .mark = "received message: /staying/",
     .what = "clients that never close their end", // each costs the receiver its receiving time
     .partner = PartnerReceived::hardly,
     .goal = {.messages = 3, .read = 3}},
    {.name = "burst",
     .mark = "received message: ~",
     .what = "16 KiB in one connection, closed at once",
     .goal = receivedOnce},
    {.name = "resets", .what = "half a message, then a reset", .goal = {.connectionsPer = 10}},
    {.name = "syn-flood",
     .lasting = true,
     .what = "connection requests from hosts that are not there",
     .portUse = PortUse::frames,
     .partner = PartnerReceived::always},
    {.name = "syn-flood-no-cookies",
     .lasting = true,
     .bareTarget = true,
     .what = "the same, and the kernel of the target answers without SYN cookies",
     .portUse = PortUse::frames,
     .partner = PartnerReceived::hardly},
    {.name = "scan-connect", .what = "a connection to each of the 65535 ports", .leastTries = highestPort},
    {.name = "scan-syn",
     .what = "a request to each of the 65535 ports, never followed up",
     .portUse = PortUse::frames,
     .partner = PartnerReceived::always,
     .leastTries = highestPort},
    {.name = "replay", .what = "a heartbeat overheard on a node's interface, sent again", .goal = receivedOnce},
    {.name = "forged", .what = "one heartbeat that no agent sent", .goal = receivedOnce},
    {.name = "forged-service",
     .overService = true,
     .what = "one heartbeat that no agent sent, from the service network",
     .goal = receivedOnce},
    {.name = "repeated", .what = "the same four times on one connection", .goal = {.messages = 4, .received = 4}},
    {.name = "line-feeds", .what = "a message that looks like lines of the log", .goal = receivedOnce},
    {.name = "false-master",
     .lasting = true,
     .what = "a master's heartbeat twice a second",
     .goal = {.messages = 1, .read = 1}},
    {.name = "blind-syn",
     .lasting = true,
     .overService = true,
     .what = "connection requests with the partner's address, from the service network",
     .portUse = PortUse::frames,
     .partner = PartnerReceived::always},
    {.name = "spoofed-partner",
     .lasting = true,
     .takes = TakenAddress::partner,
     .what = "one forged heartbeat from the partner's address, with ARP answers to match",
     .stoppedBy = neighbours,
     .goal = receivedOnce},
    beside("impersonate-partner", "the partner's address taken over, with ARP answers to match", neighbours,
           TakenAddress::partner),
    beside("arp-cut-partner", "ARP answers that lead the partner's address to nobody", neighbours),
    beside("relay", "ARP answers that lead the nodes to the attacker, who passes packets on from its own address",
           neighbours, TakenAddress::nothing, false, true),
    beside("recorded", "packets that have reached the target, sent again and again", none),
    beside("arp-cut-gateway", "ARP answers that lead the gateway's address to nobody", neighbours),
    beside("arp-cut-node", "ARP answers to the gateway that lead the node's address to nobody", neighbours),
    beside("arp-claim-service", "ARP answers to a client that lead the service address to nobody", none),
    beside("impersonate-service", "the service address answered for, to the target alone", none, TakenAddress::service),
    beside("icmp-wrong-id", "echo replies with wrong identifiers from an address that the target pings", firewall,
           TakenAddress::nothing, true),
    beside("icmp-requests", "echo requests from an address that the target pings", firewall, TakenAddress::nothing,
           true),
    beside("icmp-known-id", "echo replies from the partner's address with the identifier of the target's pings",
           neighbours),
    onKeeper("arp-announcements", "ARP announcements of the service address by another host, hundreds a second", 1000),
    onKeeper("arp-claims", "ARP answers with the service address of another host, to the target alone", 100),
    onKeeper("arp-requests", "ARP requests for the service address, thousands a second", 10000),
    onKeeper("arp-probes", "ARP probes for the service address, thousands a second", 10000),
    onKeeper("arp-malformed", "ARP packets that are cut short or have wrong fields, thousands a second", 10000),
    onKeeper("arp-answers", "an answer to each ARP probe for the service address", 5),
    onKeeper("address-removals", "the service address removed by root of the target, for ten seconds", 100, false),
}};

} // namespace

std::span<const AttackInfo> allAttacks()
{
	return attacks;
}

const AttackInfo& attackNamed(std::string_view name)
{
	if (const auto* found = std::ranges::find(attacks, name, &AttackInfo::name); found != attacks.end())
	{
		return *found;
	}
	throw LabError("there is no attack \"" + std::string(name) + "\"");
}

namespace
{

constexpr std::string_view headOfMessage = "received message: ";

/// Attackers have start times of their own.
bool isOfAgent(std::string_view message)
{
	constexpr std::string_view prefix = "/process/";
	constexpr std::size_t timeAt = prefix.size() + 4; // behind "R/M/"
	constexpr std::size_t timeSize = 14;
	if (!message.starts_with(prefix) || message.size() <= timeAt + timeSize || message[timeAt + timeSize] != '/')
	{
		return false;
	}
	const std::string_view time = message.substr(timeAt, timeSize);
	return time.find_first_not_of("0123456789") == std::string_view::npos && time != forgedTime && time != randomTime;
}

} // namespace

std::string forgedHeartbeat(const std::string& fields)
{
	if (fields.size() != 5 || fields[1] != '-' || fields[3] != '-')
	{
		throw LabError("\"" + fields + "\" is no heartbeat: ROLE-RUNNING-ASK, for example 2-0-1");
	}
	return std::string("/process/") + fields[2] + "/" + fields[0] + "/" + forgedTime + "/" + fields[4] + "/";
}

ReceivedCounts receivedIn(const std::string& log)
{
	ReceivedCounts counts;
	const std::string_view text = log;
	for (std::size_t at = text.find(headOfMessage); at != std::string_view::npos; at = text.find(headOfMessage, at))
	{
		at += headOfMessage.size();
		++counts.all;
		counts.partner += isOfAgent(text.substr(at, 64)) ? 1 : 0;
	}
	return counts;
}

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
	return parseTable(contentOf(std::filesystem::path(path.empty() ? VELARIX_LAB_HOSTILE : path)));
}

} // namespace velarix::lab::hostile
