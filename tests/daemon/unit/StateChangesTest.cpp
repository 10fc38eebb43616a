// Other threads read role and ask at any moment. These tests pin between which two
// events each value changes.
#include "FakeOutside.h"
#include "ReceiverTest.h"
#include "velarix/shared_value.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

const char kGateway[] = "10.0.0.254";
const char kService[] = "10.0.1.100";
const char kPartner[] = "10.0.0.2";
const char kServiceCard[] = "cat /sys/class/net/eth0/carrier";

class StateChanges : public ReceiverTest
{
protected:
	struct State
	{
		MODE role;
		int status;
		int ask;
		int count;
	};

	void begin(const State& state)
	{
		mode = state.role;
		status() = state.status;
		velarix::storeShared(g_specialAsking, state.ask);
		count() = state.count;
	}

	std::vector<std::string> ofNetworkStatus()
	{
		return stateChanges([this] { receiver->networkStatus(); });
	}

	std::vector<std::string> ofOwnJudgement()
	{
		return stateChanges([this] { WorkerAccess::judgeOwnNode(*receiver); });
	}

	std::vector<std::string> ofHearing(const std::string& role, const std::string& ask)
	{
		return stateChanges([&] { hear(role, ask); });
	}
};

TEST_F(StateChanges, AMasterWithoutGatewayIsASlaveBeforeItsProgramsAreKilled)
{
	begin({.role = MODE_MASTER, .status = 1, .ask = 0, .count = 2});
	fakeoutside::pingGives(kGateway, 0);
	EXPECT_THAT(ofNetworkStatus(), ElementsAre("role 2 status 1 ask 0 count 2 at command kill-by-name dbServer"));
}

TEST_F(StateChanges, AMasterWhoseServiceAddressIsSilentIsASlaveBeforeItsProgramsAreKilled)
{
	begin({.role = MODE_MASTER, .status = 1, .ask = 0, .count = 2});
	fakeoutside::pingGives(kService, 0);
	EXPECT_THAT(ofNetworkStatus(), ElementsAre("role 2 status 1 ask 0 count 2 at command kill-by-name dbServer"));
}

TEST_F(StateChanges, AMasterWithoutServiceCarrierAsksOnlyAfterItDroppedTheAddress)
{
	begin({.role = MODE_MASTER, .status = 1, .ask = 0, .count = 2});
	fakeoutside::commandPrints(kServiceCard, "0\n");
	EXPECT_THAT(ofNetworkStatus(), ElementsAre("role 2 status 1 ask 0 count 2 at command kill-by-name dbServer",
	                                           "role 2 status 1 ask 1 count 0 at the end"));
}

TEST_F(StateChanges, ASlaveWithoutAPartnerIsMasterBeforeItStartsThePrograms)
{
	begin({.role = MODE_SLAVE, .status = 1, .ask = 0, .count = 2});
	fakeoutside::pingGives(kPartner, 0);
	fakeoutside::pingGives(kService, 0);
	EXPECT_THAT(ofNetworkStatus(),
	            ElementsAre("role 1 status 1 ask 0 count 2 at log D Utill:48 try to start virtual ip"));
}

TEST_F(StateChanges, AMasterWithoutProgramsIsASlaveAfterTheLineAndAsksAfterTheAddressIsDropped)
{
	begin({.role = MODE_MASTER, .status = 1, .ask = 0, .count = 2});
	fakeoutside::commandPrints(kServiceCard, "1\n");
	EXPECT_THAT(ofOwnJudgement(), ElementsAre("role 2 status 1 ask 0 count 2 at command vip-stop",
	                                          "role 2 status 1 ask 1 count 0 at sleep 1000"));
}

TEST_F(StateChanges, AFailedNetworkMakesTheStatusNotOKAfterTheLineAndBeforeThePause)
{
	begin({.role = MODE_MASTER, .status = 1, .ask = 0, .count = 2});
	fakeoutside::pingGives(kGateway, 0);
	EXPECT_THAT(ofOwnJudgement(), ElementsAre("role 2 status 1 ask 0 count 2 at command kill-by-name dbServer",
	                                          "role 2 status 0 ask 0 count 2 at sleep 1000"));
}

TEST_F(StateChanges, AMastersHeartbeatMakesTheStatusOKBeforeItsAskIsLookedAt)
{
	begin({.role = MODE_SLAVE, .status = 0, .ask = 0, .count = 2});
	EXPECT_THAT(
	    ofHearing("1", "0"),
	    ElementsAre("role 2 status 1 ask 0 count 2 at log D CHeartReciver:376 szTmp[1] szPartnerProcessRunning[0]"));
}

TEST_F(StateChanges, AMastersHeartbeatWithoutAnAskEndsTheOwnAskAfterTheLine)
{
	begin({.role = MODE_SLAVE, .status = 1, .ask = 1, .count = 2});
	EXPECT_THAT(ofHearing("1", "0"), ElementsAre("role 2 status 1 ask 0 count 2 at the end"));
}

