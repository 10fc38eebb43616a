// A pass of the receiver: the node's own verdicts, the listening socket that they
// keep, and when the settings are read.

#include <sys/socket.h>

#include "Configuraion.h"
#include "FakeOutside.h"
#include "ReceiverLoop.h"
#include "SocketCalls.h"
#include "velarix/paths.h"
#include "velarix/shared_value.h"

using steps::are;
using steps::cardLookedAt;
using steps::dropped;
using steps::masterJudged;
using steps::partnerIsSilent;
using steps::runPrograms;
using steps::silence;
using steps::slaveJudged;
using testing::ElementsAre;

namespace
{

constexpr char kPassBegins[] = "log D CHeartReciver:94 Reciver while start";
constexpr char kNewServer[] = "log D CHeartReciver:124 new server";
constexpr char kCardOK[] = "log D CHeartReciver:185 COMUNICATION LAN CARD OK";
constexpr char kCounted1[] = "log D CHeartReciver:189 Reciver : nReceiveFailCount[1]";

/// A master whose gateway is silent, up to the verdict.
events::List masterLosesTheGateway()
{
	return steps::join({kPassBegins, "log D CHeartReciver:500 networkStatus : start",
	                    "log D CHeartReciver:505 networkStatus : MASTER network check...",
	                    "log D Utill:774 myComunicationIPcheck : START", "ping 10.0.0.254 x10",
	                    "log D Utill:791 myComunicationIPcheck : FALSE",
	                    "log D CHeartReciver:508 my comunication IP is not OK (1)",
	                    "log D CHeartReciver:509 master -> slave  process kill", steps::killPrograms(),
	                    "log D CHeartReciver:96 networkResult: 0"});
}

/// The first failed check of a node whose status was OK.
events::List statusLost()
{
	return {"log D CHeartReciver:99 networkStatus [0] m_myStatus[1]", "sleep 1000"};
}

/// A master whose service card has lost its carrier, up to the verdict.
events::List masterLosesTheServiceCard()
{
	return steps::join({kPassBegins, "log D CHeartReciver:500 networkStatus : start",
	                    "log D CHeartReciver:505 networkStatus : MASTER network check...",
	                    "log D Utill:774 myComunicationIPcheck : START", "ping 10.0.0.254 x10",
	                    "log D Utill:783 myComunicationIPcheck : TRUE", steps::serviceAnswers(),
	                    "command cat /sys/class/net/eth0/carrier",
	                    "log I Utill:573 command(cat /sys/class/net/eth0/carrier) : 0\n\n",
	                    "log D CHeartReciver:524 my service LanCard is not OK (3)",
	                    "log D CHeartReciver:525 master -> slave  process kill", steps::killPrograms(),
	                    steps::dropAddress(), "log D CHeartReciver:96 networkResult: 0"});
}

/// A slave that finds partner and service silent and takes over, up to the verdict.
events::List slaveTakesOver()
{
	return steps::join(
	    {kPassBegins, "log D CHeartReciver:500 networkStatus : start", "log D CHeartReciver:538 networkStatus : SLAVE",
	     partnerIsSilent(), "log D Utill:797 serviceIPcheck : START", "ping 10.0.1.100 x10",
	     "log D Utill:817 serviceIPcheck : false", "log D CHeartReciver:543 networkStatus : SLAVE 1",
	     "log D Utill:774 myComunicationIPcheck : START", "ping 10.0.0.254 x10",
	     "log D Utill:783 myComunicationIPcheck : TRUE", "log D CHeartReciver:548 partner comunication IP is not OK",
	     "log D CHeartReciver:549 slave -> master  process run", runPrograms(),
	     "log D CHeartReciver:96 networkResult: 0"});
}

/// The rest of a pass that ends with the first silence of a row.
events::List firstSilence()
{
	return steps::join({kNewServer, silence(), cardLookedAt("1"), kCardOK, kCounted1, dropped()});
}

/// A master's network checks, passed, and its program missing.
events::List masterLosesItsProgram()
{
	events::List judged = masterJudged();
	judged.back() = "log D CHeartReciver:567 processStatus : ERROR";
	return steps::join({judged, "log D CHeartReciver:106 stop virtual IP", steps::dropAddress(), "sleep 1000"});
}

class ReceiverPass : public ReceiverLoop
{
};

TEST_F(ReceiverPass, AFailedNetworkCheckEndsThePassAndTheStatusIsNotOK)
{
	beMaster();
	fakeoutside::pingGives("10.0.0.254", 0);
	EXPECT_THAT(passes(1), are({masterLosesTheGateway(), statusLost()}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(status(), 0);
	EXPECT_EQ(g_specialAsking, 0);
}

TEST_F(ReceiverPass, AFailedNetworkCheckKeepsTheListeningSocket)
{
	beMaster();
	fakeoutside::pingGivesInTurn("10.0.0.254", {10, 0});
	atPass(3, [this] { EXPECT_TRUE(partnerFindsReceiver()); });
	EXPECT_THAT(passes(3), are({masterJudged(), kNewServer, silence(), masterLosesTheGateway(), statusLost(),
	                            slaveJudged(), "log D CHeartReciver:150 poll", dropped()}));
}

TEST_F(ReceiverPass, APassedCheckDoesNotMakeTheStatusOKAgain)
{
	beMaster();
	fakeoutside::pingGives("10.0.0.254", 0);
	EXPECT_THAT(pass(2), are({slaveJudged(), kNewServer, silence(), cardLookedAt("1"), kCardOK, kCounted1, dropped()}));
	EXPECT_EQ(status(), 0);
}

TEST_F(ReceiverPass, TheDecisionMakesTheStatusOKAgain)
{
	beMaster();
	fakeoutside::pingGives("10.0.0.254", 0);
	atListen(1, [this] { partnerSends(kMasterBeat); });
	EXPECT_THAT(pass(2), are({slaveJudged(), kNewServer, "log D CHeartReciver:150 poll",
	                          "log D CHeartReciver:164 received message: /process/1/1/20240131235959/0/",
	                          "log D CHeartReciver:249 szTmp[process] szPreFix[process]",
	                          "log D CHeartReciver:329 My NetWork Status: NOT OK MY:SLAVE PARTNER:MASTER OK",
	                          "log D CHeartReciver:376 szTmp[1] szPartnerProcessRunning[0]", "sleep 500", dropped()}));
	EXPECT_EQ(status(), 1);
}

TEST_F(ReceiverPass, AFailedCheckWhileNotOKGoesOnToListen)
{
	// The slave takes over, finds the service silent as a master and is a slave
	// again, all of it with one loss of the status only.
	fakeoutside::pingGives("10.0.0.2", 0);
	fakeoutside::pingGives("10.0.1.100", 0);
	EXPECT_THAT(pass(2), are({kPassBegins, "log D CHeartReciver:500 networkStatus : start",
	                          "log D CHeartReciver:505 networkStatus : MASTER network check...",
	                          "log D Utill:774 myComunicationIPcheck : START", "ping 10.0.0.254 x10",
	                          "log D Utill:783 myComunicationIPcheck : TRUE", "log D Utill:797 serviceIPcheck : START",
	                          "ping 10.0.1.100 x10", "log D Utill:817 serviceIPcheck : false",
	                          "log D CHeartReciver:516 my service IP is not OK (2)",
	                          "log D CHeartReciver:517 master -> slave  process kill", steps::killPrograms(),
	                          "log D CHeartReciver:96 networkResult: 0", kNewServer, silence(), cardLookedAt("1"),
	                          kCardOK, kCounted1, dropped()}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(status(), 0);
}

TEST_F(ReceiverPass, ALostGatewayWhileNotOKGoesOnToListen)
{
	beMaster();
	atPass(1, [this] { status() = 0; });
	fakeoutside::pingGives("10.0.0.254", 0);
	EXPECT_THAT(passes(1), are({masterLosesTheGateway(), firstSilence()}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(status(), 0);
	EXPECT_EQ(g_specialAsking, 0);
}

TEST_F(ReceiverPass, ALostServiceCardWhileNotOKGoesOnToListenWithTheAsk)
{
	beMaster();
	atPass(1,
	       [this]
	       {
		       status() = 0;
		       count() = 2;
	       });
	fakeoutside::commandPrints("cat /sys/class/net/eth0/carrier", "0\n");
	EXPECT_THAT(passes(1), are({masterLosesTheServiceCard(), firstSilence()}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(status(), 0);
	EXPECT_EQ(g_specialAsking, 1);
	EXPECT_EQ(count(), 0);
}

TEST_F(ReceiverPass, ALostServiceCardWhileOKEndsThePassWithTheAsk)
{
	beMaster();
	fakeoutside::commandPrints("cat /sys/class/net/eth0/carrier", "0\n");
	EXPECT_THAT(passes(1), are({masterLosesTheServiceCard(), statusLost()}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(status(), 0);
	EXPECT_EQ(g_specialAsking, 1);
}

TEST_F(ReceiverPass, ATakeOverWhileOKEndsThePassAndTheStatusIsNotOK)
{
	fakeoutside::pingGives("10.0.0.2", 0);
	fakeoutside::pingGives("10.0.1.100", 0);
	EXPECT_THAT(passes(1), are({slaveTakesOver(), statusLost()}));
	EXPECT_EQ(mode, MODE_MASTER);
	EXPECT_EQ(status(), 0);
	EXPECT_EQ(g_specialAsking, 0);
}

TEST_F(ReceiverPass, ATakeOverWhileOKKeepsTheListeningSocket)
{
	// The first pass keeps its socket, since its silence finds no carrier.
	fakeoutside::commandPrintsInTurn("cat /sys/class/net/eth1/carrier", {"0\n", "1\n"});
	fakeoutside::pingGivesInTurn("10.0.0.2", {10, 0});
	fakeoutside::pingGivesInTurn("10.0.1.100", {0, 10});
	atPass(3,
	       [this]
	       {
		       programRuns(true);
		       EXPECT_TRUE(partnerFindsReceiver());
	       });
	EXPECT_THAT(passes(3), are({slaveJudged(), kNewServer, silence(), cardLookedAt("0"),
	                            "log D CHeartReciver:182 COMUNICATION LAN CARD ERROR", slaveTakesOver(), statusLost(),
	                            masterJudged(), "log D CHeartReciver:150 poll", dropped()}));
	EXPECT_EQ(mode, MODE_MASTER);
	EXPECT_EQ(status(), 0);
}

TEST_F(ReceiverPass, ATakeOverWhileNotOKIsFollowedByTheLookAtThePrograms)
{
	fakeoutside::pingGives("10.0.0.2", 0);
	fakeoutside::pingGives("10.0.1.100", 0);
	EXPECT_THAT(pass(3), are({slaveTakesOver(), "log D CHeartReciver:561 processStatus : start",
	                          "log D CHeartReciver:567 processStatus : ERROR",
	                          "log D CHeartReciver:106 stop virtual IP", steps::dropAddress(), "sleep 1000"}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(g_specialAsking, 1);
}

TEST_F(ReceiverPass, AMasterWithoutItsProgramGivesUpAndAsks)
{
	mode = MODE_MASTER;
	EXPECT_THAT(passes(1), are({masterLosesItsProgram()}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(g_specialAsking, 1);
	EXPECT_EQ(count(), 0);
	EXPECT_EQ(status(), 1);
}

TEST_F(ReceiverPass, TheRoleIsGivenUpBeforeTheAddressAndTheAskComesLast)
{
	mode = MODE_MASTER;
	fakeoutside::onAction(
	    [this](const std::string& event)
	    {
		    if (event == "command vip-stop")
		    {
			    events::add("role " + std::to_string(velarix::loadShared(mode)) + " ask " +
			                std::to_string(velarix::loadShared(g_specialAsking)));
		    }
	    });
	events::onSleep([](long) { events::add("ask " + std::to_string(velarix::loadShared(g_specialAsking))); });
	const events::List all = passes(1);
	EXPECT_THAT(
	    events::List(all.end() - 5, all.end()),
	    ElementsAre("command vip-stop", "role 2 ask 0", "log I Utill:573 command(vip-stop) : ", "sleep 1000", "ask 1"));
}

TEST_F(ReceiverPass, GivingUpStartsTheCountOfAnswersAnew)
{
	beMaster();
	atPass(2,
	       [this]
	       {
		       count() = 2;
		       programRuns(false);
	       });
	passes(2);
	EXPECT_EQ(count(), 0);
}

TEST_F(ReceiverPass, GivingUpKeepsTheListeningSocket)
{
	beMaster();
	atPass(2, [] { programRuns(false); });
	atPass(3, [this] { EXPECT_TRUE(partnerFindsReceiver()); });
	EXPECT_THAT(passes(3), are({masterJudged(), kNewServer, silence(), masterLosesItsProgram(), slaveJudged(),
	                            "log D CHeartReciver:150 poll", dropped()}));
}

TEST_F(ReceiverPass, NobodyListensBeforeThePassGetsThere)
{
	mode = MODE_MASTER;
	atPass(2, [this] { EXPECT_FALSE(partnerFindsReceiver()); });
	passes(2);
}

TEST_F(ReceiverPass, NobodyListensAfterACountedSilence)
{
	atPass(2, [this] { EXPECT_FALSE(partnerFindsReceiver()); });
	atListen(2, [this] { partnerConnects().close(); });
	EXPECT_THAT(pass(2), are({slaveJudged(), kNewServer, "log D CHeartReciver:150 poll", dropped()}));
}

TEST_F(ReceiverPass, ARunStartsWithStatusOKAndNothingCounted)
{
	status() = 0;
	count() = 3;
	velarix::storeShared(g_specialAsking, std::int32_t{1});
	WorkerAccess::lastReceivedTime(*receiver) = 0;
	const std::time_t before = std::time(nullptr);
	atPass(1,
	       [&]
	       {
		       EXPECT_EQ(status(), 1);
		       EXPECT_EQ(count(), 0);
		       EXPECT_EQ(g_specialAsking, 1);
		       EXPECT_GE(WorkerAccess::lastReceivedTime(*receiver), before);
	       });
	passes(1);
}

TEST_F(ReceiverPass, TheSocketIsBoundAloneAndTimed)
{
	settings.set("AGENT.MAX_HEART_BEAT_RECEIING_TIME", "3");
	apply();
	for (const char* call : {"option", "bind", "listen", "poll"})
	{
		socketcalls::record(call);
	}
	passes(1);
	EXPECT_THAT(events::only({"option", "bind", "listen", "poll"}),
	            ElementsAre("option SO_REUSEADDR 1", "bind 127.0.0.1:7001", "listen 64", "option SO_KEEPALIVE 0",
	                        "option SO_RCVTIMEO 3s 0us", "poll 3000"));
}

TEST_F(ReceiverPass, TheSettingsOfTheLoopAreReadOnce)
{
	Configuraion* pConf = Configuraion::getInstance(velarix::kSettingsPath);
	atPass(2,
	       [&]
	       {
		       std::string otherAddress = "127.0.0.9";
		       pConf->setString("AGENT.THIS_SERVER_IP", otherAddress);
		       pConf->setInt("AGENT.HEART_BEAT_RECEIVE_PORT", 7009);
		       pConf->setInt("AGENT.MAX_HEART_BEAT_RECEIING_TIME", 9);
	       });
	for (const char* call : {"bind", "option SO_RCVTIMEO", "poll"})
	{
		socketcalls::record(call);
	}
	passes(2);
	EXPECT_THAT(events::only({"bind", "option", "poll"}),
	            ElementsAre("bind 127.0.0.1:7001", "option SO_RCVTIMEO 1s 0us", "poll 1000", "bind 127.0.0.1:7001",
	                        "option SO_RCVTIMEO 1s 0us", "poll 1000"));
}

TEST_F(ReceiverPass, ThePartnersAddressIsAskedOfTheSettingsAnew)
{
	Configuraion* pConf = Configuraion::getInstance(velarix::kSettingsPath);
	std::string otherAddress = "10.0.0.3";
	atPass(2, [&] { pConf->setString("AGENT.PARTNER_IP", otherAddress); });
	passes(2);
	EXPECT_THAT(events::only({"ping"}), ElementsAre("ping 10.0.0.2 x10", "ping 10.0.0.3 x10"));
}

TEST_F(ReceiverPass, OnlyTheLowSixteenBitsOfThePortAreUsed)
{
	settings.set("AGENT.HEART_BEAT_RECEIVE_PORT", "70001");
	apply();
	atListen(1, [] { EXPECT_TRUE(peer::somebodyListensOn(4465)); });
	socketcalls::record("bind");
	passes(1);
	EXPECT_THAT(events::only({"bind"}), ElementsAre("bind 127.0.0.1:4465"));
}

TEST_F(ReceiverPass, OnlyTheConfiguredAddressIsListenedOn)
{
	atListen(1, [] { EXPECT_FALSE(peer::somebodyListensOn(kPort, "127.0.0.2")); });
	passes(1);
	EXPECT_EQ(g_specialAsking, 0);
}

} // namespace
