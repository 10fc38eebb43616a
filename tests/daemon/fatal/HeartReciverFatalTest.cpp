// Where the receiver ends the daemon.

#include <cerrno>

#include "ReceiverLoop.h"
#include "Reported.h"
#include "SocketCalls.h"

namespace
{

constexpr char kStartFunction[] = "bool CHeartReciver::startProcess()";
constexpr char kRunFunction[] = "virtual void CHeartReciver::run()";
constexpr char kGetInt[] = "int Configuraion::getInt(const std::string&)";
constexpr char kGetString[] = "std::string Configuraion::getString(const std::string&)";

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

TEST_F(ReceiverStart, AFailOverWithRunningProgramsEndsTheDaemon)
{
	running = true;
	EXPECT_FATAL_AFTER(receiver->failOver(),
	                   reported({"log E CHeartReciver:604 tried to start process. but it's already running"}), "1== 0",
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

TEST_F(ReceiverFatal, ThePortOnEveryAddressInUseEndsTheDaemon)
{
	const peer::Listener other(kPort, "0.0.0.0");
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
		socketcalls::failNext(row.call, row.error);
		expectNoListening(row.text);
		socketcalls::failNext(row.call, 0); // the fault was the child's
	}
}

TEST_F(ReceiverFatal, AMissingIgnoreTimeEndsTheDaemonAtConstruction)
{
	settings.remove("AGENT.IGNORE_TIME");
	apply();
	EXPECT_NO_NUMBER(CHeartReciver(&handles, &running, &mode, location), "AGENT.IGNORE_TIME");
}

TEST_F(ReceiverFatal, AMissingSettingOfTheLoopEndsTheDaemon)
{
	for (const std::string key :
	     {"AGENT.THIS_SERVER_IP", "AGENT.HEART_BEAT_RECEIVE_PORT", "AGENT.MAX_HEART_BEAT_RECEIING_TIME"})
	{
		const Settings whole = settings;
		settings.remove(key);
		apply();
		const bool isText = key == "AGENT.THIS_SERVER_IP";
		EXPECT_FATAL_AFTER(
		    receiver->run(),
		    (isText ? "**ERROR**(Configuraion:65)Not found: " : "**ERROR**(Configuraion:82)Not found: ") + key, "0",
		    "Configuraion", isText ? 66 : 83, isText ? kGetString : kGetInt);
		settings = whole;
	}
}

TEST_F(ReceiverFatal, AMissingObservationModeEndsTheDaemonAtTheTakeOver)
{
	settings.remove("PROCESS_CHECK.OBSERVATION_MODE");
	apply();
	fakeoutside::pingGives("10.0.0.2", 0);
	EXPECT_NO_NUMBER(passes(3), "PROCESS_CHECK.OBSERVATION_MODE");
}

} // namespace
