/// Strangers on the communication network, in short; the long form is
/// "velarix-lab hostile". The guards are set up as the documents have them.

#include <iostream>
#include <random>

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
	HostilePlan plan;
	plan.cell = parseHostileTable("random | a | b | - | a - 0 a | a - 0 a | =\n").front();
	plan.count = 200;
	record.before = momentOf(lab());
	const Millis from = lab().clock().now();
	const std::uint64_t seed = seedOfTest();

	attack({"random", "", HostId::b, seed, 200});
	EXPECT_GE(m_messages, 200);
	record.tries = record.connections = m_connections;
	record.messages = m_messages;
	attack({"resets", "", HostId::a, seed, 200});
	EXPECT_GE(m_connections, 20);
	attack({"connections", "", HostId::a, seed, 50}, 50);

	record.during.to = lab().clock().now();
	record.during.outage = outageSince(from);
	record.during.twoOwners = heldBy("a+b", from);
	record.during.owner = lab().owners();
	record.owner = lab().owners();
	record.after = momentOf(lab());
#if defined(__SANITIZE_ADDRESS__)
	// AddressSanitizer keeps what is freed.
	for (std::size_t node = 0; node < record.after.agents.size(); ++node)
	{
		record.after.agents[node].residentKib = record.before.agents[node].residentKib;
	}
#endif
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
