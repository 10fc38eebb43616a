// The order in which the agent makes and starts its workers, and what a failure
// in the middle leaves behind. No worker thread runs here.

#include <stdexcept>

#include <Poco/Exception.h>

#include "CAgent.h"
#include "Daemon.h"
#include "FakeOutside.h"
#include "Sandbox.h"
#include "ThreadStarts.h"
#include "WorkerAccess.h"
#include "velarix/paths.h"

using testing::ElementsAre;
using testing::MatchesRegex;
using testing::StartsWith;

namespace
{

class CAgentThreads : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		fakeoutside::reset();
		threadstarts::reset();
		makeAgent(2);
	}

	void TearDown() override
	{
		agent.reset();
		threadstarts::reset();
		DaemonTest::TearDown();
	}

	void makeAgent(MODE mode)
	{
		agent = std::make_unique<CAgent>(mode);
		events::clear();
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
	EXPECT_THAT(events::all(), ElementsAre(StartsWith("log D CAgent:179 run time wrote:TRACE.LAST_RUN_TIME("),
	                                       "log D ProcessChecker:69 process list loaded[noName]", //
	                                       "start ProcessChecker",                                //
	                                       "start CHeartReciver",                                 //
	                                       "start CHeartSender"));
}

TEST_F(CAgentThreads, EachWorkerGetsItsOwnThreadAndTheSpareOneNone)
{
	agent->startThread();
	EXPECT_EQ(threadstarts::threadOf("ProcessChecker"), &AgentAccess::checkerThread(*agent));
	EXPECT_EQ(threadstarts::threadOf("CHeartReciver"), &AgentAccess::reciverThread(*agent));
	EXPECT_EQ(threadstarts::threadOf("CHeartSender"), &AgentAccess::senderThread(*agent));
	EXPECT_FALSE(AgentAccess::spareThread(*agent).isRunning());
}

TEST_F(CAgentThreads, TheThreadsKeepTheDefaultNameAndPriority)
{
	agent->startThread();
	for (const char* worker : {"ProcessChecker", "CHeartReciver", "CHeartSender"})
	{
		EXPECT_THAT(threadstarts::threadOf(worker)->name(), MatchesRegex("#[0-9]+")) << worker;
		EXPECT_EQ(threadstarts::threadOf(worker)->getPriority(), Poco::Thread::PRIO_NORMAL) << worker;
	}
}

