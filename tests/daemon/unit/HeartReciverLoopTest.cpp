// A pass of the receiver: the node's own verdicts, the listening socket that they
// keep, and when the settings are read.

#include <sys/socket.h>

#include "Configuraion.h"
#include "ReceiverLoop.h"
#include "SocketCalls.h"

using namespace steps;

namespace
{

constexpr char kPassBegins[] = "log D CHeartReciver:94 Reciver while start";

/// A master whose gateway is silent, up to the verdict.
events::List masterLosesTheGateway()
{
	return join({kPassBegins, "log D CHeartReciver:500 networkStatus : start",
	             "log D CHeartReciver:505 networkStatus : MASTER network check...",
	             "log D Utill:774 myComunicationIPcheck : START", "ping 10.0.0.254 x10",
	             "log D Utill:791 myComunicationIPcheck : FALSE",
	             "log D CHeartReciver:508 my comunication IP is not OK (1)",
	             "log D CHeartReciver:509 master -> slave  process kill", killPrograms(),
	             "log D CHeartReciver:96 networkResult: 0"});
}

/// The first failed check of a node whose status was OK.
events::List statusLost()
{
	return {"log D CHeartReciver:99 networkStatus [0] m_myStatus[1]", "sleep 1000"};
}

/// A master's network checks, passed, and its program missing.
events::List masterLosesItsProgram()
{
	events::List judged = masterJudged();
	judged.back() = "log D CHeartReciver:567 processStatus : ERROR";
	return join({judged, "log D CHeartReciver:106 stop virtual IP", dropAddress(), "sleep 1000"});
}

class ReceiverPass : public ReceiverLoop
{
};

TEST_F(ReceiverPass, AFailedNetworkCheckKeepsTheListeningSocket)
{
	beMaster();
	fakeoutside::pingGivesInTurn("10.0.0.254", {10, 0});
	atPass(3, [this] { EXPECT_TRUE(partnerFindsReceiver()); });
	EXPECT_THAT(passes(3), are({masterJudged(), kNewServer, silence(), masterLosesTheGateway(), statusLost(),
	                            slaveJudged(), kPoll, dropped()}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(status(), 0);
	EXPECT_EQ(g_specialAsking, 0);
}

TEST_F(ReceiverPass, APassedCheckDoesNotMakeTheStatusOKAgain)
{
	beMaster();
	fakeoutside::pingGives("10.0.0.254", 0);
	EXPECT_THAT(pass(2), are({slaveJudged(), kNewServer, counted(kCounted1)}));
	EXPECT_EQ(status(), 0);
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
	                          "log D CHeartReciver:517 master -> slave  process kill", killPrograms(),
	                          "log D CHeartReciver:96 networkResult: 0", kNewServer, counted(kCounted1)}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(status(), 0);
}

TEST_F(ReceiverPass, GivingUpKeepsTheListeningSocket)
{
	beMaster();
	atPass(2, [] { programRuns(false); });
	atPass(3, [this] { EXPECT_TRUE(partnerFindsReceiver()); });
	EXPECT_THAT(passes(3),
	            are({masterJudged(), kNewServer, silence(), masterLosesItsProgram(), slaveJudged(), kPoll, dropped()}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(g_specialAsking, 1);
	EXPECT_EQ(count(), 0);
	EXPECT_EQ(status(), 1);
}

TEST_F(ReceiverPass, NobodyListensBeforeThePassGetsThere)
{
	mode = MODE_MASTER;
	atPass(2, [this] { EXPECT_FALSE(partnerFindsReceiver()); });
	passes(2);
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

TEST_F(ReceiverPass, TheConfiguredAddressAloneAndTheLowSixteenBitsOfThePortAreUsed)
{
	settings.set("AGENT.HEART_BEAT_RECEIVE_PORT", "70001");
	apply();
	atListen(1,
	         []
	         {
		         EXPECT_TRUE(peer::somebodyListensOn(4465));
		         EXPECT_FALSE(peer::somebodyListensOn(4465, "127.0.0.2"));
	         });
	socketcalls::record("bind");
	passes(1);
	EXPECT_THAT(events::only({"bind"}), ElementsAre("bind 127.0.0.1:4465"));
}

} // namespace
