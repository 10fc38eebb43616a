// The states of the address: every state with every event, one row a line; and what must hold
// whatever comes in whatever order.
#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "StateTable.h"
#include "keeper/AddressMachine.h"

namespace
{

using namespace velarix::keeper;
using enum AddressState;
using enum AddressEvent;
using E = AddressEvent;

const Mac kOther{2, 0, 0, 0, 0, 1};
const Mac kThird{2, 0, 0, 0, 0, 3};

/// Actions as letters: x lower, ! raise, p probe, a announce.
std::string letters(const AddressActions& actions)
{
	return std::string(actions.lower ? "x" : "") + (actions.raise ? "!" : "") + (actions.probe ? "p" : "") +
	       (actions.announce ? "a" : "");
}

struct Row
{
	const char* name;
	AddressState state;
	bool defend;
	bool link;
	int sent;
	bool answered;
	AddressState after;
	const char* actions;
	const char* deadline; ///< milliseconds from now, "-" for none
	std::vector<E> events;
};

// clang-format off
const std::vector<Row> kRows{
	// name                         state       defend  link   sent  answered  after       actions  deadline  events
	{"offline, carrier comes",     offline,    false, false, 0,   false,   probing,    "p",    "75",    {linkUp}},
	{"offline, nothing",           offline,    false, false, 0,   false,   offline,    "",     "-",     {linkDown, timer, claim, foreignProbe, removed, raiseFailed, stall}},
	{"offline, retry",             offline,    false, true,  0,   false,   probing,    "p",    "75",    {timer}},
	{"offline, stop",              offline,    false, false, 0,   false,   stopped,    "",     "-",     {stop}},

	{"probing, nothing",           probing,    false, true,  1,   false,   probing,    "",     "0",     {linkUp, removed, raiseFailed}},
	{"probing, carrier lost",      probing,    false, true,  1,   false,   offline,    "",     "-",     {linkDown}},
	{"probing, second probe",      probing,    false, true,  1,   false,   probing,    "p",    "75",    {timer}},
	{"probing, third probe",       probing,    false, true,  2,   false,   probing,    "p",    "100",   {timer}},
	{"probing, free",              probing,    false, true,  3,   false,   announcing, "!a",   "250",   {timer}},
	{"probing, claim",             probing,    false, true,  1,   false,   waiting,    "",     "200",   {claim}},
	{"probing, claim, defends",    probing,    true,  true,  1,   false,   waiting,    "",     "200",   {claim}},
	{"probing, probe",             probing,    false, true,  1,   false,   backingOff, "",     "507",   {foreignProbe}},
	{"probing, probe, defends",    probing,    true,  true,  1,   false,   backingOff, "",     "7",     {foreignProbe}},
	{"probing, stall",             probing,    false, true,  3,   false,   probing,    "p",    "75",    {stall}},
	{"probing, stop",              probing,    false, true,  1,   false,   stopped,    "",     "-",     {stop}},

	{"backing off, nothing",       backingOff, false, true,  0,   false,   backingOff, "",     "0",     {linkUp, foreignProbe, removed, raiseFailed}},
	{"backing off, carrier lost",  backingOff, false, true,  0,   false,   offline,    "",     "-",     {linkDown}},
	{"backing off, over",          backingOff, false, true,  0,   false,   probing,    "p",    "75",    {timer}},
	{"backing off, claim",         backingOff, false, true,  0,   false,   waiting,    "",     "200",   {claim}},
	{"backing off, stall",         backingOff, false, true,  0,   false,   probing,    "p",    "75",    {stall}},
	{"backing off, stop",          backingOff, false, true,  0,   false,   stopped,    "",     "-",     {stop}},

	{"waiting, nothing",           waiting,    false, true,  0,   false,   waiting,    "",     "0",     {linkUp, foreignProbe, removed, raiseFailed}},
	{"waiting, carrier lost",      waiting,    false, true,  0,   false,   offline,    "",     "-",     {linkDown}},
	{"waiting, asks",              waiting,    false, true,  0,   false,   waiting,    "p",    "75",    {timer}},
	{"waiting, answered",          waiting,    false, true,  1,   true,    waiting,    "",     "125",   {timer}},
	{"waiting, unanswered",        waiting,    false, true,  1,   false,   probing,    "p",    "75",    {timer}},
	{"waiting, claim",             waiting,    false, true,  1,   false,   waiting,    "",     "0",     {claim}},
	{"waiting, claim, defends",    waiting,    true,  true,  1,   false,   waiting,    "",     "0",     {claim}},
	{"waiting, stall",             waiting,    false, true,  0,   false,   probing,    "p",    "75",    {stall}},
	{"waiting, stop",              waiting,    false, true,  0,   false,   stopped,    "",     "-",     {stop}},

	{"announcing, carrier again",  announcing, false, true,  2,   false,   rechecking, "p",    "75",    {linkUp}},
	{"announcing, carrier lost",   announcing, false, true,  2,   false,   announcing, "",     "0",     {linkDown}},
	{"announcing, next",           announcing, false, true,  2,   false,   announcing, "a",    "250",   {timer}},
	{"announcing, fifth",          announcing, false, true,  4,   false,   holding,    "a",    "1000",  {timer}},
	{"announcing, claim",          announcing, false, true,  2,   false,   rechecking, "p",    "75",    {claim}},
	{"announcing, claim, defends", announcing, true,  true,  2,   false,   announcing, "a",    "0",     {claim}},
	{"announcing, probe",          announcing, false, true,  2,   false,   announcing, "a",    "0",     {foreignProbe}},
	{"announcing, removed",        announcing, false, true,  2,   false,   announcing, "!a",   "0",     {removed}},
	{"announcing, raise failed",   announcing, false, true,  2,   false,   offline,    "x",    "1000",  {raiseFailed}},
	{"announcing, stall",          announcing, true,  true,  2,   false,   rechecking, "p",    "75",    {stall}},
	{"announcing, stop",           announcing, false, true,  2,   false,   stopped,    "x",    "-",     {stop}},

	{"holding, carrier again",     holding,    true,  true,  0,   false,   rechecking, "p",    "75",    {linkUp}},
	{"holding, carrier lost",      holding,    false, true,  0,   false,   holding,    "",     "0",     {linkDown}},
	{"holding, watches",           holding,    false, true,  0,   false,   holding,    "p",    "1000",  {timer}},
	{"holding, claim",             holding,    false, true,  0,   false,   rechecking, "p",    "75",    {claim}},
	{"holding, claim, defends",    holding,    true,  true,  0,   false,   holding,    "a",    "0",     {claim}},
	{"holding, probe",             holding,    false, true,  0,   false,   holding,    "a",    "0",     {foreignProbe}},
	{"holding, removed",           holding,    false, true,  0,   false,   holding,    "!a",   "0",     {removed}},
	{"holding, raise failed",      holding,    false, true,  0,   false,   offline,    "x",    "1000",  {raiseFailed}},
	{"holding, stall",             holding,    true,  true,  0,   false,   rechecking, "p",    "75",    {stall}},
	{"holding, stop",              holding,    false, true,  0,   false,   stopped,    "x",    "-",     {stop}},

	{"rechecking, carrier again",  rechecking, false, true,  2,   false,   rechecking, "p",    "75",    {linkUp}},
	{"rechecking, carrier lost",   rechecking, false, true,  2,   false,   rechecking, "",     "0",     {linkDown}},
	{"rechecking, second probe",   rechecking, false, true,  1,   false,   rechecking, "p",    "75",    {timer}},
	{"rechecking, third probe",    rechecking, false, true,  2,   false,   rechecking, "p",    "100",   {timer}},
	{"rechecking, nobody",         rechecking, false, true,  3,   false,   holding,    "a",    "1000",  {timer}},
	{"rechecking, claim",          rechecking, false, true,  1,   false,   yielded,    "x",    "200",   {claim}},
	{"rechecking, claim, defends", rechecking, true,  true,  1,   false,   yielded,    "x",    "200",   {claim}},
	{"rechecking, probe",          rechecking, false, true,  1,   false,   rechecking, "",     "0",     {foreignProbe}},
	{"rechecking, removed",        rechecking, false, true,  1,   false,   rechecking, "!a",   "0",     {removed}},
	{"rechecking, raise failed",   rechecking, false, true,  1,   false,   offline,    "x",    "1000",  {raiseFailed}},
	{"rechecking, stall",          rechecking, false, true,  3,   false,   rechecking, "p",    "75",    {stall}},
	{"rechecking, stop",           rechecking, false, true,  1,   false,   stopped,    "x",    "-",     {stop}},

	{"yielded, nothing",           yielded,    false, true,  0,   false,   yielded,    "",     "0",     {linkUp, foreignProbe, removed, raiseFailed}},
	{"yielded, carrier lost",      yielded,    false, true,  0,   false,   offline,    "",     "-",     {linkDown}},
	{"yielded, asks",              yielded,    false, true,  0,   false,   yielded,    "p",    "75",    {timer}},
	{"yielded, answered",          yielded,    false, true,  1,   true,    yielded,    "",     "125",   {timer}},
	{"yielded, unanswered",        yielded,    false, true,  1,   false,   probing,    "p",    "75",    {timer}},
	{"yielded, claim",             yielded,    true,  true,  1,   false,   yielded,    "",     "0",     {claim}},
	{"yielded, stall",             yielded,    false, true,  0,   false,   probing,    "p",    "75",    {stall}},
	{"yielded, stop",              yielded,    false, true,  0,   false,   stopped,    "",     "-",     {stop}},

	{"stopped, nothing",           stopped,    true,  true,  0,   false,   stopped,    "",     "-",     {linkUp, linkDown, timer, claim, foreignProbe, removed, raiseFailed, stall, stop}},
};
// clang-format on

AddressMachine machineOf(const Row& row)
{
	AddressMachine machine;
	machine.state = row.state;
	machine.defend = row.defend;
	machine.link = row.link;
	machine.sent = row.sent;
	machine.answered = row.answered;
	machine.since = kNow - 500;
	if (row.state == announcing)
	{
		machine.announceAt = kNow;
	}
	else if (row.state != stopped && row.state != offline)
	{
		machine.probeAt = kNow;
	}
	if (row.state == waiting || row.state == yielded)
	{
		machine.holder = kOther;
	}
	return machine;
}

TEST(AddressTable, EveryRowAndEveryStateWithEveryEvent)
{
	everyRow(kRows, 9U * 9U,
	         [](const Row& row, E event)
	         {
		         const AddressStep step = next(machineOf(row), {event, kNow, kOther, 7});
		         EXPECT_STREQ(nameOf(step.machine.state), nameOf(row.after));
		         EXPECT_EQ(letters(step.actions), row.actions);
		         EXPECT_EQ(atText(step.machine.deadline()), row.deadline);
	         });
}

/// A machine that is driven from event to event.
struct Driven : AddressMachine
{
	explicit Driven(AddressState start, int round = 0)
	{
		state = start;
		sent = round;
		link = true;
	}

