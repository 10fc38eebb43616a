// The states of a service: every state with every event, one row a line.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "StateTable.h"
#include "keeper/ServiceMachine.h"

namespace
{

using namespace velarix::keeper;
using enum ServiceState;
using E = ServiceEvent;

/// Actions as letters: s start, t TERM, k KILL.
std::string letters(const ServiceActions& actions)
{
	return std::string(actions.start ? "s" : "") + (actions.terminate ? "t" : "") + (actions.kill ? "k" : "");
}

struct Row
{
	const char* name;
	ServiceState state;
	bool held;
	bool gone;
	int deaths;   ///< within the time, of 3 that are allowed
	int failures; ///< of 3
	E event;
	ServiceState after;
	const char* actions;
	const char* timer;
};

// clang-format off
const std::vector<Row> kRows{
	// name                           state      held   gone  deaths failures event   after       actions timer
	{"waiting, held",                 waiting,    false, true,  0, 0, E::held,        running,    "s", "-"},
	{"waiting, lost",                 waiting,    false, true,  0, 0, E::lost,        waiting,    "",  "-"},
	{"waiting, died",                 waiting,    false, true,  0, 0, E::died,        waiting,    "",  "-"},
	{"waiting, gone",                 waiting,    false, true,  0, 0, E::gone,        waiting,    "",  "-"},
	{"waiting, check ok",             waiting,    false, true,  0, 0, E::checkOk,     waiting,    "",  "-"},
	{"waiting, check failed",         waiting,    false, true,  0, 2, E::checkFailed, waiting,    "",  "-"},
	{"waiting, timer",                waiting,    false, true,  0, 0, E::timer,       waiting,    "",  "-"},
	{"waiting, stop",                 waiting,    false, true,  0, 0, E::stop,        ended,      "",  "-"},

	{"running, held",                 running,    true,  false, 0, 0, E::held,        running,    "",  "-"},
	{"running, lost",                 running,    true,  false, 0, 0, E::lost,        stopping,   "t", "20000"},
	{"running, died",                 running,    true,  false, 0, 0, E::died,        restarting, "t", "100"},
	{"running, died, third time",     running,    true,  false, 2, 0, E::died,        restarting, "t", "100"},
	{"running, died too often",       running,    true,  false, 3, 0, E::died,        failing,    "t", "100"},
	{"running, gone",                 running,    true,  false, 0, 0, E::gone,        restarting, "",  "100"},
	{"running, gone, third time",     running,    true,  false, 2, 0, E::gone,        restarting, "",  "300"},
	{"running, gone too often",       running,    true,  false, 3, 0, E::gone,        ended,      "",  "-"},
	{"running, check ok",             running,    true,  false, 0, 2, E::checkOk,     running,    "",  "-"},
	{"running, check failed",         running,    true,  false, 0, 1, E::checkFailed, running,    "",  "-"},
	{"running, last check failed",    running,    true,  false, 0, 2, E::checkFailed, restarting, "t", "100"},
	{"running, ill too often",        running,    true,  false, 3, 2, E::checkFailed, failing,    "t", "100"},
	{"running, timer",                running,    true,  false, 0, 0, E::timer,       running,    "",  "-"},
	{"running, stop",                 running,    true,  false, 0, 0, E::stop,        ending,     "t", "20000"},

	{"restarting, held",              restarting, true,  false, 1, 0, E::held,        restarting, "",  "0"},
	{"restarting, lost",              restarting, true,  false, 1, 0, E::lost,        stopping,   "t", "20000"},
	{"restarting, lost, gone",        restarting, true,  true,  1, 0, E::lost,        waiting,    "",  "-"},
	{"restarting, died",              restarting, true,  false, 1, 0, E::died,        restarting, "",  "0"},
	{"restarting, gone",              restarting, true,  false, 2, 0, E::gone,        restarting, "",  "200"},
	{"restarting, gone twice",        restarting, true,  true,  2, 0, E::gone,        restarting, "",  "0"},
	{"restarting, check ok",          restarting, true,  false, 1, 0, E::checkOk,     restarting, "",  "0"},
	{"restarting, check failed",      restarting, true,  false, 1, 2, E::checkFailed, restarting, "",  "0"},
	{"restarting, timer",             restarting, true,  false, 1, 0, E::timer,       restarting, "k", "200"},
	{"restarting, timer, gone",       restarting, true,  true,  1, 0, E::timer,       running,    "s", "-"},
	{"restarting, stop",              restarting, true,  false, 1, 0, E::stop,        ending,     "t", "20000"},
	{"restarting, stop, gone",        restarting, true,  true,  1, 0, E::stop,        ended,      "",  "-"},

	{"stopping, held",                stopping,   false, false, 0, 0, E::held,        stopping,   "",  "0"},
	{"stopping, lost",                stopping,   false, false, 0, 0, E::lost,        stopping,   "",  "0"},
	{"stopping, died",                stopping,   false, false, 0, 0, E::died,        stopping,   "",  "0"},
	{"stopping, gone",                stopping,   false, false, 0, 0, E::gone,        waiting,    "",  "-"},
	{"stopping, gone, held again",    stopping,   true,  false, 0, 0, E::gone,        running,    "s", "-"},
	{"stopping, check ok",            stopping,   false, false, 0, 0, E::checkOk,     stopping,   "",  "0"},
	{"stopping, check failed",        stopping,   false, false, 0, 2, E::checkFailed, stopping,   "",  "0"},
	{"stopping, timer",               stopping,   false, false, 0, 0, E::timer,       stopping,   "k", "200"},
	{"stopping, stop",                stopping,   false, false, 0, 0, E::stop,        ending,     "",  "0"},

	{"ending, held",                  ending,     false, false, 0, 0, E::held,        ending,     "",  "0"},
	{"ending, lost",                  ending,     true,  false, 0, 0, E::lost,        ending,     "",  "0"},
	{"ending, died",                  ending,     true,  false, 0, 0, E::died,        ending,     "",  "0"},
	{"ending, gone",                  ending,     true,  false, 0, 0, E::gone,        ended,      "",  "-"},
	{"ending, check ok",              ending,     true,  false, 0, 0, E::checkOk,     ending,     "",  "0"},
	{"ending, check failed",          ending,     true,  false, 0, 2, E::checkFailed, ending,     "",  "0"},
	{"ending, timer",                 ending,     true,  false, 0, 0, E::timer,       ending,     "k", "200"},
	{"ending, stop",                  ending,     true,  false, 0, 0, E::stop,        ending,     "",  "0"},

	{"failing, held",                 failing,    true,  false, 4, 0, E::held,        failing,    "",  "0"},
	{"failing, lost",                 failing,    true,  false, 4, 0, E::lost,        failing,    "",  "0"},
	{"failing, died",                 failing,    true,  false, 4, 0, E::died,        failing,    "",  "0"},
	{"failing, gone",                 failing,    true,  false, 4, 0, E::gone,        ended,      "",  "-"},
	{"failing, check ok",             failing,    true,  false, 4, 0, E::checkOk,     failing,    "",  "0"},
	{"failing, check failed",         failing,    true,  false, 4, 2, E::checkFailed, failing,    "",  "0"},
	{"failing, timer",                failing,    true,  false, 4, 0, E::timer,       failing,    "k", "200"},
	{"failing, stop",                 failing,    true,  false, 4, 0, E::stop,        ending,     "",  "0"},

	{"ended, held",                   ended,      false, true,  0, 0, E::held,        ended,      "",  "-"},
	{"ended, lost",                   ended,      true,  true,  0, 0, E::lost,        ended,      "",  "-"},
	{"ended, died",                   ended,      true,  true,  0, 0, E::died,        ended,      "",  "-"},
	{"ended, gone",                   ended,      true,  true,  0, 0, E::gone,        ended,      "",  "-"},
	{"ended, check ok",               ended,      true,  true,  0, 0, E::checkOk,     ended,      "",  "-"},
	{"ended, check failed",           ended,      true,  true,  0, 2, E::checkFailed, ended,      "",  "-"},
	{"ended, timer",                  ended,      true,  true,  0, 0, E::timer,       ended,      "",  "-"},
	{"ended, stop",                   ended,      true,  true,  0, 0, E::stop,        ended,      "",  "-"},
};
// clang-format on

ServiceMachine machineOf(const Row& row)
{
	ServiceMachine machine;
	machine.state = row.state;
	machine.held = row.held;
	machine.gone = row.gone;
	machine.failures = row.failures;
	for (int i = 0; i < row.deaths; ++i)
	{
		machine.deaths.push_back(kNow - 1000);
	}
	const bool timed = row.state == restarting || row.state == stopping || row.state == ending || row.state == failing;
	machine.timerAt = timed ? kNow : kNever;
	return machine;
}

TEST(ServiceTable, EveryRow)
{
	for (const Row& row : kRows)
	{
		SCOPED_TRACE(row.name);
		const ServiceStep step = next(machineOf(row), row.event, kNow);
		EXPECT_STREQ(nameOf(step.machine.state), nameOf(row.after));
		EXPECT_EQ(letters(step.actions), row.actions);
		EXPECT_EQ(atText(step.machine.timerAt), row.timer);
	}
}

TEST(ServiceTable, EveryStateWithEveryEvent)
{
	EXPECT_EQ(decidedBy(kRows), 7U * 8U);
}

TEST(ServiceTable, OnlyDeathsWithinTheTimeCount)
{
	ServiceMachine machine;
	machine.restarts = 1;
	machine.within = 60'000;
	machine.held = true;
	machine.state = running;
	machine.gone = false;
	ServiceStep step = next(machine, E::gone, kNow);
	ASSERT_EQ(step.machine.state, restarting);
	step = next(step.machine, E::timer, kNow + 100);
	EXPECT_EQ(step.machine.restarted, 1);
	ServiceStep late = next(step.machine, E::gone, kNow + 60'000);
	EXPECT_EQ(late.machine.state, restarting);
	EXPECT_EQ(late.machine.timerAt, kNow + 60'100);
	const ServiceStep early = next(step.machine, E::gone, kNow + 59'999);
	EXPECT_EQ(early.machine.state, ended);
	EXPECT_TRUE(early.machine.failed);
}

TEST(ServiceTable, WithoutRestartsTheFirstDeathIsTheLast)
{
	ServiceMachine machine;
	machine.restarts = 0;
	machine.state = running;
	machine.gone = false;
	EXPECT_EQ(next(machine, E::gone, kNow).machine.state, ended);
}

TEST(ServiceTable, AStopTimeoutOfZeroKillsAtOnce)
{
	ServiceMachine machine;
	machine.stopTimeout = 0;
	machine.state = running;
	machine.gone = false;
	EXPECT_EQ(next(machine, E::stop, kNow).machine.timerAt, kNow);
}

TEST(ServiceTable, AServiceThatWasAskedToEndHasNotFailed)
{
	ServiceMachine machine;
	machine.state = failing;
	machine.failed = true;
	machine.gone = false;
	const ServiceStep step = next(machine, E::stop, kNow);
	EXPECT_FALSE(next(step.machine, E::gone, kNow).machine.failed);
}

} // namespace
