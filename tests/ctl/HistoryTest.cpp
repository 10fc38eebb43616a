// What the messages of a log add up to, situation by situation: those that the
// lab does not bring about, and the exact picture behind the events.

#include <fstream>
#include <set>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log/Events.h"

using namespace velarix::ctl;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr char kStop[] = "drop address";
constexpr char kKill[] = "drop address; killall -9";
constexpr char kStart[] = "raise address";

std::string textOf(const Event& event)
{
	std::ostringstream text;
	text << wordOf(event.kind);
	if (event.kind == EventKind::roleChanged || event.kind == EventKind::partnerChanged)
	{
		text << ' ' << wordOf(event.from) << "->" << wordOf(event.to);
	}
	if (event.cause != Cause::none)
	{
		text << " (" << wordOf(event.cause) << ')';
	}
	for (const std::string& part : {event.subject, event.detail})
	{
		text << (part.empty() ? "" : " " + part);
	}
	if (event.duration)
	{
		text << " " << event.duration->count() << "ms";
	}
	return text.str();
}

class HistoryTest : public testing::Test
{
protected:
	History history{[this](const Event& event) { m_events.push_back(event); }};
	Instant now{std::chrono::sys_days(std::chrono::year(2026) / 11 / 21) + 9h};
	long process = 4711;
	long thread = 3;

	const Picture& picture() const { return history.picture(); }

	/// A message of the receiver, a tenth of a second after the one before.
	void say(const std::string& label, int number, const std::string& text, char letter = 'D')
	{
		now += 100ms;
		LogLine line;
		line.time = now;
		line.process = process;
		line.thread = thread;
		line.label = label;
		line.number = number;
		line.letter = letter;
		line.text = text;
		history.feed(line);
	}
	void receiver(int number, const std::string& text = "", char letter = 'D')
	{
		thread = 3;
		say("CHeartReciver", number, text, letter);
	}
	void service(int number, const std::string& text = "", char letter = 'D') { say("Utill", number, text, letter); }
	void sent(const std::string& heartbeat)
	{
		thread = 2;
		say("CHeartSender", 124, "beat sent[noName]:" + heartbeat);
	}
	void checked(char role, int running)
	{
		thread = 1;
		say("ProcessChecker", 103, std::string("ProcessRuning[noName][MODE:") + role + "]: " + std::to_string(running));
	}
	void ran(const std::string& command, const std::string& output = "")
	{
		service(573, "command(" + command + ") : " + output, 'I');
	}
	void start()
	{
		thread = 0;
		say("CAgent", 25, "stop virtual ip, process");
		ran(kStop);
		ran(std::string(kKill) + " server");
		ran(std::string(kKill) + " worker");
		say("CAgent", 38, "Slave CAgent()", 'I');
		thread = 3;
	}
	void pass(bool master)
	{
		receiver(94, "Reciver while start");
		receiver(master ? 505 : 538);
	}
	void heartbeat(const std::string& text) { receiver(164, "received message: " + text); }
	/// The service is taken without trouble.
	void takeService()
	{
		service(48);
		ran(kStop);
		service(680);
		ran(kStart);
		service(490);
		service(496, "ping: 10");
		service(62);
		service(78, "\n=====\n=== process run\n=====", 'E');
	}
	void becomeMaster()
	{
		start();
		pass(false);
		heartbeat("/process/0/2/20261121090601/0/");
		receiver(411, "szTmp[1] specialAsk[0]");
		receiver(418);
		receiver(473);
		takeService();
		checked('M', 1);
		events();
	}

	/// What was told since the last call.
	std::vector<std::string> events()
	{
		std::vector<std::string> texts;
		for (const Event& event : m_events)
		{
			texts.push_back(textOf(event));
		}
		m_events.clear();
		return texts;
	}
	std::vector<Event> takeEvents() { return std::exchange(m_events, {}); }

private:
	std::vector<Event> m_events;
};

