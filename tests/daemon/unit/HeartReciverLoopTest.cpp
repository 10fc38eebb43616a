// A pass of the receiver: the listening socket that the node's own verdicts keep, when the
// settings are read, and what it makes of a partner that is not heard.

#include "Configuraion.h"
#include "Loops.h"

using namespace steps;

namespace
{

/// The first failed check of a node whose status was OK.
const List kStatusLost{"judged 0", "log D CHeartReciver:99 networkStatus [0] m_myStatus[1]", "sleep 1000"};

using ReceiverPass = ReceiverLoop;

TEST_F(ReceiverPass, AFailedNetworkCheckKeepsTheListeningSocket)
{
	beMaster();
	fakeoutside::pingGives("10.0.0.254", {10, 0});
	atPass(3, [this] { EXPECT_TRUE(partnerFindsReceiver()); });
	EXPECT_THAT(passes(3), are({kJudged, kNewServer, kSilence, kStatusLost, kJudged, kPoll, kDropped}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(status(), 0);
	EXPECT_EQ(g_specialAsking, 0);
}

TEST_F(ReceiverPass, APassedCheckDoesNotMakeTheStatusOKAgain)
{
	beMaster();
	fakeoutside::pingGives("10.0.0.254", {0});
	EXPECT_THAT(pass(2), are({kJudged, kNewServer, kCounted1}));
	EXPECT_EQ(status(), 0);
}

TEST_F(ReceiverPass, AFailedCheckWhileNotOKGoesOnToListen)
{
	// The slave takes over, finds the service silent as a master and is a slave
	// again, all of it with one loss of the status only.
	fakeoutside::pingGives("10.0.0.2", {0});
	fakeoutside::pingGives("10.0.1.100", {0});
	EXPECT_THAT(pass(2), are({{"judged 0"}, kNewServer, kCounted1}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(status(), 0);
}

TEST_F(ReceiverPass, GivingUpKeepsTheListeningSocket)
{
	beMaster();
	atPass(2, [] { programRuns(false); });
	atPass(3, [this] { EXPECT_TRUE(partnerFindsReceiver()); });
	const List givesUp{"log D CHeartReciver:567 processStatus : ERROR", "log D CHeartReciver:106 stop virtual IP",
	                   "command vip-stop", "sleep 1000"};
	EXPECT_THAT(passes(3), are({kJudged, kNewServer, kSilence, kJudged, givesUp, kJudged, kPoll, kDropped}));
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

TEST_F(ReceiverPass, TheSocketIsBoundAloneAndTimedAndTheSettingsAreReadOnce)
{
	settings.set("AGENT.MAX_HEART_BEAT_RECEIING_TIME", "3");
	Configuraion* pConf = Configuraion::getInstance(velarix::kSettingsPath);
	atPass(2,
	       [&]
	       {
		       std::string otherAddress = "127.0.0.9";
		       pConf->setString("AGENT.THIS_SERVER_IP", otherAddress);
		       pConf->setInt("AGENT.HEART_BEAT_RECEIVE_PORT", 7009);
		       pConf->setInt("AGENT.MAX_HEART_BEAT_RECEIING_TIME", 9);
	       });
	for (const char* call : {"option", "bind", "listen", "poll"})
	{
		socketcalls::record(call);
	}
	passes(2);
	const List calls{"option SO_REUSEADDR 1", "bind 127.0.0.1:7001",       "listen 64",
	                 "option SO_KEEPALIVE 0", "option SO_RCVTIMEO 3s 0us", "poll 3000"};
	EXPECT_EQ(events::only({"option", "bind", "listen", "poll"}), join({calls, calls}));
}

TEST_F(ReceiverPass, TheConfiguredAddressAloneAndTheLowSixteenBitsOfThePortAreUsed)
{
	settings.set("AGENT.HEART_BEAT_RECEIVE_PORT", "70001");
	atListen(1,
	         []
	         {
		         EXPECT_TRUE(peer::somebodyListensOn(4465));
		         EXPECT_FALSE(peer::somebodyListensOn(4465, "127.0.0.2"));
	         });
	passes(1);
}

constexpr char kEth1[] = "cat /sys/class/net/eth1/carrier";

class ReceiverSilence : public ReceiverLoop
{
protected:
	static void partnerHostIsDead() { fakeoutside::pingGives("10.0.0.2", {0}); }
};

TEST_F(ReceiverSilence, AMasterOnlyLogsItAndKeepsItsSocket)
{
	beMaster();
	EXPECT_THAT(passes(3), are({kJudged, kNewServer, kSilence, kJudged, kSilence, kJudged, kSilence}));
	EXPECT_EQ(mode, MODE_MASTER);
	EXPECT_EQ(status(), 1);
}

TEST_F(ReceiverSilence, ASlaveWithoutCarrierNeverCountsAndNeverTakesOver)
{
	partnerHostIsDead();
	fakeoutside::commandPrints(kEth1, {"0\n"});
	const List later = join({kJudged, kSilence, kCarrierError});
	EXPECT_THAT(passes(5), are({kJudged, kNewServer, kSilence, kCarrierError, later, later, later, later}));
	EXPECT_EQ(mode, MODE_SLAVE);
}

TEST_F(ReceiverSilence, TheThirdFindsAPartnerThatStillAnswersPings)
{
	// The socket is kept.
	EXPECT_THAT(passes(4), are({kJudged, kNewServer, kCounted1, kJudged, kNewServer, kCounted2, kJudged, kNewServer,
	                            kThird, kPartnerIsThere, kJudged, kCounted1}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(g_specialAsking, 0);
}

TEST_F(ReceiverSilence, ACardLostAtTheSecondLookStopsTheTakeOverKeepsTheSocketAndStartsTheCountAnew)
{
	partnerHostIsDead();
	fakeoutside::commandPrints(kEth1, {"1\n", "1\n", "1\n", "0\n", "1\n"});
	EXPECT_THAT(passes(4, 3), are({kJudged,
	                               kNewServer,
	                               kThird,
	                               {"log D CHeartReciver:196 Reciver : my comunicationLanCard problem"},
	                               kJudged,
	                               kCounted1}));
	EXPECT_EQ(mode, MODE_SLAVE);
}

TEST_F(ReceiverSilence, ACardErrorBetweenIsNeitherCountedNorForgetsTheCount)
{
	fakeoutside::commandPrints(kEth1, {"1\n", "0\n", "1\n"});
	EXPECT_THAT(passes(3), are({kJudged, kNewServer, kCounted1, kJudged, kNewServer, kSilence, kCarrierError, kJudged,
	                            kCounted2}));
}

TEST_F(ReceiverSilence, TheThirdFromADeadPartnerIsATakeOverWhichKillsRunningProgramsFirst)
{
	partnerHostIsDead();
	events::at("system ", [this] { EXPECT_EQ(velarix::loadShared(mode), MODE_MASTER); });
	events::at("command kill-by-name", [this] { EXPECT_EQ(velarix::loadShared(mode), MODE_MASTER); });
	for (const bool programRan : {false, true})
	{
		programRuns(programRan);
		mode = MODE_SLAVE;
		events::clear();
		const List kill = programRan ? join({{"log D CHeartReciver:215 Reciver : kill"}, kKillPrograms}) : List{};
		EXPECT_THAT(pass(3), are({kJudged,
		                          kNewServer,
		                          kThird,
		                          {"ping 10.0.0.2 x10"},
		                          kill,
		                          {"log D CHeartReciver:218 try to process run"},
		                          kRunPrograms,
		                          kDropped}));
		EXPECT_EQ(mode, MODE_MASTER);
		EXPECT_EQ(status(), 1);
		EXPECT_EQ(g_specialAsking, 0);
		EXPECT_FALSE(running);
	}
}

TEST_F(ReceiverSilence, TheCountOutlivesATimeAsMaster)
{
	atPass(2, [this] { beMaster(); });
	atPass(3, [this] { mode = MODE_SLAVE; });
	EXPECT_THAT(pass(3), are({kJudged, kCounted2}));
}

TEST_F(ReceiverSilence, TheRoleIsLookedAtAfterThePause)
{
	events::at("sleep ", [this] { velarix::storeShared(mode, MODE_MASTER); });
	EXPECT_THAT(passes(1), are({kJudged, kNewServer, kSilence}));
}

class OwnChecks : public ReceiverTest
{
};

TEST_F(OwnChecks, AOneAnywhereInTheCarrierFilesTextIsACarrier)
{
	for (const auto& [printed, carrier] : std::map<std::string, int>{
	         {"1\n", 1}, {"1", 1}, {"0\n", 0}, {"", 0}, {"cat: error 13\n", 1}, {"0\n1\n", 1}, {"velarixErr\n", 0}})
	{
		events::clear();
		fakeoutside::commandPrints("cat /sys/class/net/eth0/carrier", {printed});
		EXPECT_EQ(receiver->serviceLanCardCheck(), carrier) << printed;
		fakeoutside::commandPrints(kEth1, {printed});
		EXPECT_EQ(receiver->ComunicationLanCardCheck(), carrier) << printed;
		EXPECT_THAT(events::without({"log "}), ElementsAre("command cat /sys/class/net/eth0/carrier", kCarrier[0]));
	}
}

TEST_F(OwnChecks, OneReplyOfTheGatewayOfTenIsEnoughAndAnErrorIsLoggedWithItsCode)
{
	fakeoutside::pingGives("10.0.0.254", {1, 0});
	EXPECT_TRUE(receiver->isMyNetworkOK());
	EXPECT_FALSE(receiver->isMyNetworkOK());
	events::at("ping ", events::throws(Poco::Net::HostNotFoundException("gateway", 42)));
	EXPECT_FALSE(receiver->isMyNetworkOK());
	EXPECT_THAT(events::all(),
	            ElementsAre("ping 10.0.0.254 x10", "ping 10.0.0.254 x10", "ping 10.0.0.254 x10",
	                        "log E CHeartReciver:590 my network has some problems: Host not found: gateway[CODE:42]"));
}

} // namespace
