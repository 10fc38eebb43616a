// A connection of the partner: what is received, what counts as a message, the pauses, and
// which errors cost one pass and which the thread.

#include <cerrno>

#include <Poco/Thread.h>

#include "ReceiverLoop.h"
#include "SocketCalls.h"

using namespace steps;

namespace
{

constexpr char kAccepted[] = "log D CHeartReciver:249 szTmp[process] szPreFix[process]";
constexpr char kRangeError[] = "log E CHeartReciver:246 Out of range";
constexpr char kPause[] = "sleep 500";

std::string received(const std::string& text)
{
	return "log D CHeartReciver:164 received message: " + text;
}

class ReceiverConnection : public ReceiverLoop
{
protected:
	/// The partner sends the messages so that each arrives in a receive of its own.
	void partnerSendsInTurn(const std::vector<std::string>& messages)
	{
		atListen(1, [this] { partnerConnects(); });
		socketcalls::before("receive",
		                    [this, messages, next = std::make_shared<std::size_t>(0)]
		                    {
			                    if (*next < messages.size())
			                    {
				                    connections.front()->send(messages[(*next)++]);
			                    }
			                    else
			                    {
				                    connections.front()->shutdownSend();
			                    }
		                    });
	}
};

TEST_F(ReceiverConnection, ItIsReceivedAgainBeforeThePause)
{
	for (const char* call : {"poll", "accept", "receive"})
	{
		socketcalls::record(call);
	}
	atListen(1, [this] { partnerSends(kMasterBeat); });
	passes(1);
	EXPECT_THAT(events::only({"poll", "accept", "receive", "sleep", "log D CHeartReciver:164"}),
	            ElementsAre("poll 1000", "accept", "receive 256", received(kMasterBeat), "receive 256", kPause));
}

TEST_F(ReceiverConnection, WithoutBytesNothingIsParsedAndNoPauseIsMade)
{
	WorkerAccess::connectionDone(*receiver) = false;
	atListen(1, [this] { partnerConnects().close(); });
	atPass(1, [this] { WorkerAccess::lastReceivedTime(*receiver) = 4711; });
	EXPECT_THAT(passes(1), are({slaveJudged(), kNewServer, kPoll, dropped()}));
	EXPECT_EQ(WorkerAccess::lastReceivedTime(*receiver), 4711);
	EXPECT_TRUE(WorkerAccess::connectionDone(*receiver));
}

TEST_F(ReceiverConnection, TheTimeOfAHeartbeatIsNotedBeforeTheNextIsAwaited)
{
	std::vector<std::time_t> noted;
	atPass(1, [this] { WorkerAccess::lastReceivedTime(*receiver) = 0; });
	atListen(1, [this] { partnerSends("garbage"); });
	socketcalls::before("receive", [this, &noted] { noted.push_back(WorkerAccess::lastReceivedTime(*receiver)); });
	const std::time_t before = std::time(nullptr);
	passes(1);
	EXPECT_THAT(noted, ElementsAre(0, testing::Ge(before)));
}

/// A heartbeat with a start time that makes it `size` bytes long.
std::string heartbeatOf(std::size_t size)
{
	const std::string frame = "/process/1/1//0/";
	return "/process/1/1/" + std::string(size - frame.size(), '7') + "/0/";
}

/// A message that is accepted, as the log has it.
events::List accepted(const std::string& text)
{
	return {received(text), kAccepted, "log D CHeartReciver:287 My NetWork Status: OK MY:SLAVE PARTNER:MASTER OK",
	        "log D CHeartReciver:350 szTmp[1] szPartnerProcessRunning[0]", kPause};
}

events::List outOfRange(const std::string& text)
{
	return {received(text), kRangeError, kPause};
}

struct Messages
{
	const char* name;
	std::vector<std::string> sent;
	events::List events;
};

const Messages kMessages[] = {
    {"OneByteIsAMessage", {"x"}, outOfRange("x")},
    {"256BytesAreWhole", {heartbeatOf(256)}, accepted(heartbeatOf(256))},
    {"257BytesAreCutInTwo", {heartbeatOf(257)}, join({accepted(heartbeatOf(257).substr(0, 256)), outOfRange("/")})},
    {"NoByteOfALongerMessageBeforeIsSeenAgain",
     {heartbeatOf(200), "/process/1/1/x"},
     join({accepted(heartbeatOf(200)), outOfRange("/process/1/1/x")})},
    {"AConversionInTheTextIsNotInterpreted",
     {"/%s%n%d/1/1/x/0/"},
     {received("/%s%n%d/1/1/x/0/"), "log D CHeartReciver:249 szTmp[process] szPreFix[%s%n%d]",
      "log D CHeartReciver:252 preFix unknown: [%s%n%d]", kPause}},
    {"APrefixMayHaveMoreLetters",
     {"/processX/1/1/x/0/"},
     {received("/processX/1/1/x/0/"), "log D CHeartReciver:249 szTmp[process] szPreFix[processX]",
      "log D CHeartReciver:287 My NetWork Status: OK MY:SLAVE PARTNER:MASTER OK",
      "log D CHeartReciver:350 szTmp[1] szPartnerProcessRunning[0]", kPause}},
    {"ANulEndsTheLogLineAndNotTheMessage", {std::string("/process/1\0/1/x\0y/0/", 20)}, accepted("/process/1")},
};

class ReceiverMessages : public ReceiverConnection, public testing::WithParamInterface<Messages>
{
};

TEST_P(ReceiverMessages, AreReadAsTheyArrive)
{
	partnerSendsInTurn(GetParam().sent);
	EXPECT_THAT(passes(1), are({slaveJudged(), kNewServer, kPoll, GetParam().events, dropped()}));
}

INSTANTIATE_TEST_SUITE_P(Messages, ReceiverMessages, testing::ValuesIn(kMessages),
                         [](const auto& row) { return std::string("M") + row.param.name; });

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

TEST_F(ReceiverErrors, ANodeOutOfDescriptorsGoesOn)
{
	socketcalls::fail("accept", EMFILE);
	atListen(1, [this] { partnerSends(kMasterBeat); });
	atListen(2, [this] { partnerSends(kMasterBeat); });
	EXPECT_THAT(passes(2),
	            are({slaveJudged(), kNewServer, kPoll, serverError("I/O error: Too many open files[CODE: 24][noName]"),
	                 dropped(), slaveJudged(), kNewServer, kPoll, heartbeatOfMaster(), dropped()}));
}

TEST_F(ReceiverErrors, AConnectionThatCannotBeAcceptedResetsTheCountOfSilences)
{
	socketcalls::fail("accept", ECONNABORTED);
	atListen(3, [this] { partnerSends(kMasterBeat); });
	EXPECT_THAT(pass(4), are({slaveJudged(), kNewServer, counted(kCounted1)}));
}

TEST_F(ReceiverErrors, AFailedPollLeavesTheCountOfSilences)
{
	atPass(3, [] { socketcalls::fail("poll", EBADF); });
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
	EXPECT_TRUE(connections.front()->isAtEnd(std::chrono::seconds(10)));
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

} // namespace
