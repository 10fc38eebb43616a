/// Attackers on the pair's networks, in short; the long form is
/// "velarix-lab hostile". The rules are the shipped ones.

#include <cstdlib>
#include <functional>
#include <iostream>
#include <random>
#include <sstream>

#include "PairTest.h"
#include "lab/campaigns/Observe.h"
#include "lab/campaigns/hostile/Attacker.h"
#include "lab/campaigns/hostile/Judge.h"
#include "lab/campaigns/hostile/Payload.h"
#include "lab/campaigns/hostile/Sockets.h"

namespace velarix::lab::hostile
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

TEST(HostilePayload, RandomOnesHoldNoHeartbeatHoweverTheyAreRead)
{
	EXPECT_TRUE(isHeartbeat("/process/1/1/20260101000000/0/"));
	EXPECT_FALSE(isHeartbeat("/process/1/1/20260101000000"));
	std::mt19937_64 random(seedOfTest());
	for (int count = 0; count < 10000; ++count)
	{
		const std::string payload = randomPayload(random);
		ASSERT_LE(payload.size(), 600U);
		// What is read begins anywhere; a heartbeat begins so.
		for (std::size_t from = payload.find("/process"); from != std::string::npos;
		     from = payload.find("/process", from + 1))
		{
			ASSERT_FALSE(isHeartbeat(payload.substr(from, 256))) << payload;
		}
	}
}

TEST(HostilePayload, AForgedHeartbeatHasTheFieldsThatWereAskedFor)
{
	EXPECT_EQ(forgedHeartbeat("2-0-1"), "/process/0/2/20000101000000/1/");
	EXPECT_EQ(forgedHeartbeat("1-1-0"), "/process/1/1/20000101000000/0/");
	EXPECT_THROW(forgedHeartbeat("2-0"), LabError);
	EXPECT_THROW(forgedHeartbeat("2/0/1"), LabError);
}

namespace
{

/// In a network namespace of its own; the rules are in the file "rules".
CommandResult loaded(const std::string& command, const std::string& rules)
{
	const std::string prepare = "d=$(mktemp -d); trap 'rm -r $d' EXIT; cd $d; cat >rules; ";
	return run({{"unshare", "-rn", "sh", "-ec", prepare + command}, rules, {}});
}

} // namespace

TEST(Firewall, TheShippedRulesLoadAndAreReplacedWhenLoadedAgain)
{
	const HardwareAddresses hardware{"02:00:00:00:01:02", "02:00:00:00:01:03"};
	for (const std::string& rules : {nftRules(HostId::a), nftRules(HostId::a, hardware)})
	{
		const CommandResult nft = loaded("nft -c -f rules; nft -f rules; nft list ruleset >once; nft -f rules;"
		                                 "nft list ruleset | cmp - once; cat once",
		                                 rules);
		ASSERT_TRUE(nft.ok()) << nft.output;
		EXPECT_NE(
		    nft.output.find("tcp dport 15001 iifname \"eth1\" ip saddr 198.51.100.12 ip daddr 198.51.100.11 accept"),
		    std::string::npos)
		    << nft.output;
		EXPECT_EQ(nft.output.find("192.0.2.254"), std::string::npos) << "an address of the example";
	}
}

TEST(Firewall, TheRulesForIptablesLoadAndAreReplacedWhenLoadedAgain)
{
	const CommandResult shown = loaded("sh rules; iptables-save | grep -v '^#' >once;"
	                                   "sh rules; iptables-save | grep -v '^#' | cmp - once; cat once",
	                                   iptablesRules(HostId::b, {"02:00:00:00:01:01", "02:00:00:00:01:03"}));
	ASSERT_TRUE(shown.ok()) << shown.output;
	EXPECT_NE(shown.output.find("-A VELARIX_tcp -s 198.51.100.11/32 -d 198.51.100.12/32 -i eth1 -j ACCEPT"),
	          std::string::npos)
	    << shown.output;
	EXPECT_NE(shown.output.find("-m mac ! --mac-source 02:00:00:00:01:03 -j DROP"), std::string::npos) << shown.output;
}