TEST_F(CAgentThreads, TheStartedObjectsAreTheOnesThatTheAgentHolds)
{
	agent->startThread();
	EXPECT_EQ(threadstarts::startedObject("ProcessChecker"), AgentAccess::checker(*agent).get());
	EXPECT_EQ(threadstarts::startedObject("CHeartReciver"), AgentAccess::reciver(*agent).get());
	EXPECT_EQ(threadstarts::startedObject("CHeartSender"), AgentAccess::sender(*agent).get());
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

TEST_F(CAgentThreads, TheAgentTakesOverTheWorkersFirstReference)
{
	agent->startThread();
	EXPECT_EQ(WorkerAccess::refCount(*AgentAccess::checker(*agent)), 1);
	EXPECT_EQ(WorkerAccess::refCount(*AgentAccess::reciver(*agent)), 1);
	EXPECT_EQ(WorkerAccess::refCount(*AgentAccess::sender(*agent)), 1);
}

TEST_F(CAgentThreads, AWorkerWithAnotherHolderOutlivesTheAgent)
{
	agent->startThread();
	Poco::AutoPtr<ProcessChecker> checker = AgentAccess::checker(*agent);
	Poco::AutoPtr<CHeartReciver> reciver = AgentAccess::reciver(*agent);
	Poco::AutoPtr<CHeartSender> sender = AgentAccess::sender(*agent);
	EXPECT_EQ(WorkerAccess::refCount(*checker), 2);
	EXPECT_EQ(WorkerAccess::refCount(*reciver), 2);
	EXPECT_EQ(WorkerAccess::refCount(*sender), 2);
	agent.reset();
	EXPECT_EQ(WorkerAccess::refCount(*checker), 1);
	EXPECT_EQ(WorkerAccess::refCount(*reciver), 1);
	EXPECT_EQ(WorkerAccess::refCount(*sender), 1);
}

TEST_F(CAgentThreads, AFailureOfTheCheckersThreadIsLoggedAndNoLaterWorkerIsMade)
{
	threadstarts::startThrows("ProcessChecker", noMoreThreads);
	agent->startThread();
	EXPECT_THAT(events::all(), ElementsAre(StartsWith("log D CAgent:179 run time wrote:"),
	                                       "log D ProcessChecker:69 process list loaded[noName]", //
	                                       "start ProcessChecker",                                //
	                                       "log E CAgent:160 System exception: no more threads"));
	EXPECT_FALSE(AgentAccess::checker(*agent).isNull());
	EXPECT_TRUE(AgentAccess::reciver(*agent).isNull());
	EXPECT_TRUE(AgentAccess::sender(*agent).isNull());
}

TEST_F(CAgentThreads, AFailureOfTheReceiversThreadLeavesTheCheckerAndMakesNoSender)
{
	threadstarts::startThrows("CHeartReciver", noMoreThreads);
	agent->startThread();
	EXPECT_THAT(events::all(), ElementsAre(StartsWith("log D CAgent:179 run time wrote:"),
	                                       "log D ProcessChecker:69 process list loaded[noName]", //
	                                       "start ProcessChecker",                                //
	                                       "start CHeartReciver",                                 //
	                                       "log E CAgent:160 System exception: no more threads"));
	EXPECT_FALSE(AgentAccess::checker(*agent).isNull());
	EXPECT_FALSE(AgentAccess::reciver(*agent).isNull());
	EXPECT_TRUE(AgentAccess::sender(*agent).isNull());
}

TEST_F(CAgentThreads, AFailureOfTheSendersThreadLeavesTheOtherTwo)
{
	threadstarts::startThrows("CHeartSender", noMoreThreads);
	agent->startThread();
	EXPECT_THAT(events::all(), ElementsAre(StartsWith("log D CAgent:179 run time wrote:"),
	                                       "log D ProcessChecker:69 process list loaded[noName]", //
	                                       "start ProcessChecker",                                //
	                                       "start CHeartReciver",                                 //
	                                       "start CHeartSender",                                  //
	                                       "log E CAgent:160 System exception: no more threads"));
}

TEST_F(CAgentThreads, AnErrorOfAnotherFamilyReachesTheCaller)
{
	threadstarts::startThrows("CHeartReciver", [] { throw std::runtime_error("foreign"); });
	EXPECT_THROW(agent->startThread(), std::runtime_error);
	EXPECT_EQ(events::all().back(), "start CHeartReciver");
}

TEST_F(CAgentThreads, WithARoleThatDoesNotExistAllThreeWorkersStart)
{
	makeAgent(3);
	agent->startThread();
	EXPECT_THAT(events::only({"start "}),
	            ElementsAre("start ProcessChecker", "start CHeartReciver", "start CHeartSender"));
	EXPECT_EQ(AgentAccess::mode(*agent), 3);
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

TEST_F(CAgentThreads, AMissingKeyOfTheReceiverEndsTheDaemonAfterTheCheckerStarted)
{
	settings.remove("AGENT.IGNORE_TIME");
	apply();
	threadstarts::startThrows("ProcessChecker", [] { sandbox::writeFile("/usr/velarix/log/checker-started", "yes"); });
	EXPECT_FATAL(agent->startThread(), "0", "Configuraion", 83, "int Configuraion::getInt(const std::string&)");
	EXPECT_EQ(sandbox::readFile("/usr/velarix/log/checker-started"), "yes");
}

} // namespace
