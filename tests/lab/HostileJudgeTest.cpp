/// The table of attacks and the verdict on a case, without a pair.

#include <algorithm>
#include <functional>

#include <gtest/gtest.h>

#include "lab/campaigns/hostile/Judge.h"

namespace velarix::lab::hostile
{

namespace
{

Record calmRecord()
{
	Record record;
	record.during.owner = "a";
	record.owner = "a";
	record.before.roles = {"master", "slave"};
	record.after.roles = {"master", "slave"};
	record.before.agents = {AgentFigures{10, 4, 5, 7000}, AgentFigures{11, 4, 5, 7000}};
	record.after.agents = record.before.agents;
	record.during.durationMs = 10000;
	record.tries = 200;
	record.connections = 200;
	record.messages = 200;
	record.atOnce = 200;
	record.open = 64;
	record.received = 4;
	record.read = 210;
	record.partner = 10;
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

Plan planOf(const std::string& row, Mitigation mitigation = Mitigation::none)
{
	Plan plan;
	plan.cell = parseTable(row).front();
	plan.mitigation = mitigation;
	plan.count = 200;
	return plan;
}

/// What is reported of a record that was calm but for the change.
std::string reportedOf(const Plan& plan, const std::function<void(Record&)>& change)
{
	Record record = calmRecord();
	change(record);
	const std::vector<std::string> found = differencesOf(record, plan);
	return found.size() == 1 ? found.front() : std::to_string(found.size()) + " differences";
}

/// The same for an attack that leaves the service on node a.
std::string reportedOfAttack(const std::string& attack, Mitigation mitigation,
                             const std::function<void(Record&)>& change)
{
	return reportedOf(planOf(caseOf(attack), mitigation), change);
}

/// What the record has behind a mitigation that keeps the attacker out.
void keepOut(Record& record)
{
	record.connections = record.messages = record.atOnce = record.open = record.received = 0;
	record.read = record.partner;
	record.dropped = 1;
}

} // namespace

TEST(HostileTable, RefusesWhatItDoesNotKnow)
{
	const std::string open = "open = { owner = \"a\" }";
	const Case good =
	    parseTable(caseOf("hold-connection", "event = \"power-off:a\", open = { owner = \"none\", outage = "
	                                         "\"lasting\", after = \"b\" }, port = { owner = \"b\", outage = "
	                                         "\"some\", duplicate = \"perhaps\" }"))
	        .front();
	EXPECT_EQ(good.name, "hold-connection/b/standby/power-off:a");
	EXPECT_EQ(good.expected(Mitigation::none).after, "b");
	EXPECT_EQ(good.expected(Mitigation::none).duplicate, false);
	EXPECT_EQ(good.expected(Mitigation::neighbours).outage, Outage::some);
	EXPECT_EQ(good.expected(Mitigation::neighbours).duplicate, std::nullopt);
	for (const std::string& bad :
	     {caseOf("hold-connection", "note = \"no outcome\""), caseOf("hug"), caseOf("hold-connection", open, "c"),
	      caseOf("hold-connection", "open = { outage = \"some\" }"),
	      caseOf("hold-connection", "open = { owner = \"a\", outage = \"never\" }"),
	      caseOf("hold-connection", "open = { owner = \"a\", duplicate = \"1\" }"),
	      caseOf("hold-connection", "open = { owner = \"none\" }"), caseOf("forged:3", open),
	      caseOf("hold-connection:a", open), caseOf("false-master", "open = { owner = \"a\", after = \"either\" }"),
	      caseOf("repeated"), caseOf("icmp-wrong-id:client", open), caseOf("replay:x", open),
	      caseOf("hold-connection", "event = \"nap:a\", " + open), caseOf("hold-connection", "loud = true, " + open),
	      caseOf("forged-service")})
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
		EXPECT_TRUE(
		    std::any_of(cells.begin(), cells.end(), [&](const Case& cell) { return cell.attack == attack.name; }))
		    << attack.name;
	}
	EXPECT_EQ(std::count_if(cells.begin(), cells.end(),
	                        [](const auto& cell) { return cell.attack == "forged" && !cell.event; }),
	          2 * 2 * 8);
}

TEST(HostileJudge, ReportsEachDifference)
{
	const Plan plan = planOf(caseOf("silent"));
	EXPECT_EQ(differencesOf(calmRecord(), plan), std::vector<std::string>{});
	const auto reported = [&](const std::function<void(Record&)>& change) { return reportedOf(plan, change); };
	EXPECT_EQ(reported([](Record& record) { record.during.owner = "b"; }), "owner while attacked b, expected a");
	EXPECT_EQ(reported([](Record& record) { record.during.outageMs = 1200; }), "outage some (1.200 s), expected -");
	EXPECT_EQ(reported([](Record& record) { record.during.moves = 2; }), "moves 2, expected none");
	EXPECT_EQ(reported([](Record& record) { record.during.duplicateMs = 20; }),
	          "duplicate address for 0.020 s, expected no time");
	EXPECT_EQ(reported([](Record& record) { record.during.ended = "b"; }),
	          "agents that ended by themselves: b, expected none");
	EXPECT_EQ(reported([](Record& record) { record.owner = "none"; }), "owner at rest none, expected a");
	EXPECT_EQ(reported([](Record& record) { record.after.roles[1] = "master"; }),
	          "role of node b master, expected slave");
	EXPECT_EQ(reported([](Record& record) { record.after.agents[1].pid = 0; }),
	          "agent of node b gone, expected the same process");
	EXPECT_EQ(reported([](Record& record) { record.after.agents[0].threads = 3; }), "threads of node a 3, expected 4");
	EXPECT_EQ(reported([](Record& record) { record.after.agents[0].descriptors = 8; }),
	          "descriptors of node a 8, expected at most 7");
	EXPECT_EQ(reported([](Record& record) { record.after.agents[0].residentKib = 11097; }),
	          "resident KiB of node a 11097, expected at most 11096");
}

TEST(HostileJudge, ReportsEachAttackThatDidNotHappen)
{
	const auto reported = [](const std::string& attack, const std::function<void(Record&)>& change)
	{ return reportedOfAttack(attack, Mitigation::none, change); };
	EXPECT_EQ(reported("silent", [](Record& record) { record.connections = 0; }), "connections 0, expected at least 1");
	EXPECT_EQ(reported("syn-flood", [](Record& record) { record.tries = 0; }), "tries 0, expected at least 1");
	EXPECT_EQ(reported("scan-syn", [](Record& record) { record.tries = 65534; }),
	          "tries 65534, expected at least 65535");
	EXPECT_EQ(reported("random", [](Record& record) { record.messages = 199; }),
	          "messages written 199, expected at least 200");
	EXPECT_EQ(reported("random-one-by-one", [](Record& record) { record.messages = 9; }),
	          "messages written 9, expected at least 10");
	EXPECT_EQ(reported("resets", [](Record& record) { record.connections = 19; }),
	          "connections 19, expected at least 20");
	EXPECT_EQ(reported("client-pool", [](Record& record) { record.atOnce = 199; }),
	          "clients at once 199, expected at least 200");
	EXPECT_EQ(reported("client-pool", [](Record& record) { record.open = 63; }),
	          "clients connected at once 63, expected at least 64");
	EXPECT_EQ(reported("forged:1-0-0", [](Record& record) { record.received = 0; }),
	          "messages received by the target 0, expected at least 1");
	EXPECT_EQ(reported("replay:a", [](Record& record) { record.received = 0; }),
	          "messages received by the target 0, expected at least 1");
	EXPECT_EQ(reported("line-feeds", [](Record& record) { record.received = 0; }),
	          "messages received by the target 0, expected at least 1");
	EXPECT_EQ(reported("repeated:2-0-0", [](Record& record) { record.received = 3; }),
	          "messages received by the target 3, expected at least 4");
	EXPECT_EQ(reported("burst", [](Record& record) { record.received = 0; }),
	          "messages received by the target 0, expected at least 1");
	EXPECT_EQ(reported("arp-cut-partner", [](Record& record) { record.connections = 0; }), "0 differences");
}

/// What was written need not have been read: the receiver drops those that wait.
TEST(HostileJudge, ReportsMessagesThatWereNotRead)
{
	const auto reported = [](const std::string& attack, long attackers)
	{
		return reportedOfAttack(attack, Mitigation::none,
		                        [&](Record& record)
		                        {
			                        record.partner = 2;
			                        record.read = 2 + attackers;
		                        });
	};
	EXPECT_EQ(reported("random", 0), "messages read that are not the partner's 0, expected at least 1");
	EXPECT_EQ(reported("random-one-by-one", 9), "messages read that are not the partner's 9, expected at least 10");
	EXPECT_EQ(reported("hold-connection", 9), "messages read that are not the partner's 9, expected at least 10");
	EXPECT_EQ(reported("slow", 9), "messages read that are not the partner's 9, expected at least 10");
	EXPECT_EQ(reported("half-closed", 2), "messages read that are not the partner's 2, expected at least 3");
	EXPECT_EQ(reported("silent", 0), "0 differences");
}

TEST(HostileJudge, ThePartnerHasToPassWhereAttackersAreKeptOut)
{
	const auto seldom = [](Record& record)
	{
		record.partner = 2;
		record.read = 202;
	};
	const auto keptOut = [&](Record& record)
	{
		seldom(record);
		keepOut(record);
	};
	const std::string reported = "heartbeats of the partner read 2, expected at least 3";
	EXPECT_EQ(reportedOfAttack("syn-flood", Mitigation::none, seldom), reported);
	EXPECT_EQ(reportedOfAttack("syn-flood-no-cookies", Mitigation::none, seldom), "0 differences");
	EXPECT_EQ(reportedOfAttack("syn-flood-no-cookies", Mitigation::firewall, keptOut), reported);
	EXPECT_EQ(reportedOfAttack("hold-connection", Mitigation::none, seldom), "0 differences");
	EXPECT_EQ(reportedOfAttack("hold-connection", Mitigation::firewall, keptOut), reported);
	EXPECT_EQ(reportedOfAttack("arp-cut-gateway", Mitigation::firewall, seldom), "0 differences");
	const auto often = [](Record& record) { record.partner = 3; };
	for (const char* attack : {"hold-connection", "slow", "half-closed", "syn-flood-no-cookies"})
	{
		EXPECT_EQ(reportedOfAttack(attack, Mitigation::none, often),
		          "heartbeats of the partner read 3, expected at most 2");
	}
	EXPECT_EQ(reportedOfAttack("arp-cut-gateway", Mitigation::neighbours, keptOut), reported);
	EXPECT_EQ(reportedOfAttack("arp-claim-service", Mitigation::neighbours, seldom), "0 differences");
}

TEST(HostileReceived, TellsThePartnersHeartbeatsFromTheAttackers)
{
	const std::string head = "2026-11-21 19:00:00.0 [1:3][CHeartReciver:164] <D> received message: ";
	const ReceivedCounts counts =
	    receivedIn(head + "/process/1/1/20261121190000/0/\n" + head + "/process/0/2/20261121190000/1/\n" + head +
	               "/process/1/1/20000101000000/0/\n" + head + "/process/1/1/20260101000000/1/\n" + head +
	               "/process/1/1/2026112119000/0/\n" + head + "/proces/1/1/20261121190000/0/\n" + head + "\n" +
	               "poll\n" + head + "~");
	EXPECT_EQ(counts.all, 8);
	EXPECT_EQ(counts.partner, 2);
	EXPECT_EQ(receivedIn("").all, 0);
}

TEST(HostileJudge, ReportsAMitigationThatStoppedNothing)
{
	for (const char* attack : {"random", "client-pool", "scan-connect", "forged:1-0-0"})
	{
		const auto reported = [&](const std::function<void(Record&)>& change)
		{
			return reportedOfAttack(attack, Mitigation::firewall,
			                        [&](Record& record)
			                        {
				                        record.tries = 65535;
				                        keepOut(record);
				                        change(record);
			                        });
		};
		EXPECT_EQ(reported([](Record&) {}), "0 differences") << attack;
		EXPECT_EQ(reported([](Record& record) { record.connections = 1; }),
		          "connections behind the mitigation 1, expected none");
		EXPECT_EQ(reported([](Record& record) { record.dropped = 0; }),
		          "packets dropped by the firewall 0, expected at least 1");
	}
	EXPECT_EQ(reportedOfAttack("syn-flood", Mitigation::neighbours, [](Record& record) { record.connections = 0; }),
	          "packets dropped by the firewall 0, expected at least 1");
}

/// It passes the firewall, and has to; fixed hardware addresses stop it, and nothing need be dropped.
TEST(HostileJudge, ASpoofedPartnerIsStoppedByTheNeighboursAlone)
{
	const auto heardNothing = [](Record& record) { record.received = 0; };
	EXPECT_EQ(reportedOfAttack("spoofed-partner:1-0-0", Mitigation::firewall, heardNothing),
	          "messages received by the target 0, expected at least 1");
	EXPECT_EQ(reportedOfAttack("spoofed-partner:1-0-0", Mitigation::neighbours, heardNothing),
	          "connections behind the mitigation 200, expected none");
	EXPECT_EQ(reportedOfAttack("spoofed-partner:1-0-0", Mitigation::neighbours,
	                           [](Record& record)
	                           {
		                           keepOut(record);
		                           record.dropped = 0;
	                           }),
	          "0 differences");
}

/// It sends nothing to the heartbeat port; the rules for it let the packets pass.
TEST(HostileJudge, ForgedIcmpHasToBeDroppedByTheWholeFirewall)
{
	const auto reported = [](Mitigation mitigation, long dropped)
	{
		return reportedOf(planOf(caseOf("icmp-wrong-id:gateway", "open = { owner = \"a\" }", "a"), mitigation),
		                  [&](Record& record)
		                  {
			                  keepOut(record);
			                  record.dropped = dropped;
		                  });
	};
	EXPECT_EQ(reported(Mitigation::port, 0), "0 differences");
	EXPECT_EQ(reported(Mitigation::firewall, 0), "packets dropped by the firewall 0, expected at least 1");
	EXPECT_EQ(reported(Mitigation::firewall, 1), "0 differences");
}

TEST(HostileJudge, AnOutageIsMostlyWhenItIsMoreThanHalfOfTheTime)
{
	const Plan plan =
	    planOf(caseOf("false-master",
	                  "open = { owner = \"any\", outage = \"mostly\", after = \"a\" }, port = { owner = \"a\" }", "a"));
	EXPECT_EQ(reportedOf(plan, [](Record& record) { record.during.noAnswerMs = 5001; }), "0 differences");
	EXPECT_EQ(reportedOf(plan, [](Record& record) { record.during.noAnswerMs = 5000; }),
	          "outage for 5.000 s of 10.000 s, expected mostly");
}

TEST(HostileJudge, EitherNodeIsOneOfTheTwoAndItsPartnerTheStandby)
{
	const Plan plan = planOf(caseOf(
	    "forged",
	    "detail = \"1-0-0\", open = { owner = \"either\", duplicate = \"perhaps\" }, port = { owner = \"a\" }", "a"));
	const auto reported = [&](const std::string& during, const std::string& after)
	{
		return reportedOf(
		    plan,
		    [&](Record& record)
		    {
			    record.during.owner = during;
			    record.owner = after;
			    record.after.roles = {after == "a" ? "master" : "slave", after == "b" ? "master" : "slave"};
		    });
	};
	EXPECT_EQ(reported("a", "b"), "0 differences");
	EXPECT_EQ(reported("b", "a"), "0 differences");
	EXPECT_EQ(reported("a+b", "a"), "owner while attacked a+b, expected either");
	EXPECT_EQ(reported("a", "none"), "owner at rest none, expected either");
}

TEST(HostileJudge, AnEffectThatDoesNotComeIsADifferenceToo)
{
	const Plan plan =
	    planOf(caseOf("arp-cut-partner",
	                  "open = { owner = \"a\", outage = \"some\", duplicate = \"some\" }, port = { owner = \"a\" }"));
	const std::vector<std::string> expected{"outage - (0.000 s), expected some",
	                                        "duplicate address for 0.000 s, expected some time"};
	EXPECT_EQ(differencesOf(calmRecord(), plan), expected);
}

TEST(HostileRecord, TravelsWhole)
{
	Record record = calmRecord();
	record.name = "hold-connection/b/standby";
	record.mitigation = "firewall";
	record.payload = "/process/1/1/20000101000000/0/";
	record.tries = 1;
	record.connections = 2;
	record.messages = 3;
	record.bytes = 4;
	record.atOnce = 9;
	record.open = 10;
	record.received = 11;
	record.during.noAnswerMs = 12;
	record.during.moves = 13;
	record.read = 5;
	record.partner = 14;
	record.dropped = 6;
	record.during.roles = {"off", "master"};
	record.during.outageMs = 7;
	record.during.outageOpen = true;
	record.during.duplicateMs = 8;
	record.differences = {"one"};
	record.timeline = "what was";
	EXPECT_EQ(toJson(recordFrom(toJson(record))), toJson(record));
	EXPECT_NE(toText({record}).find("hold-connection/b/standby: one"), std::string::npos);
	EXPECT_THROW(recordFrom("{}"), LabError);
}

} // namespace velarix::lab::hostile
