/// The table of attacks and the verdict on a case, without a pair.

#include <algorithm>
#include <functional>

#include <gtest/gtest.h>

#include "lab/campaigns/hostile/HostileJudge.h"

namespace velarix::lab
{

namespace
{

HostileRecord calmRecord()
{
	HostileRecord record;
	record.during.owner = "a";
	record.owner = "a";
	record.before.roles = {"master", "slave"};
	record.after.roles = {"master", "slave"};
	record.before.agents = {AgentVitals{10, 4, 5, 7000}, AgentVitals{11, 4, 5, 7000}};
	record.after.agents = record.before.agents;
	record.during.to = Millis(10000);
	record.tries = 200;
	record.connections = 200;
	record.messages = 200;
	record.atOnce = 200;
	record.open = 64;
	record.heard = 4;
	record.read = 210;
	record.partner = 10;
	return record;
}

HostilePlan planOf(const std::string& row, Guard guard = Guard::none)
{
	HostilePlan plan;
	plan.cell = parseHostileTable(row).front();
	plan.guard = guard;
	plan.count = 200;
	return plan;
}

/// What is told of a record that was calm but for the change.
std::string toldOf(const HostilePlan& plan, const std::function<void(HostileRecord&)>& change)
{
	HostileRecord record = calmRecord();
	change(record);
	const std::vector<std::string> found = differencesOf(record, plan);
	return found.size() == 1 ? found.front() : std::to_string(found.size()) + " differences";
}

/// The same for an attack that leaves the service on node a.
std::string toldOfAttack(const std::string& attack, Guard guard, const std::function<void(HostileRecord&)>& change)
{
	return toldOf(planOf(attack + " | a | b | - | a - 0 a | a - 0 a | =\n", guard), change);
}

/// What the record has behind a guard that keeps the stranger out.
void keepOut(HostileRecord& record)
{
	record.connections = record.messages = record.atOnce = record.open = record.heard = 0;
	record.read = record.partner;
	record.dropped = 1;
}

} // namespace

TEST(HostileTable, RefusesWhatItDoesNotKnow)
{
	const std::string good = "hold | a | b | power-off:a | none lasting 0 b | b some 0 b | =\n";
	EXPECT_EQ(parseHostileTable(good).front().name, "hold/b/standby/power-off:a");
	EXPECT_EQ(parseHostileTable(good).front().expected(Guard::neighbours).away, Away::some);
	for (const char* bad :
	     {"hold | a | b | - | a - 0 a | a - 0 a\n", "hug | a | b | - | a - 0 a | a - 0 a | =\n",
	      "hold | c | b | - | a - 0 a | a - 0 a | =\n", "hold | a | b | - | a - 0 | a - 0 a | =\n",
	      "hold | a | b | - | a never 0 a | a - 0 a | =\n", "hold | a | b | - | a - 1 a | a - 0 a | =\n",
	      "forged:3 | a | b | - | a - 0 a | a - 0 a | =\n", "hold:a | a | b | - | a - 0 a | a - 0 a | =\n",
	      "pretend | a | b | - | a - 0 either | a - 0 a | =\n", "repeated | a | b | - | a - 0 a | a - 0 a | =\n",
	      "replay:x | a | b | - | a - 0 a | a - 0 a | =\n", "hold | a | b | nap:a | a - 0 a | a - 0 a | =\n"})
	{
		EXPECT_THROW(parseHostileTable(bad), LabError) << bad;
	}
	EXPECT_THROW(parseHostileTable(good + good), LabError);
	EXPECT_THROW(parseHostileTable("forged-service | a | b | - | a - 0 a | a - 0 a | =\n"), LabError);
}

TEST(HostileTable, OfThisBuildHasEachAttackAndEachForgedHeartbeat)
{
	const std::vector<HostileCell> cells = readHostileTable("");
	for (const AttackInfo& attack : allAttacks())
	{
		EXPECT_TRUE(std::any_of(cells.begin(), cells.end(),
		                        [&](const HostileCell& cell) { return cell.attack == attack.name; }))
		    << attack.name;
	}
	EXPECT_EQ(std::count_if(cells.begin(), cells.end(),
	                        [](const auto& cell) { return cell.attack == "forged" && !cell.event; }),
	          2 * 2 * 8);
}

TEST(HostileJudge, TellsEachDifference)
{
	const HostilePlan plan = planOf("silent | a | b | - | a - 0 a | a - 0 a | =\n");
	EXPECT_EQ(differencesOf(calmRecord(), plan), std::vector<std::string>{});
	const auto told = [&](const std::function<void(HostileRecord&)>& change) { return toldOf(plan, change); };
	EXPECT_EQ(told([](HostileRecord& record) { record.during.owner = "b"; }), "owner while attacked b, expected a");
	EXPECT_EQ(told([](HostileRecord& record) { record.during.outage = Millis(1200); }),
	          "service away some (1.200 s), expected -");
	EXPECT_EQ(told([](HostileRecord& record) { record.during.moves = 2; }), "moves 2, expected none");
	EXPECT_EQ(told([](HostileRecord& record) { record.during.splitBrain = Millis(20); }),
	          "two owners for 0.020 s, expected no time");
	EXPECT_EQ(told([](HostileRecord& record) { record.during.ended = "b"; }),
	          "agents that ended by themselves: b, expected none");
	EXPECT_EQ(told([](HostileRecord& record) { record.owner = "none"; }), "owner at rest none, expected a");
	EXPECT_EQ(told([](HostileRecord& record) { record.after.roles[1] = "master"; }),
	          "role of node b master, expected slave");
	EXPECT_EQ(told([](HostileRecord& record) { record.after.agents[1].pid = 0; }),
	          "agent of node b gone, expected the same process");
	EXPECT_EQ(told([](HostileRecord& record) { record.after.agents[0].threads = 3; }),
	          "threads of node a 3, expected 4");
	EXPECT_EQ(told([](HostileRecord& record) { record.after.agents[0].descriptors = 8; }),
	          "descriptors of node a 8, expected at most 7");
	EXPECT_EQ(told([](HostileRecord& record) { record.after.agents[0].residentKib = 11097; }),
	          "resident KiB of node a 11097, expected at most 11096");
}

TEST(HostileJudge, TellsEachAttackThatDidNotHappen)
{
	const auto told = [](const std::string& attack, const std::function<void(HostileRecord&)>& change)
	{ return toldOfAttack(attack, Guard::none, change); };
	EXPECT_EQ(told("silent", [](HostileRecord& record) { record.connections = 0; }),
	          "connections 0, expected at least 1");
	EXPECT_EQ(told("syn-flood", [](HostileRecord& record) { record.tries = 0; }), "tries 0, expected at least 1");
	EXPECT_EQ(told("scan-syn", [](HostileRecord& record) { record.tries = 65534; }),
	          "tries 65534, expected at least 65535");
	EXPECT_EQ(told("random", [](HostileRecord& record) { record.messages = 199; }),
	          "messages written 199, expected at least 200");
	EXPECT_EQ(told("random-read", [](HostileRecord& record) { record.messages = 9; }),
	          "messages written 9, expected at least 10");
	EXPECT_EQ(told("resets", [](HostileRecord& record) { record.connections = 19; }),
	          "connections 19, expected at least 20");
	EXPECT_EQ(told("connections", [](HostileRecord& record) { record.atOnce = 199; }),
	          "clients at once 199, expected at least 200");
	EXPECT_EQ(told("connections", [](HostileRecord& record) { record.open = 63; }),
	          "clients connected at once 63, expected at least 64");
	EXPECT_EQ(told("forged:1-0-0", [](HostileRecord& record) { record.heard = 0; }),
	          "messages heard by the target 0, expected at least 1");
	EXPECT_EQ(told("replay:a", [](HostileRecord& record) { record.heard = 0; }),
	          "messages heard by the target 0, expected at least 1");
	EXPECT_EQ(told("line-feeds", [](HostileRecord& record) { record.heard = 0; }),
	          "messages heard by the target 0, expected at least 1");
	EXPECT_EQ(told("repeated:2-0-0", [](HostileRecord& record) { record.heard = 3; }),
	          "messages heard by the target 3, expected at least 4");
	EXPECT_EQ(told("burst", [](HostileRecord& record) { record.heard = 0; }),
	          "messages heard by the target 0, expected at least 1");
	EXPECT_EQ(told("cut", [](HostileRecord& record) { record.connections = 0; }), "0 differences");
}

/// What was written need not have been read: the receiver drops those that wait.
TEST(HostileJudge, TellsMessagesThatNobodyRead)
{
	const auto told = [](const std::string& attack, long strangers)
	{
		return toldOfAttack(attack, Guard::none,
		                    [&](HostileRecord& record)
		                    {
			                    record.partner = 2;
			                    record.read = 2 + strangers;
		                    });
	};
	EXPECT_EQ(told("random", 0), "messages read that are not the partner's 0, expected at least 1");
	EXPECT_EQ(told("random-read", 9), "messages read that are not the partner's 9, expected at least 10");
	EXPECT_EQ(told("hold", 9), "messages read that are not the partner's 9, expected at least 10");
	EXPECT_EQ(told("slow", 9), "messages read that are not the partner's 9, expected at least 10");
	EXPECT_EQ(told("never-closes", 2), "messages read that are not the partner's 2, expected at least 3");
	EXPECT_EQ(told("silent", 0), "0 differences");
}

TEST(HostileJudge, ThePartnerHasToPassWhereStrangersAreKeptOut)
{
	const auto seldom = [](HostileRecord& record)
	{
		record.partner = 2;
		record.read = 202;
	};
	const auto keptOut = [&](HostileRecord& record)
	{
		seldom(record);
		keepOut(record);
	};
	const std::string told = "heartbeats of the partner read 2, expected at least 3";
	EXPECT_EQ(toldOfAttack("syn-flood", Guard::none, seldom), told);
	EXPECT_EQ(toldOfAttack("syn-flood-bare", Guard::none, seldom), "0 differences");
	EXPECT_EQ(toldOfAttack("syn-flood-bare", Guard::firewall, keptOut), told);
	EXPECT_EQ(toldOfAttack("hold", Guard::none, seldom), "0 differences");
	EXPECT_EQ(toldOfAttack("hold", Guard::firewall, keptOut), told);
	EXPECT_EQ(toldOfAttack("cut-gateway", Guard::firewall, seldom), "0 differences");
	const auto often = [](HostileRecord& record) { record.partner = 3; };
	for (const char* attack : {"hold", "slow", "never-closes", "syn-flood-bare"})
	{
		EXPECT_EQ(toldOfAttack(attack, Guard::none, often), "heartbeats of the partner read 3, expected at most 2");
	}
	EXPECT_EQ(toldOfAttack("cut-gateway", Guard::neighbours, keptOut), told);
	EXPECT_EQ(toldOfAttack("claim", Guard::neighbours, seldom), "0 differences");
}

TEST(HostileHeard, TellsThePartnersHeartbeatsFromTheStrangers)
{
	const std::string head = "2026-11-21 19:00:00.0 [1:3][CHeartReciver:164] <D> received message: ";
	const HeardCounts counts =
	    heardIn(head + "/process/1/1/20261121190000/0/\n" + head + "/process/0/2/20261121190000/1/\n" + head +
	            "/process/1/1/20000101000000/0/\n" + head + "/process/1/1/20260101000000/1/\n" + head +
	            "/process/1/1/2026112119000/0/\n" + head + "/proces/1/1/20261121190000/0/\n" + head + "\n" + "poll\n" +
	            head + "~");
	EXPECT_EQ(counts.all, 8);
	EXPECT_EQ(counts.partner, 2);
	EXPECT_EQ(heardIn("").all, 0);
}

TEST(HostileJudge, TellsAGuardThatKeptNobodyOut)
{
	for (const char* attack : {"random", "connections", "scan-connect", "forged:1-0-0"})
	{
		const auto told = [&](const std::function<void(HostileRecord&)>& change)
		{
			return toldOfAttack(attack, Guard::firewall,
			                    [&](HostileRecord& record)
			                    {
				                    record.tries = 65535;
				                    keepOut(record);
				                    change(record);
			                    });
		};
		EXPECT_EQ(told([](HostileRecord&) {}), "0 differences") << attack;
		EXPECT_EQ(told([](HostileRecord& record) { record.connections = 1; }),
		          "connections behind the guard 1, expected none");
		EXPECT_EQ(told([](HostileRecord& record) { record.dropped = 0; }),
		          "packets dropped by the firewall 0, expected at least 1");
	}
	EXPECT_EQ(toldOfAttack("syn-flood", Guard::neighbours, [](HostileRecord& record) { record.connections = 0; }),
	          "packets dropped by the firewall 0, expected at least 1");
}

/// He passes the firewall, and has to; the neighbours stop him, and nothing is dropped.
TEST(HostileJudge, AStrangerWithThePartnersAddressIsStoppedByTheNeighboursAlone)
{
	const auto heardNothing = [](HostileRecord& record) { record.heard = 0; };
	EXPECT_EQ(toldOfAttack("spoofed:1-0-0", Guard::firewall, heardNothing),
	          "messages heard by the target 0, expected at least 1");
	EXPECT_EQ(toldOfAttack("spoofed:1-0-0", Guard::neighbours, heardNothing),
	          "connections behind the guard 200, expected none");
	EXPECT_EQ(toldOfAttack("spoofed:1-0-0", Guard::neighbours,
	                       [](HostileRecord& record)
	                       {
		                       keepOut(record);
		                       record.dropped = 0;
	                       }),
	          "0 differences");
}

TEST(HostileJudge, MostlyAwayIsMoreThanHalfOfTheTime)
{
	const HostilePlan plan = planOf("pretend | a | a | - | any mostly 0 a | a - 0 a | =\n");
	EXPECT_EQ(toldOf(plan, [](HostileRecord& record) { record.during.noAnswer = Millis(5001); }), "0 differences");
	EXPECT_EQ(toldOf(plan, [](HostileRecord& record) { record.during.noAnswer = Millis(5000); }),
	          "service away for 5.000 s of 10.000 s, expected mostly");
}

TEST(HostileJudge, EitherNodeIsOneOfTheTwoAndItsPartnerTheStandby)
{
	const HostilePlan plan = planOf("forged:1-0-0 | a | a | - | either - * either | a - 0 a | =\n");
	const auto told = [&](const std::string& during, const std::string& after)
	{
		return toldOf(plan,
		              [&](HostileRecord& record)
		              {
			              record.during.owner = during;
			              record.owner = after;
			              record.after.roles = {after == "a" ? "master" : "slave", after == "b" ? "master" : "slave"};
		              });
	};
	EXPECT_EQ(told("a", "b"), "0 differences");
	EXPECT_EQ(told("b", "a"), "0 differences");
	EXPECT_EQ(told("a+b", "a"), "owner while attacked a+b, expected either");
	EXPECT_EQ(told("a", "none"), "owner at rest none, expected either");
}

TEST(HostileJudge, HarmThatDoesNotComeIsADifferenceToo)
{
	const HostilePlan plan = planOf("cut | a | b | - | a some + a | a - 0 a | =\n");
	const std::vector<std::string> expected{"service away - (0.000 s), expected some",
	                                        "two owners for 0.000 s, expected some time"};
	EXPECT_EQ(differencesOf(calmRecord(), plan), expected);
}

TEST(HostileRecord, TravelsWhole)
{
	HostileRecord record = calmRecord();
	record.name = "hold/b/standby";
	record.guard = "firewall";
	record.words = "/process/1/1/20000101000000/0/";
	record.tries = 1;
	record.connections = 2;
	record.messages = 3;
	record.bytes = 4;
	record.atOnce = 9;
	record.open = 10;
	record.heard = 11;
	record.during.noAnswer = Millis(12);
	record.during.moves = 13;
	record.read = 5;
	record.partner = 14;
	record.dropped = 6;
	record.roles = {"off", "master"};
	record.during.outage = Millis(7);
	record.during.outageOpen = true;
	record.during.splitBrain = Millis(8);
	record.differences = {"one"};
	record.timeline = "what was";
	EXPECT_EQ(toJson(hostileRecordFrom(toJson(record))), toJson(record));
	EXPECT_NE(toText({record}).find("hold/b/standby: one"), std::string::npos);
	EXPECT_THROW(hostileRecordFrom("{}"), LabError);
}

} // namespace velarix::lab