class Hostile : public PairTest
{
protected:
	/// Carries an attack out and waits for its end; one that lasts goes on until it
	/// has that many connections.
	void attack(const AttackerPlan& plan, long wanted = 0)
	{
		Attacker attacker(lab(), plan);
		if (attacker.lasting())
		{
			EXPECT_TRUE(waitFor([&] { return attacker.tally().connections >= wanted; }, moveLimit,
			                    "the connections of " + plan.attack,
			                    [&] { return std::to_string(attacker.tally().connections); }));
		}
		else
		{
			attacker.awaitEnd();
		}
		attacker.end();
		m_done = {};
		keepTally(attacker.tally(), m_done);
	}

	bool attackerConnects(HostId node)
	{
		bool in = false;
		AttackTally tally;
		const sockaddr_in target = socketAddress(plan::addressOf(node, Network::communication), plan::heartbeatPort);
		// A port that is closed for a moment refuses; one that is mitigated says nothing.
		inNetworkOf(lab().attacker(),
		            [&]
		            {
			            for (int attempts = 0; attempts < 10 && !in; ++attempts)
			            {
				            in = static_cast<bool>(connectTo(target, Millis(300), tally));
			            }
		            });
		return in;
	}

	/// How many received messages of the node's log begin so.
	long timesReceived(HostId node, const std::string& beginning)
	{
		return timesIn(lab().node(node).diskFile(plan::logFile), "received message: " + beginning);
	}

	bool serviceCameBackAfter(Millis since)
	{
		return waitFor([&] { return outageSince(since) > Millis(1000); }, Millis(15000), "the service to be outage",
		               [&] { return lab().stateText(); }) &&
		       lab().waitForService(HostId::a, moveLimit, Millis(1000));
	}

	/// Whom the gateway takes the node's address for.
	std::string gatewaysEntryOf(HostId node)
	{
		return lab()
		    .run(HostId::gateway, {"ip", "neigh", "show", plan::addressOf(node, Network::communication)})
		    .output;
	}

	bool partnerIsReceived(HostId node)
	{
		const long received = receivedBy(lab(), node).partner;
		return waitFor([&] { return receivedBy(lab(), node).partner > received; }, moveLimit,
		               "the partner to be received");
	}

	void expectToEndAHeldConnection(const std::function<void()>& loadRules)
	{
		Attacker holder(lab(), {"hold-connection", "", HostId::b});
		holder.awaitHold(false);
		const Millis loaded = lab().clock().now();
		loadRules();
		EXPECT_TRUE(partnerIsReceived(HostId::b));
		std::cout << "received again after " << secondsText(lab().clock().now() - loaded) << '\n';
		const long held = timesReceived(HostId::b, "/held/");
		EXPECT_TRUE(partnerIsReceived(HostId::b));
		EXPECT_EQ(timesReceived(HostId::b, "/held/"), held);
		holder.end();
	}

	void expectToKeepASpooferOut(const std::function<long()>& dropped)
	{
		EXPECT_TRUE(partnerIsReceived(HostId::b));
		const long before = dropped();
		Attacker spoofer(lab(), {"spoofed-partner", "1-0-0", HostId::b});
		EXPECT_TRUE(waitFor([&] { return dropped() > before; }, moveLimit, "the spoofer to be dropped"));
		spoofer.end();
		EXPECT_EQ(spoofer.tally().connections, 0);
		EXPECT_EQ(timesReceived(HostId::b, forgedHeartbeat("1-0-0")), 0);
	}

	Record m_done; ///< the tally of the last attack
};

