/// Strangers on the pair's networks, in short; the long form is
/// "velarix-lab hostile". The guards are set up as the documents have them.

#include <cstdlib>
#include <functional>
#include <iostream>
#include <random>
#include <sstream>

#include "PairTest.h"
#include "lab/campaigns/Observe.h"
#include "lab/campaigns/hostile/HostileJudge.h"
#include "lab/campaigns/hostile/Sockets.h"
#include "lab/campaigns/hostile/Stranger.h"
#include "lab/campaigns/hostile/Words.h"

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
		// What is read begins anywhere; a heartbeat begins so.
		for (std::size_t from = words.find("/process"); from != std::string::npos;
		     from = words.find("/process", from + 1))
		{
			ASSERT_FALSE(isHeartbeat(words.substr(from, 256))) << words;
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
	EXPECT_EQ(gatewayCommands(securityDocument(), "02:00:00:00:01:01", "02:00:00:00:01:02"),
	          "ip neigh replace 198.51.100.11 lladdr 02:00:00:00:01:01 nud permanent dev eth1\n"
	          "ip neigh replace 198.51.100.12 lladdr 02:00:00:00:01:02 nud permanent dev eth1\n");
	EXPECT_EQ(firewallRulesWithCard(operatingDocument(), securityDocument(), HostId::a, "02:00:00:00:01:02"),
	          "table inet velarix {\n"
	          "    chain input {\n"
	          "        type filter hook input priority filter - 10; policy accept;\n"
	          "        tcp dport 15001 iifname \"eth1\" ether saddr 02:00:00:00:01:02 ip saddr 198.51.100.12 accept\n"
	          "        tcp dport 15001 counter drop\n"
	          "    }\n"
	          "}\n");
	EXPECT_EQ(iptablesCommandsWithCard(operatingDocument(), securityDocument(), HostId::b, "02:00:00:00:01:01"),
	          "iptables -N VELARIX\n"
	          "iptables -A VELARIX -i eth1 -s 198.51.100.11 -m mac --mac-source 02:00:00:00:01:01 -j ACCEPT\n"
	          "iptables -A VELARIX -j DROP\n"
	          "iptables -I INPUT -p tcp --dport 15001 -j VELARIX\n"
	          "ip6tables -I INPUT -p tcp --dport 15001 -j DROP\n");
	EXPECT_EQ(reversePathCommands(securityDocument(), "/run"),
	          "echo net.ipv4.conf.eth0.rp_filter = 1 >/run/90-velarix.conf\n"
	          "sysctl -p /run/90-velarix.conf\n");
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
		m_done = {};
		keepTally(stranger.tally(), m_done);
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

	/// What the kernel has dropped of what came in by the wrong card.
	long droppedByPath(HostId node)
	{
		const CommandResult told = lab().run(node, {"nstat", "-asz", "TcpExtIPReversePathFilter"});
		std::istringstream words(told.output.substr(std::min(told.output.size(), told.output.find("TcpExt"))));
		std::string name;
		long count = -1;
		words >> name >> count;
		EXPECT_GE(count, 0) << told.output;
		return count;
	}

	/// Whom the gateway takes the node's address for.
	std::string gatewaysEntryOf(HostId node)
	{
		return lab()
		    .run(HostId::gateway, {"ip", "neigh", "show", plan::addressOf(node, Network::communication)})
		    .output;
	}

	bool partnerIsHeard(HostId node)
	{
		const long heard = heardBy(lab(), node).partner;
		return waitFor([&] { return heardBy(lab(), node).partner > heard; }, moveLimit, "the partner to be heard");
	}

	void expectToEndAHeldConnection(const std::function<void()>& loadRules)
	{
		Stranger holder(lab(), {"hold", "", HostId::b});
		holder.awaitHold(false);
		const Millis loaded = lab().clock().now();
		loadRules();
		EXPECT_TRUE(partnerIsHeard(HostId::b));
		std::cout << "heard again after " << secondsText(lab().clock().now() - loaded) << '\n';
		const long held = timesHeard(HostId::b, "/held/");
		EXPECT_TRUE(partnerIsHeard(HostId::b));
		EXPECT_EQ(timesHeard(HostId::b, "/held/"), held);
		holder.end();
	}

	void expectToKeepABorrowerOut(const std::function<long()>& dropped)
	{
		EXPECT_TRUE(partnerIsHeard(HostId::b));
		const long before = dropped();
		Stranger borrower(lab(), {"spoofed", "1-0-0", HostId::b});
		EXPECT_TRUE(waitFor([&] { return dropped() > before; }, moveLimit, "the borrower to be dropped"));
		borrower.end();
		EXPECT_EQ(borrower.tally().connections, 0);
		EXPECT_EQ(timesHeard(HostId::b, forgedHeartbeat("1-0-0")), 0);
	}

	HostileRecord m_done; ///< the tally of the last attack
};

