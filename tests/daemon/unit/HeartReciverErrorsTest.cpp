// Exceptions on the receiver's thread: which of them cost one pass and which the
// thread.

#include <cerrno>

#include <Poco/Thread.h>

#include "ReceiverLoop.h"
#include "SocketCalls.h"

using namespace steps;

namespace
{

constexpr char kEth1[] = "command cat /sys/class/net/eth1/carrier";
constexpr char kPartnerAsks[] = "/process/0/2/20240131235959/1/";

std::string serverError(const std::string& text)
{
	return "log E CHeartReciver:79 Server Error: " + text;
}

class ReceiverErrors : public ReceiverLoop
{
protected:
	/// Runs the loop on a thread as the agent does, until the thread ends.
	testing::AssertionResult threadEnds()
	{
		Poco::Thread thread;
		thread.start(*receiver);
		const auto ended = waitFor([&] { return !thread.isRunning(); }, std::chrono::seconds(10), "end of the thread");
		if (!ended)
		{
			throwAt("ping 10.0.0.2 x10", events::EndOfScript{});
		}
		thread.join();
		return ended;
	}
};

TEST_F(ReceiverErrors, ASilentClientThatConnectsAtTheFirstMomentEndsInATimeOutToo)
{
	// The partner gives up after a while: a receiver without a time-out fails here instead of waiting for ever.
	std::thread partner;
	socketcalls::after("listen",
	                   [&]
	                   {
		                   partner = std::thread(
		                       [&socket = partnerConnects()]
		                       {
			                       EXPECT_TRUE(socket.isAtEnd(std::chrono::seconds(4)));
			                       socket.close();
		                       });
	                   });
	EXPECT_THAT(passes(1),
	            are({slaveJudged(), kNewServer, kPoll, serverError("Timeout[CODE: 11][noName]"), dropped()}));
	partner.join();
}

TEST_F(ReceiverErrors, AClientSilentAfterItsMessageEndsInATimeOutWithoutThePause)
{
	atListen(1, [this] { partnerConnects().send(kMasterBeat); });
	events::List heartbeat = heartbeatOfMaster();
	heartbeat.pop_back();
	EXPECT_THAT(passes(1), are({slaveJudged(), kNewServer, kPoll, heartbeat, serverError("Timeout[CODE: 11][noName]"),
	                            dropped()}));
}

TEST_F(ReceiverErrors, APartnerThatResetsIsAServerError)
{
	atListen(1, [this] { partnerConnects().reset(); });
	EXPECT_THAT(passes(1), are({slaveJudged(), kNewServer, kPoll,
	                            serverError("Connection reset by peer[CODE: 104][noName]"), dropped()}));
}

TEST_F(ReceiverErrors, ANodeOutOfDescriptorsGoesOn)
{
	socketcalls::failNext("accept", EMFILE);
	atListen(1, [this] { partnerSends(kMasterBeat); });
	atListen(2, [this] { partnerSends(kMasterBeat); });
	EXPECT_THAT(passes(2),
	            are({slaveJudged(), kNewServer, kPoll, serverError("I/O error: Too many open files[CODE: 24][noName]"),
	                 dropped(), slaveJudged(), kNewServer, kPoll, heartbeatOfMaster(), dropped()}));
}

TEST_F(ReceiverErrors, TheLabelOfTheWorkerIsInTheLine)
{
	location = "slave";
	receiver = std::make_unique<CHeartReciver>(&handles, &running, &mode, location);
	location = "changed";
	socketcalls::failNext("poll", EBADF);
	EXPECT_THAT(passes(1), are({slaveJudged(), kNewServer,
	                            serverError("I/O error: Bad socket descriptor[CODE: 9][slave]"), dropped()}));
}

TEST_F(ReceiverErrors, AConnectionThatCannotBeAcceptedResetsTheCountOfSilences)
{
	socketcalls::failNext("accept", ECONNABORTED);
	atListen(3, [this] { partnerSends(kMasterBeat); });
	EXPECT_THAT(pass(4), are({slaveJudged(), kNewServer, counted(kCounted1)}));
}

TEST_F(ReceiverErrors, AFailedPollLeavesTheCountOfSilences)
{
	atPass(3, [] { socketcalls::failNext("poll", EBADF); });
	EXPECT_THAT(pass(4), are({slaveJudged(), kNewServer, thirdSilence(), partnerAnswers(),
	                          "log E CHeartReciver:201 Reciver : Partner IP and Service IP are working, but I did not "
	                          "get any message from partner"}));
}

TEST_F(ReceiverErrors, AnExceptionAtTheDecisionIsAServerErrorAndTheRoleStays)
{
	throwAt("command vip-stop", Poco::SystemException("fork", 12));
	atPass(1, [this] { WorkerAccess::lastReceivedTime(*receiver) = 4711; });
	atListen(1, [this] { partnerConnects().send(kPartnerAsks); });
	EXPECT_THAT(passes(1), are({slaveJudged(), kNewServer, kPoll,
	                            "log D CHeartReciver:164 received message: /process/0/2/20240131235959/1/",
	                            "log D CHeartReciver:249 szTmp[process] szPreFix[process]",
	                            "log D CHeartReciver:411 szTmp[1] specialAsk[1]",
	                            "log D CHeartReciver:414 special ask: slave -> master", "command vip-stop",
	                            serverError("System exception: fork[CODE: 12][noName]"), dropped()}));
	EXPECT_EQ(mode, MODE_MASTER);
	EXPECT_EQ(WorkerAccess::lastReceivedTime(*receiver), 4711);
	EXPECT_TRUE(connections.front()->isAtEnd());
}

TEST_F(ReceiverErrors, APortLeftInTimeWaitIsListenedOnAgain)
{
	// The node closes first, so the port itself is left in the time-wait state.
	atListen(1, [this] { partnerConnects(); });
	atPass(2,
	       [this]
	       {
		       connections.front()->close();
		       EXPECT_THROW(peer::bindTo(kPort, "127.0.0.1", false, false), std::runtime_error);
	       });
	atListen(2, [this] { partnerSends(kMasterBeat); });
	EXPECT_THAT(pass(2), are({slaveJudged(), kNewServer, kPoll, heartbeatOfMaster(), dropped()}));
}

TEST_F(ReceiverErrors, NobodyCanShareThePort)
{
	atListen(1,
	         []
	         {
		         EXPECT_THROW(peer::bindTo(kPort, "127.0.0.1", true, true), std::runtime_error);
		         EXPECT_THROW(peer::bindTo(kPort, "127.0.0.1", false, true), std::runtime_error);
		         EXPECT_THROW(peer::bindTo(kPort, "127.0.0.1", true, false), std::runtime_error);
	         });
	atPass(2, [] { peer::bindTo(kPort, "127.0.0.1", true, false); });
	EXPECT_THAT(passes(2),
	            are({slaveJudged(), kNewServer, counted(kCounted1), slaveJudged(), kNewServer, counted(kCounted2)}));
}

TEST_F(ReceiverErrors, AnExceptionOfAnotherTypeEndsTheThreadSilently)
{
	throwAt(kEth1, std::runtime_error("not of the library"));
	ASSERT_TRUE(threadEnds());
	EXPECT_THAT(events::all(), are({slaveJudged(), kNewServer, silence(), kEth1}));
	EXPECT_EQ(mode, MODE_SLAVE);
}

TEST_F(ReceiverErrors, AnExceptionOfTheNetworkCheckEndsTheThreadSilently)
{
	beMaster();
	throwAt("command cat /sys/class/net/eth0/carrier", Poco::SystemException("fork", 12));
	ASSERT_TRUE(threadEnds());
	events::List judged = masterJudged();
	judged.resize(10);
	EXPECT_THAT(events::all(), are({judged}));
	EXPECT_EQ(mode, MODE_MASTER);
}

TEST_F(ReceiverErrors, AnExceptionAtTheStopOfTheAddressEndsTheThreadWithoutTheAsk)
{
	mode = MODE_MASTER;
	throwAt("command vip-stop", Poco::SystemException("fork", 12));
	ASSERT_TRUE(threadEnds());
	events::List judged = masterJudged();
	judged.back() = "log D CHeartReciver:567 processStatus : ERROR";
	EXPECT_THAT(events::all(), are({judged, "log D CHeartReciver:106 stop virtual IP", "command vip-stop"}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(g_specialAsking, 0);
}

/// The log throws as on a full disk, from the line that begins so on.
void fillDiskAt(const std::string& line)
{
	onLogLine(
	    [line, full = std::make_shared<bool>(false)](const std::string& event)
	    {
		    *full = *full || event.starts_with(line);
		    if (*full)
		    {
			    throw Poco::WriteFileException("velarix.log");
		    }
	    });
}

TEST_F(ReceiverErrors, ADiskThatIsFullWhileAHeartbeatIsServedEndsTheThreadAtTheEndOfThePass)
{
	// The error is caught, its line cannot be written, and the next line is not guarded.
	fillDiskAt("log D CHeartReciver:164 ");
	atListen(1, [this] { partnerSends(kMasterBeat); });
	ASSERT_TRUE(threadEnds());
	EXPECT_THAT(events::all(),
	            are({slaveJudged(), kNewServer, kPoll, heartbeatOfMaster().front(),
	                 serverError("Cannot write file: velarix.log[CODE: 0][noName]"), dropped().front()}));
	EXPECT_FALSE(partnerFindsReceiver());
}

TEST_F(ReceiverErrors, AFullDiskDoesNotKeepTheTimeOutLineFromTheRest)
{
	fillDiskAt("log E CHeartReciver:146 ");
	beMaster();
	ASSERT_TRUE(threadEnds());
	EXPECT_THAT(events::all(), are({masterJudged(), kNewServer, silence(), masterJudged().front()}));
}

} // namespace