TEST_F(HistoryTest, AStartBeginsCleanAsSlave)
{
	start();
	EXPECT_THAT(events(), ElementsAre("agent-started", "address-dropped (agent-start)",
	                                  "program-killed (agent-start) server", "program-killed (agent-start) worker"));
	EXPECT_EQ(picture().process, 4711);
	EXPECT_EQ(picture().role->value, Role::slave);
	EXPECT_EQ(picture().agentStarted, picture().role->since);
	EXPECT_EQ(picture().address->value, AddressState::dropped);
	EXPECT_FALSE(picture().lastRoleChange);
}

TEST_F(HistoryTest, TheWholeWayToMasterIsTold)
{
	start();
	events();
	pass(false);
	heartbeat("/process/0/2/20261121090601/0/");
	receiver(411, "szTmp[1] specialAsk[0]");
	receiver(418);
	receiver(473);
	takeService();
	checked('M', 0);
	checked('M', 1);
	EXPECT_THAT(events(), ElementsAre("role-changed slave->master (configured-role) 1000ms",
	                                  "takeover-began (configured-role)", "address-starting (takeover)",
	                                  "address-up answers 300ms", "programs-started (configured-role) 100ms",
	                                  "takeover-done (configured-role) 800ms", "programs-running 100ms"));
	EXPECT_EQ(picture().lastRoleChange->cause, Cause::configuredRole);
	EXPECT_EQ(picture().lastRoleChange->place, "CHeartReciver:473");
	EXPECT_FALSE(picture().takeOver);
	EXPECT_EQ(picture().address->value, AddressState::up);
	EXPECT_TRUE(picture().programsRun->value);
}

TEST_F(HistoryTest, ATakeOverThatGoesOnIsInThePicture)
{
	becomeMaster();
	receiver(94);
	EXPECT_FALSE(picture().takeOver);
	receiver(164, "received message: /process/1/1/20261121090601/0/");
	receiver(282);
	receiver(470);
	ASSERT_TRUE(picture().takeOver);
	EXPECT_EQ(picture().takeOver->cause, Cause::bothMasters);
	EXPECT_EQ(picture().role->value, Role::master);
}

TEST_F(HistoryTest, ALogThatBeginsInTheMiddleTellsNoStartAndNoChange)
{
	pass(true);
	checked('M', 1);
	sent("/process/1/1/20261121090601/0/");
	EXPECT_THAT(events(), IsEmpty());
	EXPECT_EQ(picture().process, 4711);
	EXPECT_FALSE(picture().agentStarted);
	EXPECT_EQ(picture().role->value, Role::master);
	EXPECT_TRUE(picture().programsRun->value);
	EXPECT_FALSE(picture().asking->value);
	EXPECT_FALSE(picture().lastRoleChange);
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

TEST_P(GiveUp, IsToldWithItsCause)
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
	EXPECT_EQ(picture().role->value, Role::slave);
	EXPECT_EQ(picture().asking.has_value() && picture().asking->value, row.asks);
	checked('S', 0);
	EXPECT_THAT(events(), ElementsAre("programs-stopped (give-up) " + std::string(row.asks ? "800ms" : "700ms")));
}

INSTANTIATE_TEST_SUITE_P(Cause, GiveUp,
                         testing::Values(GiveUpRow{508, 509, "gateway-silent", "gateway", false},
                                         GiveUpRow{516, 517, "service-address-silent", "service-address", false},
                                         GiveUpRow{524, 525, "service-card-down", "service-card", true}));

TEST_F(HistoryTest, AMasterWithoutItsProgramsGivesUpAndAsks)
{
	becomeMaster();
	pass(true);
	receiver(567);
	receiver(106);
	ran(kStop);
	EXPECT_THAT(events(), ElementsAre("fault-found programs", "role-changed master->slave (programs-gone) 1300ms",
	                                  "fault-gone programs the service was given up 100ms", "ask-made (programs-gone)",
	                                  "address-dropped (give-up)"));
	EXPECT_TRUE(picture().asking->value);
}

