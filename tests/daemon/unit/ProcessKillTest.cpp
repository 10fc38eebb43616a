// The kill by the configured command and the check by keyword.

#include "Daemon.h"
#include "FakeOutside.h"
#include "Utill.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class ProcessKill : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		fakeoutside::reset();
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

TEST_F(ProcessKill, TheOutputOfTheCommandIsIgnored)
{
	fakeoutside::commandPrints("killall -9 server", "server: no process found\n");
	EXPECT_TRUE(Utill::processKill());
	EXPECT_THAT(events::only({"command "}), ElementsAre("command killall -9 server", "command killall -9 worker"));
}

TEST_F(ProcessKill, ACommandThatCannotBeRunIsLoggedAndTheNextProgramFollows)
{
	fakeoutside::commandFails("killall -9 server");
	EXPECT_TRUE(Utill::processKill());
	EXPECT_THAT(events::all(),
	            ElementsAre("command killall -9 server",
	                        "log E Utill:550 shell command run error(fp is NULL): killall -9 server", "sleep 1000",
	                        "command killall -9 worker", "log I Utill:573 command(killall -9 worker) : "));
}

TEST_F(ProcessKill, WithoutProgramsNoCommandRuns)
{
	settings.programs({});
	apply();
	EXPECT_TRUE(Utill::processKill());
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(ProcessKill, ArgumentsOfTheProgramBecomePartOfTheName)
{
	settings.programs({"/opt/app/server -d"});
	apply();
	EXPECT_TRUE(Utill::processKill());
	EXPECT_THAT(events::only({"command "}), ElementsAre("command killall -9 server -d"));
}

TEST_F(ProcessKill, AProgramWithoutANameLeavesTheCommandWithItsBlank)
{
	settings.programs({"/opt/app/"});
	apply();
	EXPECT_TRUE(Utill::processKill());
	EXPECT_THAT(events::only({"command "}), ElementsAre("command killall -9 "));
}

TEST_F(ProcessKill, AMissingCommandEndsTheDaemonEvenWithoutPrograms)
{
	settings.remove("ADVENCE.PROCESS_KILL_COMMAND").remove("PROCESS_CHECK.PROCESS_NUM");
	apply();
	EXPECT_FATAL_AFTER(Utill::processKill(), "**ERROR**(Configuraion:65)Not found: ADVENCE.PROCESS_KILL_COMMAND", "0",
	                   "Configuraion", 66, "std::string Configuraion::getString(const std::string&)");
}

TEST_F(ProcessKill, WithoutAHandleListNothingIsKilled)
{
	EXPECT_TRUE(Utill::processKill(nullptr));
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(ProcessKill, AnEmptyHandleListIsLeftAlone)
{
	std::vector<Poco::ProcessHandle*> handles;
	EXPECT_TRUE(Utill::processKill(&handles));
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(KeywordCheck, ProgramsWithoutTheKeywordPass)
{
	fakeoutside::commandPrints("ps aux | grep server", "root 7 S /opt/app/server\n");
	EXPECT_TRUE(Utill::advenceRunCheck(0));
	EXPECT_THAT(events::all(),
	            ElementsAre("command ps aux | grep server",
	                        "log I Utill:573 command(ps aux | grep server) : root 7 S /opt/app/server\n\n",
	                        "command ps aux | grep worker", "log I Utill:573 command(ps aux | grep worker) : "));
}

TEST_F(KeywordCheck, TheFirstProgramWithTheKeywordEndsTheCheck)
{
	fakeoutside::commandPrints("ps aux | grep server", "root 7 Z [server] <defunct>\n");
	EXPECT_FALSE(Utill::advenceRunCheck(0));
	EXPECT_THAT(events::all(),
	            ElementsAre("command ps aux | grep server",
	                        "log I Utill:573 command(ps aux | grep server) : root 7 Z [server] <defunct>\n\n"));
}

TEST_F(KeywordCheck, ALaterProgramWithTheKeywordFailsToo)
{
	fakeoutside::commandPrints("ps aux | grep worker", "root 1 S init\nroot 8 Z [worker] <defunct>\n");
	EXPECT_FALSE(Utill::advenceRunCheck(0));
	EXPECT_THAT(events::only({"command "}),
	            ElementsAre("command ps aux | grep server", "command ps aux | grep worker"));
}

TEST_F(KeywordCheck, TheKeywordInTheSearchCommandsOwnLineCounts)
{
	settings.set("ADVENCE.KEYWORD", "grep");
	apply();
	fakeoutside::commandPrints("ps aux | grep server", "root 9 S grep server\n");
	EXPECT_FALSE(Utill::advenceRunCheck(0));
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

TEST_F(KeywordCheck, ACommandThatCannotBeRunPassesWithAnyOtherKeyword)
{
	fakeoutside::commandFails("ps aux | grep server");
	fakeoutside::commandFails("ps aux | grep worker");
	EXPECT_TRUE(Utill::advenceRunCheck(0));
}

TEST_F(KeywordCheck, WithoutProgramsThereIsNothingToFail)
{
	settings.programs({});
	apply();
	EXPECT_TRUE(Utill::advenceRunCheck(0));
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(KeywordCheck, TheArgumentIsNotConsulted)
{
	EXPECT_TRUE(Utill::advenceRunCheck(-1));
	EXPECT_TRUE(Utill::advenceRunCheck(99));
	EXPECT_THAT(events::only({"command "}),
	            ElementsAre("command ps aux | grep server", "command ps aux | grep worker",
	                        "command ps aux | grep server", "command ps aux | grep worker"));
}

TEST_F(KeywordCheck, AMissingKeywordEndsTheDaemonBeforeTheListIsRead)
{
	settings.remove("ADVENCE.KEYWORD").remove("PROCESS_CHECK.PROCESS_NUM");
	apply();
	EXPECT_FATAL_AFTER(Utill::advenceRunCheck(0), "**ERROR**(Configuraion:65)Not found: ADVENCE.KEYWORD", "0",
	                   "Configuraion", 66, "std::string Configuraion::getString(const std::string&)");
}

} // namespace
