// Where the sender ends the daemon.

#include <cstdio>

#include "Reported.h"
#include "SenderTest.h"
#include "SocketCalls.h"

namespace
{

constexpr char kRunFunction[] = "virtual void CHeartSender::run()";
constexpr char kGetInt[] = "int Configuraion::getInt(const std::string&)";
constexpr char kReadError[] = "(1==0) && \"read ini error\"";
constexpr char kGetTime[] = "std::string CHeartSender::getProcessStartedTime()";

class SenderFatal : public SenderTest
{
protected:
	/// The thread's body with its log lines and connects on standard error. A
	/// sender that goes on would never end.
	void runReporting()
	{
		::alarm(10);
		onLogLine(report);
		socketcalls::before("connect", [] { report("connect"); });
		sender->run();
	}

	void removeSetting(const std::string& key)
	{
		settings.remove(key);
		apply();
	}
};

TEST_F(SenderFatal, APortOfZeroEndsTheDaemonBeforeAnyConnect)
{
	settings.set("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT", "0");
	apply();
	EXPECT_FATAL_AFTER(runReporting(), beats::kStarted, "m_nPort != 0", "CHeartSender", 57, kRunFunction);
}

TEST_F(SenderFatal, ThePortIsJudgedAtEveryPass)
{
	atWait(1, [this] { WorkerAccess::port(*sender) = 0; });
	EXPECT_FATAL(untilWait(3), "m_nPort != 0", "CHeartSender", 57, kRunFunction);
}

TEST_F(SenderFatal, TheTimeOutIsReadBeforeThePortIsJudged)
{
	settings.set("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT", "0");
	removeSetting("AGENT.MAX_HEART_BEAT_RECEIING_TIME");
	EXPECT_NO_NUMBER(runReporting(), "AGENT.MAX_HEART_BEAT_RECEIING_TIME");
}

TEST_F(SenderFatal, OfTheMissingAddressAndPortTheAddressIsReported)
{
	settings.remove("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT");
	removeSetting("AGENT.PARTNER_IP");
	EXPECT_NO_TEXT(runReporting(), "AGENT.PARTNER_IP");
}

TEST_F(SenderFatal, AMissingIntervalEndsTheDaemonBeforeTheFirstHeartbeat)
{
	removeSetting("AGENT.HEART_BEAT_INTERVAL");
	EXPECT_FATAL_AFTER(runReporting(),
	                   reported({beats::kStarted, "log E Configuraion:82 Not found: AGENT.HEART_BEAT_INTERVAL"}), "0",
	                   "Configuraion", 83, kGetInt);
}

// The editor's own assertion comes before the sender's.
TEST_F(SenderFatal, AMissingRunInfoRecordEndsTheDaemonAfterTheConnect)
{
	ASSERT_EQ(std::remove(velarix::kRunInfoPath), 0);
	EXPECT_FATAL_AFTER(
	    runReporting(),
	    reported({beats::kStarted, "connect", "log E QuorinINI:29 File not found: /usr/velarix/bin/log/runinfo.txt"}),
	    "(1 == 0) && \"ini File fopen fail.\"", "QuorinINI", 30, "bool initialization::loadFile(const std::string&)");
}

TEST_F(SenderFatal, ARecordWithoutTheKeyEndsTheDaemonAfterTheConnect)
{
	sandbox::writeFile(velarix::kRunInfoPath, "[TRACE]\nMASTER_LAST_RUN_TIME = 1\n");
	EXPECT_FATAL_AFTER(
	    runReporting(),
	    reported({beats::kStarted, "connect", "log E CHeartSender:176 Not found: TRACE.LAST_RUN_TIME[noName]"}),
	    kReadError, "CHeartSender", 177, kGetTime);
}

} // namespace
