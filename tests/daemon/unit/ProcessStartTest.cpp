// How the receiver and the sender start the programs and record the time, and their
// smaller operations that are no part of their loops. What both promise is reported once.

#include <atomic>

#include "FixedClock.h"
#include "ReceiverTest.h"

using steps::join;
using steps::runPrograms;

namespace
{

constexpr std::time_t kNow = 1706745599; // 2024-01-31 23:59:59
constexpr char kScript[] = "system /usr/velarix/bin/ini/processList.sh";
constexpr char kEmptyRecord[] = "[TRACE]\nLAST_RUN_TIME = \nMASTER_LAST_RUN_TIME = 1\nSLAVE_LAST_RUN_TIME = 2\n";
constexpr char kRecord[] =
    "[TRACE]\nLAST_RUN_TIME = 20240131235959\nMASTER_LAST_RUN_TIME = 1\nSLAVE_LAST_RUN_TIME = 2\n";

/// What the two workers' lines are called.
template <typename Worker> struct Lines;
template <> struct Lines<CHeartReciver>
{
	static constexpr char kTry[] = "log D CHeartReciver:601 try to process run";
	static constexpr char kRecorded[] =
	    "log D CHeartReciver:627 run info file changed:TRACE.LAST_RUN_TIME(20240131235959)[noName]";
	static constexpr char kRefused[] = "log E CHeartReciver:631 Cannot write file: velarix.log";
};
template <> struct Lines<CHeartSender>
{
	static constexpr char kTry[] = "log D CHeartSender:194 try to process run";
	static constexpr char kRecorded[] =
	    "log D CHeartSender:249 run info file changed:TRACE.LAST_RUN_TIME(20240131235959)[noName]";
	static constexpr char kRefused[] = "log E CHeartSender:253 Cannot write file: velarix.log";
};

template <typename Worker> class ProcessStart : public ReceiverTest
{
protected:
	void SetUp() override
	{
		ReceiverTest::SetUp();
		sandbox::writeFile(velarix::kRunInfoPath, kEmptyRecord);
		fixedclock::stopAt(kNow, "UTC0");
		makeWorker("noName");
	}
	void TearDown() override
	{
		worker.reset();
		ReceiverTest::TearDown();
	}

	void makeWorker(const std::string& label)
	{
		location = label;
		worker = std::make_unique<Worker>(&handles, &running, &mode, location);
	}

	/// The line about the recorded time cannot be written, as on a full disk.
	static void refuseTheRecord()
	{
		onLogLine(
		    [](const std::string& event)
		    {
			    if (event == Lines<Worker>::kRecorded)
			    {
				    throw Poco::WriteFileException("velarix.log");
			    }
		    });
	}

	/// Starts the programs on another thread: a lock left behind makes it hang.
	void expectStartElsewhere()
	{
		onLogLine(nullptr);
		fakeoutside::onAction({});
		running = false;
		std::atomic<bool> done = false;
		std::thread thread([&] { done = worker->startProcess(); });
		EXPECT_TRUE(waitFor([&] { return done.load(); }, std::chrono::seconds(10), "start on another thread"));
		thread.join();
	}

	static std::string record() { return sandbox::readFile(velarix::kRunInfoPath); }

	std::unique_ptr<Worker> worker;
};

using Workers = testing::Types<CHeartReciver, CHeartSender>;
TYPED_TEST_SUITE(ProcessStart, Workers, );

TYPED_TEST(ProcessStart, RunsTheProgramsAndRecordsTheTime)
{
	using Line = Lines<TypeParam>;
	EXPECT_TRUE(this->worker->startProcess());
	EXPECT_TRUE(this->running);
	EXPECT_EQ(this->mode, MODE_SLAVE);
	EXPECT_THAT(events::all(), ElementsAreArray(join({Line::kTry, runPrograms(), Line::kRecorded})));
	EXPECT_EQ(this->record(), kRecord);
}

TYPED_TEST(ProcessStart, SetsTheFlagAfterTheScriptAndBeforeTheRecord)
{
	std::vector<bool> flags;
	const auto note = [&](const std::string& event)
	{
		if (event == kScript || event == Lines<TypeParam>::kRecorded)
		{
			flags.push_back(velarix::loadShared(this->running));
		}
	};
	fakeoutside::onAction(note);
	onLogLine(note);
	this->worker->startProcess();
	EXPECT_THAT(flags, ElementsAre(false, true));
}

TYPED_TEST(ProcessStart, CountsAlsoWhenTheTimeCannotBeRecorded)
{
	this->refuseTheRecord();
	EXPECT_TRUE(this->worker->startProcess());
	EXPECT_TRUE(this->running);
	EXPECT_EQ(events::all().back(), Lines<TypeParam>::kRefused);
	this->expectStartElsewhere();
	this->expectStartElsewhere();
}

TYPED_TEST(ProcessStart, TheLastReferenceDeletesTheWorkerAndNothingOfTheAgent)
{
	struct Watched : TypeParam
	{
		Watched(std::vector<Poco::ProcessHandle*>** ppHandles, bool* pRunning, MODE* pMode, std::string& label,
		        bool& gone)
		    : TypeParam(ppHandles, pRunning, pMode, label), m_gone(gone)
		{
		}
		~Watched() override { m_gone = true; }
		bool& m_gone;
	};
	bool gone = false;
	TypeParam* pWorker = new Watched(&this->handles, &this->running, &this->mode, this->location, gone);
	EXPECT_EQ(WorkerAccess::refCount(*pWorker), 1);
	EXPECT_EQ(pWorker->duplicate(), pWorker);
	EXPECT_EQ(WorkerAccess::refCount(*pWorker), 2);
	pWorker->release();
	EXPECT_FALSE(gone);
	pWorker->release();
	EXPECT_TRUE(gone);
	EXPECT_EQ(this->mode, MODE_SLAVE);
	EXPECT_EQ(this->location, "noName");
	EXPECT_THAT(events::all(), ElementsAre());
}

using ReceiverStart = ProcessStart<CHeartReciver>;

TEST_F(ReceiverStart, AFailOverMakesTheNodeMasterAndStartsThePrograms)
{
	makeWorker("master");
	worker->failOver();
	EXPECT_EQ(events::all().back(), "log E CHeartReciver:598 SLAVE->MASTER[master]");
	EXPECT_EQ(events::only({"system"}).size(), 2U);
	EXPECT_EQ(mode, MODE_MASTER);
	EXPECT_TRUE(running);
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
	{"partner_started_a_second_later",   "20240131235959",  "20240131235958", true},
	{"partner_started_a_second_earlier", "20240131235958",  "20240131235959", false},
	{"both_in_the_same_second",          "20240131235959",  "20240131235959", false},
	{"partner_started_in_a_later_year",  "20250101000000",  "20241231235959", true},
	{"partner_has_no_time",              "",                "20240131235959", false},
	{"node_has_no_time",                 "20240131235959",  "",               true},
	{"neither_has_a_time",               "",                "",               false},
	{"partners_time_is_garbage",         "garbage",         "20240131235959", false},
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
		EXPECT_EQ(worker->isStartedProcessFaster(partner), row.ownWasFirst);
		EXPECT_EQ(partner, row.partner);
	}
	EXPECT_THAT(events::all(), ElementsAre());
}

