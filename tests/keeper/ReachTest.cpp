// The reachability address on real hosts: real pings, real datagrams.
#include <gtest/gtest.h>

#include "Hosts.h"

namespace
{

using namespace keepertest;

constexpr const char* kReach = "ha-reach";

class ReachTest : public testing::Test
{
protected:
	ReachTest()
	{
		shell("ip addr add 192.0.2.253/24 dev br0");
		configure(m_a, 1, 2);
		configure(m_b, 2, 1);
	}

	~ReachTest() override
	{
		shell("echo 0 > /proc/sys/net/ipv4/icmp_echo_ignore_all; ip addr del 192.0.2.253/24 dev br0");
	}

	static void configure(const Host& host, int own, int partner)
	{
		const std::string key = "/usr/velarix/bin/ini/reachability.key";
		host.configure(own == 1, "[reachability]\naddress = 192.0.0.8\ntargets = 192.0.2.254 192.0.2.253\nneeded = 1\n"
		                         "failures = 3\nown = 192.0.2." +
		                             std::to_string(own) + "\npartner = 192.0.2." + std::to_string(partner) + "\n");
		host.sh("printf %064d 7 > " + key + "; chmod 600 " + key);
	}

	static void start(const Host& host) { host.sh("/usr/libexec/velarix-ha/keeper reach >/dev/null 2>&1 &"); }

	/// An agent, as far as ha-reach asks for it.
	static void startAgent(const Host& host)
	{
		host.sh("mkdir -p /usr/velarix/pid; cp /bin/sleep /usr/velarix/VelarixHA; /usr/velarix/VelarixHA 1000 "
		        ">/dev/null 2>&1 & "
		        "printf %s $! > /usr/velarix/pid/VelarixHA.pid");
	}

	static testing::AssertionResult reaches(const Host& host, const std::string& state, bool held)
	{
		return happens([&] { return host.state(kReach) == state && isThere(host) == held; }, state);
	}

	static bool isThere(const Host& host)
	{
		return host.prints("ip -4 -o addr show dev lo", "192.0.0.8/32 scope host");
	}

	void startBoth() const
	{
		for (const Host* host : {&m_a, &m_b})
		{
			start(*host);
			ASSERT_TRUE(reaches(*host, "reachable", true));
		}
		// A partner reaches its targets only after as many answers as make a loss.
		ASSERT_TRUE(happens([&] { return m_a.state(kReach, "partner") == "reaches"; }, "the partner's answer"));
	}

	/// The targets answer nobody, or this host does not get to them.
	static void silenceTargets(bool silent)
	{
		shell(std::string("echo ") + (silent ? "1" : "0") + " > /proc/sys/net/ipv4/icmp_echo_ignore_all");
	}
	static void cutFromTargets(const Host& host)
	{
		EXPECT_EQ(host.sh("ip route add blackhole 192.0.2.253 && ip route add blackhole 192.0.2.254").status, 0);
	}

