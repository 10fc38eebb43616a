// The configured programs, their kill by the configured command and the check by keyword.

#include "Daemon.h"

namespace
{

class ProcessKill : public DaemonTest
{
protected:
	ProcessKill()
	{
		settings.set("ADVENCE.PROCESS_KILL_COMMAND", "killall -9").set("ADVENCE.KEYWORD", "defunct");
		settings.programs({"/opt/app/server", "/opt/app/worker"});
	}
};

using KeywordCheck = ProcessKill;

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
	EXPECT_TRUE(Utill::processKill());
	EXPECT_TRUE(Utill::processKill(nullptr));
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(KeywordCheck, ProgramsWithoutTheKeywordPassWhateverTheArgument)
{
	fakeoutside::commandPrints("ps aux | grep server", {"root 7 S /opt/app/server\n"});
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
	fakeoutside::commandPrints("ps aux | grep worker", {"root 1 S init\nroot 8 Z [worker] <defunct>\n"});
	EXPECT_FALSE(Utill::advenceRunCheck(0));
	fakeoutside::commandPrints("ps aux | grep server", {"root 7 Z [server] <defunct>\n"});
	EXPECT_FALSE(Utill::advenceRunCheck(0));
	EXPECT_THAT(events::only({"command "}), ElementsAre("command ps aux | grep server", "command ps aux | grep worker",
	                                                    "command ps aux | grep server"));
}

using ProcessList = DaemonTest;

TEST_F(ProcessList, TheIndexIsDecimalBeyondNineAndANegativeNumberGivesAnEmptyList)
{
	settings.programs({"a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k"});
	EXPECT_THAT(Utill::getProcessList(), ElementsAre("a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k"));
	settings.set("PROCESS_CHECK.PROCESS_NUM", "-3");
	EXPECT_THAT(Utill::getProcessList(), IsEmpty());
}

TEST_F(ProcessList, TheNameOfAnEmptyPathIsEmptyAndTheTokenizersErrorIsLogged)
{
	std::string path;
	EXPECT_EQ(getProcessName(path), "");
	EXPECT_THAT(events::all(), ElementsAre("log E Utill:178 Out of range"));
}

TEST_F(ProcessList, TheCheckByHandlesMustNotBeCalled)
{
	std::vector<Poco::ProcessHandle*>* pHandles = nullptr;
	EXPECT_END(Utill::isProcessRunning(&pHandles), {}, "1 == 0", "Utill", 254,
	           "static bool Utill::isProcessRunning(std::vector<Poco::ProcessHandle*>**)");
}

} // namespace
