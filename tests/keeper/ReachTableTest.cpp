// Whether a node reaches its targets: every state with every event, and the pair together.
#include <cstdlib>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "StateTable.h"
#include "keeper/ReachMachine.h"

namespace
{

using namespace velarix::keeper;
using E = ReachEvent;
using enum ReachState;

struct Row
{
	const char* name;
	ReachState state;
	bool held;
	bool handedOver;
	E event;
	ReachState after;
	const char* actions; ///< + raise, - lower, ? ask, > hand over
	const char* askAt;   ///< behind now; "-" never
};

// clang-format off
const Row kRows[]{
	// name                            state         held   handed over  event              after         actions  ask at
	{"unknown, enough",                unknown,      false, false,       E::enough,         reachable,    "+?",    "5000"},
	{"unknown, too few",               unknown,      false, false,       E::tooFew,         asking,       "?",     "200"},
	{"unknown, ready",                 unknown,      false, false,       E::partnerReady,   unknown,      "",      "-"},
	{"unknown, reaches",               unknown,      false, false,       E::partnerReaches, unknown,      "",      "-"},
	{"unknown, fails",                 unknown,      false, false,       E::partnerFails,   unknown,      "",      "-"},
	{"unknown, timer",                 unknown,      false, false,       E::timer,          unknown,      "",      "-"},
	{"unknown, stop",                  unknown,      false, false,       E::stop,           stopped,      "",      "-"},

	{"reachable, enough",              reachable,    true,  false,       E::enough,         reachable,    "",      "0"},
	{"reachable, too few",             reachable,    true,  false,       E::tooFew,         asking,       "?",     "200"},
	{"reachable, ready",               reachable,    true,  false,       E::partnerReady,   reachable,    "",      "0"},
	{"reachable, reaches",             reachable,    true,  false,       E::partnerReaches, reachable,    "",      "0"},
	{"reachable, fails",               reachable,    true,  false,       E::partnerFails,   reachable,    "",      "0"},
	{"reachable, timer",               reachable,    true,  false,       E::timer,          reachable,    "?",     "5000"},
	{"reachable, stop",                reachable,    true,  false,       E::stop,           stopped,      "-",     "-"},

	{"asking, enough",                 asking,       true,  false,       E::enough,         reachable,    "?",     "5000"},
	{"asking anew, enough",            asking,       false, false,       E::enough,         reachable,    "+?",    "5000"},
	{"asking, too few",                asking,       true,  false,       E::tooFew,         asking,       "",      "0"},
	{"asking, ready",                  asking,       true,  false,       E::partnerReady,   partnerOnly,  ">",     "1000"},
	{"asking, ready, handed over",     asking,       true,  true,        E::partnerReady,   partnerOnly,  "",      "1000"},
	{"asking anew, ready",             asking,       false, false,       E::partnerReady,   partnerOnly,  "+>",    "1000"},
	{"asking, reaches",                asking,       true,  false,       E::partnerReaches, partnerOnly,  "",      "1000"},
	{"asking, fails",                  asking,       true,  false,       E::partnerFails,   sharedOutage, "",      "1000"},
	{"asking anew, fails",             asking,       false, false,       E::partnerFails,   sharedOutage, "+",     "1000"},
	{"asking, timer",                  asking,       true,  false,       E::timer,          asking,       "?",     "200"},
	{"asking, stop",                   asking,       true,  false,       E::stop,           stopped,      "-",     "-"},

	{"shared outage, enough",          sharedOutage, true,  false,       E::enough,         reachable,    "?",     "5000"},
	{"shared outage, too few",         sharedOutage, true,  false,       E::tooFew,         sharedOutage, "",      "0"},
	{"shared outage, ready",           sharedOutage, true,  false,       E::partnerReady,   partnerOnly,  ">",     "1000"},
	{"shared outage, reaches",         sharedOutage, true,  false,       E::partnerReaches, partnerOnly,  "",      "1000"},
	{"shared outage, fails",           sharedOutage, true,  false,       E::partnerFails,   sharedOutage, "",      "0"},
	{"shared outage, timer",           sharedOutage, true,  false,       E::timer,          sharedOutage, "?",     "1000"},
	{"shared outage, stop",            sharedOutage, true,  false,       E::stop,           stopped,      "-",     "-"},

	{"partner only, enough",           partnerOnly,  true,  true,        E::enough,         reachable,    "?",     "5000"},
	{"partner only, too few",          partnerOnly,  true,  true,        E::tooFew,         partnerOnly,  "",      "0"},
	{"partner only, ready",            partnerOnly,  true,  true,        E::partnerReady,   partnerOnly,  "",      "0"},
	{"partner only, ready only now",   partnerOnly,  true,  false,       E::partnerReady,   partnerOnly,  ">",     "0"},
	{"partner only, reaches",          partnerOnly,  true,  false,       E::partnerReaches, partnerOnly,  "",      "0"},
	{"partner only, fails",            partnerOnly,  true,  true,        E::partnerFails,   sharedOutage, "",      "1000"},
	{"partner only, timer",            partnerOnly,  true,  true,        E::timer,          partnerOnly,  "?",     "1000"},
	{"partner only, stop",             partnerOnly,  true,  true,        E::stop,           stopped,      "-",     "-"},

	{"isolated, enough",               isolated,     false, false,       E::enough,         reachable,    "+?",    "5000"},
	{"isolated, too few",              isolated,     false, false,       E::tooFew,         isolated,     "",      "0"},
	{"isolated, ready",                isolated,     false, false,       E::partnerReady,   partnerOnly,  "+>",    "1000"},
	{"isolated, reaches",              isolated,     false, false,       E::partnerReaches, partnerOnly,  "+",     "1000"},
	{"isolated, fails",                isolated,     false, false,       E::partnerFails,   sharedOutage, "+",     "1000"},
	{"isolated, timer",                isolated,     false, false,       E::timer,          isolated,     "?",     "1000"},
	{"isolated, stop",                 isolated,     false, false,       E::stop,           stopped,      "",      "-"},

	{"stopped, enough",                stopped,      false, false,       E::enough,         stopped,      "",      "-"},
	{"stopped, too few",               stopped,      false, false,       E::tooFew,         stopped,      "",      "-"},
	{"stopped, ready",                 stopped,      false, false,       E::partnerReady,   stopped,      "",      "-"},
	{"stopped, reaches",               stopped,      false, false,       E::partnerReaches, stopped,      "",      "-"},
	{"stopped, fails",                 stopped,      false, false,       E::partnerFails,   stopped,      "",      "-"},
	{"stopped, timer",                 stopped,      false, false,       E::timer,          stopped,      "",      "-"},
	{"stopped, stop",                  stopped,      false, false,       E::stop,           stopped,      "",      "-"},
};
// clang-format on

ReachMachine machineOf(const Row& row)
{
	ReachMachine machine;
	machine.state = row.state;
	machine.held = row.held;
	machine.handedOver = row.handedOver;
	machine.askAt = row.state == unknown || row.state == stopped ? kNever : kNow;
	machine.silentAt = row.state == asking ? kNow + 1 : kNever;
	return machine;
}

std::string letters(const ReachActions& actions)
{
	return std::string(actions.raise ? "+" : "") + (actions.lower ? "-" : "") + (actions.ask ? "?" : "") +
	       (actions.handOver ? ">" : "");
}

TEST(ReachTable, EveryRow)
{
	for (const Row& row : kRows)
	{
		SCOPED_TRACE(row.name);
		const ReachStep step = next(machineOf(row), row.event, kNow);
		EXPECT_STREQ(nameOf(step.machine.state), nameOf(row.after));
		EXPECT_EQ(letters(step.actions), row.actions);
		EXPECT_EQ(atText(step.machine.askAt), row.askAt);
	}
}

TEST(ReachTable, EveryStateWithEveryEvent)
{
	EXPECT_EQ(decidedBy(kRows), 7U * 7U);
}

TEST(ReachTable, APartnerThatDoesNotAnswerForASecondMakesTheNodeTheIsolatedOne)
{
	ReachMachine machine;
	machine.state = reachable;
	machine.held = true;
	machine = next(machine, E::tooFew, kNow).machine;
	int asked = 1;
	while (machine.state == asking)
	{
		ASSERT_LE(machine.askAt, kNow + 1000);
		const ReachStep step = next(machine, E::timer, machine.askAt);
		asked += step.actions.ask ? 1 : 0;
		EXPECT_EQ(step.actions.lower, step.machine.state == isolated);
		machine = step.machine;
	}
	EXPECT_EQ(machine.state, isolated);
	EXPECT_FALSE(machine.held);
	EXPECT_EQ(asked, 6);
}

TEST(ReachTable, ALossMayHandOverAgainAfterAMinuteWithout)
{
	ReachMachine machine;
	machine.state = partnerOnly;
	machine.held = machine.handedOver = true;
	machine = next(machine, E::enough, kNow).machine;
	EXPECT_TRUE(machine.handedOver) << "targets that come and go";
	machine = next(machine, E::timer, kNow + timing::kWellFor - 1).machine;
	EXPECT_TRUE(machine.handedOver);
	machine = next(machine, E::timer, kNow + timing::kWellFor).machine;
	EXPECT_FALSE(machine.handedOver);
}

TEST(ReachTable, Verdicts)
{
	const Target answers{.answers = true, .lost = false, .hits = 1, .misses = 0};
	const Target lost{.answers = false, .lost = true, .hits = 0, .misses = 3};
	const Target fresh;
	EXPECT_EQ(verdict({answers, lost}, 1), E::enough);
	EXPECT_EQ(verdict({answers, lost}, 2), E::tooFew);
	EXPECT_EQ(verdict({answers, fresh}, 2), std::nullopt);
	EXPECT_EQ(verdict({fresh, lost}, 1), std::nullopt);
	EXPECT_EQ(verdict({lost, lost}, 1), E::tooFew);
	EXPECT_FALSE(steady({answers}, 1, 2));
	EXPECT_TRUE(steady({Target{.answers = true, .lost = false, .hits = 2, .misses = 0}, lost}, 1, 2));
}

TEST(ReachTable, ATargetIsLostAfterSoManyMissesAndBackWithItsFirstAnswer)
{
	Target target;
	EXPECT_TRUE(target.hit());
	EXPECT_FALSE(target.hit());
	EXPECT_FALSE(target.miss(2));
	EXPECT_TRUE(target.answers);
	EXPECT_TRUE(target.miss(2));
	EXPECT_TRUE(target.lost);
	EXPECT_FALSE(target.miss(2));
	EXPECT_TRUE(target.hit());
	EXPECT_FALSE(target.lost);
}

/// Two nodes with one target each and a network between them that carries every datagram at once.
struct Pair
{
	struct Node
	{
		Target target;
		ReachMachine machine;
		Millis roundAt = 0;
		std::optional<bool> answered; ///< its last ping
	};

