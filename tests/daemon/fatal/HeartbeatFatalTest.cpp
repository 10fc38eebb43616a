// Where the receiver and the sender end the daemon.

#include <cerrno>

#include "Loops.h"

using events::join;
using socketcalls::Fault;

namespace
{

constexpr Report kNoStart{"1== 0", "CHeartReciver", 618, "bool CHeartReciver::startProcess()"};

using ReceiverStart = ReceiverTest;

TEST_F(ReceiverStart, ASecondStartEndsTheDaemon)
{
	ASSERT_TRUE(receiver->startProcess());
	EXPECT_END(receiver->startProcess(), {"log E CHeartReciver:604 tried to start process. but it's already running"},
	           kNoStart);
}

TEST_F(ReceiverStart, EveryErrorOfTheStartEndsTheDaemon)
{
	int line = 604;
	for (const auto& [failure, text] : steps::kScriptFailures)
	{
		line += 2;
		events::at(kScript, failure);
		EXPECT_END(receiver->startProcess(),
		           join({{"log D CHeartReciver:601 try to process run"},
		                 steps::kTryPrograms,
		                 steps::kFindAddress,
		                 steps::kScriptRuns,
		                 {"log E CHeartReciver:" + std::to_string(line) + " " + text}}),
		           kNoStart);
	}
}

class ReceiverFatal : public ReceiverLoop
{
protected:
	void expectNoListening(const std::string& error)
	{
		EXPECT_END(
		    {
			    events::atNth(1, "log D CHeartReciver:124 new server", [] { events::clear(); });
			    receiver->run();
		    },
		    {"log E CHeartReciver:137 " + error}, "0", "CHeartReciver", 138, "virtual void CHeartReciver::run()");
	}
};

TEST_F(ReceiverFatal, APortThatAnotherProgramWouldShareEndsTheDaemonToo)
{
	const peer::Listener other(kPort);
	expectNoListening("Net Exception: Address already in use: 127.0.0.1:7001");
}

TEST_F(ReceiverFatal, ASocketThatCannotBeMadeAsItShouldEndsTheDaemon)
{
	const std::map<std::string, std::pair<int, std::string>> faults{
	    {"bind", {EADDRNOTAVAIL, "Net Exception: Cannot assign requested address: 127.0.0.1:7001"}},
	    {"listen", {EADDRINUSE, "Net Exception: Address already in use"}},
	    {"option SO_KEEPALIVE", {ENOPROTOOPT, "Net Exception: Protocol not available"}},
	    {"option SO_RCVTIMEO", {EDOM, "I/O error: 33"}}};
	for (const auto& [call, fault] : faults)
	{
		events::at(call, events::throws(Fault{fault.first}));
		expectNoListening(fault.second);
		events::at(call, nullptr);
	}
}

constexpr Report kNoPort{"m_nPort != 0", "CHeartSender", 57, "virtual void CHeartSender::run()"};

class SenderFatal : public SenderTest
{
protected:
	SenderFatal() { socketcalls::record("connect"); }
};

TEST_F(SenderFatal, APortOfZeroEndsTheDaemonBeforeAnyConnectAtEveryPass)
{
	EXPECT_END(
	    {
		    atWait(1, [this] { WorkerAccess::port(*sender) = 0; });
		    sender->run();
	    },
	    (events::List{beats::kStarted, "connect 127.0.0.1:7002", beats::kSent, beats::kInterval}), kNoPort);
	settings.set("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT", "0");
	EXPECT_END(sender->run(), {beats::kStarted}, kNoPort);
	// The time-out is read before the port is judged.
	settings.remove("AGENT.MAX_HEART_BEAT_RECEIING_TIME");
	EXPECT_END(sender->run(),
	           join({{beats::kStarted, "log E Configuraion:82 Not found: AGENT.MAX_HEART_BEAT_RECEIING_TIME"}}),
	           kNoNumber);
}

TEST_F(SenderFatal, ARunInfoRecordThatCannotBeReadEndsTheDaemonAfterTheConnect)
{
	const events::List connected{beats::kStarted, "connect 127.0.0.1:7002"};
	sandbox::writeFile(velarix::kRunInfoPath, "[TRACE]\nMASTER_LAST_RUN_TIME = 1\n");
	EXPECT_END(sender->run(), join({connected, {"log E CHeartSender:176 Not found: TRACE.LAST_RUN_TIME[noName]"}}),
	           "(1==0) && \"read ini error\"", "CHeartSender", 177,
	           "std::string CHeartSender::getProcessStartedTime()");
	// The editor's own assertion comes before the sender's.
	ASSERT_EQ(std::remove(velarix::kRunInfoPath), 0);
	EXPECT_END(sender->run(),
	           join({connected, {"log E QuorinINI:29 File not found: /usr/velarix/bin/log/runinfo.txt"}}), kNoRecord);
}

} // namespace
