// The order in which the agent makes and starts its workers, and what a failure
// in the middle leaves behind. No worker thread runs here.

#include "Daemon.h"
#include "WorkerAccess.h"

// Poco::Thread::start(Poco::Runnable&): the start is an event, and no thread runs.
extern "C" void __wrap__ZN4Poco6Thread5startERNS_8RunnableE(Poco::Thread* pThread, Poco::Runnable& worker);
extern "C" void __wrap__ZN4Poco6Thread5startERNS_8RunnableE(Poco::Thread* /*pThread*/, Poco::Runnable& worker)
{
	events::add(dynamic_cast<ProcessChecker*>(&worker) != nullptr  ? "start ProcessChecker"
	            : dynamic_cast<CHeartReciver*>(&worker) != nullptr ? "start CHeartReciver"
	            : dynamic_cast<CHeartSender*>(&worker) != nullptr  ? "start CHeartSender"
	                                                               : "start of something else");
}

namespace
{

class CAgentThreads : public DaemonTest
{
protected:
	CAgentThreads() { events::clear(); }

	/// Starts the workers and expects, behind the line about the start time that is in the
	/// record now, these events.
	void expectStart(const events::List& expected)
	{
		agent->startThread();
		const std::string record = sandbox::readFile(velarix::kRunInfoPath);
		const std::string time = record.substr(std::string("[TRACE]\nLAST_RUN_TIME = ").size(), 14);
		EXPECT_EQ(record, "[TRACE]\nLAST_RUN_TIME = " + time +
		                      "\nMASTER_LAST_RUN_TIME = 20240101000000\nSLAVE_LAST_RUN_TIME = 20240102000000\n");
		EXPECT_THAT(time, AllOf(MatchesRegex("[0-9]{14}"), testing::Ne("20240131235959")));
		EXPECT_EQ(
		    events::all(),
		    events::join({{"log D CAgent:179 run time wrote:TRACE.LAST_RUN_TIME(" + time + ")[noName]"}, expected}));
	}

	std::unique_ptr<CAgent> agent = std::make_unique<CAgent>(2);
};

const events::List kStarts{"log D ProcessChecker:69 process list loaded[noName]", "start ProcessChecker",
                           "start CHeartReciver", "start CHeartSender"};

TEST_F(CAgentThreads, TheTimeIsRecordedThenTheWorkersStartWithTheAgentsRoleFlagListAndLabel)
{
	expectStart(kStarts);
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
	events::at("start CHeartReciver", events::throws(Poco::SystemException("no more threads")));
	expectStart({kStarts[0], kStarts[1], kStarts[2], "log E CAgent:160 System exception: no more threads"});
	EXPECT_FALSE(AgentAccess::checker(*agent).isNull());
	EXPECT_FALSE(AgentAccess::reciver(*agent).isNull());
	EXPECT_TRUE(AgentAccess::sender(*agent).isNull());
}

TEST_F(CAgentThreads, AfterAnErrorWhileTheTimeIsRecordedAllThreeStart)
{
	events::at("log D CAgent:179 ", events::throws(Poco::WriteFileException("disk full")));
	expectStart(events::join({{"log E CAgent:183 Cannot write file: disk full"}, kStarts}));
}

TEST_F(CAgentThreads, AMissingRunInfoRecordEndsTheDaemonBeforeAnyWorkerIsMade)
{
	sandbox::shell("rm " + std::string(velarix::kRunInfoPath));
	EXPECT_END(agent->startThread(), {"log E QuorinINI:29 File not found: /usr/velarix/bin/log/runinfo.txt"},
	           kNoRecord);
	EXPECT_EQ(sandbox::readFile(velarix::kRunInfoPath), "");
}

} // namespace
