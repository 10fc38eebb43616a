/// Two hosts with one address, for the tests of who holds it.
#pragma once

#include <gtest/gtest.h>

#include "Hosts.h"

namespace keepertest
{

using namespace std::chrono_literals;

class AddressTest : public testing::Test
{
protected:
	AddressTest()
	{
		m_a.configure(true);
		m_b.configure(false);
	}

	static testing::AssertionResult reaches(const Host& host, const std::string& state)
	{
		return happens([&] { return host.state("ha-address") == state; }, state);
	}

	static void hold(const Host& host, const std::string& state = "announcing")
	{
		host.startProgram("ha-address");
		ASSERT_TRUE(happens([&] { return host.state("ha-address", "held") == "yes" && host.hasAddress(); }, "address"));
		ASSERT_TRUE(state == "announcing" || reaches(host, state));
	}

	/// Host b asks for the address that a holds, and gets it.
	void givesWay() const
	{
		m_b.startProgram("ha-address");
		ASSERT_TRUE(reaches(m_b, "waiting"));
		EXPECT_TRUE(happens([&] { return m_b.hasAddress(); }, "address", 2 * kSoon));
		EXPECT_FALSE(m_a.hasAddress());
		EXPECT_TRUE(has(m_a.events(), "another host asks for it"));
	}

	static pid_t workerOf(const Host& host) { return std::stoi(host.state("ha-address", "pid")); }

	static bool runs(const Host& host) { return !host.processes("ha-address").empty(); }

	/// Both ports may speak to the bridge, and not to each other: no carrier is lost.
	void cut(bool apart) const
	{
		for (const Host* host : {&m_a, &m_b})
		{
			shell("bridge link set dev " + host->port() + " isolated " + (apart ? "on" : "off"));
		}
	}

	Host m_a{1};
	Host m_b{2};
};

} // namespace keepertest
