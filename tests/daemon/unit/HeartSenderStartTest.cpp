// The sender's start of the programs and its smaller operations. None of them is
// part of the loop.

#include <atomic>
#include <stdexcept>
#include <thread>

#include <Poco/Exception.h>

#include "FakeOutside.h"
#include "FixedClock.h"
#include "ReceiverTest.h"
#include "Sandbox.h"
#include "SenderTest.h"
#include "WaitFor.h"
#include "velarix/paths.h"
#include "velarix/shared_value.h"

using steps::join;
using steps::runPrograms;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace
{

constexpr char kTry[] = "log D CHeartSender:194 try to process run";
constexpr char kScript[] = "system /usr/velarix/bin/ini/processList.sh";

class SenderStart : public SenderTest
{
protected:
	void SetUp() override
	{
		SenderTest::SetUp();
		fakeoutside::commandPrints("ifconfig", "eth0:ha: flags=4163\n        inet 10.0.1.100  netmask 255.255.255.0\n");
		sandbox::writeFile(velarix::kRunInfoPath,
		                   "[TRACE]\nLAST_RUN_TIME = \nMASTER_LAST_RUN_TIME = 1\nSLAVE_LAST_RUN_TIME = 2\n");
		fixedclock::stopAt(1706745599, "UTC0"); // 2024-01-31 23:59:59
	}
	void TearDown() override
	{
		fixedclock::go();
		SenderTest::TearDown();
	}

	/// A start whose script throws.
	template <typename Exception> void expectFailedStart(const Exception& exception, const std::string& line)
	{
		fakeoutside::onAction(
		    [exception](const std::string& event)
		    {
			    if (event == kScript)
			    {
				    throw exception;
			    }
		    });
		EXPECT_FALSE(sender->startProcess());
		events::List expected = join({kTry, runPrograms()});
		expected.back() = line;
		EXPECT_THAT(events::all(), ElementsAreArray(expected));
		EXPECT_FALSE(running);
		EXPECT_EQ(sandbox::readFile(velarix::kRunInfoPath),
		          "[TRACE]\nLAST_RUN_TIME = \nMASTER_LAST_RUN_TIME = 1\nSLAVE_LAST_RUN_TIME = 2\n");
	}

	/// Starts the programs on another thread.
	void expectStartElsewhere()
	{
		running = false;
		std::atomic<bool> done = false;
		std::thread thread([&] { done = sender->startProcess(); });
		EXPECT_TRUE(waitFor([&] { return done.load(); }, std::chrono::seconds(10), "start on another thread"));
		thread.join();
	}
};

TEST_F(SenderStart, AStartRunsTheProgramsAndRecordsTheTime)
{
	EXPECT_TRUE(sender->startProcess());
	EXPECT_TRUE(running);
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_THAT(events::all(),
	            ElementsAreArray(join({kTry, runPrograms(),
	                                   "log D CHeartSender:249 run info file changed:TRACE.LAST_RUN_TIME("
	                                   "20240131235959)[noName]"})));
	EXPECT_EQ(sandbox::readFile(velarix::kRunInfoPath),
	          "[TRACE]\nLAST_RUN_TIME = 20240131235959\nMASTER_LAST_RUN_TIME = 1\nSLAVE_LAST_RUN_TIME = 2\n");
}

TEST_F(SenderStart, TheFlagIsSetOnlyAfterTheProgramsHaveBeenStarted)
{
	std::vector<bool> flags;
	fakeoutside::onAction([&](const std::string&) { flags.push_back(velarix::loadShared(running)); });
	sender->startProcess();
	EXPECT_THAT(flags, ElementsAre(false, false, false, false));
}

TEST_F(SenderStart, TheFlagIsSetBeforeTheTimeIsRecorded)
{
	std::vector<bool> flags;
	onLogLine(
	    [&](const std::string& line)
	    {
		    if (line.find("run info file changed") != std::string::npos)
		    {
			    flags.push_back(velarix::loadShared(running));
		    }
	    });
	sender->startProcess();
	EXPECT_THAT(flags, ElementsAre(true));
}

TEST_F(SenderStart, RunningProgramsAreNotStartedAgainAndTheDaemonGoesOn)
{
	running = true;
	EXPECT_FALSE(sender->startProcess());
	EXPECT_THAT(events::all(), ElementsAre("log E CHeartSender:205 tried to start process. but it's already running"));
	EXPECT_TRUE(running);
}

TEST_F(SenderStart, SomethingNotFoundIsLoggedByItsKind)
{
	expectFailedStart(Poco::NotFoundException("script"), "log E CHeartSender:210 Not found: script: NotFoundException");
}

TEST_F(SenderStart, AMissingPermissionIsLoggedByItsKind)
{
	expectFailedStart(Poco::NoPermissionException("script"),
	                  "log E CHeartSender:214 No permission: script: NoPermissionException");
}

TEST_F(SenderStart, ASystemErrorIsLoggedByItsKind)
{
	expectFailedStart(Poco::SystemException("fork", 12),
	                  "log E CHeartSender:218 System exception: fork: SystemException");
}

TEST_F(SenderStart, AnyOtherErrorOfTheLibraryIsLogged)
{
	expectFailedStart(Poco::TimeoutException("script"), "log E CHeartSender:222 Timeout: script");
}

TEST_F(SenderStart, AnyErrorAtAllIsLogged)
{
	expectFailedStart(std::runtime_error("not of the library"), "log E CHeartSender:226 UNKNOWN ERROR");
}

TEST_F(SenderStart, TheLocksAreFreeAfterEveryOutcome)
{
	ASSERT_TRUE(sender->startProcess());
	expectStartElsewhere();
	ASSERT_FALSE(sender->startProcess());
	expectStartElsewhere();
	fakeoutside::onAction([](const std::string&) { throw Poco::SystemException("fork", 12); });
	running = false;
	ASSERT_FALSE(sender->startProcess());
	fakeoutside::onAction({});
	expectStartElsewhere();
	fakeoutside::onAction([](const std::string&) { throw 1; });
	running = false;
	ASSERT_FALSE(sender->startProcess());
	fakeoutside::onAction({});
	expectStartElsewhere();
}

TEST_F(SenderStart, TwoStartsOfTheSenderExcludeEachOther)
{
	std::atomic<bool> done = false;
	std::thread other;
	fakeoutside::onAction(
	    [&](const std::string& event)
	    {
		    if (event == kScript && !other.joinable())
		    {
			    fakeoutside::onAction({});
			    other = std::thread(
			        [&]
			        {
				        EXPECT_FALSE(sender->startProcess());
				        done = true;
			        });
			    // Long enough for a start that is not excluded to be done.
			    EXPECT_FALSE(waitFor([&] { return done.load(); }, std::chrono::milliseconds(100), "second start"));
		    }
	    });
	EXPECT_TRUE(sender->startProcess());
	other.join();
	EXPECT_EQ(events::all().back(), "log E CHeartSender:205 tried to start process. but it's already running");
}

TEST_F(SenderStart, AStartOfTheReceiverIsNotExcluded)
{
	// Each source file has locks of its own.
	bool otherFlag = false;
	CHeartReciver receiver(&handles, &otherFlag, &mode, location);
	std::atomic<bool> done = false;
	std::thread other;
	fakeoutside::onAction(
	    [&](const std::string& event)
	    {
		    if (event == kScript && !other.joinable())
		    {
			    fakeoutside::onAction({});
			    other = std::thread([&] { done = receiver.startProcess(); });
			    EXPECT_TRUE(waitFor([&] { return done.load(); }, std::chrono::seconds(10), "the receiver's start"));
		    }
	    });
	EXPECT_TRUE(sender->startProcess());
	other.join();
	EXPECT_TRUE(otherFlag);
}

TEST_F(SenderStart, OneReplyOfFivePingsIsEnough)
{
	partner.reset();
	untilWait(1);
	for (const auto& [replies, isOK] : std::map<int, bool>{{0, false}, {1, true}, {5, true}, {-1, false}})
	{
		SCOPED_TRACE(replies);
		events::clear();
		fakeoutside::pingGives("127.0.0.1", replies);
		EXPECT_EQ(sender->isPartnerNetworkOK(), isOK);
		EXPECT_THAT(events::all(), ElementsAre("ping 127.0.0.1 x5"));
	}
}

TEST_F(SenderStart, BeforeTheThreadRunsTheAddressIsEmpty)
{
	EXPECT_TRUE(sender->isPartnerNetworkOK());
	EXPECT_THAT(events::all(), ElementsAre("ping  x5"));
}

TEST_F(SenderStart, AnErrorOfThePingIsLoggedAndNotOK)
{
	fakeoutside::pingThrows("", [] { throw Poco::SystemException("raw socket", 1); });
	EXPECT_FALSE(sender->isPartnerNetworkOK());
	EXPECT_THAT(events::all(), ElementsAre("ping  x5", "log E CHeartSender:150 System exception: raw socket[CODE:1]"));
}

TEST_F(SenderStart, TheDatabaseModeIsOne)
{
	EXPECT_EQ(sender->getDBMode(), 1);
}

TEST_F(SenderStart, TheTimeIsFourteenDigitsOfTheLocalTime)
{
	EXPECT_EQ(sender->getCurrentTime(), "20240131235959");
	fixedclock::stopAt(1706745599, "XYZ-02");
	EXPECT_EQ(sender->getCurrentTime(), "20240201015959");
}

TEST_F(SenderStart, ANewSenderKnowsNoPartnerAndHasOneReference)
{
	EXPECT_EQ(WorkerAccess::port(*sender), 0);
	EXPECT_EQ(WorkerAccess::partnerIP(*sender), "");
	EXPECT_EQ(WorkerAccess::refCount(*sender), 1);
	EXPECT_THAT(events::all(), ElementsAre());
}

TEST_F(SenderStart, TheLastReferenceDeletesTheSenderAndNothingOfTheAgent)
{
	struct Watched : CHeartSender
	{
		Watched(std::vector<Poco::ProcessHandle*>** ppHandles, bool* pRunning, MODE* pMode, std::string& label,
		        bool& gone)
		    : CHeartSender(ppHandles, pRunning, pMode, label), m_gone(gone)
		{
		}
		~Watched() override { m_gone = true; }
		bool& m_gone;
	};
	bool gone = false;
	CHeartSender* pSender = new Watched(&handles, &running, &mode, location, gone);
	EXPECT_EQ(pSender->duplicate(), pSender);
	EXPECT_EQ(WorkerAccess::refCount(*pSender), 2);
	pSender->release();
	EXPECT_EQ(WorkerAccess::refCount(*pSender), 1);
	EXPECT_FALSE(gone);
	pSender->release();
	EXPECT_TRUE(gone);
	EXPECT_EQ(location, "noName");
}

} // namespace