TEST_F(HistoryTest, AnAskEndsWhenThePartnerIsMasterAndAsksNothing)
{
	becomeMaster();
	receiver(106);
	events();
	receiver(403, "My NetWork Status: OK  MY:SLAVE PARTNER:SLAVE Special ask <-- waiting result [1/3]");
	receiver(350, "szTmp[1] szPartnerProcessRunning[1]");
	EXPECT_THAT(events(), IsEmpty());
	receiver(350, "szTmp[1] szPartnerProcessRunning[0]");
	EXPECT_THAT(events(), ElementsAre("ask-answered 300ms"));
	EXPECT_FALSE(picture().asking->value);
	receiver(350, "szTmp[1] szPartnerProcessRunning[0]");
	EXPECT_THAT(events(), IsEmpty());
}

/// The messages that end an ask with a partner that asks too, or stays slave.
class AskEnd : public HistoryTest, public testing::WithParamInterface<std::pair<int, const char*>>
{
};

TEST_P(AskEnd, IsToldOnce)
{
	becomeMaster();
	receiver(106);
	events();
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
	becomeMaster();
	receiver(106);
	events();
	receiver(329);
	receiver(376, "szTmp[1] szPartnerProcessRunning[0]");
	EXPECT_THAT(events(), IsEmpty());
	EXPECT_TRUE(picture().asking->value);
}

TEST_F(HistoryTest, TwoHeartbeatsThatDifferCorrectTheAskOneDoesNot)
{
	becomeMaster();
	sent("/process/1/1/20261121090601/1/");
	EXPECT_TRUE(picture().asking->value); // not told before
	sent("/process/1/1/20261121090601/0/");
	EXPECT_TRUE(picture().asking->value);
	sent("/process/1/1/20261121090601/1/");
	sent("/process/1/1/20261121090601/0/");
	EXPECT_TRUE(picture().asking->value);
	sent("/process/1/1/20261121090601/0/");
	EXPECT_FALSE(picture().asking->value);
	EXPECT_THAT(events(), IsEmpty());
	EXPECT_EQ(picture().heartbeatsSent, 5U);
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
	EXPECT_EQ(picture().silences, 1);
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
	EXPECT_TRUE(picture().partnerLost);
	EXPECT_EQ(picture().silences, 3);
}

TEST_F(HistoryTest, AHostWithoutHeartbeatsIsToldOnceHoweverOftenItIsCounted)
{
	start();
	pass(false);
	events();
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
	EXPECT_TRUE(picture().fault(Fault::heartbeats).there);
	receiver(150, "poll");
	heartbeat("/process/1/1/20261121090601/0/");
	EXPECT_THAT(events(), ElementsAre("partner-back", "fault-gone heartbeats 1200ms"));
	EXPECT_EQ(picture().silences, 0);
}

TEST_F(HistoryTest, ATakeOverByProbesIsTold)
{
	start();
	pass(false);
	events();
	service(766, "partner Comunication IP Check Failed: Net Exception: Host is down[CODE:112]", 'E');
	service(768);
	service(817);
	receiver(543);
	service(783);
	receiver(548);
	receiver(549);
	receiver(99, "networkStatus [0] m_myStatus[1]");
	EXPECT_THAT(events(), ElementsAre("fault-found partner-address Net Exception: Host is down[CODE:112]",
	                                  "fault-found service-address",
	                                  "role-changed slave->master (partner-and-service-silent) 1300ms",
	                                  "takeover-began (partner-and-service-silent)"));
	EXPECT_FALSE(picture().networkOk->value);
	receiver(278);
	EXPECT_TRUE(picture().networkOk->value);
}

