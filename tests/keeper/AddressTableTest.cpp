// The states of the address: every state with every event, one row a line.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "StateTable.h"
#include "keeper/AddressMachine.h"

namespace
{

using namespace velarix::keeper;
using enum AddressState;
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
	E event;
	AddressState after;
	const char* actions;
	const char* deadline; ///< milliseconds from now, "-" for none
};

// clang-format off
const std::vector<Row> kRows{
	// name                          state        defend link  sent answered event         after        actions deadline
	{"offline, carrier comes",       offline,     false, false, 0, false, E::linkUp,       probing,     "p",  "75"},
	{"offline, still none",          offline,     false, false, 0, false, E::linkDown,     offline,     "",   "-"},
	{"offline, retry",               offline,     false, true,  0, false, E::timer,        probing,     "p",  "75"},
	{"offline, retry, no carrier",   offline,     false, false, 0, false, E::timer,        offline,     "",   "-"},
	{"offline, claim",               offline,     false, false, 0, false, E::claim,        offline,     "",   "-"},
	{"offline, probe",               offline,     false, false, 0, false, E::foreignProbe, offline,     "",   "-"},
	{"offline, removed",             offline,     false, false, 0, false, E::removed,      offline,     "",   "-"},
	{"offline, raise failed",        offline,     false, false, 0, false, E::raiseFailed,  offline,     "",   "-"},
	{"offline, stall",               offline,     false, false, 0, false, E::stall,        offline,     "",   "-"},
	{"offline, stop",                offline,     false, false, 0, false, E::stop,         stopped,     "",   "-"},

	{"probing, carrier again",       probing,     false, true,  1, false, E::linkUp,       probing,     "",   "0"},
	{"probing, carrier lost",        probing,     false, true,  1, false, E::linkDown,     offline,     "",   "-"},
	{"probing, second probe",        probing,     false, true,  1, false, E::timer,        probing,     "p",  "75"},
	{"probing, third probe",         probing,     false, true,  2, false, E::timer,        probing,     "p",  "100"},
	{"probing, free",                probing,     false, true,  3, false, E::timer,        announcing,  "!a", "250"},
	{"probing, claim",               probing,     false, true,  1, false, E::claim,        waiting,     "",   "200"},
	{"probing, claim, defends",      probing,     true,  true,  1, false, E::claim,        waiting,     "",   "200"},
	{"probing, probe",               probing,     false, true,  1, false, E::foreignProbe, backingOff,  "",   "507"},
	{"probing, probe, defends",      probing,     true,  true,  1, false, E::foreignProbe, backingOff,  "",   "7"},
	{"probing, removed",             probing,     false, true,  1, false, E::removed,      probing,     "",   "0"},
	{"probing, raise failed",        probing,     false, true,  1, false, E::raiseFailed,  probing,     "",   "0"},
	{"probing, stall",               probing,     false, true,  3, false, E::stall,        probing,     "p",  "75"},
	{"probing, stop",                probing,     false, true,  1, false, E::stop,         stopped,     "",   "-"},

	{"backing off, carrier again",   backingOff,  false, true,  0, false, E::linkUp,       backingOff,  "",   "0"},
	{"backing off, carrier lost",    backingOff,  false, true,  0, false, E::linkDown,     offline,     "",   "-"},
	{"backing off, over",            backingOff,  false, true,  0, false, E::timer,        probing,     "p",  "75"},
	{"backing off, claim",           backingOff,  false, true,  0, false, E::claim,        waiting,     "",   "200"},
	{"backing off, probe",           backingOff,  false, true,  0, false, E::foreignProbe, backingOff,  "",   "0"},
	{"backing off, removed",         backingOff,  false, true,  0, false, E::removed,      backingOff,  "",   "0"},
	{"backing off, raise failed",    backingOff,  false, true,  0, false, E::raiseFailed,  backingOff,  "",   "0"},
	{"backing off, stall",           backingOff,  false, true,  0, false, E::stall,        probing,     "p",  "75"},
	{"backing off, stop",            backingOff,  false, true,  0, false, E::stop,         stopped,     "",   "-"},

	{"waiting, carrier again",       waiting,     false, true,  0, false, E::linkUp,       waiting,     "",   "0"},
	{"waiting, carrier lost",        waiting,     false, true,  0, false, E::linkDown,     offline,     "",   "-"},
	{"waiting, asks",                waiting,     false, true,  0, false, E::timer,        waiting,     "p",  "75"},
	{"waiting, answered",            waiting,     false, true,  1, true,  E::timer,        waiting,     "",   "125"},
	{"waiting, unanswered",          waiting,     false, true,  1, false, E::timer,        probing,     "p",  "75"},
	{"waiting, claim",               waiting,     false, true,  1, false, E::claim,        waiting,     "",   "0"},
	{"waiting, claim, defends",      waiting,     true,  true,  1, false, E::claim,        waiting,     "",   "0"},
	{"waiting, probe",               waiting,     false, true,  0, false, E::foreignProbe, waiting,     "",   "0"},
	{"waiting, removed",             waiting,     false, true,  0, false, E::removed,      waiting,     "",   "0"},
	{"waiting, raise failed",        waiting,     false, true,  0, false, E::raiseFailed,  waiting,     "",   "0"},
	{"waiting, stall",               waiting,     false, true,  0, false, E::stall,        probing,     "p",  "75"},
	{"waiting, stop",                waiting,     false, true,  0, false, E::stop,         stopped,     "",   "-"},

	{"announcing, carrier again",    announcing,  false, true,  2, false, E::linkUp,       rechecking,  "p",  "75"},
	{"announcing, carrier lost",     announcing,  false, true,  2, false, E::linkDown,     announcing,  "",   "0"},
	{"announcing, next",             announcing,  false, true,  2, false, E::timer,        announcing,  "a",  "250"},
	{"announcing, fifth",            announcing,  false, true,  4, false, E::timer,        holding,     "a",  "1000"},
	{"announcing, claim",            announcing,  false, true,  2, false, E::claim,        rechecking,  "p",  "75"},
	{"announcing, claim, defends",   announcing,  true,  true,  2, false, E::claim,        announcing,  "a",  "0"},
	{"announcing, probe",            announcing,  false, true,  2, false, E::foreignProbe, announcing,  "a",  "0"},
	{"announcing, removed",          announcing,  false, true,  2, false, E::removed,      announcing,  "!a", "0"},
	{"announcing, raise failed",     announcing,  false, true,  2, false, E::raiseFailed,  offline,     "x",  "1000"},
	{"announcing, stall",            announcing,  true,  true,  2, false, E::stall,        rechecking,  "p",  "75"},
	{"announcing, stop",             announcing,  false, true,  2, false, E::stop,         stopped,     "x",  "-"},

	{"holding, carrier again",       holding,     true,  true,  0, false, E::linkUp,       rechecking,  "p",  "75"},
	{"holding, carrier lost",        holding,     false, true,  0, false, E::linkDown,     holding,     "",   "0"},
	{"holding, watches",             holding,     false, true,  0, false, E::timer,        holding,     "p",  "1000"},
	{"holding, claim",               holding,     false, true,  0, false, E::claim,        rechecking,  "p",  "75"},
	{"holding, claim, defends",      holding,     true,  true,  0, false, E::claim,        holding,     "a",  "0"},
	{"holding, probe",               holding,     false, true,  0, false, E::foreignProbe, holding,     "a",  "0"},
	{"holding, removed",             holding,     false, true,  0, false, E::removed,      holding,     "!a", "0"},
	{"holding, raise failed",        holding,     false, true,  0, false, E::raiseFailed,  offline,     "x",  "1000"},
	{"holding, stall",               holding,     true,  true,  0, false, E::stall,        rechecking,  "p",  "75"},
	{"holding, stop",                holding,     false, true,  0, false, E::stop,         stopped,     "x",  "-"},

	{"rechecking, carrier again",    rechecking,  false, true,  2, false, E::linkUp,       rechecking,  "p",  "75"},
	{"rechecking, carrier lost",     rechecking,  false, true,  2, false, E::linkDown,     rechecking,  "",   "0"},
	{"rechecking, second probe",     rechecking,  false, true,  1, false, E::timer,        rechecking,  "p",  "75"},
	{"rechecking, third probe",      rechecking,  false, true,  2, false, E::timer,        rechecking,  "p",  "100"},
	{"rechecking, nobody",           rechecking,  false, true,  3, false, E::timer,        holding,     "a",  "1000"},
	{"rechecking, claim",            rechecking,  false, true,  1, false, E::claim,        yielded,     "x",  "200"},
	{"rechecking, claim, defends",   rechecking,  true,  true,  1, false, E::claim,        yielded,     "x",  "200"},
	{"rechecking, probe",            rechecking,  false, true,  1, false, E::foreignProbe, rechecking,  "",   "0"},
	{"rechecking, removed",          rechecking,  false, true,  1, false, E::removed,      rechecking,  "!a", "0"},
	{"rechecking, raise failed",     rechecking,  false, true,  1, false, E::raiseFailed,  offline,     "x",  "1000"},
	{"rechecking, stall",            rechecking,  false, true,  3, false, E::stall,        rechecking,  "p",  "75"},
	{"rechecking, stop",             rechecking,  false, true,  1, false, E::stop,         stopped,     "x",  "-"},

	{"yielded, carrier again",       yielded,     false, true,  0, false, E::linkUp,       yielded,     "",   "0"},
	{"yielded, carrier lost",        yielded,     false, true,  0, false, E::linkDown,     offline,     "",   "-"},
	{"yielded, asks",                yielded,     false, true,  0, false, E::timer,        yielded,     "p",  "75"},
	{"yielded, answered",            yielded,     false, true,  1, true,  E::timer,        yielded,     "",   "125"},
	{"yielded, unanswered",          yielded,     false, true,  1, false, E::timer,        probing,     "p",  "75"},
	{"yielded, claim",               yielded,     true,  true,  1, false, E::claim,        yielded,     "",   "0"},
	{"yielded, probe",               yielded,     false, true,  0, false, E::foreignProbe, yielded,     "",   "0"},
	{"yielded, removed",             yielded,     false, true,  0, false, E::removed,      yielded,     "",   "0"},
	{"yielded, raise failed",        yielded,     false, true,  0, false, E::raiseFailed,  yielded,     "",   "0"},
	{"yielded, stall",               yielded,     false, true,  0, false, E::stall,        probing,     "p",  "75"},
	{"yielded, stop",                yielded,     false, true,  0, false, E::stop,         stopped,     "",   "-"},

	{"stopped, carrier",             stopped,     false, false, 0, false, E::linkUp,       stopped,     "",   "-"},
	{"stopped, carrier lost",        stopped,     false, true,  0, false, E::linkDown,     stopped,     "",   "-"},
	{"stopped, timer",               stopped,     false, true,  0, false, E::timer,        stopped,     "",   "-"},
	{"stopped, claim",               stopped,     true,  true,  0, false, E::claim,        stopped,     "",   "-"},
	{"stopped, probe",               stopped,     false, true,  0, false, E::foreignProbe, stopped,     "",   "-"},
	{"stopped, removed",             stopped,     false, true,  0, false, E::removed,      stopped,     "",   "-"},
	{"stopped, raise failed",        stopped,     false, true,  0, false, E::raiseFailed,  stopped,     "",   "-"},
	{"stopped, stall",               stopped,     false, true,  0, false, E::stall,        stopped,     "",   "-"},
	{"stopped, stop",                stopped,     false, true,  0, false, E::stop,         stopped,     "",   "-"},
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

TEST(AddressTable, EveryRow)
{
	for (const Row& row : kRows)
	{
		SCOPED_TRACE(row.name);
		const AddressStep step = next(machineOf(row), {row.event, kNow, kOther, 7});
		EXPECT_STREQ(nameOf(step.machine.state), nameOf(row.after));
		EXPECT_EQ(letters(step.actions), row.actions);
		EXPECT_EQ(atText(step.machine.deadline()), row.deadline);
	}
}

TEST(AddressTable, EveryStateWithEveryEvent)
{
	EXPECT_EQ(decidedBy(kRows), 9U * 9U);
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
		return feed(E::timer, now).*happened ? now : 0;
	}
};

