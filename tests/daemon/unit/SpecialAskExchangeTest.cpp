// The ask of a master that gave up, as both nodes see it, heartbeat by heartbeat.
#include "ReceiverTest.h"
#include "TwoNodes.h"

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace
{

/// `first` is the configured master, `second` the configured slave.
class SpecialAskExchange : public TwoNodes
{
protected:
	void SetUp() override
	{
		TwoNodes::SetUp();
		first = std::make_unique<Node>("1", 1);
		second = std::make_unique<Node>("2", 2);
	}

	void loseThePrograms(Node& node)
	{
		node.programs = false;
		EXPECT_FALSE(node.judges());
	}

	/// One heartbeat of a partner that stays slave; `hearer` waits for its ask.
	void expectWait(Node& hearer, const std::string& partnersBeat, const std::string& shown)
	{
		hearer.hears(partnersBeat);
		EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({shown})));
		EXPECT_EQ(hearer.role, 2);
		EXPECT_EQ(hearer.asking, 1);
		EXPECT_TRUE(hearer.rests());
	}

	std::unique_ptr<Node> first;
	std::unique_ptr<Node> second;
};

const char kIdleSlave[] = "/process/0/2/20240131235959/0/";
const char kAskingSlave[] = "/process/0/2/20240131235959/1/";

std::string waitOK(int n)
{
	return "log D CHeartReciver:403 My NetWork Status: OK  MY:SLAVE PARTNER:SLAVE Special ask <-- waiting result [" +
	       std::to_string(n) + "/3]";
}

std::string waitNot(int n)
{
	return "log D CHeartReciver:429 My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Special ask <-- answer wait [" +
	       std::to_string(n) + "/3]";
}

TEST_F(SpecialAskExchange, AMasterWithoutItsProgramsAsksInEveryHeartbeat)
{
	EXPECT_EQ(first->beat(), "/process/1/1/20240131235959/0/");
	loseThePrograms(*first);
	EXPECT_EQ(first->role, 2);
	EXPECT_EQ(first->status(), 1);
	EXPECT_TRUE(first->rests());
	EXPECT_EQ(first->beat(), kAskingSlave);
	EXPECT_EQ(first->beat(), kAskingSlave);
}

TEST_F(SpecialAskExchange, AnAskedSlaveRaisesTheAddressThenStartsTheService)
{
	loseThePrograms(*first);
	const std::string ask = first->beat();
	second->hears(ask);
	EXPECT_THAT(events::all(),
	            ElementsAreArray(steps::heard({"log D CHeartReciver:411 szTmp[1] specialAsk[1]",
	                                           "log D CHeartReciver:414 special ask: slave -> master",
	                                           steps::raiseAddress(), steps::raiseAddressAndRunPrograms()})));
	EXPECT_EQ(second->role, 1);
	EXPECT_EQ(second->asking, 0);
	EXPECT_TRUE(second->serves());
	EXPECT_EQ(second->beat(), "/process/1/1/20240131235959/0/");
}

TEST_F(SpecialAskExchange, APartnerThatBecameMasterEndsTheAskAtOnce)
{
	loseThePrograms(*first);
	second->hears(first->beat());
	const std::string answer = second->beat();
	first->hears(answer);
	EXPECT_THAT(events::all(), ElementsAreArray(steps::heard(
	                               {"log D CHeartReciver:287 My NetWork Status: OK MY:SLAVE PARTNER:MASTER OK",
	                                "log D CHeartReciver:350 szTmp[1] szPartnerProcessRunning[0]"})));
	EXPECT_EQ(first->beat(), kIdleSlave);
	EXPECT_TRUE(first->rests());
	EXPECT_TRUE(second->serves());
}

TEST_F(SpecialAskExchange, AfterAnAnsweredAskTheRolesStay)
{
	loseThePrograms(*first);
	second->hears(first->beat());
	for (int i = 0; i < 5; ++i)
	{
		first->hears(second->beat());
		EXPECT_TRUE(first->judges());
		second->hears(first->beat());
		EXPECT_TRUE(second->judges());
	}
	EXPECT_EQ(first->role, 2);
	EXPECT_TRUE(first->rests());
	EXPECT_EQ(second->role, 1);
	EXPECT_TRUE(second->serves());
}

TEST_F(SpecialAskExchange, ARepeatedAskFindsAMasterAndDoesNothing)
{
	loseThePrograms(*first);
	second->hears(first->beat());
	second->hears(first->beat());
	EXPECT_THAT(events::all(), ElementsAreArray(steps::heard(
	                               {"log D CHeartReciver:278 My NetWork Status: OK   MY:MASTER PARTNER:SLAVE OK"})));
	EXPECT_TRUE(second->serves());
}