TEST_F(ReceiverStart, AHeartbeatAsOldAsTheIgnoreTimeStillCounts)
{
	for (const auto& [age, keepingUp] :
	     std::map<int, bool>{{0, true}, {9, true}, {10, true}, {11, false}, {3600, false}, {-5, true}})
	{
		SCOPED_TRACE(age);
		WorkerAccess::lastReceivedTime(*worker) = kNow - age;
		events::clear();
		EXPECT_EQ(worker->isKeepingUpMessage(), keepingUp);
		EXPECT_THAT(events::all(), ElementsAre("sleep 500"));
	}
	// The age is taken after the pause.
	WorkerAccess::lastReceivedTime(*worker) = kNow - 10;
	events::onSleep([](long) { fixedclock::stopAt(kNow + 1, "UTC0"); });
	EXPECT_FALSE(worker->isKeepingUpMessage());
}

TEST_F(ReceiverStart, TheIgnoreTimeIsReadAtConstructionAndByInit)
{
	EXPECT_EQ(WorkerAccess::ignoreTime(*worker), 10);
	settings.set("AGENT.IGNORE_TIME", "-1");
	apply();
	EXPECT_EQ(WorkerAccess::ignoreTime(*worker), 10);
	worker->init();
	EXPECT_EQ(WorkerAccess::ignoreTime(*worker), -1);
	WorkerAccess::lastReceivedTime(*worker) = kNow;
	EXPECT_FALSE(worker->isKeepingUpMessage());
}

TEST_F(ReceiverStart, ANewReceiverWaitsForNoConnectionAndTakesEveryRole)
{
	EXPECT_EQ(WorkerAccess::lastReceivedTime(*worker), 0);
	EXPECT_TRUE(WorkerAccess::connectionDone(*worker));
	for (const MODE role : {MODE_MASTER, MODE_SLAVE, MODE_UNSET, 7})
	{
		worker->setMode(role);
		EXPECT_EQ(mode, role);
	}
	EXPECT_THAT(events::all(), ElementsAre());
}

