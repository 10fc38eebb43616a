// What the history tells of the agents of a node: their starts and ends, their
// errors, gaps and clocks.

#include "HistoryTest.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
using namespace std::chrono_literals;

namespace
{

TEST_F(HistoryTest, ALogThatBeginsInTheMiddleTellsNoStartAndNoChange)
{
	pass(true);
	checked('M', 1);
	sent("/process/1/1/20261121090601/0/");
	EXPECT_THAT(events(), IsEmpty());
	EXPECT_EQ(snapshot().process, 4711);
	EXPECT_FALSE(snapshot().agentStarted);
	EXPECT_EQ(snapshot().role->value, Role::master);
	EXPECT_TRUE(snapshot().programsRun->value);
	EXPECT_FALSE(snapshot().asking->value);
	EXPECT_FALSE(snapshot().lastRoleChange);
}

TEST_F(HistoryTest, AStartWhoseFirstMessageIsLostIsAStart)
{
	becomeStandby();
	thread = 0;
	say("CAgent", 38, "Slave CAgent()", 'I');
	EXPECT_THAT(events(), ElementsAre("agent-ended (killed) 600ms", "agent-started 100ms"));
	say("CAgent", 179, "run time wrote:...");
	EXPECT_THAT(events(), IsEmpty());
}

TEST_F(HistoryTest, AnAgentThatEndsInTheMiddleOfATakeOver)
{
	start();
	pass(false);
	receiver(218);
	service(48);
	events();
	process = 4712;
	start();
	std::vector<std::string> reported = events();
	reported.resize(4);
	EXPECT_THAT(reported,
	            ElementsAre("takeover-unfinished (partner-silent) the agent ended 100ms", "agent-ended (killed) 800ms",
	                        "agent-started 100ms", "role-changed master->slave (agent-start) 200ms"));
}

TEST_F(HistoryTest, AFatalErrorIsTheCauseOfTheEnd)
{
	start();
	pass(false);
	receiver(137, "Net Exception: Address already in use: 192.0.2.1:7000", 'E');
	sent("/process/0/2/x/0/");
	EXPECT_THAT(events(), testing::Contains("error Net Exception: Address already in use: 192.0.2.1:7000"));
	process = 4712;
	start();
	EXPECT_EQ(events().front(),
	          "agent-ended (fatal-error) Net Exception: Address already in use: 192.0.2.1:7000 800ms");
}

TEST_F(HistoryTest, AnErrorLongBeforeTheEndIsNotItsCause)
{
	start();
	receiver(137, "Net Exception", 'E');
	now += 2s;
	pass(false);
	process = 4712;
	events();
	start();
	EXPECT_EQ(events().front(), "agent-ended (killed) 2700ms");
}

TEST_F(HistoryTest, AnAgentThatStartsBesideAnotherCannotStay)
{
	becomeMaster();
	process = 4712;
	start();
	pass(false);
	receiver(137, "Net Exception: Address already in use", 'E');
	events();
	process = 4711;
	pass(true);
	EXPECT_THAT(events(),
	            ElementsAre("agent-ended (fatal-error) Net Exception: Address already in use 700ms", "agent-resumed"));
	EXPECT_EQ(snapshot().process, 4711);
	EXPECT_EQ(snapshot().role->value, Role::master);
	EXPECT_EQ(snapshot().events.at(EventKind::agentStarted), 2U);
}

TEST_F(HistoryTest, AnAgentWithoutAnyMessageOfItsStartIsReported)
{
	becomeStandby();
	process = 5000;
	pass(true);
	EXPECT_THAT(events(),
	            ElementsAre("agent-ended (killed) 600ms", "agent-started its first messages are missing 100ms",
	                        "role-changed slave->master (not-logged) 100ms"));
}

TEST_F(HistoryTest, AnErrorIsReportedOnceInAnHour)
{
	becomeMaster();
	const auto again = [this]
	{
		thread = 1;
		service(204, "NO_DIR(/proc)", 'E');
	};
	again();
	again();
	EXPECT_THAT(events(), ElementsAre("error NO_DIR(/proc)"));
	service(204, "another text", 'E');
	again();
	EXPECT_THAT(events(), ElementsAre("error another text", "error NO_DIR(/proc)"));
	for (int minute = 0; minute < 60; ++minute)
	{
		now += 1min;
		checked('M', 1);
	}
	events();
	again();
	EXPECT_THAT(events(), ElementsAre("error NO_DIR(/proc)"));
}

TEST_F(HistoryTest, AnErrorOfAnUnknownPlaceIsReportedToo)
{
	start();
	events();
	say("SomethingNew", 12, "broke", 'E');
	EXPECT_THAT(events(), ElementsAre("error broke"));
}

TEST_F(HistoryTest, AGapIsMeasuredByWhatIsUsual)
{
	start();
	for (int count = 0; count < 100; ++count)
	{
		now += 20s;
		checked('S', 0);
	}
	events();
	now += 79s;
	checked('S', 0);
	EXPECT_THAT(events(), IsEmpty());
	now += 330s;
	checked('S', 0);
	EXPECT_THAT(events(), ElementsAre("log-gap 330100ms"));
}

TEST_F(HistoryTest, AClockThatIsSetBackIsReported)
{
	start();
	events();
	now -= 2100ms;
	checked('S', 0);
	EXPECT_THAT(events(), ElementsAre("clock-set-back 2000ms"));
	now -= 2000ms;
	checked('S', 0);
	EXPECT_THAT(events(), IsEmpty());
}

TEST_F(HistoryTest, MessagesWithoutADateHappenedWhenTheOneBeforeDid)
{
	LogLine line;
	line.letter = 'D';
	line.process = 1;
	line.thread = 3;
	line.label = "CHeartReciver";
	line.number = 505;
	history.feed(line);
	EXPECT_EQ(snapshot().process, 0);
	LogLine garbage;
	garbage.text = "garbage";
	history.feed(garbage);
	EXPECT_EQ(snapshot().letters.at('?'), 1U);
	start();
	line.process = 4711;
	history.feed(line);
	EXPECT_EQ(snapshot().role->value, Role::master);
	EXPECT_EQ(snapshot().role->since, now);
}

TEST_F(HistoryTest, EachWorkersLastMessageIsKnown)
{
	start();
	EXPECT_FALSE(snapshot().lastOfReceiver);
	receiver(94);
	const Instant ofReceiver = now;
	service(756); // on the receiver's thread
	EXPECT_EQ(snapshot().lastOfReceiver, ofReceiver + 100ms);
	checked('S', 0);
	EXPECT_EQ(snapshot().lastOfChecker, now);
	sent("/process/0/2/x/0/");
	EXPECT_EQ(snapshot().lastOfSender, now);
	EXPECT_EQ(snapshot().lastOfReceiver, ofReceiver + 100ms);
	EXPECT_EQ(snapshot().lastMessage, now);
}

} // namespace