TEST_F(Hostile, RandomInputChangesNoRoleAndIptablesKeepItOut)
{
	PAIR_OR_RETURN(startServingPair());
	Plan plan;
	plan.cell =
	    parseTable("cases = [ { attack = \"random\", serves = \"a\", target = \"b\", open = { owner = \"a\" } } ]")
	        .front();
	plan.count = 200;
	const PairSnapshot before = snapshotOf(lab());
	const ReceivedCounts receivedBefore = receivedBy(lab(), HostId::b);
	const Millis from = lab().clock().now();
	const std::uint64_t seed = seedOfTest();

	attack({"random", "", HostId::b, seed, 200});
	Record record = m_done;
	record.before = before;
	attack({"resets", "", HostId::a, seed, 200});
	EXPECT_GE(m_done.connections, 20);
	attack({"client-pool", "", HostId::a, seed, 50}, 50);

	record.during = observationOf(observe(lab(), from, Millis(0), moveLimit));
	const ReceivedCounts received = receivedBy(lab(), HostId::b);
	record.read = received.all - receivedBefore.all;
	record.partner = received.partner - receivedBefore.partner;
	record.owner = lab().owners();
	record.after = snapshotOf(lab());
#if defined(__SANITIZE_ADDRESS__)
	// AddressSanitizer keeps what is freed.
	for (std::size_t node = 0; node < record.after.agents.size(); ++node)
	{
		record.after.agents[node].residentKib = record.before.agents[node].residentKib;
	}
#endif
	EXPECT_EQ(differencesOf(record, plan), std::vector<std::string>{});

	EXPECT_TRUE(attackerConnects(HostId::b));
	const CommandResult set = lab().run(HostId::b, {"sh", "-ec", iptablesRules(HostId::b)});
	ASSERT_TRUE(set.ok()) << set.output;
	EXPECT_FALSE(attackerConnects(HostId::b));
	EXPECT_TRUE(partnerIsReceived(HostId::b));
}

/// The one who is received, at each step: anybody; whoever has the partner's address;
/// the partner alone.
TEST_F(Hostile, OneForgedHeartbeatStopsTheServiceUntilMitigated)
{
	PAIR_OR_RETURN(startServingPair());
	const Millis open = lab().clock().now();
	attack({"forged", "1-1-0", HostId::a});
	ASSERT_GE(m_done.received, 1);
	ASSERT_TRUE(serviceCameBackAfter(open)) << "one packet is enough";

	applyMitigation(lab(), Mitigation::firewall);
	EXPECT_FALSE(attackerConnects(HostId::a));
	EXPECT_FALSE(attackerConnects(HostId::b));
	EXPECT_GT(droppedByFirewall(lab(), HostId::a), 0);
	EXPECT_GT(droppedByFirewall(lab(), HostId::b), 0);
	const std::string payload = forgedHeartbeat("1-0-0");
	{
		Attacker spoofer(lab(), {"spoofed-partner", "1-0-0", HostId::b});
		EXPECT_TRUE(
		    waitFor([&] { return timesReceived(HostId::b, payload) >= 1; }, moveLimit, "the spoofer to be received"))
		    << "the firewall takes a taken address for the partner";
		spoofer.end();
	}
	// An answer that was lost has made him say it again.
	const long receivedBefore = timesReceived(HostId::b, payload);
	applyMitigation(lab(), Mitigation::neighbours);
	{
		Attacker spoofer(lab(), {"spoofed-partner", "1-0-0", HostId::b});
		EXPECT_TRUE(waitFor([&] { return spoofer.tally().tries >= 100; }, moveLimit, "the spoofed answers"));
		EXPECT_EQ(spoofer.tally().connections, 0) << "the answers to him went to the partner";
		spoofer.end();
	}
	EXPECT_EQ(timesReceived(HostId::b, payload), receivedBefore);

	// It is a heartbeat that brings the ask.
	const Millis killed = lab().clock().now();
	lab().inject({FaultKind::programKilled, HostId::a});
	ASSERT_TRUE(waitForAction(HostId::b, "takes over: the partner asks", killed)) << "the partner gets through";
	EXPECT_TRUE(lab().waitForService(HostId::b, moveLimit, Millis(1000)));
}

/// The port answers at its address by whatever interface the packet came; the rules ask
/// for the interface.
TEST_F(Hostile, TheServiceNetworkReachesThePortUntilTheRulesAreLoaded)
{
	PAIR_OR_RETURN(startServingPair());
	attack({"forged-service", "2-0-0", HostId::b});
	EXPECT_GE(m_done.received, 1) << "a standby's word to a standby, over the service network";

	Attacker blind(lab(), {"blind-syn", "", HostId::b});
	const auto goesOn = [&]
	{
		const long tries = blind.tally().tries;
		return waitFor([&] { return blind.tally().tries >= tries + 10; }, moveLimit, "the attacker to try");
	};
	ASSERT_TRUE(goesOn());
	applyMitigation(lab(), Mitigation::firewall);
	EXPECT_TRUE(waitFor([&] { return droppedByFirewall(lab(), HostId::b) > 0; }, moveLimit, "the rules to drop him"));
	blind.end();
	EXPECT_TRUE(partnerIsReceived(HostId::b));
	EXPECT_EQ(lab().owners(), "a");
}

