// Two nodes that hear each other: the same role on both, and the special ask from its first
// heartbeat to its end.
#include <memory>

#include "ReceiverTest.h"
#include "TwoNodes.h"

using testing::ElementsAreArray;

namespace
{

class RoleConflict : public TwoNodes
{
};

const char kTwoMastersOK[] = "log D CHeartReciver:282 My NetWork Status: OK MY:MASTER PARTNER:MASTER OK";

events::List restart()
{
	return steps::join({"log D CHeartReciver:470 MASTER kill", steps::killPrograms(),
	                    "log D CHeartReciver:473 try to process run", steps::raiseAddressAndRunPrograms()});
}

events::List rest()
{
	return steps::join({"log D CHeartReciver:480 SLAVE kill", steps::killPrograms(), steps::dropAddress()});
}

TEST_F(RoleConflict, OfTwoMastersTheConfiguredOneRestartsAndTheOtherRests)
{
	Node first("1", 1);
	Node second("2", 1);
	const std::string firstBeat = first.beat();
	first.hears(second.beat());
	EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({kTwoMastersOK, restart()})));
	second.hears(firstBeat);
	EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({kTwoMastersOK, rest()})));
	EXPECT_EQ(first.role, 1);
	EXPECT_TRUE(first.serves());
	EXPECT_EQ(second.role, 2);
	EXPECT_TRUE(second.rests());
}

TEST_F(RoleConflict, ASlaveThatTookOverAloneRestsAgainOnceItHearsAMaster)
{
	Node node("2", 2);
	node.silent = {"10.0.0.2"};
	node.hears("/process/0/2/20240131235959/1/");
	EXPECT_TRUE(node.serves());
	node.hears("/process/1/1/20240131235959/0/");
	EXPECT_EQ(node.role, 2);
	EXPECT_TRUE(node.rests());
}

TEST_F(RoleConflict, TwoConfiguredMastersRestartAtEveryHeartbeat)
{
	Node first("1", 1);
	Node second("1", 1);
	for (int i = 0; i < 3; ++i)
	{
		first.hears(second.beat());
		EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({kTwoMastersOK, restart()})));
		second.hears(first.beat());
		EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({kTwoMastersOK, restart()})));
	}
	EXPECT_EQ(first.role, 1);
	EXPECT_EQ(second.role, 1);
}

TEST_F(RoleConflict, OfTwoSlavesTheConfiguredMasterTakesTheService)
{
	Node first("1", 2);
	Node second("2", 2);
	first.hears(second.beat());
	second.hears(first.beat());
	EXPECT_EQ(first.role, 1);
	EXPECT_TRUE(first.serves());
	EXPECT_EQ(second.role, 2);
	EXPECT_TRUE(second.rests());
}

TEST_F(RoleConflict, TwoConfiguredSlavesStaySlaves)
{
	Node first("2", 2);
	Node second("2", 2);
	for (int i = 0; i < 3; ++i)
	{
		first.hears(second.beat());
		second.hears(first.beat());
	}
	EXPECT_EQ(first.role, 2);
	EXPECT_TRUE(first.rests());
	EXPECT_EQ(second.role, 2);
	EXPECT_TRUE(second.rests());
}

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

} // namespace
