// The start of the managed programs through the run script, and the launchers that start each
// program directly and hand back its handle.

#include <set>

#include "Daemon.h"
#include "Database.h"

namespace
{

class Launching : public DaemonTest
{
protected:
	void waitingTime(const std::string& seconds)
	{
		settings.set("AGENT.WAITING_TIME_BEFORE_PROCESS_RUN", seconds);
		apply();
	}

	/// Runs without the virtual IP and leaves at the n-th wait.
	/// @return the console's lines of the countdown
	static std::string countdownUntilSleep(int n)
	{
		events::endAtSleep(n);
		testing::internal::CaptureStdout();
		EXPECT_THROW(Utill::voidProcessRun(true), events::EndOfScript);
		return testing::internal::GetCapturedStdout();
	}
};

TEST_F(Launching, AWaitingTimeOfThreeCountsThreeTwoOneOnTheConsole)
{
	waitingTime("3");
	testing::internal::CaptureStdout();
	Utill::voidProcessRun(true);
	EXPECT_EQ(testing::internal::GetCapturedStdout(), "**DEBUG**(Utill:48)try to start virtual ip\n"
	                                                  "process is waiting for ip setup:3\n"
	                                                  "process is waiting for ip setup:2\n"
	                                                  "process is waiting for ip setup:1\n"
	                                                  "**DEBUG**(Utill:62)try to run processes\n");
	EXPECT_THAT(events::all(), ElementsAre("log D Utill:48 try to start virtual ip", "sleep 1000", "sleep 1000",
	                                       "sleep 1000", "log D Utill:62 try to run processes",
	                                       "system chmod 755 /usr/velarix/bin/ini/processList.sh",
	                                       "system /usr/velarix/bin/ini/processList.sh", kBanner));
}

TEST_F(Launching, BelowTheLowestNumberTheCountdownGoesOnWithTheHighest)
{
	waitingTime("-2147483648");
	EXPECT_EQ(countdownUntilSleep(2), "**DEBUG**(Utill:48)try to start virtual ip\n"
	                                  "process is waiting for ip setup:-2147483648\n"
	                                  "process is waiting for ip setup:2147483647\n");
	EXPECT_THAT(events::all(), ElementsAre("log D Utill:48 try to start virtual ip", "sleep 1000", "sleep 1000"));
}

TEST_F(Launching, TheDatabaseNeedsNoStartAndIsThereAtOnce)
{
	MODE mode = MODE_MASTER;
	Utill::DBRun(&mode);
	Utill::DBRun(nullptr);
	EXPECT_TRUE(DBFileCheck(nullptr));
	EXPECT_THAT(events::all(), IsEmpty());
	EXPECT_TRUE(isDBOn(&mode));
	EXPECT_THAT(events::all(), ElementsAre("log D Utill:728 DB is working"));
	EXPECT_EQ(mode, MODE_MASTER);
}

constexpr char kRule[] = "======================================================";
constexpr char kFailoverBanner[] = "log E Utill:140 \n"
                                   "=======================================================\n"
                                   "===================  failover  ==========================\n"
                                   "=======================================================";

/// @return the numbers of the processes that a launcher returned, which have ended then
std::set<int> idsOf(const std::vector<Poco::ProcessHandle*>* pHandles)
{
	std::set<int> ids;
	for (Poco::ProcessHandle* pHandle : *pHandles)
	{
		ids.insert(pHandle->id());
		pHandle->wait();
		delete pHandle;
	}
	delete pHandles;
	return ids;
}

using DirectLaunch = DaemonTest;

TEST_F(DirectLaunch, EachCommandIsLaunchedInOrderWithoutArguments)
{
	std::vector<std::string> commands{"/opt/app/one", "/opt/app/two"};
	EXPECT_THAT(idsOf(Utill::processRun(commands)), SizeIs(2));
	EXPECT_THAT(events::all(),
	            ElementsAre("launch /opt/app/one", "log D Utill:96 /opt/app/one started run..", "launch /opt/app/two",
	                        "log D Utill:96 /opt/app/two started run..", std::string("log E Utill:119 ") + kRule,
	                        "log E Utill:120 ================ process run =========================",
	                        std::string("log E Utill:121 ") + kRule));
}

TEST_F(DirectLaunch, TheConfiguredProgramsAreLaunchedUnderTheFailoverBanner)
{
	settings.programs({"/opt/app/one", "/opt/app/two"});
	apply();
	EXPECT_THAT(idsOf(Utill::processRun()), SizeIs(2));
	EXPECT_THAT(events::all(),
	            ElementsAre("launch /opt/app/one", "log D Utill:96 /opt/app/one started run..", "launch /opt/app/two",
	                        "log D Utill:96 /opt/app/two started run..", kFailoverBanner));
}

TEST_F(DirectLaunch, AShellFileIsNamedByItsKey)
{
	settings.set("AGENT.BACKUP_COMMAND", "/opt/app/backup now");
	apply();
	Utill::shellFileRun("AGENT.BACKUP_COMMAND");
	EXPECT_THAT(events::all(), ElementsAre("launch /opt/app/backup now"));
}

} // namespace