TEST_F(StateChanges, TheCountGrowsBeforeTheWaitIsLogged)
{
	begin({.role = MODE_SLAVE, .status = 1, .ask = 1, .count = 1});
	EXPECT_THAT(ofHearing("1", "1"),
	            ElementsAre("role 2 status 1 ask 1 count 2 at log D CHeartReciver:363 My NetWork "
	                        "Status: OK MY:SLAVE PARTNER:MASTER Special ask <-- answer wait [2/3]"));
}

TEST_F(StateChanges, TheAskEndsAfterTheLineThatTellsTheAnswer)
{
	begin({.role = MODE_SLAVE, .status = 1, .ask = 1, .count = 3});
	EXPECT_THAT(ofHearing("1", "1"), ElementsAre("role 2 status 1 ask 1 count 4 at log D CHeartReciver:368 My NetWork "
	                                             "Status: OK MY:SLAVE PARTNER:MASTER Special ask <-- answer OK [4/4]",
	                                             "role 2 status 1 ask 0 count 0 at the end"));
}

TEST_F(StateChanges, WithTheStatusNotOKTheAskEndsAfterTheLineThatTellsTheAnswerToo)
{
	begin({.role = MODE_SLAVE, .status = 0, .ask = 1, .count = 3});
	EXPECT_THAT(
	    ofHearing("1", "1"),
	    ElementsAre("role 2 status 1 ask 1 count 3 at log D CHeartReciver:376 szTmp[1] szPartnerProcessRunning[1]",
	                "role 2 status 1 ask 1 count 4 at log D CHeartReciver:389 My NetWork Status: NOT OK MY:SLAVE "
	                "PARTNER:SLAVE Special ask <-- answer OK [4/3]",
	                "role 2 status 1 ask 0 count 0 at the end"));
}

TEST_F(StateChanges, AnUnansweredAskEndsBeforeThePartnersIsLookedAt)
{
	begin({.role = MODE_SLAVE, .status = 1, .ask = 1, .count = 3});
	EXPECT_THAT(ofHearing("2", "1"),
	            ElementsAre("role 2 status 1 ask 0 count 0 at log D CHeartReciver:411 szTmp[1] specialAsk[1]",
	                        "role 1 status 1 ask 0 count 0 at command vip-stop"));
}

TEST_F(StateChanges, WithTheStatusNotOKAnUnansweredAskEndsAfterTheLineAndBeforeThePartnersIsLookedAt)
{
	begin({.role = MODE_SLAVE, .status = 0, .ask = 1, .count = 3});
	EXPECT_THAT(
	    ofHearing("2", "1"),
	    ElementsAre("role 2 status 0 ask 1 count 4 at log D CHeartReciver:434 My NetWork Status: NOT OK MY:SLAVE "
	                "PARTNER:SLAVE Special ask <-- answer OK [4/3]",
	                "role 2 status 0 ask 0 count 0 at log D CHeartReciver:440 szTmp[1] specialAsk[1]",
	                "role 1 status 0 ask 0 count 0 at command vip-stop"));
}

TEST_F(StateChanges, AConfiguredMasterIsMasterBeforeItsProgramsAreKilled)
{
	begin({.role = MODE_SLAVE, .status = 1, .ask = 0, .count = 2});
	configureRole("1");
	programRuns(true);
	EXPECT_THAT(ofHearing("2", "0"),
	            ElementsAre("role 1 status 1 ask 0 count 2 at log D CHeartReciver:470 MASTER kill"));
}

TEST_F(StateChanges, AConfiguredSlaveIsASlaveBeforeItsProgramsAreKilled)
{
	begin({.role = MODE_MASTER, .status = 1, .ask = 0, .count = 2});
	configureRole("2");
	programRuns(true);
	EXPECT_THAT(ofHearing("1", "0"),
	            ElementsAre("role 2 status 1 ask 0 count 2 at log D CHeartReciver:480 SLAVE kill"));
}

TEST_F(StateChanges, AMasterWhoseProgramsRunIsOKAgainInSilence)
{
	begin({.role = MODE_MASTER, .status = 0, .ask = 0, .count = 2});
	programRuns(true);
	EXPECT_THAT(ofHearing("2", "0"), ElementsAre("role 1 status 1 ask 0 count 2 at the end"));
}

TEST_F(StateChanges, AMasterThatHearsASlaveChangesNothing)
{
	begin({.role = MODE_MASTER, .status = 1, .ask = 0, .count = 2});
	EXPECT_THAT(ofHearing("2", "1"), IsEmpty());
}

TEST_F(StateChanges, AFailOverIsMasterBeforeItStartsAnything)
{
	begin({.role = MODE_SLAVE, .status = 1, .ask = 0, .count = 2});
	EXPECT_THAT(stateChanges([this] { receiver->failOver(); }),
	            ElementsAre("role 1 status 1 ask 0 count 2 at log D CHeartReciver:601 try to process run"));
}

} // namespace
