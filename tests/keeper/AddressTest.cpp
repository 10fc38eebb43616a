// The address on real hosts with real ARP: who holds it, and how soon.
#include <csignal>
#include <thread>

#include <gtest/gtest.h>

#include "Hosts.h"

namespace
{

using namespace keepertest;

TEST_F(AddressTest, AFreeAddressIsRaisedAnnouncedAndAnswers)
{
	const Speaker speaker;
	m_a.startProgram("ha-address");
	const auto [probes, announcements] = speaker.count(m_a.mac(), 2500ms);
	EXPECT_TRUE(reaches(m_a, "holding"));
	EXPECT_GE(probes, 4);
	EXPECT_EQ(announcements, 5);
	EXPECT_TRUE(m_a.prints("ip -4 -o addr show dev eth0", "192.0.2.100/32 scope global eth0:ha"));
	EXPECT_TRUE(m_a.prints("ifconfig", "inet 192.0.2.100 "));
	EXPECT_TRUE(answers());
	EXPECT_TRUE(has(m_a.events(), " raised: 192.0.2.100 on eth0\n"));
}

TEST_F(AddressTest, TheAgentSeesOneProgramOfItsName)
{
	hold(m_a);
	const std::vector<pid_t> first = m_a.processes("ha-address");
	EXPECT_EQ(first.size(), 1U);
	m_a.startProgram("ha-address");
	EXPECT_TRUE(happens([&] { return m_a.processes("ha-address") == first; }, "end of the second one"));
	EXPECT_EQ(m_a.keeper({"stop", "ha-address"}).status, 0);
	EXPECT_FALSE(runs(m_a));
	EXPECT_TRUE(m_a.processes("keeper").empty());
	EXPECT_FALSE(m_a.hasAddress());
}

TEST_F(AddressTest, ATakenAddressIsWaitedForAndTakenOverWhenItIsReleased)
{
	hold(m_a);
	m_b.startProgram("ha-address");
	ASSERT_TRUE(reaches(m_b, "waiting"));
	EXPECT_EQ(m_b.state("ha-address", "holder"), "02:00:00:00:00:01");
	EXPECT_FALSE(m_b.hasAddress());
	EXPECT_TRUE(has(m_b.keeper({"status"}).output, "waits: 02:00:00:00:00:01 holds it and serves"));
	EXPECT_EQ(m_a.keeper({"drop"}).output, "");
	const milliseconds took = timeUntil([&] { return m_b.hasAddress(); }, kSoon, "address on b");
	std::printf("release to raised: %lld ms\n", static_cast<long long>(took.count()));
	EXPECT_LE(took, 2s);
}

TEST_F(AddressTest, RaiseIsSilentWhenItHoldsAndNamesTheHolderWhenItIsTaken)
{
	const Result raised = m_a.keeper({"raise"});
	EXPECT_EQ(raised.status, 0);
	EXPECT_EQ(raised.output, "");
	EXPECT_TRUE(m_a.hasAddress());
	EXPECT_EQ(m_a.processes("ha-address").size(), 1U);
	EXPECT_EQ(m_a.keeper({"raise"}).output, "");
	const Result taken = m_b.keeper({"raise"});
	EXPECT_NE(taken.status, 0);
	EXPECT_TRUE(taken.output.starts_with("192.0.2.100 is held by 02:00:00:00:00:01 since 20")) << taken.output;
	EXPECT_EQ(std::count(taken.output.begin(), taken.output.end(), '\n'), 1);
	EXPECT_FALSE(m_b.hasAddress());
	EXPECT_FALSE(runs(m_b));
}

TEST_F(AddressTest, RaiseTellsOfAnInterfaceWithoutCarrier)
{
	shell("ip link set " + m_a.port() + " down");
	EXPECT_EQ(m_a.keeper({"raise"}).output, "eth0 is missing, down or without carrier\n");
	EXPECT_FALSE(runs(m_a));
}

TEST_F(AddressTest, DropLeavesNothingAndIsQuickWithNothingToDo)
{
	hold(m_a);
	const Result dropped = m_a.keeper({"drop"});
	EXPECT_EQ(dropped.status, 0);
	EXPECT_EQ(dropped.output, "");
	EXPECT_FALSE(m_a.hasAddress());
	EXPECT_FALSE(runs(m_a));
	EXPECT_EQ(m_a.keeper({"drop"}).status, 0);
	EXPECT_TRUE(m_a.waitsForNothing({"drop"}));
}

TEST_F(AddressTest, DropRemovesWhatSomebodyElseHasSet)
{
	m_a.run({"ip", "addr", "add", "192.0.2.100/24", "dev", "eth0"});
	m_a.run({"ip", "addr", "add", "192.0.2.100/32", "dev", "eth0"});
	EXPECT_EQ(m_a.keeper({"drop"}).output, "");
	EXPECT_FALSE(m_a.hasAddress());
	EXPECT_TRUE(m_a.prints("ip addr", "192.0.2.1/24"));
}

TEST_F(AddressTest, DropEndsAHolderThatIsBeingStarted)
{
	constexpr const char* kRunScript = "/usr/velarix/bin/ini/processList.sh"; // the agent's
	m_a.write(kRunScript, "/usr/velarix/run/ha-address >/dev/null &\n");
	for (int i = 0; i < 20; ++i)
	{
		m_a.run({"sh", kRunScript});
		m_a.keeper({"drop"});
		EXPECT_FALSE(runs(m_a)) << "round " << i;
		EXPECT_FALSE(m_a.hasAddress());
	}
}

TEST_F(AddressTest, DropEndsAFrozenHolder)
{
	hold(m_a);
	for (const char* name : {"ha-address", "keeper"})
	{
		for (const pid_t pid : m_a.processes(name))
		{
			::kill(pid, SIGSTOP);
		}
	}
	EXPECT_EQ(m_a.keeper({"drop"}).output, "");
	EXPECT_FALSE(m_a.hasAddress());
	EXPECT_FALSE(runs(m_a));
}

TEST_F(AddressTest, AKilledHolderLeavesNoAddress)
{
	hold(m_a);
	// The guard first: its worker tidies up.
	ASSERT_FALSE(m_a.processes("ha-address").empty());
	::kill(m_a.processes("ha-address").front(), SIGKILL);
	EXPECT_TRUE(happens([&] { return !m_a.hasAddress(); }, "end of the address", 2s));
	EXPECT_TRUE(happens([&] { return m_a.processes("keeper").empty(); }, "end of the worker", 2s));
	hold(m_a);
	ASSERT_FALSE(m_a.processes("keeper").empty());
	::kill(m_a.processes("keeper").front(), SIGKILL);
	EXPECT_TRUE(
	    happens([&] { return !m_a.hasAddress() && m_a.processes("ha-address").empty(); }, "end of the guard", 2s));
	EXPECT_TRUE(has(m_a.events(), "killed: the worker ended by signal 9"));
}

TEST_F(AddressTest, AnAddressThatIsRemovedByHandIsBackAtOnce)
{
	hold(m_a, "holding");
	milliseconds best = kSoon;
	for (int i = 0; i < 5; ++i)
	{
		m_a.run({"ip", "addr", "del", "192.0.2.100/32", "dev", "eth0"});
		best = std::min(best, timeUntil([&] { return m_a.hasAddress(); }, kSoon, "address again"));
	}
	EXPECT_LE(best, 200ms) << "less than any probing takes";
	EXPECT_TRUE(happens([&] { return m_a.state("ha-address", "removals") == "5"; }, "five removals"));
	EXPECT_EQ(m_a.state("ha-address"), "holding");
	EXPECT_TRUE(has(m_a.events(), "removed: 192.0.2.100 on eth0 was removed by somebody"));
}

TEST_F(AddressTest, AStormOfRemovalsIsSurvived)
{
	hold(m_a);
	m_a.sh("i=0; while [ $i -lt 300 ]; do ip addr flush dev eth0 to 192.0.2.100; i=$((i+1)); done");
	EXPECT_TRUE(happens([&] { return m_a.hasAddress(); }, "address again"));
	const std::string events = m_a.events();
	std::size_t lines = 0;
	for (std::size_t at = 0; (at = events.find(" removed: ", at)) != std::string::npos; ++at)
	{
		++lines;
	}
	EXPECT_LE(lines, 20U) << "the log must not be filled";
}

TEST_F(AddressTest, TheMarkerIsSetAndKept)
{
	const auto marked = [&] { return m_a.prints("ifconfig lo", "::192.0.2.100"); };
	EXPECT_FALSE(marked());
	EXPECT_EQ(m_a.keeper({"mark"}).status, 0);
	EXPECT_TRUE(marked());
	EXPECT_EQ(m_a.keeper({"mark"}).status, 0);
	EXPECT_EQ(m_a.keeper({"unmark"}).status, 0);
	EXPECT_FALSE(marked());
	EXPECT_TRUE(has(m_a.keeper({"status"}).output, "the marker of 192.0.2.100 is missing"));
	// The agent looks for it right after the stop command.
	m_a.keeper({"drop"});
	EXPECT_TRUE(marked());
	m_a.keeper({"unmark"});
	hold(m_a);
	EXPECT_TRUE(marked());
	m_a.run({"ip", "-6", "addr", "flush", "dev", "lo"});
	EXPECT_TRUE(happens(marked, "marker again", 2s));
	// It is for the eyes of ifconfig alone.
	m_a.keeper({"drop"});
	EXPECT_FALSE(answers());
}

TEST_F(AddressTest, WithoutIPv6AnInterfaceIsTheMarker)
{
	m_a.sh("echo 1 > /proc/sys/net/ipv6/conf/lo/disable_ipv6");
	const auto marked = [&] { return m_a.prints("ifconfig", "192.0.2.100: flags="); };
	EXPECT_FALSE(marked());
	EXPECT_EQ(m_a.keeper({"mark"}).status, 0);
	EXPECT_TRUE(marked());
	EXPECT_EQ(m_a.keeper({"mark"}).status, 0);
	EXPECT_FALSE(answers());
	EXPECT_EQ(m_a.keeper({"unmark"}).status, 0);
	EXPECT_FALSE(marked());
	hold(m_a);
	EXPECT_TRUE(happens(marked, "marker of the keeper", 2s));
	m_a.run({"ip", "link", "del", "192.0.2.100"});
	EXPECT_TRUE(happens(marked, "marker again", 2s));
}

/// Its agent would ask for the address for good, and the partner's start the services anew at
/// each of its heartbeats.
TEST_F(AddressTest, WhereTheAddressIsHeldByAnotherHostARaiseSetsTheMarker)
{
	m_a.sh("echo 1 > /proc/sys/net/ipv6/conf/lo/disable_ipv6");
	hold(m_b);
	EXPECT_EQ(m_a.keeper({"raise"}).status, 75);
	EXPECT_TRUE(m_a.prints("ifconfig", "192.0.2.100: flags="));
}

TEST_F(AddressTest, AnInterfaceThatComesLateIsWaitedFor)
{
	shell("ip link set " + m_a.port() + " down");
	m_a.startProgram("ha-address");
	// The agent finds the address and no carrier, and asks its partner. No service is started.
	ASSERT_TRUE(reaches(m_a, "holding"));
	EXPECT_TRUE(m_a.hasAddress());
	EXPECT_EQ(m_a.state("ha-address", "held"), "no");
	shell("ip link set " + m_a.port() + " up");
	EXPECT_TRUE(happens([&] { return m_a.state("ha-address", "held") == "yes"; }, "held"));
	// A carrier that goes and comes does not cost the address, and asks who else has it.
	shell("ip link set " + m_a.port() + " down");
	ASSERT_TRUE(happens([&] { return m_a.prints("ip link show dev eth0", "NO-CARRIER"); }, "loss"));
	EXPECT_TRUE(m_a.hasAddress());
	hold(m_b);
	shell("ip link set " + m_a.port() + " up");
	EXPECT_TRUE(reaches(m_a, "yielded"));
	EXPECT_TRUE(m_b.hasAddress());
}

TEST_F(AddressTest, WhatWasRaisedWithoutCarrierGivesWayToWhoeverHoldsItWhenTheCarrierComes)
{
	shell("ip link set " + m_b.port() + " down");
	m_b.startProgram("ha-address");
	ASSERT_TRUE(reaches(m_b, "holding"));
	hold(m_a);
	shell("ip link set " + m_b.port() + " up");
	EXPECT_TRUE(reaches(m_b, "yielded"));
	EXPECT_FALSE(m_b.hasAddress());
	EXPECT_TRUE(m_a.hasAddress());
}

TEST_F(AddressTest, AHolderWhoseServiceHasEndedGivesWayToWhoeverAsksForLong)
{
	m_a.configure(true, "[service web]\ncommand = /bin/true\n");
	hold(m_a);
	givesWay();
}

TEST_F(AddressTest, OneThatWasToBeHandedOverGivesWayToo)
{
	hold(m_a);
	::kill(m_a.processes("ha-address").front(), SIGUSR1);
	EXPECT_TRUE(happens([&] { return !runs(m_a); }, "another name"));
	givesWay();
}

TEST_F(AddressTest, OneWhoseSupervisorWasKilledEndsWhatIsLeftOfTheServiceAndGivesWay)
{
	m_a.configure(true, "[service web]\ncommand = /bin/sleep 1000\n");
	hold(m_a);
	m_a.startProgram("ha-web");
	ASSERT_TRUE(happens([&] { return m_a.state("ha-web") == "running"; }, "service"));
	m_a.killBoth("ha-web");
	ASSERT_TRUE(happens([&] { return m_a.processes("ha-web").empty(); }, "end of the supervisor"));
	EXPECT_EQ(m_a.processes("sleep").size(), 1U);
	givesWay();
	EXPECT_TRUE(m_a.processes("sleep").empty());
}

TEST_F(AddressTest, AnInterfaceThatIsMadeAnewCarriesItAgain)
{
	hold(m_a);
	shell("ip link del " + m_a.port());
	ASSERT_TRUE(reaches(m_a, "offline"));
	shell("ip link add h1 type veth peer name eth0 address 02:00:00:00:00:01 netns " + m_a.state("ha-address", "pid") +
	      " && ip link set h1 master br0 up");
	m_a.run({"ip", "link", "set", "eth0", "up"});
	EXPECT_TRUE(happens([&] { return m_a.hasAddress(); }, "address"));
}

TEST_F(AddressTest, MalformedAndForeignARPIsIgnored)
{
	hold(m_a, "holding");
	const Speaker speaker;
	const auto claim = velarix::keeper::arpAnnouncement(0x640200c0, {2, 0, 0, 0, 0, 0x66});
	for (std::size_t place = 14; place < 22; ++place)
	{
		std::vector<std::uint8_t> frame(claim.begin(), claim.end());
		frame[place] = 0xee;
		speaker.send(frame);
	}
	for (std::size_t length = 14; length < claim.size(); ++length)
	{
		speaker.send({claim.begin(), claim.begin() + static_cast<std::ptrdiff_t>(length)});
	}
	// One that counts, behind all of them.
	speaker.claim({2, 0, 0, 0, 0, 0x66});
	ASSERT_TRUE(happens([&] { return m_a.state("ha-address", "conflicts") != "0"; }, "conflict"));
	EXPECT_EQ(m_a.state("ha-address", "conflicts"), "1");
}

TEST_F(AddressTest, WhatItMayDoIsLittle)
{
	hold(m_a);
	const std::string pid = m_a.state("ha-address", "pid");
	const std::string status = shell("cat /proc/" + pid + "/status");
	// CAP_NET_ADMIN and CAP_NET_RAW.
	EXPECT_TRUE(has(status, "CapEff:\t0000000000003000")) << status;
	EXPECT_TRUE(has(status, "CapPrm:\t0000000000003000")) << status;
	EXPECT_EQ(shell("ls /proc/" + pid + "/task | wc -l"), "1\n");
	const int resident = std::stoi(shell("sed -n 's/^VmRSS:[ \\t]*\\([0-9]*\\) kB/\\1/p' /proc/" + pid + "/status"));
	std::printf("resident: %d kB\n", resident);
#if !defined(__SANITIZE_ADDRESS__)
	EXPECT_LE(resident, 4096 + 1024) << "an unoptimised build may have a little more than 4 MiB";
#endif
}

TEST_F(AddressTest, WithoutSoundSettingsNothingStarts)
{
	m_a.write("/usr/velarix/bin/ini/keeper.ini", "[address]\naddress = nowhere\n");
	const Result refused = m_a.sh("/usr/velarix/run/ha-address 2>&1");
	EXPECT_EQ(refused.status, 78);
	EXPECT_TRUE(refused.output.starts_with("ha-address: keeper.ini line 2: address = nowhere is not an IPv4 address"))
	    << refused.output;
	EXPECT_EQ(m_a.keeper({"raise"}).status, 78);
	EXPECT_EQ(m_a.keeper({"check"}).status, 78);
	EXPECT_EQ(m_a.sh("/usr/libexec/velarix-ha/keeper nonsense 2>&1").status, 64);
	EXPECT_NE(m_a.keeper({"drop"}).output, "");
}

TEST_F(AddressTest, StatusIsJSONWhenAsked)
{
	hold(m_a);
	const std::string json = m_a.keeper({"status", "--json"}).output;
	EXPECT_TRUE(has(json, "\"address\":\"192.0.2.100\"")) << json;
	EXPECT_TRUE(has(json, "\"held\":true")) << json;
	EXPECT_TRUE(has(json, "\"marker\":true")) << json;
	EXPECT_TRUE(has(m_b.keeper({"status", "--json"}).output, "\"state\":\"stopped\""));
	shell("echo '" + json + "' | python3 -c 'import json, sys; json.load(sys.stdin)'");
}

} // namespace
