// The order in which the agent makes and starts its workers, and what a failure
// in the middle leaves behind. No worker thread runs here.

#include "Daemon.h"
#include "ThreadStarts.h"
#include "WorkerAccess.h"

namespace
{

class CAgentThreads : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		makeAgent(2);
	}

	void TearDown() override
	{
		agent.reset();
		DaemonTest::TearDown();
	}

	void makeAgent(MODE mode)
	{
		agent = std::make_unique<CAgent>(mode);
		events::clear();
	}

	/// The line about the start time that is in the record now.
	static std::string timeRecorded()
	{
		const std::string record = sandbox::readFile(velarix::kRunInfoPath);
		const std::string time = record.substr(std::string("[TRACE]\nLAST_RUN_TIME = ").size(), 14);
		EXPECT_EQ(record, "[TRACE]\nLAST_RUN_TIME = " + time +
		                      "\nMASTER_LAST_RUN_TIME = 20240101000000\nSLAVE_LAST_RUN_TIME = 20240102000000\n");
		EXPECT_THAT(time, MatchesRegex("[0-9]{14}"));
		EXPECT_NE(time, "20240131235959");
		return "log D CAgent:179 run time wrote:TRACE.LAST_RUN_TIME(" + time + ")[noName]";
	}

	/// The log throws after it has taken the line `event`.
	static void refuse(const std::string& event)
	{
		onLogLine(
		    [event](const std::string& line)
		    {
			    if (line.compare(0, event.size(), event) == 0)
			    {
				    throw Poco::WriteFileException("disk full");
			    }
		    });
	}

	std::unique_ptr<CAgent> agent;
};

void noMoreThreads()
{
	throw Poco::SystemException("no more threads");
}

TEST_F(CAgentThreads, TheTimeIsRecordedThenTheCheckerTheReceiverAndTheSenderStart)
{
	agent->startThread();
	EXPECT_THAT(events::all(), ElementsAre(timeRecorded(),
	                                       "log D ProcessChecker:69 process list loaded[noName]", //
	                                       "start ProcessChecker",                                //
	                                       "start CHeartReciver",                                 //
	                                       "start CHeartSender"));
}

TEST_F(CAgentThreads, EveryWorkerSharesTheAgentsRoleFlagAndListAndCarriesItsLabel)
{
	agent->startThread();
	const auto expectShared = [&](auto& worker)
	{
		EXPECT_EQ(WorkerAccess::sharedMode(worker), &AgentAccess::mode(*agent));
		EXPECT_EQ(WorkerAccess::sharedFlag(worker), &AgentAccess::running(*agent));
		EXPECT_EQ(WorkerAccess::sharedHandles(worker), &AgentAccess::handles(*agent));
		EXPECT_EQ(WorkerAccess::location(worker), "noName");
	};
	expectShared(*AgentAccess::checker(*agent));
	expectShared(*AgentAccess::reciver(*agent));
	expectShared(*AgentAccess::sender(*agent));
}

TEST_F(CAgentThreads, AFailureOfTheReceiversThreadLeavesTheCheckerAndMakesNoSender)
{
	threadstarts::startThrows("CHeartReciver", noMoreThreads);
	agent->startThread();
	EXPECT_THAT(events::all(), ElementsAre(timeRecorded(),
	                                       "log D ProcessChecker:69 process list loaded[noName]", //
	                                       "start ProcessChecker",                                //
	                                       "start CHeartReciver",                                 //
	                                       "log E CAgent:160 System exception: no more threads"));
	EXPECT_FALSE(AgentAccess::checker(*agent).isNull());
	EXPECT_FALSE(AgentAccess::reciver(*agent).isNull());
	EXPECT_TRUE(AgentAccess::sender(*agent).isNull());
}

TEST_F(CAgentThreads, AfterAnErrorWhileTheTimeIsRecordedAllThreeStart)
{
	refuse("log D CAgent:179 ");
	agent->startThread();
	EXPECT_THAT(events::all(), ElementsAre(timeRecorded(),                                        //
	                                       "log E CAgent:183 Cannot write file: disk full",       //
	                                       "log D ProcessChecker:69 process list loaded[noName]", //
	                                       "start ProcessChecker",                                //
	                                       "start CHeartReciver",                                 //
	                                       "start CHeartSender"));
}

TEST_F(CAgentThreads, AMissingRunInfoRecordEndsTheDaemonBeforeAnyWorkerIsMade)
{
	const std::string record = velarix::kRunInfoPath;
	sandbox::shell("rm " + record);
	threadstarts::startThrows("ProcessChecker", [record] { sandbox::writeFile(record, "a worker started"); });
	EXPECT_FATAL(agent->startThread(), "(1 == 0) && \"ini File fopen fail.\"", "QuorinINI", 30,
	             "bool initialization::loadFile(const std::string&)");
	EXPECT_EQ(sandbox::readFile(record), "");
}

} // namespace
