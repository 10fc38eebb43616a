// What the history tells of the service and what surrounds it: address, programs,
// commands, interfaces, and who speaks on the heartbeat ports.

#include "HistoryTest.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
using namespace std::chrono_literals;

namespace
{

TEST_F(HistoryTest, AnAddressThatDoesNotAnswerIsReportedOnce)
{
	becomeMaster();
	service(680);
	ran(kStart);
	service(490);
	service(496, "ping: 0");
	service(496, "ping: 0");
	EXPECT_THAT(events(), ElementsAre("address-starting", "address-waiting"));
	EXPECT_EQ(snapshot().address->value, AddressState::waiting);
	EXPECT_EQ(snapshot().address->at, now);
	service(496, "ping: 1");
	EXPECT_THAT(events(), ElementsAre("address-up answers 500ms"));
}

TEST_F(HistoryTest, FailedStartsAreReportedNowAndThen)
{
	becomeMaster();
	for (int attempt = 1; attempt <= 100; ++attempt)
	{
		service(680);
		ran(kStart, "RTNETLINK answers: File exists\n\n");
		service(432, "can't start virtual ip: RTNETLINK answers: File exists\n\n", 'E');
	}
	EXPECT_THAT(events(),
	            ElementsAre("address-starting",
	                        "address-failed try 1: the start command printed \"RTNETLINK answers: File exists\"",
	                        "address-failed try 10: the start command printed \"RTNETLINK answers: File exists\"",
	                        "address-failed try 100: the start command printed \"RTNETLINK answers: File exists\""));
	EXPECT_EQ(snapshot().failedStarts, 100);
	service(668);
	EXPECT_EQ(snapshot().failedStarts, 0);
	EXPECT_THAT(events(), ElementsAre("address-up listed, after 100 failed starts 30000ms"));
}

TEST_F(HistoryTest, AFailedWaitForTheAddressTellsItsError)
{
	becomeMaster();
	service(680);
	service(504, "set virtual ip failed: No permission: Operation not permitted", 'E');
	service(432, "can't start virtual ip: ", 'E');
	service(432, "can't start virtual ip: ", 'E');
	EXPECT_THAT(events(),
	            ElementsAre("address-starting", "address-failed try 1: No permission: Operation not permitted"));
}

TEST_F(HistoryTest, AForeignMessageIsReportedAndGoneAfterAQuietMinute)
{
	becomeMaster();
	heartbeat("GET / HTTP/1.1\r\n\x1b[31m\r\n\r\n");
	receiver(246, "Range error", 'E');
	heartbeat("GET / HTTP/1.1\r\n\r\n");
	heartbeat("/process/0/2/20261121090601/0/");
	EXPECT_THAT(events(), ElementsAre("fault-found foreign-message GET / HTTP/1.1 \x1b[31m"));
	EXPECT_EQ(snapshot().heartbeatsReceived, 2U);
	now += 1min;
	heartbeat("/process/0/2/20261121090601/0/");
	EXPECT_THAT(events(), ElementsAre("fault-gone foreign-message 60400ms"));
}

TEST_F(HistoryTest, OneCycleWithoutProgramsIsNoFaultYet)
{
	becomeMaster();
	checked('M', 0);
	EXPECT_THAT(events(), ElementsAre("programs-stopped 100ms"));
	checked('M', 0);
	EXPECT_THAT(events(), ElementsAre("fault-found programs"));
	checked('M', 1);
	EXPECT_THAT(events(), ElementsAre("programs-running 200ms", "fault-gone programs 100ms"));
	EXPECT_EQ(snapshot().fault(Fault::programs).count, 1U);
}

TEST_F(HistoryTest, GivenCommandsServeUntilTheLogTellsThem)
{
	std::vector<std::string> reported;
	History given([&](const Event& event) { reported.push_back(textOf(event)); },
	              {"raise", "drop (a) : b", "killall -9"});
	const auto feed = [&](int number, const std::string& text)
	{
		LogLine line;
		line.time = now += 100ms;
		line.process = 1;
		line.thread = 3;
		line.label = number == 573 ? "Utill" : "CHeartReciver";
		line.number = number;
		line.letter = 'D';
		line.text = text;
		given.feed(line);
	};
	feed(505, "");
	feed(524, "");
	feed(525, "");
	feed(573, "command(killall -9 server) : ");
	feed(573, "command(drop (a) : b) : gone");
	EXPECT_THAT(reported, ElementsAre("fault-found service-interface",
	                                  "role-changed master->slave (service-interface-down) 200ms",
	                                  "ask-made (service-interface-down)", "program-killed (give-up) server",
	                                  "address-dropped (give-up) gone"));
}

TEST_F(HistoryTest, WithoutTheStartTheCommandsAreKnownByWhatIsGoingOn)
{
	pass(true);
	receiver(525);
	events();
	ran("kill-it server");
	ran("kill-it worker");
	ran("drop-it", "an output\n\nof lines\n\n");
	EXPECT_THAT(events(), ElementsAre("program-killed (give-up) server", "program-killed (give-up) worker",
	                                  "address-dropped (give-up) an output of lines"));
}

TEST_F(HistoryTest, TheHeartbeatsOfBothSidesAreInThePicture)
{
	start();
	heartbeat("/process/1/1/20261121090601/0/");
	const Instant first = now;
	heartbeat("/process/1/1/20261121090601/0/");
	EXPECT_EQ(snapshot().received->value, (Heartbeat{true, true, "20261121090601", false}));
	EXPECT_EQ(snapshot().received->since, first);
	EXPECT_EQ(snapshot().received->at, now);
	sent("/process/0/2/20261121090602/1/");
	EXPECT_EQ(snapshot().sent->value, (Heartbeat{false, false, "20261121090602", true}));
}

TEST_F(HistoryTest, APortThatRefusesIsOneFault)
{
	start();
	events();
	for (int count = 0; count < 3; ++count)
	{
		thread = 2;
		say("CHeartSender", 79, "Sender Connection refused(CODE: 111)[noName]", 'E');
	}
	EXPECT_EQ(snapshot().refusals, 3);
	sent("/process/0/2/x/0/");
	EXPECT_EQ(snapshot().refusals, 0);
	EXPECT_THAT(events(),
	            ElementsAre("fault-found partner-port Connection refused(CODE: 111)", "fault-gone partner-port 300ms"));
}

} // namespace
