// The daemon's entry, called as a function: its main is compiled under another
// name, fork is scripted, no worker thread runs and every wait is recorded.

#include "HAmain.h"

#include <optional>
#include <utility>

#include <sys/resource.h>

#include "Configuraion.h"
#include "Daemon.h"
#include "VelarixLog.h"

int velarixMain();

namespace
{

/// What the next fork gives; without it that is the real one.
std::optional<pid_t> g_forkGives;

} // namespace

extern "C" pid_t __real_fork();
extern "C" pid_t __wrap_fork();
extern "C" pid_t __wrap_fork()
{
	if (!g_forkGives)
	{
		return __real_fork();
	}
	events::add("fork");
	return *std::exchange(g_forkGives, std::nullopt);
}

using testing::Eq;
using testing::ExitedWithCode;

namespace
{

/// For death tests, which see standard error only.
void exitProgram(const char* text)
{
	::dup2(STDERR_FILENO, STDOUT_FILENO);
	ExitProgram(text);
}

void runMain()
{
	g_forkGives = 0;
	velarixMain();
}

/// For death tests, as above.
void forkGives(pid_t result)
{
	::dup2(STDERR_FILENO, STDOUT_FILENO);
	g_forkGives = result;
	velarixMain();
}

class HAmain : public DaemonTest
{
protected:
	HAmain()
	{
		// The entry makes its own.
		useUnsetLog();
		delete velarixLog;
		velarixLog = nullptr;
		settings.write();
	}

	/// Runs the daemon's side of the entry until its n-th wait.
	static void runDaemonUntilWait(int n)
	{
		events::endAt(n, "sleep ");
		EXPECT_THROW(runMain(), events::EndOfScript);
	}
};

TEST_F(HAmain, TheFarewellHasItsReasonInBracketsWhichIsNoFormat)
{
	EXPECT_EXIT(exitProgram(nullptr), ExitedWithCode(0), Eq("Good Bye!!! \r\n"));
	EXPECT_EXIT(exitProgram("%s%d"), ExitedWithCode(0), Eq("Good Bye!!! [%s%d]\r\n"));
}

TEST_F(HAmain, WhoeverStartedItAndAFailedForkEndWell)
{
	EXPECT_EXIT(forkGives(1), ExitedWithCode(0), Eq("Good Bye!!! [fork parent]\r\n"));
	EXPECT_EXIT(forkGives(-1), ExitedWithCode(0), Eq("Good Bye!!! [fork fail]\r\n"));
}

TEST_F(HAmain, TheDaemonWaitsTwoSecondsBeforeItLeavesAnyTrace)
{
	const auto lowestFree = []
	{
		const int descriptor = ::dup(STDERR_FILENO);
		::close(descriptor);
		return descriptor;
	};
	const int free = lowestFree();
	runDaemonUntilWait(1);
	EXPECT_EQ(lowestFree(), free);
	EXPECT_THAT(events::all(), ElementsAre("fork", "sleep 2000"));
	EXPECT_NE(::access(velarix::kPidPath, F_OK), 0);
	EXPECT_EQ(velarixLog, nullptr);
	EXPECT_EQ(Configuraion::pConf, nullptr);
}

TEST_F(HAmain, WithoutADescriptorForAClosedStreamTheStartGoesOn)
{
	rlimit usual{};
	ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &usual), 0);
	const rlimit none{0, usual.rlim_max};
	ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
	runDaemonUntilWait(1);
	ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &usual), 0);
	EXPECT_THAT(events::all(), ElementsAre("fork", "sleep 2000"));
}

TEST_F(HAmain, TheStartCleansTheNodeThenStartsTheWorkersThenSleepsForEver)
{
	runDaemonUntilWait(4);
	EXPECT_THAT(events::all(), ElementsAre("fork",                              //
	                                       "sleep 2000",                        //
	                                       "command vip-stop",                  //
	                                       "command kill-by-name noSuchServer", //
	                                       "start ProcessChecker",              //
	                                       "start CHeartReciver",               //
	                                       "start CHeartSender",                //
	                                       "sleep 100000000",                   //
	                                       "sleep 100000000",                   //
	                                       "sleep 100000000"));
}

TEST_F(HAmain, ThePidFileHoldsBareDigitsBeforeTheFirstCommandRuns)
{
	std::string pidAtStop;
	events::at("command vip-stop", [&] { pidAtStop = sandbox::readFile(velarix::kPidPath); });
	runDaemonUntilWait(2);
	EXPECT_EQ(pidAtStop, std::to_string(::getpid()));
	EXPECT_EQ(sandbox::readFile(velarix::kPidPath), std::to_string(::getpid()));
}

TEST_F(HAmain, WithoutThePidDirectoryOneLineSaysSoAndTheDaemonAborts)
{
	sandbox::shell("rmdir /usr/velarix/pid");
	EXPECT_EXIT(runMain(), testing::KilledBySignal(SIGABRT),
	            Eq("VelarixHA: cannot write the pid file /usr/velarix/pid/VelarixHA.pid: No such file or directory\n"));
}

TEST_F(HAmain, AMissingLogPathEndsTheStartWithTheReasonOnStandardErrorAlone)
{
	settings.remove("LOG.PATH");
	EXPECT_EXIT(runMain(), testing::KilledBySignal(SIGABRT),
	            testing::EndsWith("**ERROR**(Configuraion:65)Not found: LOG.PATH\nstart_test: " + kNoText.text()));
}

TEST_F(HAmain, OnlyTheRoleOneIsMaster)
{
	for (const auto& [configured, role] : std::map<std::string, MODE>{{"1", MODE_MASTER},
	                                                                  {"2", MODE_SLAVE},
	                                                                  {"7", MODE_SLAVE},
	                                                                  {"3", MODE_SLAVE},
	                                                                  {"0", MODE_SLAVE},
	                                                                  {"-1", MODE_SLAVE}})
	{
		settings.set("AGENT.MODE", configured);
		EXPECT_EQ(getAgentMode(), role);
	}
}

} // namespace
