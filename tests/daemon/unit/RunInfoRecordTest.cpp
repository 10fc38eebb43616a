#include <sys/stat.h>

#include <stdexcept>

#include <Poco/AutoPtr.h>
#include <Poco/Exception.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/StreamSocket.h>

#include "CAgent.h"
#include "CHeartReciver.h"
#include "CHeartSender.h"
#include "Daemon.h"
#include "FakeOutside.h"
#include "FixedClock.h"
#include "OwnProcess.h"
#include "PlainUser.h"
#include "Sandbox.h"
#include "ThreadStarts.h"
#include "WaitingThread.h"
#include "WorkerAccess.h"
#include "velarix/paths.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace
{

constexpr char kAfterAWrite[] = "[TRACE]\nLAST_RUN_TIME = 20231114221320\nMASTER_LAST_RUN_TIME = 20240101000000\n"
                                "SLAVE_LAST_RUN_TIME = 20240102000000\n";
constexpr char kAgentLine[] = "log D CAgent:179 run time wrote:TRACE.LAST_RUN_TIME(20231114221320)[noName]";
constexpr char kReciverLine[] =
    "log D CHeartReciver:627 run info file changed:TRACE.LAST_RUN_TIME(20231114221320)[noName]";
constexpr char kSenderLine[] =
    "log D CHeartSender:249 run info file changed:TRACE.LAST_RUN_TIME(20231114221320)[noName]";

class RunInfoRecord : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		fakeoutside::reset();
		threadstarts::reset();
		fixedclock::stopAt(1700000000, "UTC0");
	}
	void TearDown() override
	{
		fixedclock::go();
		threadstarts::reset();
		DaemonTest::TearDown();
	}

	/// As main makes it; the events of its construction are forgotten.
	std::unique_ptr<CAgent> agent()
	{
		auto result = std::make_unique<CAgent>(MODE_SLAVE);
		events::clear();
		return result;
	}
	Poco::AutoPtr<CHeartSender> sender(const std::string& label = "noName")
	{
		m_location = label;
		return new CHeartSender(&m_pHandles, &m_running, &m_mode, m_location);
	}
	Poco::AutoPtr<CHeartReciver> reciver(const std::string& label = "noName")
	{
		m_location = label;
		return new CHeartReciver(&m_pHandles, &m_running, &m_mode, m_location);
	}

	/// Sends one heartbeat to a listener of this test.
	/// @return its text
	std::string oneHeartbeat()
	{
		Poco::Net::ServerSocket listener(Poco::Net::SocketAddress("127.0.0.1", 0));
		settings.set("AGENT.PARTNER_IP", "127.0.0.1");
		settings.set("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT", std::to_string(listener.address().port()));
		apply();
		events::endAtSleep(1);
		EXPECT_THROW(sender()->run(), events::EndOfScript);
		Poco::Net::StreamSocket connection = listener.acceptConnection();
		char text[256];
		const int length = connection.receiveBytes(text, sizeof text);
		return std::string(text, static_cast<std::size_t>(length));
	}

	static void writeRecord(const std::string& content) { sandbox::writeFile(velarix::kRunInfoPath, content); }
	static std::string record() { return sandbox::readFile(velarix::kRunInfoPath); }

private:
	std::vector<Poco::ProcessHandle*>* m_pHandles = nullptr;
	bool m_running = false;
	MODE m_mode = MODE_SLAVE;
	std::string m_location;
};

TEST_F(RunInfoRecord, TheNextHeartbeatCarriesTheTimeOfTheStart)
{
	agent()->saveStartedTime();
	fixedclock::stopAt(1800000000, "UTC0");
	EXPECT_EQ(oneHeartbeat(), "/process/0/2/20231114221320/0/");
}

TEST_F(RunInfoRecord, AKeyThatIsNotThereIsNotAddedAndTheWriteIsReportedAsDone)
{
	writeRecord("[TRACE]\nLAST_RUN_TIME=1\n");
	reciver("slave")->saveStartedTime();
	EXPECT_EQ(record(), "[TRACE]\nLAST_RUN_TIME=1\n");
	EXPECT_THAT(
	    events::all(),
	    ElementsAre("log D CHeartReciver:627 run info file changed:TRACE.SLAVE_LAST_RUN_TIME(20231114221320)[slave]"));
}

// The default record's times of the roles would give the other answer.
TEST_F(RunInfoRecord, TheComparisonTakesTheGeneralKeyWhateverTheLabel)
{
	std::string partnerTime = "20240115000000";
	EXPECT_FALSE(reciver("master")->isStartedProcessFaster(partnerTime));
	EXPECT_FALSE(reciver("slave")->isStartedProcessFaster(partnerTime));
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(RunInfoRecord, AComparisonWithoutTheKeyLeavesTheExceptionToTheCallerAndTheLockFree)
{
	writeRecord("[TRACE]\n");
	inOwnProcess(
	    [this]
	    {
		    std::string partnerTime = "20240131235958";
		    auto pReciver = reciver();
		    EXPECT_THROW(pReciver->isStartedProcessFaster(partnerTime), Poco::NotFoundException);
		    writeRecord(kRunInfo);
		    const WaitingThread other([&] { pReciver->isStartedProcessFaster(partnerTime); });
		    EXPECT_TRUE(other.returns());
	    });
}

TEST_F(RunInfoRecord, AWriterIsNotToldThatTheEditorFailed)
{
	inOwnProcess(
	    [this]
	    {
		    const auto pAgent = agent();
		    ASSERT_EQ(::chmod(velarix::kRunInfoPath, 0444), 0);
		    const PlainUser plainUser;
		    testing::internal::CaptureStdout();
		    pAgent->saveStartedTime();
		    reciver()->saveStartedTime();
		    sender()->saveStartedTime();
		    const std::string printed = testing::internal::GetCapturedStdout();
		    EXPECT_THAT(printed, StartsWith("ini File fopen fail.\n**DEBUG**(CAgent:179)run time wrote:"));
		    EXPECT_THAT(events::all(), ElementsAre(kAgentLine, kReciverLine, kSenderLine));
	    });
	EXPECT_EQ(record(), kRunInfo);
}

// Only the library's exceptions are dealt with; the others are the caller's.
TEST_F(RunInfoRecord, AnExceptionOfAnotherFamilyLeavesTheAgentsWriter)
{
	const auto pAgent = agent();
	onLogLine([](const std::string&) { throw std::runtime_error("other family"); });
	EXPECT_THROW(pAgent->saveStartedTime(), std::runtime_error);
	onLogLine(nullptr);
	EXPECT_THAT(events::all(), ElementsAre(kAgentLine));
}

} // namespace
