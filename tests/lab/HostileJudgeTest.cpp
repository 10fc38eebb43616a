/// The table of attacks and the verdict on a case, without a pair.
#include <algorithm>

#include <gtest/gtest.h>

#include "lab/campaigns/Json.h"
#include "lab/campaigns/hostile/Attacks.h"
#include "lab/campaigns/hostile/Run.h"

namespace velarix::lab::hostile
{

namespace
{

using nlohmann::json;
using enum Mitigation;

/// A run of an attack on node b, with --count 200, that got everywhere and changed nothing.
json calmRecord()
{
	Record record;
	record.during.owner = record.owner = "a";
	record.before.roles = record.after.roles = {"master", "slave"};
	record.before.agents = {AgentFigures{10, 4, 5, 7000}, AgentFigures{11, 4, 5, 7000}};
	record.after.agents = record.before.agents;
	record.keeperBefore = record.keeperAfter = {20, 100, 2000};
	record.during.durationMs = 10000;
	record.tries = 65535;
	record.connections = record.messages = record.atOnce = 200;
	record.open = 64;
	record.received = 4;
	record.read = 210;
	record.partner = 10;
	return record;
}

/// The same behind a mitigation that keeps the attacker out.
json keptOutRecord()
{
	json record = calmRecord();
	for (const char* reached : {"connections", "messages", "atOnce", "open", "received"})
	{
		record[reached] = 0;
	}
	record["read"] = 10;
	record["dropped"] = 1;
	return record;
}

/// A table of one case. A detail of the attack stands behind a colon.
std::string caseOf(const std::string& name, const std::string& more = "open = { owner = \"a\" }",
                   const std::string& target = "b")
{
	const std::size_t colon = name.find(':');
	const std::string detail = colon == std::string::npos ? "" : "detail = \"" + name.substr(colon + 1) + "\", ";
	return "cases = [ { attack = \"" + name.substr(0, colon) + "\", serves = \"a\", target = \"" + target + "\", " +
	       detail + more + " } ]\n";
}

struct Row
{
	const char* attack;
	Mitigation mitigation;
	json record;
	std::vector<std::pair<const char*, json>> changes; ///< of the record, by JSON pointer
	const char* reported;                              ///< all differences
	std::string outcome = "owner = \"a\"";
	const char* target = "b";
};

std::string reportedOf(const Row& row)
{
	Plan plan;
	plan.cell = parseTable(caseOf(row.attack, "open = { " + row.outcome + " }", row.target)).front();
	plan.mitigation = row.mitigation;
	plan.count = 200;
	json record = row.record;
	for (const auto& [place, value] : row.changes)
	{
		record[json::json_pointer(place)] = value;
	}
	std::string text;
	for (const std::string& difference : differencesOf(record.get<Record>(), plan))
	{
		text += (text.empty() ? "" : "; ") + difference;
	}
	return text;
}

const json open = calmRecord();
const json keptOut = keptOutRecord();
constexpr const char* fewHeartbeats = "heartbeats of the partner read 2, expected at least 3";
constexpr const char* manyHeartbeats = "heartbeats of the partner read 3, expected at most 2";
constexpr const char* notReceived = "messages received by the target 0, expected at least 1";
constexpr const char* notDropped = "packets dropped by the firewall 0, expected at least 1";
constexpr const char* either = R"(owner = "either", duplicate = "perhaps")";

const std::vector<Row> rows{
    // What comes of the pair.
    {"silent", none, open, {}, ""},
    {"silent", none, open, {{"/during/owner", "b"}}, "owner while attacked b, expected a"},
    {"silent", none, open, {{"/during/outageMs", 1200}}, "outage some (1.200 s), expected -"},
    {"silent", none, open, {{"/during/moves", 2}}, "moves 2, expected none"},
    {"silent", none, open, {{"/during/duplicateMs", 20}}, "duplicate address for 0.020 s, expected no time"},
    {"silent", none, open, {{"/during/ended", "b"}}, "agents that ended by themselves: b, expected none"},
    {"silent", none, open, {{"/owner", "none"}}, "owner at rest none, expected a"},
    {"silent", none, open, {{"/after/roles/1", "master"}}, "role of node b master, expected slave"},
    {"silent", none, open, {{"/after/agents/1/pid", 0}}, "agent of node b gone, expected the same process"},
    {"silent", none, open, {{"/after/agents/0/threads", 3}}, "threads of node a 3, expected 4"},
    {"silent", none, open, {{"/after/agents/0/descriptors", 8}}, "descriptors of node a 8, expected at most 7"},
    {"silent",
     none,
     open,
     {{"/after/agents/0/residentKib", 11097}},
     "resident KiB of node a 11097, expected at most 11096"},
    {"arp-cut-partner",
     none,
     open,
     {},
     "outage - (0.000 s), expected some; duplicate address for 0.000 s, expected some time",
     R"(owner = "a", outage = "some", duplicate = "some")"},
    {"false-master",
     none,
     open,
     {{"/during/noAnswerMs", 5000}},
     "outage for 5.000 s of 10.000 s, expected mostly",
     R"(owner = "any", outage = "mostly", after = "a")"},
    {"false-master",
     none,
     open,
     {{"/during/noAnswerMs", 5001}},
     "",
     R"(owner = "any", outage = "mostly", after = "a")"},
    {"forged:1-0-0", none, open, {{"/owner", "b"}, {"/after/roles", {"slave", "master"}}}, "", either},
    {"forged:1-0-0", none, open, {{"/during/owner", "a+b"}}, "owner while attacked a+b, expected either", either},
    // What it cost the keeper of the target, which is another process where the address has moved.
    {"silent", none, open, {{"/keeperAfter/pid", 0}}, ""},
    {"arp-probes", none, open, {{"/keeperAfter/pid", 0}}, ""},
    {"arp-probes", none, open, {{"/keeperAfter/pid", 0}}, "keeper's process 0, expected 20", R"(owner = "a")", "a"},
    {"arp-probes", none, open, {{"/keeperAfter/pid", 21}}, "keeper's process 21, expected 20", R"(owner = "a")", "a"},
    {"arp-probes",
     none,
     open,
     {{"/keeperAfter/cpuMs", 1101}},
     "processor time of the keeper (ms) 1001, expected at most 1000"},
    {"arp-probes",
     none,
     open,
     {{"/keeperAfter/residentKib", 4097}},
     "resident KiB of the keeper 4097, expected at most 4096"},
    // Whether the attack happened.
    {"silent", none, open, {{"/connections", 0}}, "connections 0, expected at least 1"},
    {"syn-flood", none, open, {{"/tries", 0}}, "tries 0, expected at least 1"},
    {"scan-syn", none, open, {{"/tries", 65534}}, "tries 65534, expected at least 65535"},
    {"random", none, open, {{"/messages", 199}}, "messages written 199, expected at least 200"},
    {"random-one-by-one", none, open, {{"/messages", 9}}, "messages written 9, expected at least 10"},
    {"resets", none, open, {{"/connections", 19}}, "connections 19, expected at least 20"},
    {"client-pool", none, open, {{"/atOnce", 199}}, "clients at once 199, expected at least 200"},
    {"client-pool", none, open, {{"/open", 63}}, "clients connected at once 63, expected at least 64"},
    {"forged:1-0-0", none, open, {{"/received", 0}}, notReceived},
    {"replay:a", none, open, {{"/received", 0}}, notReceived},
    {"line-feeds", none, open, {{"/received", 0}}, notReceived},
    {"burst", none, open, {{"/received", 0}}, notReceived},
    {"repeated:2-0-0", none, open, {{"/received", 3}}, "messages received by the target 3, expected at least 4"},
    {"arp-cut-partner", none, open, {{"/connections", 0}}, ""},
    // What was written need not have been read: the receiver drops those that wait.
    {"random", none, open, {{"/read", 10}}, "messages read that are not the partner's 0, expected at least 1"},
    {"random-one-by-one",
     none,
     open,
     {{"/read", 19}},
     "messages read that are not the partner's 9, expected at least 10"},
    {"half-closed",
     none,
     open,
     {{"/read", 4}, {"/partner", 2}},
     "messages read that are not the partner's 2, expected at least 3"},
    // The partner has to pass where attackers are kept out, and hardly does elsewhere.
    {"syn-flood", none, open, {{"/partner", 2}}, fewHeartbeats},
    {"syn-flood-no-cookies", none, open, {{"/partner", 2}}, ""},
    {"syn-flood-no-cookies", none, open, {{"/partner", 3}}, manyHeartbeats},
    {"syn-flood-no-cookies", firewall, keptOut, {{"/partner", 2}}, fewHeartbeats},
    {"hold-connection", none, open, {{"/partner", 3}}, manyHeartbeats},
    {"hold-connection", firewall, keptOut, {{"/partner", 2}}, fewHeartbeats},
    {"slow", none, open, {{"/partner", 3}}, manyHeartbeats},
    {"arp-cut-gateway", firewall, open, {{"/partner", 2}}, ""},
    {"arp-cut-gateway", neighbours, keptOut, {{"/partner", 2}}, fewHeartbeats},
    {"arp-claim-service", neighbours, open, {{"/partner", 2}}, ""},
    // Whether the mitigation stopped it.
    {"random", firewall, keptOut, {}, ""},
    {"random", firewall, keptOut, {{"/connections", 1}}, "connections behind the mitigation 1, expected none"},
    {"random", firewall, keptOut, {{"/dropped", 0}}, notDropped},
    {"scan-connect", firewall, keptOut, {{"/dropped", 0}}, notDropped},
    {"syn-flood", neighbours, keptOut, {{"/dropped", 0}}, notDropped},
    // A spoofed partner passes the firewall, and has to; the neighbours drop nothing.
    {"spoofed-partner:1-0-0", firewall, open, {{"/received", 0}}, notReceived},
    {"spoofed-partner:1-0-0", neighbours, open, {}, "connections behind the mitigation 200, expected none"},
    {"spoofed-partner:1-0-0", neighbours, keptOut, {{"/dropped", 0}}, ""},
    // The rules for the heartbeat port let forged ICMP pass.
    {"icmp-wrong-id:gateway", port, keptOut, {{"/dropped", 0}}, ""},
    {"icmp-wrong-id:gateway", firewall, keptOut, {{"/dropped", 0}}, notDropped},
};

} // namespace

TEST(HostileJudge, ReportsEachDifferenceAndNothingElse)
{
	for (const Row& row : rows)
	{
		EXPECT_EQ(reportedOf(row), row.reported)
		    << row.attack << ", " << nameOf(row.mitigation) << ", " << json(row.changes).dump();
	}
}

TEST(HostileTable, RefusesWhatItDoesNotKnow)
{
	const std::string open = "open = { owner = \"a\" }";
	const Case good =
	    parseTable(caseOf("hold-connection", "event = \"power-off:a\", open = { owner = \"none\", outage = "
	                                         "\"lasting\", after = \"b\" }, port = { owner = \"b\", outage = "
	                                         "\"some\", duplicate = \"perhaps\" }"))
	        .front();
	EXPECT_EQ(good.name, "hold-connection/b/standby/power-off:a");
	EXPECT_EQ(good.expected(none).after, "b");
	EXPECT_EQ(good.expected(none).duplicate, false);
	EXPECT_EQ(good.expected(neighbours).outage, Outage::some);
	EXPECT_EQ(good.expected(neighbours).duplicate, std::nullopt);
	for (const std::string& bad :
	     {caseOf("hold-connection", "note = \"no outcome\""), caseOf("hug"), caseOf("hold-connection", open, "c"),
	      caseOf("hold-connection", "open = { outage = \"some\" }"),
	      caseOf("hold-connection", "open = { owner = \"a\", outage = \"never\" }"),
	      caseOf("hold-connection", "open = { owner = \"none\" }"), caseOf("forged:3", open),
	      caseOf("hold-connection:a", open), caseOf("false-master", "open = { owner = \"a\", after = \"either\" }"),
	      caseOf("icmp-wrong-id:client", open), caseOf("replay:x", open),
	      caseOf("hold-connection", "event = \"nap:a\", " + open), caseOf("hold-connection", "loud = true, " + open)})
	{
		EXPECT_THROW(parseTable(bad), LabError) << bad;
	}
	const std::string row = "{ attack = \"silent\", serves = \"a\", target = \"b\", " + open + " }";
	EXPECT_THROW(parseTable("cases = [ " + row + ", " + row + " ]"), LabError);
}

TEST(HostileTable, OfThisBuildHasEachAttackAndEachForgedHeartbeat)
{
	const std::vector<Case> cells = readTable("");
	for (const AttackInfo& attack : allAttacks())
	{
		EXPECT_TRUE(std::ranges::any_of(cells, [&](const Case& cell) { return cell.attack == attack.name; }))
		    << attack.name;
	}
	EXPECT_EQ(std::ranges::count_if(cells, [](const Case& cell) { return cell.attack == "forged" && !cell.event; }),
	          2 * 2 * 8);
}

TEST(HostileReceived, TellsThePartnersHeartbeatsFromTheAttackers)
{
	const std::string head = "2026-11-21 19:00:00.0 [1:3][CHeartReciver:164] <D> received message: ";
	const ReceivedCounts counts =
	    receivedIn(head + "/process/1/1/20261121190000/0/\n" + head + "/process/0/2/20261121190000/1/\n" + head +
	               forgedHeartbeat("1-1-0") + "\n" + head + "/process/1/1/20260101000000/1/\n" + head +
	               "/process/1/1/2026112119000/0/\n" + head + "/proces/1/1/20261121190000/0/\n" + head + "\n" +
	               "poll\n" + head + "~");
	EXPECT_EQ(counts.all, 8);
	EXPECT_EQ(counts.partner, 2);
	EXPECT_EQ(receivedIn("").all, 0);
}

} // namespace velarix::lab::hostile
