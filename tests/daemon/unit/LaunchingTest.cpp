// The start of the managed programs through the run script.

#include <iostream>

#include "Daemon.h"
#include "Database.h"

using testing::EndsWith;

namespace
{

constexpr char kBanner[] = "log E Utill:78 \n"
                           "======================================================\n"
                           "================ process run =========================\n"
                           "======================================================";

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

TEST_F(Launching, ANegativeWaitingTimeStillWaitsAfterALongWhile)
{
	waitingTime("-1");
	EXPECT_THAT(countdownUntilSleep(5000),
	            EndsWith("\nprocess is waiting for ip setup:-4999\nprocess is waiting for ip setup:-5000\n"));
	events::List expected(5001, "sleep 1000");
	expected.front() = "log D Utill:48 try to start virtual ip";
	EXPECT_EQ(events::all(), expected);
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

} // namespace