	AddressActions feed(E event, Millis now, const Mac& from = {})
	{
		const AddressStep step = next(*this, {event, now, from, 0});
		static_cast<AddressMachine&>(*this) = step.machine;
		return step.actions;
	}

	/// The next timer event. @return when it was, when `happened` says so of its actions; else 0
	Millis tick(bool AddressActions::*happened)
	{
		const Millis now = deadline();
		return feed(timer, now).*happened ? now : 0;
	}
};

TEST(AddressTable, AnnouncesFiveTimesInTheFirstSecondAndThenOnceAMinuteAndAsksOnceASecond)
{
	Driven machine(probing, 3);
	machine.feed(timer, kNow);
	std::vector<Millis> announced{0};
	int probes = 0;
	while (machine.deadline() <= kNow + 130'000)
	{
		const Millis at = machine.deadline();
		const AddressActions actions = machine.feed(timer, at);
		probes += actions.probe ? 1 : 0;
		if (actions.announce)
		{
			announced.push_back(at - kNow);
		}
	}
	EXPECT_EQ(announced, (std::vector<Millis>{0, 250, 500, 750, 1000, 61'000, 121'000}));
	EXPECT_EQ(probes, 129);
}

TEST(AddressTable, ItIsHeldSinceItWasRaised)
{
	Driven machine(probing, 3);
	machine.feed(timer, kNow);
	machine.feed(stall, kNow + 5000);
	while (machine.state != holding)
	{
		machine.feed(timer, machine.deadline());
	}
	EXPECT_EQ(machine.since, kNow);
}

TEST(AddressTable, AFloodOfClaimsIsDefendedTenTimesASecond)
{
	Driven machine(holding);
	machine.defend = true;
	machine.probeAt = kNow + 1000;
	int announced = 0;
	for (Millis at = kNow; at < kNow + 1000; ++at)
	{
		announced += machine.feed(claim, at, kThird).announce ? 1 : 0;
		announced += machine.deadline() <= at && machine.feed(timer, at).announce ? 1 : 0;
	}
	EXPECT_EQ(announced, 10);
	// The last claim was not defended yet: that comes.
	EXPECT_EQ(machine.deadline(), kNow + 1000);
}

TEST(AddressTable, AStormOfRemovalsIsAnsweredFiftyTimesASecond)
{
	Driven machine(holding);
	machine.probeAt = kNow + 10'000;
	std::vector<Millis> raised{kNow};
	for (Millis at = kNow; at < kNow + 1000; ++at)
	{
		if (machine.feed(removed, at).raise || (machine.deadline() <= at && machine.feed(timer, at).raise))
		{
			EXPECT_LE(at - raised.back(), 20);
			raised.push_back(at);
		}
	}
	EXPECT_EQ(raised.size(), 1U + 50U);
}

TEST(AddressTable, AReleaseIsSeenWithinHalfASecond)
{
	Driven machine(probing, 1);
	machine.feed(claim, kNow, kOther);
	// The holder goes in the worst moment: right after its last answer.
	Millis answeredAt = 0;
	while ((answeredAt = machine.tick(&AddressActions::probe)) == 0)
	{
	}
	machine.feed(claim, answeredAt, kOther);
	Millis raisedAt = 0;
	while ((raisedAt = machine.tick(&AddressActions::raise)) == 0)
	{
		ASSERT_NE(machine.deadline(), kNever);
	}
	EXPECT_EQ(raisedAt - answeredAt, 450);
}

TEST(AddressTable, AHolderIsKnownSinceItWasFirstHeard)
{
	Driven machine(probing, 1);
	machine.feed(claim, kNow, kOther);
	EXPECT_EQ(machine.holder, kOther);
	EXPECT_EQ(machine.since, kNow);
	// One answer is lost: PROBING, and back.
	machine.feed(timer, kNow + 200);
	machine.feed(timer, kNow + 275);
	ASSERT_EQ(machine.state, probing);
	machine.feed(claim, kNow + 280, kOther);
	EXPECT_EQ(machine.since, kNow);
	machine.feed(claim, kNow + 300, kThird);
	EXPECT_EQ(machine.holder, kThird);
	EXPECT_EQ(machine.since, kNow + 300);
}

TEST(AddressTable, TwoThatProbeAtOnceDoNotMeetAgain)
{
	for (unsigned random = 0; random < 5000; ++random)
	{
		AddressMachine machine;
		machine.state = probing;
		machine.sent = 1;
		const Millis yields = next(machine, {foreignProbe, kNow, kOther, random}).machine.deadline() - kNow;
		machine.defend = true;
		const Millis defends = next(machine, {foreignProbe, kNow, kOther, random * 7}).machine.deadline() - kNow;
		ASSERT_GE(yields - defends, 250);
		ASSERT_LT(yields, 1000);
	}
}

/// What must hold whatever comes: the kernel as the machine sees it, and the network.
class Walk
{
public:
	explicit Walk(unsigned seed) : m_random(seed) { m_machine.defend = seed % 2 == 0; }

	void run(int steps)
	{
		for (int i = 0; i < steps && m_machine.state != stopped; ++i)
		{
			E event = pick(2) == 0 ? timer : static_cast<E>(pick(i % 100 == 99 ? 9 : 8));
			if (m_machine.deadline() == kNever && event == timer)
			{
				event = linkUp;
			}
			// A timer is never early.
			m_now = event == timer ? std::max(m_now, m_machine.deadline()) : m_now + pick(120);
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
		if (event == claim)
		{
			m_claimedAt = m_now;
		}
		if (event == removed)
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