	Node nodes[2];
	bool up = true; ///< the target, for both
	bool moved = false;
	static constexpr int kFailures = 3;

	void feed(int index, E event, Millis now)
	{
		Node& node = nodes[index];
		const ReachStep step = next(node.machine, event, now);
		node.machine = step.machine;
		moved = moved || step.actions.handOver || step.actions.lower;
		if (step.actions.ask)
		{
			feed(index, steady({nodes[1 - index].target}, 1, kFailures) ? E::partnerReady : E::partnerFails, now);
		}
	}

	/// An answer is known at once, its absence one interval later.
	void turn(int index, Millis now)
	{
		Node& node = nodes[index];
		if (now == node.roundAt)
		{
			node.roundAt += node.machine.interval;
			node.answered == false ? node.target.miss(kFailures) : false;
			node.answered = up;
			up ? node.target.hit() : false;
			if (const std::optional<E> event = verdict({node.target}, 1))
			{
				feed(index, *event, now);
			}
		}
		if (now >= node.machine.askAt)
		{
			feed(index, E::timer, now);
		}
	}
};

TEST(ReachTable, ASharedOutageMovesNothingInWhateverPhaseTheNodesAre)
{
	const char* given = std::getenv("VELARIX_TEST_SEED");
	const unsigned seed = given != nullptr ? static_cast<unsigned>(std::atoi(given)) : std::random_device()();
	SCOPED_TRACE("VELARIX_TEST_SEED=" + std::to_string(seed));
	std::mt19937 random(seed);
	for (Millis phase = 0; phase < 1000; phase += 37)
	{
		Pair pair;
		pair.nodes[1].roundAt = phase;
		Millis change = 5000 + static_cast<Millis>(random() % 1000);
		for (Millis now = 0; now < 60'000; ++now)
		{
			if (now == change)
			{
				pair.up = !pair.up;
				// Back for less than an interval it may answer one node and not the other.
				change += (pair.up ? 1000 : 1) + static_cast<Millis>(random() % 8000);
			}
			pair.turn(0, now);
			pair.turn(1, now);
			ASSERT_FALSE(pair.moved) << "phase " << phase << " at " << now;
		}
	}
}

} // namespace
