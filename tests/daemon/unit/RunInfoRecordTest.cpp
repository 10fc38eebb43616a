#include "FixedClock.h"
#include "OwnProcess.h"
#include "PlainUser.h"
#include "WaitingThread.h"
#include "WorkerTest.h"

namespace
{

constexpr char kAgentLine[] = "log D CAgent:179 run time wrote:TRACE.LAST_RUN_TIME(20231114221320)[noName]";
constexpr char kReciverLine[] =
    "log D CHeartReciver:627 run info file changed:TRACE.LAST_RUN_TIME(20231114221320)[noName]";
constexpr char kSenderLine[] =
    "log D CHeartSender:249 run info file changed:TRACE.LAST_RUN_TIME(20231114221320)[noName]";

class RunInfoRecord : public WorkerTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		fixedclock::stopAt(1700000000, "UTC0");
	}

	/// As main makes it; the events of its construction are forgotten.
	std::unique_ptr<CAgent> agent()
	{
		auto result = std::make_unique<CAgent>(MODE_SLAVE);
		events::clear();
		return result;
	}
	static void writeRecord(const std::string& content) { sandbox::writeFile(velarix::kRunInfoPath, content); }
	static std::string record() { return sandbox::readFile(velarix::kRunInfoPath); }
};

TEST_F(RunInfoRecord, AKeyThatIsNotThereIsNotAddedAndTheWriteIsReportedAsDone)
{
	writeRecord("[TRACE]\nLAST_RUN_TIME=1\n");
	make<CHeartReciver>("slave")->saveStartedTime();
	EXPECT_EQ(record(), "[TRACE]\nLAST_RUN_TIME=1\n");
	EXPECT_THAT(
	    events::all(),
	    ElementsAre("log D CHeartReciver:627 run info file changed:TRACE.SLAVE_LAST_RUN_TIME(20231114221320)[slave]"));
}

// The default record's times of the roles would give the other answer.
TEST_F(RunInfoRecord, TheComparisonTakesTheGeneralKeyWhateverTheLabel)
{
	std::string partnerTime = "20240115000000";
	EXPECT_FALSE(make<CHeartReciver>("master")->isStartedProcessFaster(partnerTime));
	EXPECT_FALSE(make<CHeartReciver>("slave")->isStartedProcessFaster(partnerTime));
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(RunInfoRecord, AComparisonWithoutTheKeyLeavesTheExceptionToTheCallerAndTheLockFree)
{
	writeRecord("[TRACE]\n");
	inOwnProcess(
	    [this]
	    {
		    std::string partnerTime = "20240131235958";
		    auto pReciver = make<CHeartReciver>();
		    EXPECT_THROW(pReciver->isStartedProcessFaster(partnerTime), Poco::NotFoundException);
		    writeRecord(kRunInfo);
		    const WaitingThread other([&] { pReciver->isStartedProcessFaster(partnerTime); });
		    EXPECT_TRUE(other.returns());
	    });
}

TEST_IN_OWN_PROCESS(RunInfoRecord, AWriterIsNotReportedThatTheEditorFailed)
{
	const auto pAgent = agent();
	ASSERT_EQ(::chmod(velarix::kRunInfoPath, 0444), 0);
	const PlainUser plainUser;
	testing::internal::CaptureStdout();
	pAgent->saveStartedTime();
	make<CHeartReciver>()->saveStartedTime();
	make<CHeartSender>()->saveStartedTime();
	const std::string printed = testing::internal::GetCapturedStdout();
	EXPECT_THAT(printed, StartsWith("ini File fopen fail.\n**DEBUG**(CAgent:179)run time wrote:"));
	EXPECT_THAT(events::all(), ElementsAre(kAgentLine, kReciverLine, kSenderLine));
	EXPECT_EQ(record(), kRunInfo);
}

} // namespace
