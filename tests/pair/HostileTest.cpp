/// Strangers on the communication network, in short; the long form is
/// "velarix-lab hostile". The guards are set up as the documents have them.

#include <algorithm>
#include <iostream>
#include <random>
#include <thread>

#include "HostileRun.h"
#include "PairTest.h"
#include "Sockets.h"
#include "Stranger.h"
#include "Words.h"

namespace velarix::lab
{

namespace
{

std::uint64_t seedOfTest()
{
	const std::uint64_t seed = std::random_device()();
	std::cout << "seed " << seed << '\n';
	return seed;
}

/// The receiver's own rule, in the plainest form: six fields, of which the second
/// begins with "process".
bool isHeartbeat(const std::string& text)
{
	std::vector<std::string> fields{""};
	for (const char letter : text)
	{
		letter == '/' ? fields.push_back("") : fields.back().push_back(letter);
	}
	return fields.size() > 5 && fields[1].starts_with("process");
}

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
	record.dropped = 1;
}

} // namespace

TEST(HostileWords, RandomOnesHoldNoHeartbeatHoweverTheyAreRead)
{
	EXPECT_TRUE(isHeartbeat("/process/1/1/20260101000000/0/"));
	EXPECT_FALSE(isHeartbeat("/process/1/1/20260101000000"));
	std::mt19937_64 random(seedOfTest());
	for (int count = 0; count < 10000; ++count)
	{
		const std::string words = randomWords(random);
		ASSERT_LE(words.size(), 600U);
		for (std::size_t from = 0; from < words.size(); ++from)
		{
			ASSERT_FALSE(words[from] == '/' && isHeartbeat(words.substr(from, 256))) << words;
		}
	}
}

TEST(HostileWords, AForgedHeartbeatHasTheFieldsThatWereAskedFor)
{
	EXPECT_EQ(forgedHeartbeat("2-0-1"), "/process/0/2/20000101000000/1/");
	EXPECT_EQ(forgedHeartbeat("1-1-0"), "/process/1/1/20000101000000/0/");
	EXPECT_THROW(forgedHeartbeat("2-0"), LabError);
	EXPECT_THROW(forgedHeartbeat("2/0/1"), LabError);
}

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
	const HostilePlan plan = planOf("hold | a | b | - | a - 0 a | a - 0 a | =\n");
	EXPECT_EQ(differencesOf(calmRecord(), plan), std::vector<std::string>{});
	const auto told = [&](const std::function<void(HostileRecord&)>& change) { return toldOf(plan, change); };
	EXPECT_EQ(told([](HostileRecord& record) { record.during.owner = "b"; }), "owner while attacked b, expected a");
	EXPECT_EQ(told([](HostileRecord& record) { record.during.outage = Millis(1200); }),
	          "service away some (1.200 s), expected -");
	EXPECT_EQ(told([](HostileRecord& record) { record.during.moves = 2; }), "moves 2, expected none");
	EXPECT_EQ(told([](HostileRecord& record) { record.during.twoOwners = Millis(20); }),
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
	record.dropped = 6;
	record.roles = {"off", "master"};
	record.during.outage = Millis(7);
	record.during.outageOpen = true;
	record.during.twoOwners = Millis(8);
	record.differences = {"one"};
	record.timeline = "what was";
	EXPECT_EQ(toJson(hostileRecordFrom(toJson(record))), toJson(record));
	EXPECT_NE(toText({record}).find("hold/b/standby: one"), std::string::npos);
	EXPECT_THROW(hostileRecordFrom("{}"), LabError);
}

/// What an operator copies has to be what the lab tries.
TEST(Guard, TheRulesComeFromTheDocumentWithTheLabsAddresses)
{
	EXPECT_EQ(firewallRules(operatingDocument(), HostId::b),
	          "table inet velarix {\n"
	          "    chain input {\n"
	          "        type filter hook input priority filter - 10; policy accept;\n"
	          "        tcp dport 15001 iifname \"eth1\" ip saddr 198.51.100.11 accept\n"
	          "        tcp dport 15001 counter drop\n"
	          "    }\n"
	          "}\n");
	EXPECT_EQ(iptablesCommands(operatingDocument(), HostId::a),
	          "iptables -N VELARIX\n"
	          "iptables -A VELARIX -i eth1 -s 198.51.100.12 -j ACCEPT\n"
	          "iptables -A VELARIX -j DROP\n"
	          "iptables -I INPUT -p tcp --dport 15001 -j VELARIX\n"
	          "ip6tables -I INPUT -p tcp --dport 15001 -j DROP\n");
	EXPECT_EQ(neighbourCommands(securityDocument(), HostId::a, "02:00:00:00:01:02", "02:00:00:00:01:03"),
	          "ip neigh replace 198.51.100.12 lladdr 02:00:00:00:01:02 nud permanent dev eth1\n"
	          "ip neigh replace 198.51.100.1 lladdr 02:00:00:00:01:03 nud permanent dev eth1\n");
}

TEST(Guard, ADocumentWithoutThemIsRefused)
{
	EXPECT_THROW(firewallRules("# Operating\n\n    nft list ruleset\n", HostId::a), LabError);
	EXPECT_THROW(firewallRules("    table inet velarix {\n        tcp dport 7000 drop\n    }\n", HostId::a), LabError)
	    << "it does not name the partner";
	EXPECT_THROW(neighbourCommands("text\n", HostId::a, "", ""), LabError);
}

