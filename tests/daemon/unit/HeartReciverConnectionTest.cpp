// A connection of the partner: what is received, what counts as a message, and
// the pauses.

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

/// A pass without a partner, the first silence of a row.
events::List silentPass()
{
	return join({slaveJudged(), kNewServer, counted(kCounted1)});
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

TEST_F(ReceiverConnection, AHeartbeatIsServedAndTheSocketDropped)
{
	atListen(1, [this] { partnerSends(kMasterBeat); });
	EXPECT_THAT(passes(1), are({slaveJudged(), kNewServer, kPoll, heartbeatOfMaster(), dropped()}));
	EXPECT_EQ(mode, MODE_SLAVE);
}

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

TEST_F(ReceiverConnection, SeveralMessagesAreEachJudgedWithAPauseAndNoPollBetween)
{
	socketcalls::record("poll");
	partnerSendsInTurn({kMasterBeat, "/process/0/1/x/1/", kMasterBeat});
	EXPECT_THAT(
	    passes(1),
	    are({slaveJudged(), kNewServer, "poll 1000", kPoll, heartbeatOfMaster(), received("/process/0/1/x/1/"),
	         kAccepted, "log D CHeartReciver:287 My NetWork Status: OK MY:SLAVE PARTNER:MASTER OK",
	         "log D CHeartReciver:350 szTmp[1] szPartnerProcessRunning[1]", kPause, heartbeatOfMaster(), dropped()}));
}

TEST_F(ReceiverConnection, TheReceiverClosesItsSideAfterThePartner)
{
	atListen(1,
	         [this]
	         {
		         partnerConnects().send(kMasterBeat);
		         connections.front()->shutdownSend();
	         });
	atPass(2, [this] { EXPECT_TRUE(connections.front()->isAtEnd()); });
	EXPECT_THAT(passes(2), are({slaveJudged(), kNewServer, kPoll, heartbeatOfMaster(), dropped(), silentPass()}));
	EXPECT_EQ(connections.front()->receiveAll(), "");
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

} // namespace
