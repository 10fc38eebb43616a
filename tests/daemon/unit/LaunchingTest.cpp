// The start of the managed programs through the run script.

#include "CAgent.h"
#include "Database.h"
#include "Probes.h"
#include "Workers.h"

using events::join;

namespace
{

using Launching = DaemonTest;

TEST_F(Launching, AWaitingTimeOfThreeCountsThreeTwoOneOnTheConsole)
{
	settings.set("AGENT.WAITING_TIME_BEFORE_PROCESS_RUN", "3");
	testing::internal::CaptureStdout();
	Utill::voidProcessRun(true);
	EXPECT_EQ(testing::internal::GetCapturedStdout(), "**DEBUG**(Utill:48)try to start virtual ip\n"
	                                                  "process is waiting for ip setup:3\n"
	                                                  "process is waiting for ip setup:2\n"
	                                                  "process is waiting for ip setup:1\n"
	                                                  "**DEBUG**(Utill:62)try to run processes\n");
	EXPECT_EQ(events::all(),
	          join({steps::kTryPrograms, {"sleep 1000", "sleep 1000", "sleep 1000"}, steps::kScriptRuns, {kBanner}}));
}

TEST_F(Launching, BelowTheLowestNumberTheCountdownGoesOnWithTheHighest)
{
	settings.set("AGENT.WAITING_TIME_BEFORE_PROCESS_RUN", "-2147483648");
	events::endAt(2, "sleep ");
	testing::internal::CaptureStdout();
	EXPECT_THROW(Utill::voidProcessRun(true), events::EndOfScript);
	EXPECT_EQ(testing::internal::GetCapturedStdout(), "**DEBUG**(Utill:48)try to start virtual ip\n"
	                                                  "process is waiting for ip setup:-2147483648\n"
	                                                  "process is waiting for ip setup:2147483647\n");
	EXPECT_EQ(events::all(), join({steps::kTryPrograms, {"sleep 1000", "sleep 1000"}}));
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

// What is not the library's is a mistake of our own: nobody takes it for a failed probe or start.
TEST_F(Launching, AnExceptionThatIsNotTheLibrarysPasses)
{
	std::vector<std::string> commands{"/bin/true"};
	CAgent agent(MODE_SLAVE);
	for (const char* event : {"launch ", "ping ", "log D CAgent:179 "})
	{
		events::at(event, events::throws(std::runtime_error("not of the library")));
	}
	EXPECT_THROW(Utill::processRun(), std::runtime_error);
	EXPECT_THROW(Utill::processRun(commands), std::runtime_error);
	EXPECT_THROW(partnerComunicationIPcheck(), std::runtime_error);
	EXPECT_THROW(myComunicationIPcheck(), std::runtime_error);
	EXPECT_THROW(serviceIPcheck(), std::runtime_error);
	EXPECT_THROW(agent.saveStartedTime(), std::runtime_error);
}

} // namespace