/// Rules that are loaded end a connection that is there already, and a rule with the
/// hardware address keeps out an attacker that has taken the IP address alone.
TEST_F(Hostile, NftablesEndAHeldConnectionAndKnowTheHardwareAddress)
{
	PAIR_OR_RETURN(startServingPair());
	expectToEndAHeldConnection([&] { applyMitigation(lab(), Mitigation::firewall); });
	const CommandResult set = run({{"nft", "-f", "-"},
	                               nftRules(HostId::b, {.partner = hardwareOn(lab(), HostId::a)}),
	                               lab().host(HostId::b).inside()});
	ASSERT_TRUE(set.ok()) << set.output;
	expectToKeepASpooferOut([&] { return droppedByFirewall(lab(), HostId::b); });
}

TEST_F(Hostile, IptablesEndAHeldConnectionAndKnowTheHardwareAddress)
{
	PAIR_OR_RETURN(startServingPair());
	const auto give = [&](const std::string& commands)
	{
		const CommandResult set = lab().run(HostId::b, {"sh", "-ec", commands});
		EXPECT_TRUE(set.ok()) << set.output;
	};
	expectToEndAHeldConnection([&] { give(iptablesRules(HostId::b)); });
	give(iptablesRules(HostId::b, {.partner = hardwareOn(lab(), HostId::a)}));
	expectToKeepASpooferOut(
	    [&]
	    {
		    // A line that begins with the packets of the rule.
		    const CommandResult shown = lab().run(HostId::b, {"sh", "-c", "iptables -nvxL VELARIX_HARDWARE 1"});
		    EXPECT_NE(shown.output.find(" DROP "), std::string::npos) << shown.output;
		    return std::atol(shown.output.c_str());
	    });
}

/// The nodes' own entries bind nobody but the nodes.
TEST_F(Hostile, TheGatewaysArpCacheIsSpoofedUntilItsEntriesAreFixed)
{
	PAIR_OR_RETURN(startServingPair());
	fixNeighbours(lab(), HostId::b);
	const std::string attackers = "02:00:00:00:01:66"; // see Wiring::plugInAttacker
	// A standby leaves no entry there until it asks.
	const std::string gateway = plan::addressOf(HostId::gateway, Network::communication);
	ASSERT_TRUE(lab().run(HostId::b, {"arping", "-c", "1", "-I", "eth1", gateway}).ok());
	Attacker spoofer(lab(), {"arp-cut-node", "", HostId::b});
	EXPECT_TRUE(waitFor([&] { return gatewaysEntryOf(HostId::b).find(attackers) != std::string::npos; }, moveLimit,
	                    "the spoofed entry at the gateway", [&] { return gatewaysEntryOf(HostId::b); }))
	    << "the node's own entries are no help";
	applyMitigation(lab(), Mitigation::neighbours);
	const long before = spoofer.tally().tries;
	EXPECT_TRUE(waitFor([&] { return spoofer.tally().tries >= before + 40; }, moveLimit, "more spoofed answers"));
	const std::string entry = gatewaysEntryOf(HostId::b);
	EXPECT_NE(entry.find(hardwareOn(lab(), HostId::b)), std::string::npos) << entry;
	EXPECT_NE(entry.find("PERMANENT"), std::string::npos) << entry;
	spoofer.end();

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

/// What the agent's pings count as lost, and the rule against it.
TEST_F(Hostile, ForgedEchoRepliesMakeAMasterGiveUpUntilTheRulesAreLoaded)
{
	PAIR_OR_RETURN(startServingPair());
	const Millis begun = lab().clock().now();
	Attacker flood(lab(), {"icmp-wrong-id", "gateway", HostId::a});
	EXPECT_TRUE(waitForAction(HostId::a, "gives up the master role, kills the programs", begun));
	applyMitigation(lab(), Mitigation::firewall);
	ASSERT_TRUE(lab().waitForService(HostId::a, moveLimit, Millis(5000))) << "while the flood goes on";
	EXPECT_GT(droppedByFirewall(lab(), HostId::a), 1000);
	flood.end();
}

} // namespace velarix::lab::hostile