class SenderStart : public ProcessStart<CHeartSender>
{
protected:
	/// A start whose script throws.
	void expectFailedStart(const std::function<void()>& thrower, const std::string& line)
	{
		events::clear();
		fakeoutside::onAction([thrower](const std::string& event) { event == kScript ? thrower() : void(); });
		EXPECT_FALSE(worker->startProcess());
		events::List expected = join({Lines<CHeartSender>::kTry, runPrograms()});
		expected.back() = line;
		EXPECT_THAT(events::all(), ElementsAreArray(expected));
		EXPECT_FALSE(running);
		EXPECT_EQ(record(), kEmptyRecord);
	}
};

TEST_F(SenderStart, RunningProgramsAreNotStartedAgainAndTheDaemonGoesOn)
{
	running = true;
	EXPECT_FALSE(worker->startProcess());
	EXPECT_THAT(events::all(), ElementsAre("log E CHeartSender:205 tried to start process. but it's already running"));
	EXPECT_TRUE(running);
	expectStartElsewhere();
}

TEST_F(SenderStart, AFailedStartIsLoggedByItsKindAndLeavesTheLocksFree)
{
	expectFailedStart([] { throw Poco::NotFoundException("script"); },
	                  "log E CHeartSender:210 Not found: script: NotFoundException");
	expectFailedStart([] { throw Poco::NoPermissionException("script"); },
	                  "log E CHeartSender:214 No permission: script: NoPermissionException");
	expectFailedStart([] { throw Poco::SystemException("fork", 12); },
	                  "log E CHeartSender:218 System exception: fork: SystemException");
	expectFailedStart([] { throw Poco::TimeoutException("script"); }, "log E CHeartSender:222 Timeout: script");
	expectFailedStart([] { throw std::runtime_error("not of the library"); }, "log E CHeartSender:226 UNKNOWN ERROR");
	expectStartElsewhere();
}

TEST_F(SenderStart, ASecondStartOfTheSenderIsExcludedAndAStartOfTheReceiverIsNot)
{
	// Each source file has locks of its own.
	bool otherFlag = false;
	CHeartReciver other(&handles, &otherFlag, &mode, location);
	std::atomic<bool> ownDone = false;
	std::atomic<bool> otherDone = false;
	std::thread ownThread;
	std::thread otherThread;
	fakeoutside::onAction(
	    [&](const std::string& event)
	    {
		    if (event != kScript)
		    {
			    return;
		    }
		    fakeoutside::onAction({});
		    ownThread = std::thread([&] { ownDone = !worker->startProcess(); });
		    // Long enough for a start that is not excluded to be done.
		    EXPECT_FALSE(waitFor([&] { return ownDone.load(); }, std::chrono::milliseconds(100), "second start"));
		    otherThread = std::thread([&] { otherDone = other.startProcess(); });
		    EXPECT_TRUE(waitFor([&] { return otherDone.load(); }, std::chrono::seconds(10), "the receiver's start"));
	    });
	EXPECT_TRUE(worker->startProcess());
	ownThread.join();
	otherThread.join();
	EXPECT_TRUE(ownDone);
	EXPECT_TRUE(otherFlag);
	EXPECT_EQ(events::all().back(), "log E CHeartSender:205 tried to start process. but it's already running");
}

TEST_F(SenderStart, OneReplyOfFivePingsIsEnough)
{
	WorkerAccess::partnerIP(*worker) = "10.0.0.2";
	for (const auto& [replies, isOK] : std::map<int, bool>{{0, false}, {1, true}, {5, true}, {-1, false}})
	{
		SCOPED_TRACE(replies);
		events::clear();
		fakeoutside::pingGives("10.0.0.2", replies);
		EXPECT_EQ(worker->isPartnerNetworkOK(), isOK);
		EXPECT_THAT(events::all(), ElementsAre("ping 10.0.0.2 x5"));
	}
}

TEST_F(SenderStart, ANewSenderKnowsNoPartnerAndAnErrorOfItsPingIsNotOK)
{
	EXPECT_EQ(WorkerAccess::port(*worker), 0);
	EXPECT_EQ(WorkerAccess::partnerIP(*worker), "");
	EXPECT_EQ(worker->getDBMode(), 1);
	fakeoutside::pingThrows("", [] { throw Poco::SystemException("raw socket", 1); });
	EXPECT_FALSE(worker->isPartnerNetworkOK());
	EXPECT_THAT(events::all(), ElementsAre("ping  x5", "log E CHeartSender:150 System exception: raw socket[CODE:1]"));
}

} // namespace