TEST_F(HistoryTest, AnAskedSlaveRaisesTheAddressTwice)
{
	start();
	pass(false);
	heartbeat("/process/1/1/20261121090601/0/");
	events();
	heartbeat("/process/0/2/20261121090601/1/");
	receiver(414);
	ran(kStop);
	service(680);
	ran(kStart);
	service(496, "ping: 10");
	takeService();
	EXPECT_THAT(events(),
	            ElementsAre("partner-changed master->slave", "ask-received",
	                        "role-changed slave->master (partner-asked) 900ms", "takeover-began (partner-asked)",
	                        "address-starting (takeover)", "address-up answers 200ms", "address-dropped (takeover)",
	                        "address-starting (takeover)", "address-up answers 300ms",
	                        "programs-started (partner-asked) 100ms", "takeover-done (partner-asked) 1200ms"));
}

TEST_F(HistoryTest, AnAddressThatDoesNotAnswerIsToldOnce)
{
	becomeMaster();
	service(680);
	ran(kStart);
	service(490);
	service(496, "ping: 0");
	service(496, "ping: 0");
	EXPECT_THAT(events(), ElementsAre("address-starting", "address-waiting"));
	EXPECT_EQ(picture().address->value, AddressState::waiting);
	EXPECT_EQ(picture().address->at, now);
	service(496, "ping: 1");
	EXPECT_THAT(events(), ElementsAre("address-up answers 500ms"));
}

TEST_F(HistoryTest, FailedStartsAreToldNowAndThen)
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
	service(668);
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
	EXPECT_FALSE(picture().takeOver);
}

TEST_F(HistoryTest, BothMastersEndInTheConfiguredRole)
{
	becomeMaster();
	heartbeat("/process/1/1/x/0/");
	receiver(282);
	receiver(480, "SLAVE kill");
	ran(std::string(kKill) + " server");
	ran(std::string(kKill) + " worker");
	ran(kStop);
	receiver(287);
	EXPECT_THAT(events(), ElementsAre("partner-restarted x", "partner-changed slave->master",
	                                  "fault-found both-masters", "role-changed master->slave (both-masters) 1200ms",
	                                  "program-killed (both-masters) server", "program-killed (both-masters) worker",
	                                  "address-dropped (both-masters)", "fault-gone both-masters 500ms"));
}

TEST_F(HistoryTest, ASlaveWithoutProgramsGoesBackInSilence)
{
	becomeMaster();
	receiver(324);
	EXPECT_FALSE(picture().networkOk->value);
	pass(false);
	EXPECT_THAT(events(), ElementsAre("fault-found both-masters", "role-changed master->slave (both-masters) 1200ms"));
}

TEST_F(HistoryTest, AChangeWhoseMessagesAreMissingIsToldWithoutACause)
{
	becomeMaster();
	pass(false);
	pass(true);
	EXPECT_THAT(events(), ElementsAre("role-changed master->slave (not-told) 1100ms",
	                                  "role-changed slave->master (not-told) 200ms"));
}

TEST_F(HistoryTest, ARestartTellsTheEndOfTheAgentBefore)
{
	becomeMaster();
	const Instant last = now;
	now += 10s;
	process = 4712;
	start();
	const std::vector<Event> told = takeEvents();
	ASSERT_GE(told.size(), 3U);
	EXPECT_EQ(textOf(told[0]), "agent-ended (killed) 1900ms");
	EXPECT_EQ(told[0].time, last);
	EXPECT_EQ(told[0].process, 4711);
	EXPECT_EQ(told[0].place, "");
	EXPECT_EQ(textOf(told[1]), "agent-started 10100ms");
	EXPECT_EQ(told[1].process, 4712);
	EXPECT_EQ(textOf(told[2]), "role-changed master->slave (agent-start) 11000ms");
	EXPECT_EQ(picture().process, 4712);
	EXPECT_FALSE(picture().received);
	EXPECT_FALSE(picture().programsRun);
}

TEST_F(HistoryTest, ARebootMayGiveTheSameProcessIdAgain)
{
	start();
	pass(false);
	events();
	now += 1min;
	start();
	EXPECT_THAT(events(), testing::Contains("agent-ended (killed) 600ms"));
}

