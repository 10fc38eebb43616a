// The kill by the configured command and the check by keyword.

#include "Daemon.h"

namespace
{

class ProcessKill : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		settings.set("ADVENCE.PROCESS_KILL_COMMAND", "killall -9").set("ADVENCE.KEYWORD", "defunct");
		settings.programs({"/opt/app/server", "/opt/app/worker"});
		apply();
	}
};

class KeywordCheck : public ProcessKill
{
};

TEST_F(ProcessKill, TheCommandRunsOncePerProgramNameInOrder)
{
	EXPECT_TRUE(Utill::processKill());
	EXPECT_THAT(events::all(), ElementsAre("command killall -9 server",
	                                       "log I Utill:573 command(killall -9 server) : ", "command killall -9 worker",
	                                       "log I Utill:573 command(killall -9 worker) : "));
}

TEST_F(ProcessKill, WithoutProgramsOrHandlesNoCommandRuns)
{
	settings.programs({});
	apply();
	EXPECT_TRUE(Utill::processKill());
	EXPECT_TRUE(Utill::processKill(nullptr));
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(ProcessKill, AProgramWithoutANameLeavesTheCommandWithItsBlank)
{
	settings.programs({"/opt/app/"});
	apply();
	EXPECT_TRUE(Utill::processKill());
	EXPECT_THAT(events::only({"command "}), ElementsAre("command killall -9 "));
}

TEST_F(KeywordCheck, ProgramsWithoutTheKeywordPassWhateverTheArgument)
{
	fakeoutside::commandPrints("ps aux | grep server", "root 7 S /opt/app/server\n");
	for (const int argument : {0, -1, 99})
	{
		events::clear();
		EXPECT_TRUE(Utill::advenceRunCheck(argument));
		EXPECT_THAT(events::all(),
		            ElementsAre("command ps aux | grep server",
		                        "log I Utill:573 command(ps aux | grep server) : root 7 S /opt/app/server\n\n",
		                        "command ps aux | grep worker", "log I Utill:573 command(ps aux | grep worker) : "));
	}
}

TEST_F(KeywordCheck, TheFirstProgramWithTheKeywordEndsTheCheck)
{
	fakeoutside::commandPrints("ps aux | grep worker", "root 1 S init\nroot 8 Z [worker] <defunct>\n");
	EXPECT_FALSE(Utill::advenceRunCheck(0));
	fakeoutside::commandPrints("ps aux | grep server", "root 7 Z [server] <defunct>\n");
	EXPECT_FALSE(Utill::advenceRunCheck(0));
	EXPECT_THAT(events::only({"command "}), ElementsAre("command ps aux | grep server", "command ps aux | grep worker",
	                                                    "command ps aux | grep server"));
}

TEST_F(KeywordCheck, AKeywordEqualToTheFailureMarkerFailsWhenTheCommandCannotBeRun)
{
	settings.set("ADVENCE.KEYWORD", "velarixErr");
	apply();
	fakeoutside::commandFails("ps aux | grep server");
	EXPECT_FALSE(Utill::advenceRunCheck(0));
	EXPECT_THAT(events::all(),
	            ElementsAre("command ps aux | grep server",
	                        "log E Utill:550 shell command run error(fp is NULL): ps aux | grep server", "sleep 1000"));
}

} // namespace
