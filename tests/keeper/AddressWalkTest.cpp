// The states of the address: what must hold whatever comes in whatever order.
#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "keeper/AddressMachine.h"

namespace
{

using namespace velarix::keeper;
using enum AddressState;
using E = AddressEvent;

constexpr Millis kNow = 1'000'000;
const Mac kOther{2, 0, 0, 0, 0, 1};

/// What must hold whatever comes: the kernel as the machine sees it, and the network.
class Walk
{
public:
	explicit Walk(unsigned seed) : m_random(seed) { m_machine.defend = seed % 2 == 0; }

	void run(int steps)
	{
		for (int i = 0; i < steps && m_machine.state != stopped; ++i)
		{
			E event = pick(2) == 0 ? E::timer : static_cast<E>(pick(i % 100 == 99 ? 9 : 8));
			if (m_machine.deadline() == kNever && event == E::timer)
			{
				event = E::linkUp;
			}
			// A timer is never early.
			m_now = event == E::timer ? std::max(m_now, m_machine.deadline()) : m_now + pick(120);
			feed(event);
			if (testing::Test::HasFatalFailure())
			{
				return;
			}
		}
	}

private:
	Millis pick(unsigned below) { return static_cast<Millis>(m_random() % below); }

	void feed(E event)
	{
		if (event == E::claim)
		{
			m_claimedAt = m_now;
		}
		if (event == E::removed)
		{
			m_present = false;
		}
		const AddressMachine before = m_machine;
		const AddressStep step = next(before, {event, m_now, kOther, static_cast<std::uint32_t>(m_random())});
		m_machine = step.machine;
		m_present = (m_present && !step.actions.lower) || step.actions.raise;
		SCOPED_TRACE(std::string(nameOf(before.state)) + " to " + nameOf(m_machine.state));
		if (!m_machine.held())
		{
			ASSERT_FALSE(m_present) << "an address that is not held is on the interface";
		}
		else if (!m_present)
		{
			ASSERT_LE(m_machine.deadline(), m_now + timing::kRaiseGap) << "nothing will raise it again";
		}
		if (!before.held() && m_machine.held())
		{
			ASSERT_GE(m_now - m_claimedAt, timing::kProbeWait) << "raised though somebody had claimed it";
		}
		if (step.actions.announce)
		{
			// Or it is raised again within 20 ms, and is defended meanwhile.
			ASSERT_TRUE(m_machine.held());
			ASSERT_GE(m_now - m_announcedAt, timing::kDefendGap);
			m_announcedAt = m_now;
		}
		if (m_machine.state != stopped && m_machine.state != offline)
		{
			ASSERT_NE(m_machine.deadline(), kNever) << "nothing would ever happen again";
			ASSERT_LE(m_machine.deadline(), m_now + 1000);
		}
		ASSERT_TRUE((m_machine.state != waiting && m_machine.state != yielded) || m_machine.holder.has_value());
	}

	std::mt19937 m_random;
	AddressMachine m_machine;
	Millis m_now = kNow;
	Millis m_claimedAt = 0;
	Millis m_announcedAt = 0;
	bool m_present = false;
};

TEST(AddressTable, WhateverComes)
{
	const char* given = std::getenv("VELARIX_TEST_SEED");
	const unsigned first =
	    given != nullptr ? static_cast<unsigned>(std::atoi(given)) : std::random_device()() % 100'000;
	for (unsigned seed = first; seed < first + 400; ++seed)
	{
		SCOPED_TRACE("VELARIX_TEST_SEED=" + std::to_string(seed));
		Walk(seed).run(500);
		ASSERT_FALSE(HasFatalFailure());
	}
}

} // namespace
