// The receiver's start-and-record path and its smaller operations. None of them
// is part of the loop.

#include <atomic>
#include <ctime>
#include <thread>

#include <Poco/Exception.h>

#include "FakeOutside.h"
#include "FixedClock.h"
#include "ReceiverTest.h"
#include "Sandbox.h"
#include "WaitFor.h"
#include "velarix/paths.h"
#include "velarix/shared_value.h"

using steps::join;
using steps::runPrograms;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace
{

constexpr std::time_t kNow = 1706745599; // 2024-01-31 23:59:59
constexpr char kRecorded[] =
    "log D CHeartReciver:627 run info file changed:TRACE.LAST_RUN_TIME(20240131235959)[noName]";

class ReceiverStart : public ReceiverTest
{
protected:
	void SetUp() override
	{
		ReceiverTest::SetUp();
		sandbox::writeFile(velarix::kRunInfoPath,
		                   "[TRACE]\nLAST_RUN_TIME = \nMASTER_LAST_RUN_TIME = 1\nSLAVE_LAST_RUN_TIME = 2\n");
		fixedclock::stopAt(kNow, "UTC0");
	}
	void TearDown() override
	{
		fixedclock::go();
		ReceiverTest::TearDown();
	}

	void useLocation(const std::string& name)
	{
		location = name;
		receiver = std::make_unique<CHeartReciver>(&handles, &running, &mode, location);
	}

	static std::string record() { return sandbox::readFile(velarix::kRunInfoPath); }
};

TEST_F(ReceiverStart, AStartRunsTheProgramsAndRecordsTheTime)
{
	EXPECT_TRUE(receiver->startProcess());
	EXPECT_TRUE(running);
	EXPECT_THAT(events::all(),
	            ElementsAreArray(join({"log D CHeartReciver:601 try to process run", runPrograms(), kRecorded})));
	EXPECT_EQ(record(), "[TRACE]\nLAST_RUN_TIME = 20240131235959\nMASTER_LAST_RUN_TIME = 1\n"
	                    "SLAVE_LAST_RUN_TIME = 2\n");
	EXPECT_EQ(mode, MODE_SLAVE);
}

TEST_F(ReceiverStart, TheFlagIsSetOnlyAfterTheProgramsHaveBeenStarted)
{
	std::vector<bool> flags;
	fakeoutside::onAction([&](const std::string&) { flags.push_back(velarix::loadShared(running)); });
	receiver->startProcess();
	EXPECT_THAT(flags, ElementsAre(false, false, false, false));
}

TEST_F(ReceiverStart, TheFlagIsSetBeforeTheTimeIsRecorded)
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
	receiver->startProcess();
	EXPECT_THAT(flags, ElementsAre(true));
}

TEST_F(ReceiverStart, AnExceptionWhileRecordingIsLoggedAndTheStartCounts)
{
	onLogLine(
	    [thrown = false](const std::string& event) mutable
	    {
		    if (event.rfind("log D CHeartReciver:627", 0) == 0 && !std::exchange(thrown, true))
		    {
			    throw Poco::WriteFileException("velarix.log");
		    }
	    });
	EXPECT_TRUE(receiver->startProcess());
	EXPECT_TRUE(running);
	EXPECT_EQ(events::all().back(), "log E CHeartReciver:631 Cannot write file: velarix.log");
}

TEST_F(ReceiverStart, TheLocksAreFreeAfterAStartAndAfterAFailedRecord)
{
	for (int i = 0; i < 2; ++i)
	{
		onLogLine(
		    [i](const std::string& event)
		    {
			    if (i == 0 && event.rfind("log D CHeartReciver:627", 0) == 0)
			    {
				    throw Poco::WriteFileException("velarix.log");
			    }
		    });
		running = false;
		std::atomic<bool> done = false;
		std::thread thread(
		    [&]
		    {
			    receiver->failOver();
			    done = true;
		    });
		ASSERT_TRUE(waitFor([&] { return done.load(); }, std::chrono::seconds(10), "start on another thread"));
		thread.join();
	}
}

TEST_F(ReceiverStart, AFailOverMakesTheNodeMasterAndStartsThePrograms)
{
	receiver->failOver();
	EXPECT_THAT(events::all(), ElementsAreArray(join({"log D CHeartReciver:601 try to process run", runPrograms(),
	                                                  kRecorded, "log E CHeartReciver:598 SLAVE->MASTER[noName]"})));
	EXPECT_EQ(mode, MODE_MASTER);
	EXPECT_TRUE(running);
}

TEST_F(ReceiverStart, AFailOverNamesTheLabel)
{
	useLocation("master");
	receiver->failOver();
	EXPECT_EQ(events::all().back(), "log E CHeartReciver:598 SLAVE->MASTER[master]");
}

TEST_F(ReceiverStart, TheRoleIsMasterBeforeAFailOverStartsThePrograms)
{
	std::vector<MODE> roles;
	fakeoutside::onAction([&](const std::string&) { roles.push_back(velarix::loadShared(mode)); });
	receiver->failOver();
	EXPECT_THAT(roles, ElementsAre(MODE_MASTER, MODE_MASTER, MODE_MASTER, MODE_MASTER));
}

TEST_F(ReceiverStart, TheTimeIsFourteenDigitsOfTheLocalTime)
{
	EXPECT_EQ(receiver->getCurrentTime(), "20240131235959");
	fixedclock::stopAt(kNow, "XYZ-02");
	EXPECT_EQ(receiver->getCurrentTime(), "20240201015959");
}

