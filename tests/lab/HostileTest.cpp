/// Attackers on the pair's networks, in short; the long form is
/// "velarix-lab hostile". The rules are the shipped ones.
#include <cstdlib>
#include <functional>
#include <iostream>
#include <tuple>

#include "PairTest.h"
#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/hostile/Attacker.h"
#include "lab/campaigns/hostile/Attacks.h"
#include "lab/campaigns/hostile/Run.h"

namespace velarix::lab::hostile
{

/// A case of the table and what is set up against it.
class ShortHostile : public testing::TestWithParam<std::tuple<const char*, Mitigation>>
{
};

TEST_P(ShortHostile, EndsAsWrittenDown)
{
	SKIP_WITHOUT_NAMESPACES();
	requireLab();
	const auto& [name, mitigation] = GetParam();
	Plan plan;
	plan.cell = filtered(readTable(""), {name}).front();
	plan.mitigation = mitigation;
	plan.times.pair.profile = attackNamed(plan.cell.attack).onKeeper ? Profile::keeper : Profile::plain;
	plan.count = 200;
	plan.times.slack = Millis(4000);
	plan.times.noOutage = Millis(2500);
	Record record = runPlan(plan);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
	// A sanitizer's own memory counts as well.
	std::erase_if(record.differences, [](const std::string& text) { return text.starts_with("resident KiB"); });
#endif
	EXPECT_EQ(record.differences, std::vector<std::string>{}) << record.timeline;
}

INSTANTIATE_TEST_SUITE_P(Cases, ShortHostile,
                         testing::Values(std::tuple{"random/b/standby", Mitigation::none},
                                         std::tuple{"client-pool/b/standby", Mitigation::none},
                                         std::tuple{"forged/1-1-0/a/master", Mitigation::none},
                                         std::tuple{"forged/1-1-0/a/master", Mitigation::firewall},
                                         std::tuple{"forged-service/1-1-0/a/master", Mitigation::port},
                                         std::tuple{"spoofed-partner/1-1-0/a/master", Mitigation::neighbours},
                                         std::tuple{"arp-cut-node/a/master", Mitigation::neighbours},
                                         std::tuple{"icmp-wrong-id/gateway/a/master", Mitigation::firewall},
                                         std::tuple{"arp-claims/a/master", Mitigation::none}),
                         [](const testing::TestParamInfo<ShortHostile::ParamType>& cell)
                         {
	                         std::string name =
	                             std::string(std::get<0>(cell.param)) + "_" + nameOf(std::get<1>(cell.param));
	                         std::ranges::replace_if(
	                             name, [](unsigned char letter) { return std::isalnum(letter) == 0; }, '_');
	                         return name;
                         });

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

/// Rules that are loaded end a connection that is there already, and a rule with the
/// hardware address keeps out an attacker that has taken the IP address alone.
class Hostile : public PairTest
{
protected:
	/// How many received messages of node b's log begin so.
	long timesReceived(const std::string& beginning)
	{
		return timesIn(lab().node(HostId::b).diskFile(plan::logFile), "received message: " + beginning);
	}

	bool partnerIsReceived()
	{
		const long received = receivedBy(lab(), HostId::b).partner;
		return waitFor([&] { return receivedBy(lab(), HostId::b).partner > received; }, moveLimit,
		               "the partner to be received");
	}

	void expectToEndAHeldConnection(const std::function<void()>& loadRules)
	{
		Attacker holder(lab(), {"hold-connection", "", HostId::b});
		holder.awaitHold(false);
		const Millis loaded = lab().clock().now();
		loadRules();
		EXPECT_TRUE(partnerIsReceived());
		std::cout << "received again after " << secondsText(lab().clock().now() - loaded) << '\n';
		const long held = timesReceived("/held/");
		EXPECT_TRUE(partnerIsReceived());
		EXPECT_EQ(timesReceived("/held/"), held);
		holder.end();
	}

	void expectToKeepASpooferOut(const std::function<long()>& dropped)
	{
		EXPECT_TRUE(partnerIsReceived());
		Attacker spoofer(lab(), {"spoofed-partner", "1-0-0", HostId::b});
		spoofer.awaitHold(true);
		const long before = dropped();
		EXPECT_TRUE(waitFor([&] { return dropped() > before; }, moveLimit, "the spoofer to be dropped"));
		spoofer.end();
		EXPECT_EQ(spoofer.tally().connections, 0);
		EXPECT_EQ(timesReceived(forgedHeartbeat("1-0-0")), 0);
	}

	std::string onB(const std::string& line)
	{
		const CommandResult done = lab().run(HostId::b, {"sh", "-ec", line});
		EXPECT_TRUE(done.ok()) << done.output;
		return done.output;
	}
};

TEST_F(Hostile, NftablesEndAHeldConnectionAndKnowTheHardwareAddress)
{
	PAIR_OR_RETURN(startServingPair());
	expectToEndAHeldConnection([&] { applyMitigation(lab(), Mitigation::firewall); });
	runOrThrow(
	    {{"nft", "-f", "-"}, nftRules(HostId::b, {.partner = hardwareOf(HostId::a)}), lab().host(HostId::b).inside()});
	expectToKeepASpooferOut([&] { return droppedByFirewall(lab(), HostId::b); });
}

TEST_F(Hostile, IptablesEndAHeldConnectionAndKnowTheHardwareAddress)
{
	PAIR_OR_RETURN(startServingPair());
	expectToEndAHeldConnection([&] { onB(iptablesRules(HostId::b)); });
	onB(iptablesRules(HostId::b, {.partner = hardwareOf(HostId::a)}));
	// A line that begins with the packets of the rule.
	expectToKeepASpooferOut([&]
	                        { return std::atol(onB("iptables -nvxL VELARIX_HARDWARE 1 | grep ' DROP '").c_str()); });
	const auto replies = [&]
	{ return std::atol(onB("iptables -nvxL VELARIX_PROBES | grep 'DROP.*icmptype 0$' || true").c_str()); };
	EXPECT_EQ(replies(), 0);
	Attacker forger(lab(), {"icmp-wrong-id", "gateway", HostId::b});
	EXPECT_TRUE(waitFor([&] { return replies() > 0; }, moveLimit, "the forged replies to be dropped"));
	forger.end();
}

/// What docs/security.md says of fixed entries and of their end.
TEST_F(Hostile, FixedNeighboursOutliveACarrierAndNoInterface)
{
	PAIR_OR_RETURN(startPair());
	fixNeighbours(lab(), HostId::b);
	const auto isFixed = [&]
	{
		const std::string entry =
		    onB(std::string("ip neigh show ") + plan::addressOf(HostId::gateway, Network::communication));
		return entry.find("PERMANENT") != std::string::npos;
	};
	EXPECT_TRUE(isFixed());
	for (const bool up : {false, true})
	{
		lab().wiring().setPort(HostId::b, Network::communication, up);
		ASSERT_TRUE(waitFor([&] { return onB("cat /sys/class/net/eth1/carrier") == (up ? "1\n" : "0\n"); }, moveLimit,
		                    "the carrier to change"));
		EXPECT_TRUE(isFixed());
	}
	onB("ip link set eth1 down; ip link set eth1 up");
	EXPECT_FALSE(isFixed());
}

} // namespace velarix::lab::hostile