TEST_F(SpecialAskExchange, ALostServiceCardAsksWithTheStatusNotOK)
{
	first->serviceCarrier = false;
	EXPECT_FALSE(first->judges());
	EXPECT_EQ(first->role, 2);
	EXPECT_EQ(first->status(), 0);
	EXPECT_TRUE(first->rests());
	EXPECT_EQ(first->beat(), kAskingSlave);
}

TEST_F(SpecialAskExchange, WithTheStatusNotOKTheAskEndsOnlyAtTheSecondMastersHeartbeat)
{
	first->serviceCarrier = false;
	first->judges();
	second->hears(first->beat());
	const std::string answer = second->beat();

	first->hears(answer);
	EXPECT_THAT(events::all(), ElementsAreArray(steps::heard(
	                               {"log D CHeartReciver:329 My NetWork Status: NOT OK MY:SLAVE PARTNER:MASTER OK",
	                                "log D CHeartReciver:376 szTmp[1] szPartnerProcessRunning[0]"})));
	EXPECT_EQ(first->status(), 1);
	EXPECT_EQ(first->asking, 1);

	first->hears(answer);
	EXPECT_EQ(first->asking, 0);
	EXPECT_EQ(first->role, 2);
	EXPECT_TRUE(second->serves());
}

TEST_F(SpecialAskExchange, ThreeHeartbeatsOfAPartnerThatStaysSlaveAreOnlyCounted)
{
	loseThePrograms(*first);
	expectWait(*first, kIdleSlave, waitOK(1));
	expectWait(*first, kIdleSlave, waitOK(2));
	expectWait(*first, kIdleSlave, waitOK(3));
	EXPECT_EQ(first->beat(), kAskingSlave);
}

TEST_F(SpecialAskExchange, TheFourthHeartbeatOfAPartnerThatStaysSlaveReturnsTheMasterRole)
{
	loseThePrograms(*first);
	for (int i = 1; i <= 3; ++i)
	{
		expectWait(*first, kIdleSlave, waitOK(i));
	}
	first->hears(kIdleSlave);
	EXPECT_THAT(events::all(),
	            ElementsAreArray(
	                steps::heard({"log D CHeartReciver:411 szTmp[1] specialAsk[0]",
	                              "log D CHeartReciver:418 My NetWork Status: OK MY:SLAVE PARTNER:SLAVE OK",
	                              "log D CHeartReciver:473 try to process run", steps::raiseAddressAndRunPrograms()})));
	EXPECT_EQ(first->role, 1);
	EXPECT_EQ(first->count(), 0);
	EXPECT_TRUE(first->serves());
	EXPECT_EQ(first->beat(), "/process/1/1/20240131235959/0/");
}

TEST_F(SpecialAskExchange, TheFourthHeartbeatWithTheStatusNotOKReturnsTheMasterRoleToo)
{
	first->serviceCarrier = false;
	first->judges();
	for (int i = 1; i <= 3; ++i)
	{
		expectWait(*first, kIdleSlave, waitNot(i));
	}
	first->hears(kIdleSlave);
	EXPECT_THAT(events::all(),
	            ElementsAreArray(
	                steps::heard({"log D CHeartReciver:434 My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE "
	                              "Special ask <-- answer OK [4/3]",
	                              "log D CHeartReciver:440 szTmp[1] specialAsk[0]",
	                              "log D CHeartReciver:447 My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Reset",
	                              "log D CHeartReciver:473 try to process run", steps::raiseAddressAndRunPrograms()})));
	EXPECT_EQ(first->role, 1);
	EXPECT_EQ(first->status(), 0);
	EXPECT_EQ(first->asking, 0);
	EXPECT_TRUE(first->serves());
}

TEST_F(SpecialAskExchange, AConfiguredSlaveThatAskedInVainStaysSlave)
{
	second = std::make_unique<Node>("2", 1);
	loseThePrograms(*second);
	for (int i = 1; i <= 3; ++i)
	{
		expectWait(*second, kIdleSlave, waitOK(i));
	}
	second->hears(kIdleSlave);
	EXPECT_THAT(events::all(), ElementsAreArray(steps::heard(
	                               {"log D CHeartReciver:411 szTmp[1] specialAsk[0]",
	                                "log D CHeartReciver:418 My NetWork Status: OK MY:SLAVE PARTNER:SLAVE OK"})));
	EXPECT_EQ(second->role, 2);
	EXPECT_TRUE(second->rests());
	EXPECT_EQ(second->beat(), kIdleSlave);
}

