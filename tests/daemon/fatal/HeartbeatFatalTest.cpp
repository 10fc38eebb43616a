// Where the receiver and the sender end the daemon.

#include <cerrno>

#include "ReceiverLoop.h"
#include "Reported.h"
#include "SenderTest.h"
#include "SocketCalls.h"

namespace
{

constexpr char kStartFunction[] = "bool CHeartReciver::startProcess()";
constexpr char kRunFunction[] = "virtual void CHeartReciver::run()";

class ReceiverStart : public ReceiverTest
{
protected:
	void SetUp() override
	{
		ReceiverTest::SetUp();
		onLogLine(report);
		fakeoutside::onAction(report);
	}

	/// A start whose script raises `exception` ends the daemon after the error line.
	template <typename Exception> void expectFatalStart(const Exception& exception, const std::string& line)
	{
		fakeoutside::onAction(
		    [exception](const std::string& event)
		    {
			    report(event);
			    if (event == "system /usr/velarix/bin/ini/processList.sh")
			    {
				    throw exception;
			    }
		    });
		EXPECT_FATAL_AFTER(receiver->startProcess(), reportedUpTo(line), "1== 0", "CHeartReciver", 618, kStartFunction);
	}

	/// The events of such a start, `last` being the error line.
	static std::string reportedUpTo(const std::string& last)
	{
		events::List list = steps::runPrograms();
		list.back() = last;
		list.insert(list.begin(), "log D CHeartReciver:601 try to process run");
		return reported(list);
	}
};

TEST_F(ReceiverStart, ASecondStartEndsTheDaemon)
{
	ASSERT_TRUE(receiver->startProcess());
	EXPECT_FATAL_AFTER(receiver->startProcess(),
	                   "**ERROR**(CHeartReciver:604)tried to start process. but it's already running", "1== 0",
	                   "CHeartReciver", 618, kStartFunction);
}

TEST_F(ReceiverStart, EveryErrorOfTheStartEndsTheDaemon)
{
	expectFatalStart(Poco::NotFoundException("script"), "log E CHeartReciver:606 Not found: script: NotFoundException");
	expectFatalStart(Poco::NoPermissionException("script"),
	                 "log E CHeartReciver:608 No permission: script: NoPermissionException");
	expectFatalStart(Poco::SystemException("fork", 12),
	                 "log E CHeartReciver:610 System exception: fork: SystemException");
	expectFatalStart(Poco::TimeoutException("script"), "log E CHeartReciver:612 Timeout: script");
	expectFatalStart(std::runtime_error("not of the library"), "log E CHeartReciver:614 UNKNOWN ERROR");
}

class ReceiverFatal : public ReceiverLoop
{
protected:
	void expectNoListening(const std::string& errorText)
	{
		EXPECT_FATAL_AFTER(
		    {
			    onLogLine(report);
			    ::alarm(10); // a receiver that listens would never end
			    receiver->run();
		    },
		    reported({"log D CHeartReciver:124 new server", "log E CHeartReciver:137 " + errorText}), "0",
		    "CHeartReciver", 138, kRunFunction);
	}
};

TEST_F(ReceiverFatal, APortThatAnotherProgramWouldShareEndsTheDaemonToo)
{
	const peer::Listener other(kPort, "127.0.0.1", true);
	expectNoListening("Net Exception: Address already in use: 127.0.0.1:7001");
}

TEST_F(ReceiverFatal, ASocketThatCannotBeMadeAsItShouldEndsTheDaemon)
{
	struct Row
	{
		const char* call;
		int error;
		const char* text;
	};
	for (const Row& row : {Row{"bind", EADDRNOTAVAIL, "Net Exception: Cannot assign requested address: 127.0.0.1:7001"},
	                       {"listen", EADDRINUSE, "Net Exception: Address already in use"},
	                       {"option SO_KEEPALIVE", ENOPROTOOPT, "Net Exception: Protocol not available"},
	                       {"option SO_RCVTIMEO", EDOM, "I/O error: 33"}})
	{
		socketcalls::fail(row.call, row.error);
		expectNoListening(row.text);
		socketcalls::fail(row.call, 0); // the fault was the child's
	}
}

constexpr char kSenderRun[] = "virtual void CHeartSender::run()";

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
};

TEST_F(SenderFatal, APortOfZeroEndsTheDaemonBeforeAnyConnect)
{
	settings.set("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT", "0");
	apply();
	EXPECT_FATAL_AFTER(runReporting(), beats::kStarted, "m_nPort != 0", "CHeartSender", 57, kSenderRun);
}

TEST_F(SenderFatal, ThePortIsJudgedAtEveryPass)
{
	atWait(1, [this] { WorkerAccess::port(*sender) = 0; });
	EXPECT_FATAL(untilWait(3), "m_nPort != 0", "CHeartSender", 57, kSenderRun);
}

TEST_F(SenderFatal, TheTimeOutIsReadBeforeThePortIsJudged)
{
	settings.set("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT", "0");
	settings.remove("AGENT.MAX_HEART_BEAT_RECEIING_TIME");
	apply();
	EXPECT_NO_NUMBER(runReporting(), "AGENT.MAX_HEART_BEAT_RECEIING_TIME");
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
	    "(1==0) && \"read ini error\"", "CHeartSender", 177, "std::string CHeartSender::getProcessStartedTime()");
}

} // namespace
