// A connection of the partner: what is received, what counts as a message, the pauses, and
// which errors cost one pass and which the thread.

#include <cerrno>

#include "Loops.h"

using namespace steps;
using socketcalls::Fault;

namespace
{

constexpr char kPause[] = "sleep 500";

std::string received(const std::string& text)
{
	return "log D CHeartReciver:164 received message: " + text;
}

using ReceiverConnection = ReceiverLoop;

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
	EXPECT_THAT(passes(1), are({kJudged, kNewServer, kPoll, kDropped}));
	EXPECT_EQ(WorkerAccess::lastReceivedTime(*receiver), 4711);
	EXPECT_TRUE(WorkerAccess::connectionDone(*receiver));
}

TEST_F(ReceiverConnection, TheTimeOfAHeartbeatIsNotedBeforeTheNextIsAwaited)
{
	std::vector<std::time_t> noted;
	atPass(1, [this] { WorkerAccess::lastReceivedTime(*receiver) = 0; });
	atListen(1, [this] { partnerSends("garbage"); });
	events::at("receive", [this, &noted] { noted.push_back(WorkerAccess::lastReceivedTime(*receiver)); });
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

List outOfRange(const std::string& text)
{
	return {received(text), "log E CHeartReciver:246 Out of range", kPause};
}

/// The same events as of a master's heartbeat but for the prefix.
List heardAs(const std::string& message, const std::string& prefix)
{
	List events = heard(message);
	events[1] = "log D CHeartReciver:249 szTmp[process] szPreFix[" + prefix + "]";
	return events;
}

struct Messages
{
	const char* name;
	std::vector<std::string> sent;
	List events;
};

const Messages kMessages[] = {
    {"OneByteIsAMessage", {"x"}, outOfRange("x")},
    {"256BytesAreWhole", {heartbeatOf(256)}, heard(heartbeatOf(256))},
    {"257BytesAreCutInTwo", {heartbeatOf(257)}, join({heard(heartbeatOf(257).substr(0, 256)), outOfRange("/")})},
    {"NoByteOfALongerMessageBeforeIsSeenAgain",
     {heartbeatOf(200), "/process/1/1/x"},
     join({heard(heartbeatOf(200)), outOfRange("/process/1/1/x")})},
    {"AConversionInTheTextIsNotInterpreted",
     {"/%s%n%d/1/1/x/0/"},
     {received("/%s%n%d/1/1/x/0/"), "log D CHeartReciver:249 szTmp[process] szPreFix[%s%n%d]",
      "log D CHeartReciver:252 preFix unknown: [%s%n%d]", kPause}},
    {"APrefixMayHaveMoreLetters", {"/processX/1/1/x/0/"}, heardAs("/processX/1/1/x/0/", "processX")},
    {"ANulEndsTheLogLineAndNotTheMessage", {std::string("/process/1\0/1/x\0y/0/", 20)}, heard("/process/1")},
};

class ReceiverMessages : public ReceiverLoop, public testing::WithParamInterface<Messages>
{
};

TEST_P(ReceiverMessages, AreReadAsTheyArrive)
{
	// Each arrives in a receive of its own.
	int receive = 0;
	atListen(1, [this] { partnerConnects(); });
	for (const std::string& message : GetParam().sent)
	{
		events::atNth(++receive, "receive", [this, message] { connections.front().send(message); });
	}
	events::atNth(receive + 1, "receive", [this] { connections.front().shutdownSend(); });
	EXPECT_THAT(passes(1), are({kJudged, kNewServer, kPoll, GetParam().events, kDropped}));
}

INSTANTIATE_TEST_SUITE_P(Messages, ReceiverMessages, testing::ValuesIn(kMessages),
                         [](const auto& row) { return std::string("M") + row.param.name; });

List serverError(const std::string& text)
{
	return {"log E CHeartReciver:79 Server Error: " + text};
}

using ReceiverErrors = ReceiverLoop;

TEST_F(ReceiverErrors, ASilentClientThatConnectsAtTheFirstMomentEndsInATimeOutToo)
{
	// The partner gives up after a while: a receiver without a time-out fails here instead of waiting for ever.
	std::thread partner;
	atListen(1,
	         [&]
	         {
		         partner = std::thread(
		             [socket = partnerConnects()]() mutable
		             {
			             EXPECT_TRUE(socket.isAtEnd(std::chrono::seconds(4)));
			             socket.close();
		             });
	         });
	EXPECT_THAT(passes(1), are({kJudged, kNewServer, kPoll, serverError("Timeout[CODE: 11][noName]"), kDropped}));
	partner.join();
}

TEST_F(ReceiverErrors, ANodeOutOfDescriptorsGoesOn)
{
	events::atNth(1, "accept", events::throws(Fault{EMFILE}));
	events::at("after listen", [this] { partnerSends(kMasterBeat); });
	EXPECT_THAT(passes(2),
	            are({kJudged, kNewServer, kPoll, serverError("I/O error: Too many open files[CODE: 24][noName]"),
	                 kDropped, kJudged, kNewServer, kPoll, heard(kMasterBeat), kDropped}));
}

TEST_F(ReceiverErrors, AConnectionThatCannotBeAcceptedResetsTheCountOfSilences)
{
	events::atNth(1, "accept", events::throws(Fault{ECONNABORTED}));
	atListen(3, [this] { partnerSends(kMasterBeat); });
	EXPECT_THAT(pass(4), are({kJudged, kNewServer, kCounted1}));
}

TEST_F(ReceiverErrors, AFailedPollLeavesTheCountOfSilences)
{
	events::atNth(3, "poll", events::throws(Fault{EBADF}));
	EXPECT_THAT(pass(4), are({kJudged, kNewServer, kThird, kPartnerIsThere}));
}

TEST_F(ReceiverErrors, AnExceptionAtTheDecisionIsAServerErrorAndTheRoleStays)
{
	events::at("command vip-stop", events::throws(Poco::SystemException("fork", 12)));
	atPass(1, [this] { WorkerAccess::lastReceivedTime(*receiver) = 4711; });
	atListen(1, [this] { partnerConnects().send("/process/0/2/20240131235959/1/"); });
	EXPECT_THAT(passes(1), are({kJudged,
	                            kNewServer,
	                            kPoll,
	                            {received("/process/0/2/20240131235959/1/")},
	                            kAccepted,
	                            {"log D CHeartReciver:411 szTmp[1] specialAsk[1]",
	                             "log D CHeartReciver:414 special ask: slave -> master", "command vip-stop"},
	                            serverError("System exception: fork[CODE: 12][noName]"),
	                            kDropped}));
	EXPECT_EQ(mode, MODE_MASTER);
	EXPECT_EQ(WorkerAccess::lastReceivedTime(*receiver), 4711);
	EXPECT_TRUE(connections.front().isAtEnd(std::chrono::seconds(10)));
}

TEST_F(ReceiverErrors, AnExceptionOfAnotherTypeEndsTheThreadSilently)
{
	events::at(kCarrier[0], events::throws(std::runtime_error("not of the library")));
	runToItsEnd(*receiver);
	EXPECT_THAT(loopEvents(events::all()), are({kJudged, kNewServer, kSilence, kCarrier}));
	EXPECT_EQ(mode, MODE_SLAVE);
}

TEST_F(ReceiverErrors, AnExceptionOfTheNetworkCheckEndsTheThreadSilently)
{
	beMaster();
	const std::string command = "command cat /sys/class/net/eth0/carrier";
	events::at(command, events::throws(Poco::SystemException("fork", 12)));
	runToItsEnd(*receiver);
	EXPECT_EQ(events::all().back(), command);
	EXPECT_EQ(mode, MODE_MASTER);
}

TEST_F(ReceiverErrors, ADiskThatIsFullWhileAHeartbeatIsServedEndsTheThreadAtTheEndOfThePass)
{
	// The error is caught, its line cannot be written, and the next line is not guarded.
	const events::Action full = events::throws(Poco::WriteFileException("velarix.log"));
	events::at("log D CHeartReciver:164 ",
	           [full]
	           {
		           events::at("log ", full);
		           full();
	           });
	atListen(1, [this] { partnerSends(kMasterBeat); });
	runToItsEnd(*receiver);
	EXPECT_THAT(loopEvents(events::all()), are({kJudged,
	                                            kNewServer,
	                                            kPoll,
	                                            {received(kMasterBeat)},
	                                            serverError("Cannot write file: velarix.log[CODE: 0][noName]"),
	                                            {kDropped[0]}}));
	EXPECT_FALSE(partnerFindsReceiver());
}

} // namespace