TEST_F(HistoryTest, AStartWhoseFirstMessageIsLostIsAStart)
{
	start();
	pass(false);
	events();
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
	std::vector<std::string> told = events();
	told.resize(4);
	EXPECT_THAT(told,
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
	EXPECT_EQ(picture().process, 4711);
	EXPECT_EQ(picture().role->value, Role::master);
	EXPECT_EQ(picture().events.at(EventKind::agentStarted), 2U);
}

TEST_F(HistoryTest, AnAgentWithoutAnyMessageOfItsStartIsTold)
{
	start();
	pass(false);
	events();
	process = 5000;
	pass(true);
	EXPECT_THAT(events(),
	            ElementsAre("agent-ended (killed) 600ms", "agent-started its first messages are missing 100ms",
	                        "role-changed slave->master (not-told) 100ms"));
}

TEST_F(HistoryTest, AStrangerIsToldAndGoneAfterAQuietMinute)
{
	becomeMaster();
	heartbeat("GET / HTTP/1.1\r\n\x1b[31m\r\n\r\n");
	receiver(246, "Range error", 'E');
	heartbeat("GET / HTTP/1.1\r\n\r\n");
	heartbeat("/process/0/2/20261121090601/0/");
	EXPECT_THAT(events(), ElementsAre("fault-found stranger GET / HTTP/1.1 \x1b[31m"));
	EXPECT_EQ(picture().heartbeatsReceived, 2U);
	now += 1min;
	heartbeat("/process/0/2/20261121090601/0/");
	EXPECT_THAT(events(), ElementsAre("fault-gone stranger 60400ms"));
}

TEST_F(HistoryTest, ACardIsKnownByTheCommandThatReadsIt)
{
	becomeMaster();
	ran("cat /sys/class/net/eth1/carrier", "0\n\n");
	ran("cat /sys/class/net/eth1/carrier", "");
	ran("cat /sys/class/net/eth0/carrier", "");
	ran("cat /sys/class/net/eth1/carrier", "1\n\n");
	ran("cat /sys/class/net/eth0/carrier", "1\n\n");
	EXPECT_THAT(events(), ElementsAre("fault-found communication-card", "fault-found service-card",
	                                  "fault-gone communication-card 300ms", "fault-gone service-card 200ms"));
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
	EXPECT_EQ(picture().fault(Fault::programs).count, 1U);
}

TEST_F(HistoryTest, ASlaveWithoutProgramsIsNoFault)
{
	start();
	pass(false);
	events();
	checked('S', 0);
	checked('S', 0);
	checked('S', 0);
	EXPECT_THAT(events(), IsEmpty());
}

TEST_F(HistoryTest, GivenCommandsServeUntilTheLogTellsThem)
{
	std::vector<std::string> told;
	History given([&](const Event& event) { told.push_back(textOf(event)); }, {"raise", "drop (a) : b", "killall -9"});
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
	EXPECT_THAT(told, ElementsAre("fault-found service-card", "role-changed master->slave (service-card-down) 200ms",
	                              "ask-made (service-card-down)", "program-killed (give-up) server",
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

TEST_F(HistoryTest, ACommandThatNobodyAwaitsIsNothing)
{
	becomeMaster();
	receiver(94);
	ran("something else");
	EXPECT_THAT(events(), IsEmpty());
}

TEST_F(HistoryTest, AnErrorIsToldOnceInAnHour)
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

TEST_F(HistoryTest, AnErrorOfAnUnknownPlaceIsToldToo)
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

TEST_F(HistoryTest, AClockThatIsSetBackIsTold)
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
	EXPECT_EQ(picture().process, 0);
	start();
	line.process = 4711;
	history.feed(line);
	EXPECT_EQ(picture().role->value, Role::master);
	EXPECT_EQ(picture().role->since, now);
}

TEST_F(HistoryTest, WhatHasNoHeadIsCountedAndNothingElse)
{
	LogLine line;
	line.text = "garbage";
	history.feed(line);
	EXPECT_EQ(picture().letters.at('?'), 1U);
	EXPECT_FALSE(picture().lastMessage);
}

TEST_F(HistoryTest, EachWorkersLastMessageIsKnown)
{
	start();
	EXPECT_FALSE(picture().lastOfReceiver);
	receiver(94);
	const Instant ofReceiver = now;
	service(756); // on the receiver's thread
	EXPECT_EQ(picture().lastOfReceiver, ofReceiver + 100ms);
	checked('S', 0);
	EXPECT_EQ(picture().lastOfChecker, now);
	sent("/process/0/2/x/0/");
	EXPECT_EQ(picture().lastOfSender, now);
	EXPECT_EQ(picture().lastOfReceiver, ofReceiver + 100ms);
	EXPECT_EQ(picture().lastMessage, now);
}

TEST_F(HistoryTest, TheHeartbeatsOfBothSidesAreInThePicture)
{
	start();
	heartbeat("/process/1/1/20261121090601/0/");
	const Instant first = now;
	heartbeat("/process/1/1/20261121090601/0/");
	EXPECT_EQ(picture().received->value, (Heartbeat{true, true, "20261121090601", false}));
	EXPECT_EQ(picture().received->since, first);
	EXPECT_EQ(picture().received->at, now);
	sent("/process/0/2/20261121090602/1/");
	EXPECT_EQ(picture().sent->value, (Heartbeat{false, false, "20261121090602", true}));
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
	sent("/process/0/2/x/0/");
	EXPECT_THAT(events(),
	            ElementsAre("fault-found partner-port Connection refused(CODE: 111)", "fault-gone partner-port 300ms"));
}

TEST(EventWords, EveryEnumeratorHasOneOfItsOwn)
{
	std::set<std::string_view> words;
	for (std::size_t kind = 0; kind < kEventKinds; ++kind)
	{
		words.insert(wordOf(static_cast<EventKind>(kind)));
	}
	for (std::size_t fault = 0; fault < kFaults; ++fault)
	{
		words.insert(wordOf(static_cast<Fault>(fault)));
	}
	EXPECT_EQ(words.size(), kEventKinds + kFaults);
	EXPECT_EQ(wordOf(EventKind::error), "error");
	EXPECT_EQ(wordOf(Fault::stranger), "stranger");
	EXPECT_EQ(wordOf(Cause::notTold), "not-told");
	EXPECT_EQ(wordOf(Role::slave), "slave");
	EXPECT_EQ(wordOf(AddressState::up), "up");
}

/// The words in the first column of the table with this heading.
std::vector<std::string> wordsOfThePage(const std::string& heading)
{
	std::ifstream page(VELARIX_CTL_EVENTS);
	std::vector<std::string> words;
	bool inTable = false;
	for (std::string line; std::getline(page, line);)
	{
		if (inTable && line.starts_with("| `"))
		{
			words.push_back(line.substr(3, line.find('`', 3) - 3));
		}
		inTable = line.starts_with("| " + heading + " |") || (inTable && line.starts_with("|"));
	}
	return words;
}

template <typename Value> std::vector<std::string> wordsUpTo(Value last, std::size_t from = 0)
{
	std::vector<std::string> words;
	for (std::size_t value = from; value <= static_cast<std::size_t>(last); ++value)
	{
		words.emplace_back(wordOf(static_cast<Value>(value)));
	}
	return words;
}

TEST(EventWords, AreThoseOfTheirPage)
{
	EXPECT_EQ(wordsOfThePage("event"), wordsUpTo(EventKind::error));
	EXPECT_EQ(wordsOfThePage("cause"), wordsUpTo(Cause::notTold, 1)); // but for "none"
	EXPECT_EQ(wordsOfThePage("fault"), wordsUpTo(Fault::stranger));
}

} // namespace