class Hostile : public PairTest
{
protected:
	/// Carries an attack out and waits for its end; one that lasts goes on until it
	/// has that many connections.
	void attack(const StrangerPlan& plan, long wanted = 0)
	{
		Stranger stranger(lab(), plan);
		if (stranger.lasting())
		{
			EXPECT_TRUE(waitFor([&] { return stranger.tally().connections >= wanted; }, moveLimit,
			                    "the connections of " + plan.attack,
			                    [&] { return std::to_string(stranger.tally().connections); }));
		}
		else
		{
			stranger.awaitEnd();
		}
		stranger.end();
		m_messages = stranger.tally().messages;
		m_connections = stranger.tally().connections;
		m_heard = stranger.tally().heard;
	}

	bool strangerGetsIn(HostId node)
	{
		bool in = false;
		AttackTally tally;
		const sockaddr_in door = socketAddress(plan::addressOf(node, Network::communication), plan::heartbeatPort);
		// A port that is closed for a moment refuses; one that is guarded says nothing.
		inNetworkOf(lab().stranger(),
		            [&]
		            {
			            for (int knocks = 0; knocks < 10 && !in; ++knocks)
			            {
				            in = static_cast<bool>(connectTo(door, Millis(300), tally));
			            }
		            });
		return in;
	}

	/// How many received messages of the node's log begin so.
	long timesHeard(HostId node, const std::string& beginning)
	{
		return timesIn(lab().node(node).diskFile(plan::logFile), "received message: " + beginning);
	}

	bool serviceCameBackAfter(Millis since)
	{
		return waitFor([&] { return outageSince(since) > Millis(1000); }, Millis(15000), "the service to be away",
		               [&] { return lab().stateText(); }) &&
		       lab().waitForService(HostId::a, moveLimit, Millis(1000));
	}

	long m_messages = 0;
	long m_connections = 0;
	long m_heard = 0;
};

TEST_F(Hostile, NoiseLeavesRolesAndAgentsAloneAndIptablesKeepItOut)
{
	PAIR_OR_RETURN(startServingPair());
	HostileRecord record;
	const HostilePlan plan = planOf("random | a | b | - | a - 0 a | a - 0 a | =\n");
	record.before = momentOf(lab());
	const Millis from = lab().clock().now();
	const std::uint64_t seed = seedOfTest();

	attack({"random", "", HostId::b, seed, 200});
	EXPECT_GE(m_messages, 200);
	attack({"resets", "", HostId::a, seed, 200});
	EXPECT_GE(m_connections, 20);
	attack({"connections", "", HostId::a, seed, 50}, 50);

	record.tries = m_connections;
	record.connections = m_connections;
	record.messages = 200;
	record.during.to = lab().clock().now();
	record.during.outage = outageSince(from);
	record.during.twoOwners = heldBy("a+b", from);
	record.during.owner = lab().owners();
	record.owner = lab().owners();
	record.after = momentOf(lab());
	EXPECT_EQ(differencesOf(record, plan), std::vector<std::string>{});

	EXPECT_TRUE(strangerGetsIn(HostId::b));
	const CommandResult set = lab().run(HostId::b, {"sh", "-ec", iptablesCommands(operatingDocument(), HostId::b)});
	ASSERT_TRUE(set.ok()) << set.output;
	EXPECT_FALSE(strangerGetsIn(HostId::b));
	const std::string partners = "/process/1/1/2";
	const long heard = timesHeard(HostId::b, partners);
	EXPECT_TRUE(waitFor([&] { return timesHeard(HostId::b, partners) > heard; }, moveLimit, "the partner to be heard"));
}

/// The one who is heard, at each step: anybody; whoever has the partner's address;
/// the partner alone.
TEST_F(Hostile, OneForgedHeartbeatStopsTheServiceUntilTheGuardsStand)
{
	PAIR_OR_RETURN(startServingPair());
	const Millis open = lab().clock().now();
	attack({"forged", "1-1-0", HostId::a});
	ASSERT_GE(m_heard, 1);
	ASSERT_TRUE(serviceCameBackAfter(open)) << "one packet is enough";

	setUpGuard(lab(), Guard::firewall);
	EXPECT_FALSE(strangerGetsIn(HostId::a));
	EXPECT_FALSE(strangerGetsIn(HostId::b));
	EXPECT_GT(droppedByFirewall(lab(), HostId::a), 0);
	EXPECT_GT(droppedByFirewall(lab(), HostId::b), 0);
	const std::string words = forgedHeartbeat("1-0-0");
	{
		Stranger borrower(lab(), {"spoofed", "1-0-0", HostId::b});
		EXPECT_TRUE(waitFor([&] { return timesHeard(HostId::b, words) >= 1; }, moveLimit, "the borrower to be heard"))
		    << "the firewall takes a borrowed address for the partner";
		borrower.end();
	}
	// An answer that was lost has made him say it again.
	const long heardBefore = timesHeard(HostId::b, words);
	setUpGuard(lab(), Guard::neighbours);
	{
		Stranger borrower(lab(), {"spoofed", "1-0-0", HostId::b});
		EXPECT_TRUE(waitFor([&] { return borrower.tally().tries >= 100; }, moveLimit, "the borrower to lie"));
		EXPECT_EQ(borrower.tally().connections, 0) << "the answers to him went to the partner";
		borrower.end();
	}
	EXPECT_EQ(timesHeard(HostId::b, words), heardBefore);

	// It is a heartbeat that brings the ask.
	const Millis killed = lab().clock().now();
	lab().inject({FaultKind::programKilled, HostId::a});
	ASSERT_TRUE(waitForAction(HostId::b, "takes over: the partner asks", killed)) << "the partner gets through";
	EXPECT_TRUE(lab().waitForService(HostId::b, moveLimit, Millis(1000)));
}

} // namespace velarix::lab
