// How the receiver and the sender start the programs and record the time, and their
// smaller operations that are no part of their loops.

#include "Workers.h"

using events::join;

namespace
{

constexpr std::time_t kNow = 1706745599; // 2024-01-31 23:59:59
constexpr char kEmptyRecord[] = "[TRACE]\nLAST_RUN_TIME = \nMASTER_LAST_RUN_TIME = 1\nSLAVE_LAST_RUN_TIME = 2\n";
constexpr char kRecord[] =
    "[TRACE]\nLAST_RUN_TIME = 20240131235959\nMASTER_LAST_RUN_TIME = 1\nSLAVE_LAST_RUN_TIME = 2\n";

class ReceiverStart : public ReceiverTest
{
protected:
	ReceiverStart()
	{
		sandbox::writeFile(velarix::kRunInfoPath, kEmptyRecord);
		events::stopClock(kNow);
		sender = make<CHeartSender>();
	}

	/// Starts the programs on another thread: a lock left behind makes it hang.
	void expectStartElsewhere(const std::function<bool()>& start)
	{
		running = false;
		std::atomic<bool> done = false;
		std::thread thread([&] { done = start(); });
		EXPECT_TRUE(waitFor([&] { return done.load(); }, std::chrono::seconds(10), "start on another thread"));
		thread.join();
	}

	static std::string record() { return sandbox::readFile(velarix::kRunInfoPath); }