TEST_F(Hostile, NoiseLeavesRolesAndAgentsAloneAndIptablesKeepItOut)
{
	PAIR_OR_RETURN(startServingPair());
	HostilePlan plan;
	plan.cell = parseHostileTable("random | a | b | - | a - 0 a | a - 0 a | =\n").front();
	plan.count = 200;
	const PairMoment before = momentOf(lab());
	const HeardCounts heardBefore = heardBy(lab(), HostId::b);
	const Millis from = lab().clock().now();
	const std::uint64_t seed = seedOfTest();

	attack({"random", "", HostId::b, seed, 200});
	HostileRecord record = m_done;
	record.before = before;
	attack({"resets", "", HostId::a, seed, 200});
	EXPECT_GE(m_done.connections, 20);
	attack({"connections", "", HostId::a, seed, 50}, 50);

	record.during = observe(lab(), from, Millis(0), moveLimit);
	const HeardCounts heard = heardBy(lab(), HostId::b);
	record.read = heard.all - heardBefore.all;
	record.partner = heard.partner - heardBefore.partner;
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
	EXPECT_TRUE(partnerIsHeard(HostId::b));
}

/// The one who is heard, at each step: anybody; whoever has the partner's address;
/// the partner alone.
TEST_F(Hostile, OneForgedHeartbeatStopsTheServiceUntilTheGuardsStand)
{
	PAIR_OR_RETURN(startServingPair());
	const Millis open = lab().clock().now();
	attack({"forged", "1-1-0", HostId::a});
	ASSERT_GE(m_done.heard, 1);
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

/// The port answers at its address by whatever card the packet came; the rules ask for
/// the card, and so does the filter of the reverse path, on the card where it comes in.
TEST_F(Hostile, TheServiceNetworkReachesThePortUntilTheGuardsStand)
{
	PAIR_OR_RETURN(startServingPair());
	attack({"forged-service", "2-0-0", HostId::b});
	EXPECT_GE(m_done.heard, 1) << "a standby's word to a standby, over the service network";

	Stranger blind(lab(), {"blind", "", HostId::b});
	const auto goesOn = [&]
	{
		const long tries = blind.tally().tries;
		return waitFor([&] { return blind.tally().tries >= tries + 10; }, moveLimit, "the stranger to try");
	};
	ASSERT_TRUE(goesOn());
	EXPECT_EQ(droppedByPath(HostId::b), 0);
	const CommandResult set = lab().run(HostId::b, {"sh", "-ec", reversePathCommands(securityDocument(), "/run")});
	ASSERT_TRUE(set.ok()) << set.output;
	ASSERT_TRUE(goesOn());
	EXPECT_GT(droppedByPath(HostId::b), 0);
	const CommandResult undone = lab().run(HostId::b, {"sh", "-ec",
	                                                   "echo 0 >/proc/sys/net/ipv4/conf/eth0/rp_filter;"
	                                                   "echo 1 >/proc/sys/net/ipv4/conf/eth1/rp_filter"});
	ASSERT_TRUE(undone.ok()) << undone.output;
	const long dropped = droppedByPath(HostId::b);
	ASSERT_TRUE(goesOn());
	EXPECT_EQ(droppedByPath(HostId::b), dropped) << "it is judged on the card where the packet comes in";

	setUpGuard(lab(), Guard::firewall);
	EXPECT_TRUE(waitFor([&] { return droppedByFirewall(lab(), HostId::b) > 0; }, moveLimit, "the rules to drop him"));
	blind.end();
	EXPECT_TRUE(partnerIsHeard(HostId::b));
	EXPECT_EQ(lab().owners(), "a");
}

/// Rules that are loaded end a connection that is there already, and a rule that knows the
/// card keeps out who has borrowed the address alone.
TEST_F(Hostile, NftablesEndAHeldConnectionAndCanNameTheCard)
{
	PAIR_OR_RETURN(startServingPair());
	expectToEndAHeldConnection([&] { setUpGuard(lab(), Guard::firewall); });
	const std::string rules =
	    firewallRulesWithCard(operatingDocument(), securityDocument(), HostId::b, hardwareOn(lab(), HostId::a));
	const CommandResult set =
	    run({{"nft", "-f", "-"}, "delete table inet velarix\n" + rules, lab().host(HostId::b).inside()});
	ASSERT_TRUE(set.ok()) << set.output;
	expectToKeepABorrowerOut([&] { return droppedByFirewall(lab(), HostId::b); });
}

TEST_F(Hostile, IptablesEndAHeldConnectionAndCanNameTheCard)
{
	PAIR_OR_RETURN(startServingPair());
	const auto give = [&](const std::string& commands)
	{
		const CommandResult set = lab().run(HostId::b, {"sh", "-ec", commands});
		EXPECT_TRUE(set.ok()) << set.output;
	};
	expectToEndAHeldConnection([&] { give(iptablesCommands(operatingDocument(), HostId::b)); });
	give("iptables -F; iptables -X VELARIX; ip6tables -F");
	give(iptablesCommandsWithCard(operatingDocument(), securityDocument(), HostId::b, hardwareOn(lab(), HostId::a)));
	expectToKeepABorrowerOut(
	    [&]
	    {
		    // The last rule of the two, in a line that begins with its packets.
		    const CommandResult told = lab().run(HostId::b, {"sh", "-c", "iptables -nvxL VELARIX 2"});
		    EXPECT_NE(told.output.find(" DROP "), std::string::npos) << told.output;
		    return std::atol(told.output.c_str());
	    });
}

/// The nodes' own entries bind nobody but the nodes.
TEST_F(Hostile, TheGatewayIsLiedToUntilItsNeighboursAreFixed)
{
	PAIR_OR_RETURN(startServingPair());
	const CommandResult set = run({{"sh", "-e"},
	                               neighbourCommands(securityDocument(), HostId::b, hardwareOn(lab(), HostId::a),
	                                                 hardwareOn(lab(), HostId::gateway)),
	                               lab().host(HostId::b).inside()});
	ASSERT_TRUE(set.ok()) << set.output;
	const std::string strangers = "02:00:00:00:01:66"; // see Wiring::plugInStranger
	// A standby leaves no entry there until it asks.
	const std::string gateway = plan::addressOf(HostId::gateway, Network::communication);
	ASSERT_TRUE(lab().run(HostId::b, {"arping", "-c", "1", "-I", "eth1", gateway}).ok());
	Stranger liar(lab(), {"cut-from-gateway", "", HostId::b});
	EXPECT_TRUE(waitFor([&] { return gatewaysEntryOf(HostId::b).find(strangers) != std::string::npos; }, moveLimit,
	                    "the gateway to believe", [&] { return gatewaysEntryOf(HostId::b); }))
	    << "the node's own entries are no help";
	setUpGuard(lab(), Guard::neighbours);
	const long told = liar.tally().tries;
	EXPECT_TRUE(waitFor([&] { return liar.tally().tries >= told + 40; }, moveLimit, "the liar to go on"));
	const std::string entry = gatewaysEntryOf(HostId::b);
	EXPECT_NE(entry.find(hardwareOn(lab(), HostId::b)), std::string::npos) << entry;
	EXPECT_NE(entry.find("PERMANENT"), std::string::npos) << entry;
	liar.end();

	// What docs/security.md says of the entries and of their end.
	const auto entryOnB = [&] { return lab().run(HostId::b, {"ip", "neigh", "show", gateway}).output; };
	EXPECT_NE(entryOnB().find("PERMANENT"), std::string::npos) << entryOnB();
	const auto carrier = [&](const char* wanted)
	{
		return waitFor(
		    [&] {
			    return lab().run(HostId::b, {"cat", "/sys/class/net/eth1/carrier"}).output == wanted;
		    },
		    moveLimit, "the carrier to be as wanted");
	};
	lab().wiring().setPort(HostId::b, Network::communication, false);
	ASSERT_TRUE(carrier("0\n"));
	EXPECT_NE(entryOnB().find("PERMANENT"), std::string::npos) << entryOnB();
	lab().wiring().setPort(HostId::b, Network::communication, true);
	ASSERT_TRUE(carrier("1\n"));
	const CommandResult down = lab().run(HostId::b, {"sh", "-ec", "ip link set eth1 down; ip link set eth1 up"});
	ASSERT_TRUE(down.ok()) << down.output;
	EXPECT_EQ(entryOnB().find("PERMANENT"), std::string::npos) << entryOnB();
}

} // namespace velarix::lab
