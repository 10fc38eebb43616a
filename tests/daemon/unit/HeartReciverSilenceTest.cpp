// What the receiver makes of a partner that is not heard.

#include "ReceiverLoop.h"

using namespace steps;

namespace
{

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

TEST_F(ReceiverSilence, TheFirstAndTheSecondAreCountedAndDropTheSocket)
{
	EXPECT_THAT(passes(2),
	            are({slaveJudged(), kNewServer, counted(kCounted1), slaveJudged(), kNewServer, counted(kCounted2)}));
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

TEST_F(ReceiverSilence, ACommandThatFailsCountsAsACardWithoutCarrier)
{
	fakeoutside::commandFails(kEth1);
	EXPECT_THAT(passes(1), are({slaveJudged(), kNewServer, silence(), "command cat /sys/class/net/eth1/carrier",
	                            "log E Utill:550 shell command run error(fp is NULL): cat /sys/class/net/eth1/carrier",
	                            "sleep 1000", kCardError}));
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

TEST_F(ReceiverSilence, AfterATakeOverTheNodeIsJudgedAsAMaster)
{
	partnerHostIsDead();
	atPass(4, [this] { programRuns(true); });
	EXPECT_THAT(pass(4), are({masterJudged(), kNewServer, silence()}));
}

TEST_F(ReceiverSilence, AConnectionWithoutBytesResetsTheCountToo)
{
	partnerHostIsDead();
	atListen(3, [this] { partnerConnects().close(); });
	const auto counted = [](const char* line)
	{
		return join(
		    {slaveJudgedWithPartnerSilent(), kNewServer, silence(), carrierLookedAt("1"), kCardOK, line, dropped()});
	};
	EXPECT_THAT(passes(5), are({counted(kCounted1), counted(kCounted2), slaveJudgedWithPartnerSilent(), kNewServer,
	                            kPoll, dropped(), counted(kCounted1), counted(kCounted2)}));
	EXPECT_EQ(mode, MODE_SLAVE);
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