	Poco::AutoPtr<CHeartSender> sender;
};

/// What both workers promise, and their lines.
struct Starter
{
	const char* name;
	const char* tries;
	const char* records;
	const char* cannotRecord;
};

const Starter kStarters[] = {
    {"Receiver", "log D CHeartReciver:601 try to process run",
     "log D CHeartReciver:627 run info file changed:TRACE.LAST_RUN_TIME(20240131235959)[noName]",
     "log E CHeartReciver:631 Cannot write file: velarix.log"},
    {"Sender", "log D CHeartSender:194 try to process run",
     "log D CHeartSender:249 run info file changed:TRACE.LAST_RUN_TIME(20240131235959)[noName]",
     "log E CHeartSender:253 Cannot write file: velarix.log"},
};

class ProcessStart : public ReceiverStart, public testing::WithParamInterface<Starter>
{
protected:
	bool start()
	{
		return std::string(GetParam().name) == "Sender" ? sender->startProcess() : receiver->startProcess();
	}
};

INSTANTIATE_TEST_SUITE_P(Of, ProcessStart, testing::ValuesIn(kStarters), rowName<Starter>);

TEST_P(ProcessStart, RunsTheProgramsThenSetsTheFlagThenRecordsTheTime)
{
	events::at(kScript, [this] { EXPECT_FALSE(velarix::loadShared(running)); });
	events::at(GetParam().records, [this] { EXPECT_TRUE(velarix::loadShared(running)); });
	EXPECT_TRUE(start());
	EXPECT_TRUE(running);
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(events::all(), join({{GetParam().tries}, steps::kRunPrograms, {GetParam().records}}));
	EXPECT_EQ(record(), kRecord);
}

TEST_P(ProcessStart, CountsAlsoWhenTheTimeCannotBeRecorded)
{
	events::atNth(1, GetParam().records, events::throws(Poco::WriteFileException("velarix.log")));
	EXPECT_TRUE(start());
	EXPECT_TRUE(running);
	EXPECT_EQ(events::all().back(), GetParam().cannotRecord);
	expectStartElsewhere([this] { return start(); });
}

TEST_F(ReceiverStart, AFailOverMakesTheNodeMasterAndStartsThePrograms)
{
	receiver = make<CHeartReciver>("master");
	receiver->failOver();
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
		// The times of the roles would give the other answer, whatever the label.
		sandbox::writeFile(velarix::kRunInfoPath, std::string("[TRACE]\nLAST_RUN_TIME = ") + row.own +
		                                              "\nMASTER_LAST_RUN_TIME = 1\nSLAVE_LAST_RUN_TIME = 1\n");
		for (const char* label : {"noName", "master", "slave"})
		{
			std::string partner = row.partner;
			EXPECT_EQ(make<CHeartReciver>(label)->isStartedProcessFaster(partner), row.ownWasFirst) << label;
			EXPECT_EQ(partner, row.partner);
		}
	}
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(ReceiverStart, AHeartbeatAsOldAsTheIgnoreTimeStillCounts)
{
	for (const auto& [age, keepingUp] :
	     std::map<int, bool>{{0, true}, {9, true}, {10, true}, {11, false}, {3600, false}, {-5, true}})
	{
		SCOPED_TRACE(age);
		WorkerAccess::lastReceivedTime(*receiver) = kNow - age;
		events::clear();
		EXPECT_EQ(receiver->isKeepingUpMessage(), keepingUp);
		EXPECT_THAT(events::all(), ElementsAre("sleep 500"));
	}
	// The age is taken after the pause.
	WorkerAccess::lastReceivedTime(*receiver) = kNow - 10;
	events::at("sleep ", [] { events::stopClock(kNow + 1); });
	EXPECT_FALSE(receiver->isKeepingUpMessage());
}

TEST_F(ReceiverStart, TheIgnoreTimeIsReadAtConstructionAndByInit)
{
	EXPECT_EQ(WorkerAccess::ignoreTime(*receiver), 10);
	settings.set("AGENT.IGNORE_TIME", "-1");
	EXPECT_EQ(WorkerAccess::ignoreTime(*receiver), 10);
	receiver->init();
	WorkerAccess::lastReceivedTime(*receiver) = kNow;
	EXPECT_FALSE(receiver->isKeepingUpMessage());
}

TEST_F(ReceiverStart, ANewReceiverWaitsForNoConnectionAndTakesEveryRole)
{
	EXPECT_EQ(WorkerAccess::lastReceivedTime(*receiver), 0);
	EXPECT_TRUE(WorkerAccess::connectionDone(*receiver));
	for (const MODE role : {MODE_MASTER, MODE_SLAVE, MODE_UNSET, 7})
	{
		receiver->setMode(role);
		EXPECT_EQ(mode, role);
	}
	EXPECT_THAT(events::all(), IsEmpty());
}

using SenderStart = ReceiverStart;

TEST_F(SenderStart, RunningProgramsAreNotStartedAgainAndTheDaemonGoesOn)
{
	running = true;
	EXPECT_FALSE(sender->startProcess());
	EXPECT_THAT(events::all(), ElementsAre("log E CHeartSender:205 tried to start process. but it's already running"));
	EXPECT_TRUE(running);
	expectStartElsewhere([this] { return sender->startProcess(); });
}

TEST_F(SenderStart, AFailedStartIsLoggedByItsKindAndLeavesTheLocksFree)
{
	int line = 206;
	for (const auto& [failure, text] : steps::kScriptFailures)
	{
		line += 4;
		events::clear();
		events::at(kScript, failure);
		EXPECT_FALSE(sender->startProcess());
		EXPECT_EQ(events::all(), join({{kStarters[1].tries},
		                               steps::kTryPrograms,
		                               steps::kFindAddress,
		                               steps::kScriptRuns,
		                               {"log E CHeartSender:" + std::to_string(line) + " " + text}}));
		EXPECT_FALSE(running);
		EXPECT_EQ(record(), kEmptyRecord);
	}
	events::at(kScript, nullptr);
	expectStartElsewhere([this] { return sender->startProcess(); });
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
	events::atNth(
	    1, kScript,
	    [&]
	    {
		    ownThread = std::thread([&] { ownDone = !sender->startProcess(); });
		    // Long enough for a start that is not excluded to be done.
		    EXPECT_FALSE(waitFor([&] { return ownDone.load(); }, std::chrono::milliseconds(100), "second start"));
		    otherThread = std::thread([&] { otherDone = other.startProcess(); });
		    EXPECT_TRUE(waitFor([&] { return otherDone.load(); }, std::chrono::seconds(10), "the receiver's start"));
	    });
	EXPECT_TRUE(sender->startProcess());
	ownThread.join();
	otherThread.join();
	EXPECT_TRUE(ownDone);
	EXPECT_TRUE(otherFlag);
	EXPECT_EQ(events::all().back(), "log E CHeartSender:205 tried to start process. but it's already running");
}

TEST_F(SenderStart, OneReplyOfFivePingsOfThePartnerIsEnoughAndAnErrorIsNone)
{
	EXPECT_EQ(WorkerAccess::partnerIP(*sender), "");
	EXPECT_EQ(WorkerAccess::port(*sender), 0);
	EXPECT_EQ(sender->getDBMode(), 1);
	WorkerAccess::partnerIP(*sender) = "10.0.0.2";
	for (const auto& [replies, isOK] : std::map<int, bool>{{0, false}, {1, true}, {5, true}, {-1, false}})
	{
		SCOPED_TRACE(replies);
		fakeoutside::pingGives("10.0.0.2", {replies});
		EXPECT_EQ(sender->isPartnerNetworkOK(), isOK);
	}
	events::clear();
	events::at("ping ", events::throws(Poco::SystemException("raw socket", 1)));
	EXPECT_FALSE(sender->isPartnerNetworkOK());
	EXPECT_THAT(events::all(),
	            ElementsAre("ping 10.0.0.2 x5", "log E CHeartSender:150 System exception: raw socket[CODE:1]"));
}

} // namespace