TEST(AddressTable, AnnouncesFiveTimesInTheFirstSecondAndThenOnceAMinuteAndAsksOnceASecond)
{
	Driven machine(probing, 3);
	machine.feed(E::timer, kNow);
	std::vector<Millis> announced{0};
	int probes = 0;
	while (machine.deadline() <= kNow + 130'000)
	{
		const Millis at = machine.deadline();
		const AddressActions actions = machine.feed(E::timer, at);
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
	machine.feed(E::timer, kNow);
	machine.feed(E::stall, kNow + 5000);
	while (machine.state != holding)
	{
		machine.feed(E::timer, machine.deadline());
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
		announced += machine.feed(E::claim, at, kThird).announce ? 1 : 0;
		announced += machine.deadline() <= at && machine.feed(E::timer, at).announce ? 1 : 0;
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
		if (machine.feed(E::removed, at).raise || (machine.deadline() <= at && machine.feed(E::timer, at).raise))
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
	machine.feed(E::claim, kNow, kOther);
	// The holder goes in the worst moment: right after its last answer.
	Millis answeredAt = 0;
	while ((answeredAt = machine.tick(&AddressActions::probe)) == 0)
	{
	}
	machine.feed(E::claim, answeredAt, kOther);
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
	machine.feed(E::claim, kNow, kOther);
	EXPECT_EQ(machine.holder, kOther);
	EXPECT_EQ(machine.since, kNow);
	// One answer is lost: PROBING, and back.
	machine.feed(E::timer, kNow + 200);
	machine.feed(E::timer, kNow + 275);
	ASSERT_EQ(machine.state, probing);
	machine.feed(E::claim, kNow + 280, kOther);
	EXPECT_EQ(machine.since, kNow);
	machine.feed(E::claim, kNow + 300, kThird);
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
		const Millis yields = next(machine, {E::foreignProbe, kNow, kOther, random}).machine.deadline() - kNow;
		machine.defend = true;
		const Millis defends = next(machine, {E::foreignProbe, kNow, kOther, random * 7}).machine.deadline() - kNow;
		ASSERT_GE(yields - defends, 250);
		ASSERT_LT(yields, 1000);
	}
}

} // namespace