TEST_F(SpecialAskExchange, APartnerThatBecomesMasterDuringTheWaitEndsTheAsk)
{
	loseThePrograms(*first);
	expectWait(*first, kIdleSlave, waitOK(1));
	expectWait(*first, kIdleSlave, waitOK(2));
	second->hears(first->beat());
	first->hears(second->beat());
	EXPECT_EQ(first->asking, 0);
	EXPECT_EQ(first->count(), 2);
	EXPECT_EQ(first->role, 2);
}

TEST_F(SpecialAskExchange, ANewAskWaitsForThreeHeartbeatsAgain)
{
	loseThePrograms(*first);
	expectWait(*first, kIdleSlave, waitOK(1));
	expectWait(*first, kIdleSlave, waitOK(2));
	first->hears("/process/1/1/20240131235959/0/");
	first->role = 1;
	EXPECT_EQ(first->count(), 2);

	loseThePrograms(*first);
	EXPECT_EQ(first->count(), 0);
	for (int i = 1; i <= 3; ++i)
	{
		expectWait(*first, kIdleSlave, waitOK(i));
	}
}

TEST_F(SpecialAskExchange, CrossingAsksAreCountedForThreeHeartbeatsThenHonoured)
{
	second = std::make_unique<Node>("2", 1);
	loseThePrograms(*first);
	loseThePrograms(*second);
	for (int i = 1; i <= 3; ++i)
	{
		expectWait(*first, second->beat(), waitOK(i));
		expectWait(*second, first->beat(), waitOK(i));
	}

	first->hears(kAskingSlave);
	EXPECT_THAT(events::all(),
	            ElementsAreArray(steps::heard({"log D CHeartReciver:411 szTmp[1] specialAsk[1]",
	                                           "log D CHeartReciver:414 special ask: slave -> master",
	                                           steps::raiseAddress(), steps::raiseAddressAndRunPrograms()})));
	EXPECT_EQ(first->role, 1);
	EXPECT_EQ(first->asking, 0);

	second->hears(first->beat());
	EXPECT_EQ(second->role, 2);
	EXPECT_EQ(second->asking, 0);
	EXPECT_TRUE(second->rests());
	EXPECT_TRUE(first->serves());
}

TEST_F(SpecialAskExchange, AsksThatCrossOnTheWireMakeTwoMastersUntilTheNextHeartbeats)
{
	second = std::make_unique<Node>("2", 1);
	loseThePrograms(*first);
	loseThePrograms(*second);
	for (int i = 1; i <= 3; ++i)
	{
		first->hears(kAskingSlave);
		second->hears(kAskingSlave);
	}
	first->hears(kAskingSlave);
	second->hears(kAskingSlave);
	EXPECT_EQ(first->role, 1);
	EXPECT_EQ(second->role, 1);

	second->hears(first->beat());
	EXPECT_EQ(second->role, 2);
	EXPECT_TRUE(second->rests());
	EXPECT_TRUE(first->serves());
}

TEST_F(SpecialAskExchange, AnAskingMastersHeartbeatsAreCountedAsAnswers)
{
	loseThePrograms(*first);
	const std::string master = "/process/1/1/20240131235959/1/";
	for (int i = 1; i <= 3; ++i)
	{
		first->hears(master);
		EXPECT_THAT(events::all(),
		            ElementsAreArray(steps::heard(
		                {"log D CHeartReciver:287 My NetWork Status: OK MY:SLAVE PARTNER:MASTER OK",
		                 "log D CHeartReciver:350 szTmp[1] szPartnerProcessRunning[1]",
		                 "log D CHeartReciver:363 My NetWork Status: OK MY:SLAVE PARTNER:MASTER Special ask <-- answer "
		                 "wait [" +
		                     std::to_string(i) + "/3]"})));
		EXPECT_EQ(first->asking, 1);
	}
	first->hears(master);
	EXPECT_THAT(events::all(),
	            ElementsAreArray(steps::heard(
	                {"log D CHeartReciver:287 My NetWork Status: OK MY:SLAVE PARTNER:MASTER OK",
	                 "log D CHeartReciver:350 szTmp[1] szPartnerProcessRunning[1]",
	                 "log D CHeartReciver:368 My NetWork Status: OK MY:SLAVE PARTNER:MASTER Special ask <-- answer OK "
	                 "[4/4]"})));
	EXPECT_EQ(first->asking, 0);
	EXPECT_EQ(first->count(), 0);
	EXPECT_EQ(first->role, 2);
}

TEST_F(SpecialAskExchange, TheAskIsSeenWhateverTheOtherFieldsSay)
{
	for (const char* ask : {"/process/1/2/99999999999999/1/", "/process/0/2//1/", "/process/x/0/y/10/"})
	{
		second = std::make_unique<Node>("2", 2);
		second->hears(ask);
		EXPECT_EQ(second->role, 1) << ask;
		EXPECT_TRUE(second->serves()) << ask;
	}
}

} // namespace
