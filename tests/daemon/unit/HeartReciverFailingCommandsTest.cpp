// Commands that cannot be started and pings that raise, met by the receiver's loop:
// what goes on as if the answer had been no.

#include <Poco/Exception.h>
#include <Poco/Net/NetException.h>

#include "FakeOutside.h"
#include "ReceiverLoop.h"
#include "velarix/shared_value.h"

using steps::are;
using steps::cardLookedAt;
using steps::dropped;
using steps::join;
using steps::partnerIsSilent;
using steps::runPrograms;
using steps::silence;
using steps::slaveJudged;
using steps::slaveJudgedWithPartnerSilent;

namespace
{

constexpr char kEth1[] = "cat /sys/class/net/eth1/carrier";
constexpr char kKill[] = "kill-by-name dbServer";
constexpr char kStop[] = "vip-stop";
constexpr char kNewServer[] = "log D CHeartReciver:124 new server";
constexpr char kCardOK[] = "log D CHeartReciver:185 COMUNICATION LAN CARD OK";
constexpr char kThird[] = "log D CHeartReciver:192 Reciver : no received message";
constexpr char kCardProblem[] = "log D CHeartReciver:196 Reciver : my comunicationLanCard problem";
constexpr char kKillBegins[] = "log D CHeartReciver:215 Reciver : kill";
constexpr char kRun[] = "log D CHeartReciver:218 try to process run";

/// A command that cannot be started, and the pause that the shell runner makes.
events::List notStarted(const std::string& command)
{
	return {"command " + command, "log E Utill:550 shell command run error(fp is NULL): " + command, "sleep 1000"};
}

/// A silence up to its judgement as the third one.
events::List thirdSilence()
{
	return join({silence(), cardLookedAt("1"), kCardOK, kThird});
}

/// The partner asked by a ping that raises.
events::List pingOfThePartnerRaises()
{
	return {"log D Utill:756 partnerComunicationIPcheck : partnerIP: 10.0.0.2", "ping 10.0.0.2 x10",
	        "log E Utill:766 partner Comunication IP Check Failed: Host not found: partner[CODE:3]",
	        "log D Utill:768 partnerComunicationIPcheck : false"};
}

/// A master's network checks, passed, and its program missing.
events::List masterWithoutItsProgram()
{
	events::List judged = steps::masterJudged();
	judged.back() = "log D CHeartReciver:567 processStatus : ERROR";
	return join({judged, "log D CHeartReciver:106 stop virtual IP"});
}

class ReceiverFailingCommands : public ReceiverLoop
{
protected:
	static void recordTheAskAtEachWait()
	{
		events::onSleep([](long) { events::add("ask " + std::to_string(velarix::loadShared(g_specialAsking))); });
	}

	/// From its n-th run on the command cannot be started.
	static void failsFrom(int n, const std::string& command)
	{
		fakeoutside::onAction(
		    [command, n, runs = std::make_shared<int>(0)](const std::string& event)
		    {
			    if (event == "command " + command && ++*runs == n)
			    {
				    fakeoutside::commandFails(command);
			    }
		    });
	}
};

TEST_F(ReceiverFailingCommands, AMasterWithoutItsProgramAsksEvenWhenTheStopCommandCannotStart)
{
	mode = MODE_MASTER;
	atPass(1, [this] { count() = 2; });
	fakeoutside::commandFails(kStop);
	recordTheAskAtEachWait();
	EXPECT_THAT(passes(1), are({masterWithoutItsProgram(), notStarted(kStop), "ask 0", "sleep 1000", "ask 1"}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(g_specialAsking, 1);
	EXPECT_EQ(count(), 0);
	EXPECT_EQ(status(), 1);
}

TEST_F(ReceiverFailingCommands, ASecondLookAtTheCardThatCannotStartStopsTheTakeOver)
{
	fakeoutside::pingGives("10.0.0.2", 0);
	failsFrom(4, kEth1);
	EXPECT_THAT(pass(3),
	            are({slaveJudgedWithPartnerSilent(), kNewServer, thirdSilence(), notStarted(kEth1), kCardProblem}));
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(g_specialAsking, 0);
	EXPECT_EQ(status(), 1);
}

TEST_F(ReceiverFailingCommands, APingErrorOfThePartnerCountsAsNoAnswerAtTheThirdSilence)
{
	atPass(3,
	       [] { fakeoutside::pingThrows("10.0.0.2", [] { throw Poco::Net::HostNotFoundException("partner", 3); }); });
	EXPECT_THAT(pass(3),
	            are({"log D CHeartReciver:94 Reciver while start", "log D CHeartReciver:500 networkStatus : start",
	                 "log D CHeartReciver:538 networkStatus : SLAVE", pingOfThePartnerRaises(), steps::serviceAnswers(),
	                 "log D CHeartReciver:96 networkResult: 1", kNewServer, thirdSilence(), cardLookedAt("1"),
	                 pingOfThePartnerRaises(), kRun, runPrograms(), dropped()}));
	EXPECT_EQ(mode, MODE_MASTER);
	EXPECT_EQ(status(), 1);
	EXPECT_EQ(g_specialAsking, 0);
}

TEST_F(ReceiverFailingCommands, APartnerWhosePingRaisesOnlyAtTheThirdSilenceIsTakenOver)
{
	events::onSleep(
	    [silences = std::make_shared<int>(0)](long)
	    {
		    if (++*silences == 3)
		    {
			    fakeoutside::pingThrows("10.0.0.2", [] { throw Poco::Net::HostNotFoundException("partner", 3); });
		    }
	    });
	EXPECT_THAT(pass(3), are({slaveJudged(), kNewServer, thirdSilence(), cardLookedAt("1"), pingOfThePartnerRaises(),
	                          kRun, runPrograms(), dropped()}));
	EXPECT_EQ(mode, MODE_MASTER);
}

TEST_F(ReceiverFailingCommands, ATakeOverRunsTheProgramsEvenWhenTheKillCommandCannotStart)
{
	fakeoutside::pingGives("10.0.0.2", 0);
	programRuns(true);
	fakeoutside::commandFails(kKill);
	EXPECT_THAT(pass(3), are({slaveJudgedWithPartnerSilent(), kNewServer, thirdSilence(), cardLookedAt("1"),
	                          partnerIsSilent(), kKillBegins, notStarted(kKill), kRun, runPrograms(), dropped()}));
	EXPECT_EQ(mode, MODE_MASTER);
	EXPECT_EQ(status(), 1);
}

} // namespace