struct StartTimes
{
	const char* name;
	const char* partner;
	const char* own;
	bool ownWasFirst;
};

// clang-format off
const StartTimes kStartTimes[] = {
	{"partner_started_a_second_later",   "20240131235959", "20240131235958", true},
	{"partner_started_a_second_earlier", "20240131235958", "20240131235959", false},
	{"both_in_the_same_second",          "20240131235959", "20240131235959", false},
	{"partner_started_in_a_later_year",  "20250101000000", "20241231235959", true},
	{"partner_has_no_time",              "",               "20240131235959", false},
	{"node_has_no_time",                 "20240131235959", "",               true},
	{"neither_has_a_time",               "",               "",               false},
	{"partners_time_is_garbage",         "garbage",        "20240131235959", false},
	{"blank_before_the_partners_time",   " 20240131235959", "20240131235958", true},
};
// clang-format on

TEST_F(ReceiverStart, WhoeverRecordedTheEarlierTimeStartedFirst)
{
	for (const StartTimes& row : kStartTimes)
	{
		SCOPED_TRACE(row.name);
		sandbox::writeFile(velarix::kRunInfoPath, std::string("[TRACE]\nLAST_RUN_TIME = ") + row.own +
		                                              "\nMASTER_LAST_RUN_TIME = 1\nSLAVE_LAST_RUN_TIME = 2\n");
		std::string partner = row.partner;
		EXPECT_EQ(receiver->isStartedProcessFaster(partner), row.ownWasFirst);
		EXPECT_EQ(partner, row.partner);
	}
	EXPECT_THAT(events::all(), ElementsAre());
}

TEST_F(ReceiverStart, AHeartbeatAsOldAsTheIgnoreTimeStillCounts)
{
	struct Row
	{
		int age;
		bool keepingUp;
	};
	for (const Row row : {Row{0, true}, Row{9, true}, Row{10, true}, Row{11, false}, Row{3600, false}, Row{-5, true}})
	{
		SCOPED_TRACE(row.age);
		WorkerAccess::lastReceivedTime(*receiver) = kNow - row.age;
		events::clear();
		EXPECT_EQ(receiver->isKeepingUpMessage(), row.keepingUp);
		EXPECT_THAT(events::all(), ElementsAre("sleep 500"));
	}
}

TEST_F(ReceiverStart, TheAgeIsTakenAfterThePause)
{
	WorkerAccess::lastReceivedTime(*receiver) = kNow - 10;
	events::onSleep([](long) { fixedclock::stopAt(kNow + 1, "UTC0"); });
	EXPECT_FALSE(receiver->isKeepingUpMessage());
}

TEST_F(ReceiverStart, TheIgnoreTimeIsReadAtConstruction)
{
	EXPECT_EQ(WorkerAccess::ignoreTime(*receiver), 10);
	settings.set("AGENT.IGNORE_TIME", "25");
	apply();
	EXPECT_EQ(WorkerAccess::ignoreTime(*receiver), 10);
	useLocation("noName");
	EXPECT_EQ(WorkerAccess::ignoreTime(*receiver), 25);
	settings.set("AGENT.IGNORE_TIME", "-1");
	apply();
	receiver->init();
	EXPECT_EQ(WorkerAccess::ignoreTime(*receiver), -1);
	WorkerAccess::lastReceivedTime(*receiver) = kNow;
	EXPECT_FALSE(receiver->isKeepingUpMessage());
}

TEST_F(ReceiverStart, ANewReceiverHasOneReferenceAndWaitsForNoConnection)
{
	EXPECT_EQ(WorkerAccess::refCount(*receiver), 1);
	EXPECT_EQ(WorkerAccess::lastReceivedTime(*receiver), 0);
	EXPECT_TRUE(WorkerAccess::connectionDone(*receiver));
	EXPECT_THAT(events::all(), ElementsAre());
}

TEST_F(ReceiverStart, SettingTheRoleWritesTheSharedValue)
{
	for (const MODE role : {MODE_MASTER, MODE_SLAVE, MODE_UNSET, 7})
	{
		receiver->setMode(role);
		EXPECT_EQ(mode, role);
	}
	EXPECT_THAT(events::all(), ElementsAre());
}

TEST_F(ReceiverStart, TheLastReferenceDeletesTheReceiverAndNothingOfTheAgent)
{
	struct Watched : CHeartReciver
	{
		Watched(std::vector<Poco::ProcessHandle*>** ppHandles, bool* pRunning, MODE* pMode, std::string& label,
		        bool& gone)
		    : CHeartReciver(ppHandles, pRunning, pMode, label), m_gone(gone)
		{
		}
		~Watched() override { m_gone = true; }
		bool& m_gone;
	};
	bool gone = false;
	CHeartReciver* pReceiver = new Watched(&handles, &running, &mode, location, gone);
	EXPECT_EQ(pReceiver->duplicate(), pReceiver);
	EXPECT_EQ(WorkerAccess::refCount(*pReceiver), 2);
	pReceiver->release();
	EXPECT_EQ(WorkerAccess::refCount(*pReceiver), 1);
	EXPECT_FALSE(gone);
	pReceiver->release();
	EXPECT_TRUE(gone);
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(location, "noName");
}

} // namespace