	Host m_a{1};
	Host m_b{2};
};

TEST_F(ReachTest, TheAddressIsThereWhileEnoughTargetsAnswerAndGoesWithItsProcess)
{
	start(m_a);
	ASSERT_TRUE(reaches(m_a, "reachable", true));
	EXPECT_EQ(m_a.processes(kReach).size(), 1U);
	EXPECT_TRUE(has(m_a.keeper({"status"}).output, "target 192.0.2.253: answers since"));
	EXPECT_TRUE(
	    has(m_a.keeper({"status", "--json"}).output, R"("reachability":{"address":"192.0.0.8","running":true)"));
	// One of two is enough.
	m_a.sh("ip route add blackhole 192.0.2.253");
	ASSERT_TRUE(happens([&] { return m_a.state(kReach, "target.192.0.2.253").starts_with("lost "); }, "lost"));
	EXPECT_TRUE(isThere(m_a));
	EXPECT_EQ(m_a.state(kReach), "reachable");
	EXPECT_EQ(m_a.keeper({"stop", kReach}).status, 0);
	EXPECT_FALSE(isThere(m_a));
	EXPECT_TRUE(m_a.processes(kReach).empty());
}

TEST_F(ReachTest, RemovedByHandItComesBackAndKilledItLeavesTheAddressForTheNextOne)
{
	start(m_a);
	ASSERT_TRUE(reaches(m_a, "reachable", true));
	m_a.run({"ip", "addr", "del", "192.0.0.8/32", "dev", "lo"});
	const milliseconds took = timeUntil([&] { return isThere(m_a); }, kSoon, "the address");
	std::printf("removed to set again: %lld ms\n", static_cast<long long>(took.count()));
	m_a.sh("ip monitor address > /run/seen 2>&1 &");
	for (const auto& [killsWorker, killsGuard] : {std::pair(true, false), {false, true}, {true, true}})
	{
		const std::string worker = m_a.state(kReach, "pid");
		const std::string guard = std::to_string(m_a.processes(kReach).front());
		m_a.sh("kill -9 " + (killsWorker ? worker + " " : "") + (killsGuard ? guard : ""));
		ASSERT_TRUE(happens([&] { return m_a.processes(kReach).empty(); }, "the end"));
		start(m_a);
		ASSERT_TRUE(happens([&] { return m_a.state(kReach, "pid") != worker && isThere(m_a); }, "the next one"));
	}
	EXPECT_FALSE(has(m_a.read("/run/seen"), "Deleted"));
}

TEST_F(ReachTest, FrozenItLosesTheAddressByItselfAndOtherwiseKeepsIt)
{
	startBoth();
	m_b.sh("kill -STOP " + m_b.state(kReach, "pid"));
	EXPECT_TRUE(happens([&] { return !isThere(m_b); }, "the end of the address"));
	// It was set before the other one's.
	EXPECT_FALSE(has(m_a.events(), " removed: "));
	m_b.sh("kill -CONT " + m_b.state(kReach, "pid"));
	EXPECT_TRUE(reaches(m_b, "reachable", true));
}

TEST_F(ReachTest, NewSettingsEndItForItsUnitToStartAndWrongOnesDoNot)
{
	start(m_a);
	ASSERT_TRUE(reaches(m_a, "reachable", true));
	m_a.sh("chmod 644 /usr/velarix/bin/ini/reachability.key; touch /usr/velarix/bin/ini/reachability.key");
	ASSERT_TRUE(happens([&] { return has(m_a.events(), "the former settings stay"); }, "the report"));
	EXPECT_TRUE(isThere(m_a));
	m_a.sh("printf %064d 8 > /usr/velarix/bin/ini/reachability.key; chmod 600 /usr/velarix/bin/ini/reachability.key");
	EXPECT_TRUE(happens([&] { return m_a.processes(kReach).empty() && !isThere(m_a); }, "the end"));
	EXPECT_TRUE(has(m_a.events(), "its settings were changed"));
}

TEST_F(ReachTest, AnOutageForBothMovesNothing)
{
	startBoth();
	silenceTargets(true);
	EXPECT_TRUE(reaches(m_a, "shared-outage", true));
	EXPECT_TRUE(reaches(m_b, "shared-outage", true));
	EXPECT_FALSE(has(m_a.events() + m_b.events(), "partner-only"));
	silenceTargets(false);
	EXPECT_TRUE(reaches(m_a, "reachable", true));
	EXPECT_TRUE(reaches(m_b, "reachable", true));
	EXPECT_FALSE(has(m_a.events() + m_b.events(), "partner-only"));
	EXPECT_FALSE(has(m_a.events() + m_b.events(), "isolated"));
}

TEST_F(ReachTest, TheServiceGoesToAPartnerThatReachesItsTargetsAndCanTakeIt)
{
	startBoth();
	startAgent(m_a);
	m_a.startProgram("ha-address");
	ASSERT_TRUE(happens([&] { return m_a.hasAddress(); }, "the virtual address"));
	cutFromTargets(m_a);
	// The partner has no agent.
	ASSERT_TRUE(reaches(m_a, "partner-only", true));
	EXPECT_EQ(m_a.state(kReach, "partner"), "reaches");
	EXPECT_EQ(m_a.processes("ha-address").size(), 1U);
	startAgent(m_b);
	EXPECT_TRUE(happens([&] { return m_a.processes("ha-address").empty(); }, "a program that the agent misses"));
	EXPECT_TRUE(m_a.hasAddress()) << "the agent gives up without asking when it misses its address first";
	EXPECT_TRUE(isThere(m_a));
	EXPECT_EQ(m_a.keeper({"drop"}).status, 0);
	EXPECT_FALSE(m_a.hasAddress());
	EXPECT_TRUE(has(m_a.events(), "handing-over: "));
}

TEST_F(ReachTest, ANodeThatLosesItsTargetsAndItsPartnerIsTheIsolatedOne)
{
	startBoth();
	shell("ip link set " + m_a.port() + " down");
	EXPECT_TRUE(reaches(m_a, "isolated", false));
	EXPECT_TRUE(reaches(m_b, "reachable", true));
	shell("ip link set " + m_a.port() + " up");
	EXPECT_TRUE(reaches(m_a, "reachable", true));
}

TEST_F(ReachTest, AnotherKeyIsNoPartner)
{
	m_b.sh("printf %064d 8 > /usr/velarix/bin/ini/reachability.key");
	for (const Host* host : {&m_a, &m_b})
	{
		start(*host);
		ASSERT_TRUE(reaches(*host, "reachable", true));
	}
	cutFromTargets(m_a);
	EXPECT_TRUE(reaches(m_a, "isolated", false));
	EXPECT_EQ(m_a.state(kReach, "partner"), "silent");
}

} // namespace
