// Two hosts that want one address, and forged packets: real ARP on a bridge.
#include <csignal>
#include <thread>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "Hosts.h"

namespace
{

using namespace keepertest;

TEST_F(AddressTest, TwoThatStartAtOnceAgreeOnOne)
{
	for (int i = 0; i < 3; ++i)
	{
		m_a.startProgram("ha-address");
		m_b.startProgram("ha-address");
		const milliseconds took = timeUntil([&] { return m_a.hasAddress() || m_b.hasAddress(); }, kSoon, "holder");
		EXPECT_LE(took, 4s);
		const Host& holder = m_a.hasAddress() ? m_a : m_b;
		const Host& other = m_a.hasAddress() ? m_b : m_a;
		EXPECT_TRUE(reaches(holder, "holding"));
		EXPECT_TRUE(reaches(other, "waiting"));
		EXPECT_FALSE(other.hasAddress());
		m_a.keeper({"drop"});
		m_b.keeper({"drop"});
	}
}

TEST_F(AddressTest, AfterASplitTheOneThatYieldsYields)
{
	cut(true);
	hold(m_a);
	hold(m_b);
	ASSERT_TRUE(reaches(m_a, "holding"));
	ASSERT_TRUE(reaches(m_b, "holding"));
	const Speaker client;
	cut(false);
	const milliseconds took = timeUntil([&] { return !m_b.hasAddress(); }, kSoon, "b to yield");
	std::printf("split healed to one holder: %lld ms\n", static_cast<long long>(took.count()));
	EXPECT_LE(took, 2s);
	EXPECT_EQ(m_b.state("ha-address"), "yielded");
	EXPECT_EQ(m_b.state("ha-address", "holder"), "02:00:00:00:00:01");
	EXPECT_EQ(m_a.state("ha-address"), "holding");
	EXPECT_TRUE(m_a.hasAddress());
	EXPECT_TRUE(has(m_b.events(), "yielded: 192.0.2.100 to 02:00:00:00:00:01"));
	EXPECT_TRUE(has(m_b.keeper({"status"}).output, "given up to 02:00:00:00:00:01"));
	EXPECT_GE(client.count(m_a.mac(), 1s).second, 1) << "clients may still know b's hardware address";
}

TEST_F(AddressTest, AnotherInterfaceOfThisHostOnTheSameNetworkIsNoConflict)
{
	shell("ip link add out type veth peer name eth1 netns " + m_b.namespaces() + " && ip link set out master br0 up");
	m_b.run({"ip", "link", "set", "eth1", "up"});
	EXPECT_TRUE(happens([&] { return m_b.prints("ip -o link show dev eth1", "LOWER_UP"); }, "carrier"));
	hold(m_b, "holding");
	const Speaker speaker;
	EXPECT_GE(speaker.count(m_b.mac(), 2500ms).first, 2);
	EXPECT_EQ(m_b.state("ha-address", "conflicts"), "0");
	EXPECT_TRUE(m_b.hasAddress());
	shell("ip link del out");
}

TEST_F(AddressTest, OneForgedPacketCostsNothing)
{
	hold(m_b, "holding");
	const Speaker speaker;
	speaker.claim({2, 0, 0, 0, 0, 0x66});
	ASSERT_TRUE(happens([&] { return m_b.state("ha-address", "conflicts") == "1"; }, "conflict"));
	EXPECT_TRUE(reaches(m_b, "holding"));
	EXPECT_TRUE(m_b.hasAddress());
	EXPECT_FALSE(has(m_b.events(), "lowered"));
}

TEST_F(AddressTest, TheOneThatDefendsAnnouncesAtOnceAndNotOftener)
{
	hold(m_a, "holding");
	const Speaker speaker;
	speaker.claim({2, 0, 0, 0, 0, 0x66});
	EXPECT_GE(speaker.count(m_a.mac(), 300ms).second, 1);
	std::jthread flood(
	    [&](const std::stop_token& stop)
	    {
		    while (!stop.stop_requested())
		    {
			    speaker.claim({2, 0, 0, 0, 0, 0x66});
			    std::this_thread::sleep_for(1ms);
		    }
	    });
	const Speaker listener;
	const int announced = listener.count(m_a.mac(), 2s).second;
	EXPECT_GE(announced, 3);
	EXPECT_LE(announced, 22);
	EXPECT_TRUE(m_a.hasAddress());
}

TEST_F(AddressTest, ClientsThatAskForTheAddressDoNotWakeItsHolder)
{
	hold(m_a, "holding");
	const std::string pid = m_a.state("ha-address", "pid");
	const auto wakes = [&]
	{ return std::stoi(shell("awk '/^voluntary_ctxt_switches/ { print $2 }' /proc/" + pid + "/status")); };
	const Speaker client;
	auto request = velarix::keeper::arpProbe(::inet_addr(kVirtual), {2, 0, 0, 0, 0, 0x66});
	request[31] = 9; // the last byte of the sender's address
	const int before = wakes();
	for (int i = 0; i < 500; ++i)
	{
		client.send({request.begin(), request.end()});
		std::this_thread::sleep_for(1ms);
	}
	EXPECT_LT(wakes() - before, 100);
}

/// Longer than what counts as a stall, which is what is tested.
void standStill()
{
	std::this_thread::sleep_for(3200ms);
}

TEST_F(AddressTest, AHolderThatStoodStillAsksBeforeItAnnouncesAndYieldsToWhoeverHoldsItNow)
{
	hold(m_a, "holding");
	const pid_t worker = m_a.worker("ha-address");
	::kill(worker, SIGSTOP);
	// The rest of the machine, too, as a virtual machine that is paused: nor does its kernel answer
	// before the worker goes on.
	shell("ip link set " + m_a.port() + " nomaster");
	m_a.sh("echo 8 > /proc/sys/net/ipv4/conf/all/arp_ignore");
	hold(m_b);
	standStill();
	shell("ip link set " + m_a.port() + " master br0");
	const Speaker speaker;
	::kill(worker, SIGCONT);
	const auto [probes, announcements] = speaker.count(m_a.mac(), 500ms);
	m_a.sh("echo 0 > /proc/sys/net/ipv4/conf/all/arp_ignore");
	EXPECT_GE(probes, 1);
	EXPECT_EQ(announcements, 0);
	EXPECT_TRUE(reaches(m_a, "yielded"));
	EXPECT_FALSE(m_a.hasAddress());
	EXPECT_TRUE(m_b.hasAddress()) << m_b.events();
	EXPECT_TRUE(has(m_a.events(), "stalled: "));
}

TEST_F(AddressTest, WhatWasClaimedDuringAStallAndIsOverCostsNothing)
{
	hold(m_b, "holding");
	const pid_t worker = m_b.worker("ha-address");
	::kill(worker, SIGSTOP);
	const Speaker speaker;
	speaker.claim({2, 0, 0, 0, 0, 0x66});
	standStill();
	::kill(worker, SIGCONT);
	EXPECT_TRUE(happens([&] { return has(m_b.events(), "stalled: "); }, "stall"));
	EXPECT_TRUE(reaches(m_b, "holding"));
	EXPECT_FALSE(has(m_b.events(), "lowered"));
}

TEST_F(AddressTest, AShortPauseIsNoStall)
{
	hold(m_a, "holding");
	const pid_t worker = m_a.worker("ha-address");
	::kill(worker, SIGSTOP);
	std::this_thread::sleep_for(500ms);
	::kill(worker, SIGCONT);
	const Speaker speaker;
	EXPECT_GE(speaker.count(m_a.mac(), 1500ms).first, 1);
	EXPECT_FALSE(has(m_a.events(), "stalled"));
}

TEST_F(AddressTest, SomebodyWhoAnswersEveryProbeIsWaitedFor)
{
	const Speaker speaker;
	std::jthread attacker([&] { speaker.answerProbes({2, 0, 0, 0, 0, 0x66}, 1500ms); });
	m_a.startProgram("ha-address");
	EXPECT_TRUE(reaches(m_a, "waiting"));
	EXPECT_EQ(m_a.state("ha-address", "holder"), "02:00:00:00:00:66");
	EXPECT_FALSE(m_a.hasAddress());
	attacker.join();
	EXPECT_TRUE(happens([&] { return m_a.hasAddress(); }, "address"));
}

} // namespace
