/// Two hosts with one address, for the tests of who holds it.
#pragma once

#include <gtest/gtest.h>

#include "Hosts.h"
#include "WaitFor.h"

namespace keepertest
{

using namespace std::chrono_literals;

/// Long enough for a machine under load; figures that are promised are distinguished.
inline constexpr milliseconds kSoon = 10s;

class AddressTest : public testing::Test
{
protected:
	AddressTest()
	{
		m_a.configure(true);
		m_b.configure(false);
	}

	static testing::AssertionResult comes(const Host& host, const std::function<bool()>& predicate,
	                                      const std::string& what, milliseconds limit = kSoon)
	{
		return waitFor(predicate, limit, what, [&] { return host.state("ha-address") + "\n" + host.events(); });
	}

	static testing::AssertionResult reaches(const Host& host, const std::string& state)
	{
		return comes(
		    host, [&] { return host.state("ha-address") == state; }, state);
	}

	static void hold(const Host& host, const std::string& state = "announcing")
	{
		host.startProgram("ha-address");
		ASSERT_TRUE(comes(
		    host, [&] { return host.state("ha-address", "held") == "yes" && host.hasAddress(); }, "address"));
		ASSERT_TRUE(state == "announcing" || reaches(host, state));
	}

	/// Host b asks for the address that a holds, and gets it.
	void givesWay() const
	{
		m_b.startProgram("ha-address");
		ASSERT_TRUE(reaches(m_b, "waiting"));
		EXPECT_TRUE(comes(
		    m_b, [&] { return m_b.hasAddress(); }, "address", 3 * kSoon));
		EXPECT_FALSE(m_a.hasAddress());
		EXPECT_TRUE(has(m_a.events(), "another host asks for it"));
	}

	static pid_t workerOf(const Host& host) { return std::stoi(host.state("ha-address", "pid")); }

	static bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

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
