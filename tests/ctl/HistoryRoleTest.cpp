// What the history tells of the role: take-overs, giving up, asks and silences.

#include "HistoryTest.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
using namespace std::chrono_literals;

namespace
{

TEST_F(HistoryTest, ATakeOverThatGoesOnIsInThePicture)
{
	becomeMaster();
	receiver(94);
	EXPECT_FALSE(snapshot().takeOver);
	receiver(164, "received message: /process/1/1/20261121090601/0/");
	receiver(282);
	receiver(470);
	ASSERT_TRUE(snapshot().takeOver);
	EXPECT_EQ(snapshot().takeOver->cause, Cause::bothMasters);
	EXPECT_EQ(snapshot().role->value, Role::master);
}

/// How a master gives up: the numbers of the two messages, its cause and fault.
struct GiveUpRow
{
	int found;
	int done;
	const char* cause;
	const char* fault;
	bool asks;
};

class GiveUp : public HistoryTest, public testing::WithParamInterface<GiveUpRow>
{
};

TEST_P(GiveUp, IsReportedWithItsCause)
{
	const GiveUpRow& row = GetParam();
	const std::string cause = row.cause;
	becomeMaster();
	pass(true);
	receiver(row.found);
	receiver(row.done);
	ran(std::string(kKill) + " server");
	ran(std::string(kKill) + " worker");
	std::vector<std::string> expected{std::string("fault-found ") + row.fault,
	                                  "role-changed master->slave (" + cause + ") 1300ms"};
	if (row.asks)
	{
		ran(kStop);
		expected.push_back("ask-made (" + cause + ")");
	}
	expected.insert(expected.end(), {"program-killed (give-up) server", "program-killed (give-up) worker"});
	if (row.asks)
	{
		expected.push_back("address-dropped (give-up)");
	}
	EXPECT_EQ(events(), expected);
	EXPECT_EQ(snapshot().role->value, Role::slave);
	EXPECT_EQ(snapshot().asking.has_value() && snapshot().asking->value, row.asks);
	checked('S', 0);
	EXPECT_THAT(events(), ElementsAre("programs-stopped (give-up) " + std::string(row.asks ? "800ms" : "700ms")));
}

INSTANTIATE_TEST_SUITE_P(Cause, GiveUp,
                         testing::Values(GiveUpRow{508, 509, "gateway-silent", "gateway", false},
                                         GiveUpRow{516, 517, "service-address-silent", "service-address", false},
                                         GiveUpRow{524, 525, "service-interface-down", "service-interface", true}));

TEST_F(HistoryTest, AnAskEndsWhenThePartnerIsMasterAndAsksNothing)
{
	giveUpAndAsk();
	receiver(403, "My NetWork Status: OK  MY:SLAVE PARTNER:SLAVE Special ask <-- waiting result [1/3]");
	receiver(350, "szTmp[1] szPartnerProcessRunning[1]");
	EXPECT_THAT(events(), IsEmpty());
	receiver(350, "szTmp[1] szPartnerProcessRunning[0]");
	EXPECT_THAT(events(), ElementsAre("ask-answered 300ms"));
	EXPECT_FALSE(snapshot().asking->value);
	receiver(350, "szTmp[1] szPartnerProcessRunning[0]");
	EXPECT_THAT(events(), IsEmpty());
}

/// The messages that end an ask with a partner that asks too, or stays slave.
class AskEnd : public HistoryTest, public testing::WithParamInterface<std::pair<int, const char*>>
{
};

TEST_P(AskEnd, IsReportedOnce)
{
	giveUpAndAsk();
	receiver(GetParam().first);
	EXPECT_THAT(events(), ElementsAre(std::string(GetParam().second) + " 100ms"));
	receiver(GetParam().first);
	EXPECT_THAT(events(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Message, AskEnd,
                         testing::Values(std::pair(368, "ask-answered"), std::pair(389, "ask-answered"),
                                         std::pair(411, "ask-unanswered"), std::pair(434, "ask-unanswered")));

TEST_F(HistoryTest, WithItsStatusNotOKTheAskStaysPending)
{
	giveUpAndAsk();
	receiver(329);
	receiver(376, "szTmp[1] szPartnerProcessRunning[0]");
	EXPECT_THAT(events(), IsEmpty());
	EXPECT_TRUE(snapshot().asking->value);
}

TEST_F(HistoryTest, TwoHeartbeatsThatDifferCorrectTheAskOneDoesNot)
{
	becomeMaster();
	sent("/process/1/1/20261121090601/1/");
	EXPECT_TRUE(snapshot().asking->value); // not reported before
	sent("/process/1/1/20261121090601/0/");
	EXPECT_TRUE(snapshot().asking->value);
	sent("/process/1/1/20261121090601/1/");
	sent("/process/1/1/20261121090601/0/");
	EXPECT_TRUE(snapshot().asking->value);
	sent("/process/1/1/20261121090601/0/");
	EXPECT_FALSE(snapshot().asking->value);
	EXPECT_THAT(events(), IsEmpty());
	EXPECT_EQ(snapshot().heartbeatsSent, 5U);
}

TEST_F(HistoryTest, TheThirdSilenceTakesOver)
{
	start();
	pass(false);
	heartbeat("/process/1/1/20261121090601/0/");
	events();
	receiver(146, "Reciver Connect Timed Out", 'E');
	receiver(185);
	receiver(189, "Reciver : nReceiveFailCount[1]");
	EXPECT_EQ(snapshot().silences, 1);
	receiver(146, "Reciver Connect Timed Out", 'E');
	receiver(189, "Reciver : nReceiveFailCount[2]");
	receiver(146, "Reciver Connect Timed Out", 'E');
	receiver(192, "Reciver : no received message");
	service(768);
	receiver(215, "Reciver : kill");
	ran(std::string(kKill) + " server");
	receiver(218);
	EXPECT_THAT(events(), ElementsAre("partner-lost 100ms", "silence-counted 1 of 3", "silence-counted 2 of 3",
	                                  "silence-counted 3 of 3", "fault-found partner-address",
	                                  "role-changed slave->master (partner-silent) 1600ms",
	                                  "takeover-began (partner-silent)", "program-killed (takeover) server"));
	EXPECT_TRUE(snapshot().partnerLost);
	EXPECT_EQ(snapshot().silences, 3);
}

TEST_F(HistoryTest, AHostWithoutHeartbeatsIsReportedOnceHoweverOftenItIsCounted)
{
	becomeStandby();
	for (int round = 0; round < 3; ++round)
	{
		receiver(146, "Reciver Connect Timed Out", 'E');
		receiver(189, "Reciver : nReceiveFailCount[1]");
		receiver(189, "Reciver : nReceiveFailCount[2]");
		receiver(192);
		receiver(201, "Reciver : Partner IP and Service IP are working, ...", 'E');
	}
	EXPECT_THAT(events(), ElementsAre("partner-lost no heartbeat yet", "silence-counted 1 of 3",
	                                  "silence-counted 2 of 3", "silence-counted 3 of 3", "fault-found heartbeats"));
	EXPECT_TRUE(snapshot().fault(Fault::heartbeats).there);
	receiver(150, "poll");
	heartbeat("/process/1/1/20261121090601/0/");
	EXPECT_THAT(events(), ElementsAre("partner-back", "fault-gone heartbeats 1200ms"));
	EXPECT_EQ(snapshot().silences, 0);
}

TEST_F(HistoryTest, ATakeOverThatAnErrorEndsIsUnfinished)
{
	start();
	pass(false);
	heartbeat("/process/0/2/x/1/");
	receiver(414);
	events();
	receiver(79, "Server Error: Exception: no memory[CODE: 0][noName]", 'E');
	pass(true);
	EXPECT_THAT(events(),
	            ElementsAre("error Server Error: Exception: no memory[CODE: 0][noName]",
	                        "takeover-unfinished (partner-asked) Exception: no memory[CODE: 0][noName] 200ms"));
	EXPECT_FALSE(snapshot().takeOver);
}

TEST_F(HistoryTest, ASlaveWithoutProgramsGoesBackInSilence)
{
	becomeMaster();
	receiver(324);
	EXPECT_FALSE(snapshot().networkOk->value);
	pass(false);
	EXPECT_THAT(events(), ElementsAre("fault-found both-masters", "role-changed master->slave (both-masters) 1200ms"));
	receiver(278);
	EXPECT_TRUE(snapshot().networkOk->value);
}

TEST_F(HistoryTest, APlannedMoveIsNoFaultAndNoFlapping)
{
	becomeMaster();
	moved = now;
	checked('M', 0);
	receiver(567);
	receiver(106);
	EXPECT_THAT(events(), ElementsAre("programs-stopped (switchover) 100ms",
	                                  "role-changed master->slave (switchover) 1200ms", "ask-made (switchover)"));
	EXPECT_FALSE(snapshot().fault(Fault::programs).there);
	// The partner's move back, and once more there.
	receiver(414);
	takeService();
	moved = now;
	receiver(106);
	EXPECT_THAT(snapshot().roleChanges, SizeIs(1)) << "the first take-over";
}

TEST_F(HistoryTest, OnThePartnerAMoveThereAndBackIsNoFlapping)
{
	becomeStandby();
	receiver(414);
	takeService();
	EXPECT_THAT(snapshot().roleChanges, SizeIs(1));
	moved = now;
	receiver(106);
	EXPECT_THAT(snapshot().roleChanges, IsEmpty());
}

// The move before has made this node standby: it tells nothing of what happens as master since.
TEST_F(HistoryTest, AFailureAfterAMoveIsAFailure)
{
	moved = now;
	becomeMaster();
	receiver(567);
	receiver(106);
	EXPECT_THAT(events(), Contains(HasSubstr("master->slave (programs-gone)")));
	moved = now;
	receiver(414);
	takeService();
	now += 6min;
	moved = now - 6min + 1s;
	receiver(106);
	EXPECT_THAT(events(), Contains(HasSubstr("master->slave (programs-gone)")));
}

TEST_F(HistoryTest, AChangeWhoseMessagesAreMissingIsReportedWithoutACause)
{
	becomeMaster();
	const std::size_t before = snapshot().roleChanges.size();
	pass(false);
	pass(true);
	EXPECT_EQ(snapshot().roleChanges.size(), before + 2);
	EXPECT_THAT(events(), ElementsAre("role-changed master->slave (not-logged) 1100ms",
	                                  "role-changed slave->master (not-logged) 200ms"));
}

} // namespace
