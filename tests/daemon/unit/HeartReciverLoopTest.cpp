// A pass of the receiver: the node's own verdicts, the listening socket that they keep, when
// the settings are read, and what it makes of a partner that is not heard.

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

using ReceiverPass = ReceiverLoop;

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

constexpr char kCardError[] = "log D CHeartReciver:182 COMUNICATION LAN CARD ERROR";
constexpr char kCardProblem[] = "log D CHeartReciver:196 Reciver : my comunicationLanCard problem";
constexpr char kPartnerIsThere[] = "log E CHeartReciver:201 Reciver : Partner IP and Service IP are working, but I did "
                                   "not get any message from partner";
constexpr char kKill[] = "log D CHeartReciver:215 Reciver : kill";
constexpr char kRun[] = "log D CHeartReciver:218 try to process run";
constexpr char kEth1[] = "cat /sys/class/net/eth1/carrier";

class ReceiverSilence : public ReceiverLoop
{
protected:
	static void partnerHostIsDead() { fakeoutside::pingGives("10.0.0.2", 0); }
};

TEST_F(ReceiverSilence, AMasterOnlyLogsItAndKeepsItsSocket)
{
	beMaster();
	EXPECT_THAT(passes(3),
	            are({masterJudged(), kNewServer, silence(), masterJudged(), silence(), masterJudged(), silence()}));
	EXPECT_EQ(mode, MODE_MASTER);
	EXPECT_EQ(status(), 1);
}

TEST_F(ReceiverSilence, ASlaveWithoutCarrierNeverCountsAndNeverTakesOver)
{
	partnerHostIsDead();
	fakeoutside::commandPrints(kEth1, "0\n");
	const events::List laterPass = join({slaveJudgedWithPartnerSilent(), silence(), carrierLookedAt("0"), kCardError});
	EXPECT_THAT(passes(5), are({slaveJudgedWithPartnerSilent(), kNewServer, silence(), carrierLookedAt("0"), kCardError,
	                            laterPass, laterPass, laterPass, laterPass}));
	EXPECT_EQ(mode, MODE_SLAVE);
}

TEST_F(ReceiverSilence, TheThirdFindsAPartnerThatStillAnswersPings)
{
	// The socket is kept.
	EXPECT_THAT(passes(4), are({slaveJudged(), kNewServer, counted(kCounted1), slaveJudged(), kNewServer,
	                            counted(kCounted2), slaveJudged(), kNewServer, thirdSilence(), partnerAnswers(),
	                            kPartnerIsThere, slaveJudged(), counted(kCounted1)}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(g_specialAsking, 0);
}

TEST_F(ReceiverSilence, ACardLostAtTheSecondLookStopsTheTakeOverKeepsTheSocketAndStartsTheCountAnew)
{
	partnerHostIsDead();
	fakeoutside::commandPrintsInTurn(kEth1, {"1\n", "1\n", "1\n", "0\n", "1\n"});
	const events::List judged = slaveJudgedWithPartnerSilent();
	EXPECT_THAT(passes(4), are({judged, kNewServer, counted(kCounted1), judged, kNewServer, counted(kCounted2), judged,
	                            kNewServer, silence(), carrierLookedAt("1"), kCardOK, kThird, carrierLookedAt("0"),
	                            kCardProblem, judged, counted(kCounted1)}));
	EXPECT_EQ(mode, MODE_SLAVE);
}

TEST_F(ReceiverSilence, ACardErrorBetweenIsNeitherCountedNorForgetsTheCount)
{
	fakeoutside::commandPrintsInTurn(kEth1, {"1\n", "0\n", "1\n"});
	EXPECT_THAT(passes(3), are({slaveJudged(), kNewServer, counted(kCounted1), slaveJudged(), kNewServer, silence(),
	                            carrierLookedAt("0"), kCardError, slaveJudged(), counted(kCounted2)}));
}

TEST_F(ReceiverSilence, TheThirdFromADeadPartnerIsATakeOver)
{
	partnerHostIsDead();
	EXPECT_THAT(pass(3), are({slaveJudgedWithPartnerSilent(), kNewServer, thirdSilence(), partnerIsSilent(), kRun,
	                          runPrograms(), dropped()}));
	EXPECT_EQ(mode, MODE_MASTER);
	EXPECT_EQ(status(), 1);
	EXPECT_EQ(g_specialAsking, 0);
	EXPECT_FALSE(running);
}

TEST_F(ReceiverSilence, ATakeOverKillsRunningProgramsFirst)
{
	partnerHostIsDead();
	programRuns(true);
	EXPECT_THAT(pass(3), are({slaveJudgedWithPartnerSilent(), kNewServer, thirdSilence(), partnerIsSilent(), kKill,
	                          killPrograms(), kRun, runPrograms(), dropped()}));
	EXPECT_EQ(mode, MODE_MASTER);
}

TEST_F(ReceiverSilence, TheRoleIsMasterBeforeATakeOverActs)
{
	partnerHostIsDead();
	programRuns(true);
	std::vector<MODE> roles;
	fakeoutside::onAction(
	    [&](const std::string& event)
	    {
		    if (event == "command kill-by-name dbServer" || event.rfind("system ", 0) == 0)
		    {
			    roles.push_back(velarix::loadShared(mode));
		    }
	    });
	passes(3);
	EXPECT_THAT(roles, testing::ElementsAre(MODE_MASTER, MODE_MASTER, MODE_MASTER));
}

TEST_F(ReceiverSilence, TheCountOutlivesATimeAsMaster)
{
	atPass(2, [this] { beMaster(); });
	atPass(3, [this] { mode = MODE_SLAVE; });
	EXPECT_THAT(pass(3), are({slaveJudged(), counted(kCounted2)}));
}

TEST_F(ReceiverSilence, TheRoleIsLookedAtAfterThePause)
{
	events::onSleep([this](long) { velarix::storeShared(mode, MODE_MASTER); });
	EXPECT_THAT(passes(1), are({slaveJudged(), kNewServer, silence()}));
}

} // namespace
