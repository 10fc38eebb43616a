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
using enum ServiceEvent;
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
	ServiceState after;
	const char* actions;
	const char* timer;
	std::vector<E> events;
};

// clang-format off
const std::vector<Row> kRows{
	// name                         state       held   gone   deaths  failures  after       actions  timer    events
	{"waiting, held",              waiting,    false, true,  0,     0,       running,    "s",    "-",     {held}},
	{"waiting, nothing",           waiting,    false, true,  0,     0,       waiting,    "",     "-",     {lost, died, gone, checkOk, timer}},
	{"waiting, check failed",      waiting,    false, true,  0,     2,       waiting,    "",     "-",     {checkFailed}},
	{"waiting, stop",              waiting,    false, true,  0,     0,       ended,      "",     "-",     {stop}},

	{"running, nothing",           running,    true,  false, 0,     0,       running,    "",     "-",     {held, timer}},
	{"running, lost",              running,    true,  false, 0,     0,       stopping,   "t",    "20000", {lost}},
	{"running, died",              running,    true,  false, 0,     0,       restarting, "t",    "100",   {died}},
	{"running, died, third time",  running,    true,  false, 2,     0,       restarting, "t",    "100",   {died}},
	{"running, died too often",    running,    true,  false, 3,     0,       failing,    "t",    "100",   {died}},
	{"running, gone",              running,    true,  false, 0,     0,       restarting, "",     "100",   {gone}},
	{"running, gone, third time",  running,    true,  false, 2,     0,       restarting, "",     "300",   {gone}},
	{"running, gone too often",    running,    true,  false, 3,     0,       ended,      "",     "-",     {gone}},
	{"running, check ok",          running,    true,  false, 0,     2,       running,    "",     "-",     {checkOk}},
	{"running, check failed",      running,    true,  false, 0,     1,       running,    "",     "-",     {checkFailed}},
	{"running, last check failed", running,    true,  false, 0,     2,       restarting, "t",    "100",   {checkFailed}},
	{"running, ill too often",     running,    true,  false, 3,     2,       failing,    "t",    "100",   {checkFailed}},
	{"running, stop",              running,    true,  false, 0,     0,       ending,     "t",    "20000", {stop}},

	{"restarting, nothing",        restarting, true,  false, 1,     0,       restarting, "",     "0",     {held, died, checkOk}},
	{"restarting, lost",           restarting, true,  false, 1,     0,       stopping,   "t",    "20000", {lost}},
	{"restarting, lost, gone",     restarting, true,  true,  1,     0,       waiting,    "",     "-",     {lost}},
	{"restarting, gone",           restarting, true,  false, 2,     0,       restarting, "",     "200",   {gone}},
	{"restarting, gone twice",     restarting, true,  true,  2,     0,       restarting, "",     "0",     {gone}},
	{"restarting, check failed",   restarting, true,  false, 1,     2,       restarting, "",     "0",     {checkFailed}},
	{"restarting, timer",          restarting, true,  false, 1,     0,       restarting, "k",    "200",   {timer}},
	{"restarting, timer, gone",    restarting, true,  true,  1,     0,       running,    "s",    "-",     {timer}},
	{"restarting, stop",           restarting, true,  false, 1,     0,       ending,     "t",    "20000", {stop}},
	{"restarting, stop, gone",     restarting, true,  true,  1,     0,       ended,      "",     "-",     {stop}},

	{"stopping, nothing",          stopping,   false, false, 0,     0,       stopping,   "",     "0",     {held, lost, died, checkOk}},
	{"stopping, gone",             stopping,   false, false, 0,     0,       waiting,    "",     "-",     {gone}},
	{"stopping, gone, held again", stopping,   true,  false, 0,     0,       running,    "s",    "-",     {gone}},
	{"stopping, check failed",     stopping,   false, false, 0,     2,       stopping,   "",     "0",     {checkFailed}},
	{"stopping, timer",            stopping,   false, false, 0,     0,       stopping,   "k",    "200",   {timer}},
	{"stopping, stop",             stopping,   false, false, 0,     0,       ending,     "",     "0",     {stop}},

	{"ending, held",               ending,     false, false, 0,     0,       ending,     "",     "0",     {held}},
	{"ending, nothing",            ending,     true,  false, 0,     0,       ending,     "",     "0",     {lost, died, checkOk, stop}},
	{"ending, gone",               ending,     true,  false, 0,     0,       ended,      "",     "-",     {gone}},
	{"ending, check failed",       ending,     true,  false, 0,     2,       ending,     "",     "0",     {checkFailed}},
	{"ending, timer",              ending,     true,  false, 0,     0,       ending,     "k",    "200",   {timer}},

	{"failing, nothing",           failing,    true,  false, 4,     0,       failing,    "",     "0",     {held, lost, died, checkOk}},
	{"failing, gone",              failing,    true,  false, 4,     0,       ended,      "",     "-",     {gone}},
	{"failing, check failed",      failing,    true,  false, 4,     2,       failing,    "",     "0",     {checkFailed}},
	{"failing, timer",             failing,    true,  false, 4,     0,       failing,    "k",    "200",   {timer}},
	{"failing, stop",              failing,    true,  false, 4,     0,       ending,     "",     "0",     {stop}},

	{"ended, held",                ended,      false, true,  0,     0,       ended,      "",     "-",     {held}},
	{"ended, nothing",             ended,      true,  true,  0,     0,       ended,      "",     "-",     {lost, died, gone, checkOk, timer, stop}},
	{"ended, check failed",        ended,      true,  true,  0,     2,       ended,      "",     "-",     {checkFailed}},
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

TEST(ServiceTable, EveryRowAndEveryStateWithEveryEvent)
{
	everyRow(kRows, 7U * 8U,
	         [](const Row& row, E event)
	         {
		         const ServiceStep step = next(machineOf(row), event, kNow);
		         EXPECT_STREQ(nameOf(step.machine.state), nameOf(row.after));
		         EXPECT_EQ(letters(step.actions), row.actions);
		         EXPECT_EQ(atText(step.machine.timerAt), row.timer);
	         });
}

TEST(ServiceTable, OnlyDeathsWithinTheTimeCount)
{
	const ServiceMachine machine{.restarts = 1, .within = 60'000, .state = running, .held = true, .gone = false};
	ServiceStep step = next(machine, gone, kNow);
	ASSERT_EQ(step.machine.state, restarting);
	step = next(step.machine, timer, kNow + 100);
	EXPECT_EQ(step.machine.restarted, 1);
	ServiceStep late = next(step.machine, gone, kNow + 60'000);
	EXPECT_EQ(late.machine.state, restarting);
	EXPECT_EQ(late.machine.timerAt, kNow + 60'100);
	const ServiceStep early = next(step.machine, gone, kNow + 59'999);
	EXPECT_EQ(early.machine.state, ended);
	EXPECT_TRUE(early.machine.failed);
}

TEST(ServiceTable, WithoutRestartsTheFirstDeathIsTheLast)
{
	const ServiceMachine machine{.restarts = 0, .state = running, .gone = false};
	EXPECT_EQ(next(machine, gone, kNow).machine.state, ended);
}

TEST(ServiceTable, AStopTimeoutOfZeroKillsAtOnce)
{
	const ServiceMachine machine{.stopTimeout = 0, .state = running, .gone = false};
	EXPECT_EQ(next(machine, stop, kNow).machine.timerAt, kNow);
}

TEST(ServiceTable, AServiceThatWasAskedToEndHasNotFailed)
{
	const ServiceMachine machine{.state = failing, .gone = false, .failed = true};
	const ServiceStep step = next(machine, stop, kNow);
	EXPECT_FALSE(next(step.machine, gone, kNow).machine.failed);
}

} // namespace
