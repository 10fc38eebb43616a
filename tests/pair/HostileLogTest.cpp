/// A message with line feeds in it, in a node's log and in what velarixctl makes of it.

#include "OperatorTest.h"
#include "lab/campaigns/hostile/Attacker.h"

namespace velarix::lab::hostile
{

class HostileLog : public OperatorTest
{
};

/// Lines that the agent has not written are taken
/// for its own.
TEST_F(HostileLog, LineFeedsMakeEventsTellOfWhatHasNotHappened)
{
	PAIR_OR_RETURN(startReadyPair());
	const auto events = [&] { return ctl(HostId::a, {"events"}, moveLimit).output; };
	const std::string before = events();
	ASSERT_EQ(before.find("agent-ended"), std::string::npos) << before;
	const std::optional<Process> agent = lab().node(HostId::a).agent();
	ASSERT_TRUE(agent);

	Attacker attacker(lab(), {"line-feeds", "", HostId::a});
	attacker.awaitEnd();
	attacker.end();
	ASSERT_GE(attacker.tally().received, 1);

	const std::string after = events();
	EXPECT_NE(after.find("agent-ended"), std::string::npos) << after;
	EXPECT_NE(after.find("CHeartReciver:516"), std::string::npos) << after;
	EXPECT_EQ(lab().node(HostId::a).agent()->pid, agent->pid) << "no agent has ended";
	EXPECT_TRUE(waitUntilReady()) << "the agent's next lines put the status right";
	EXPECT_EQ(lab().owners(), "a");
}

/// The agent counts no silence while a connection is served, whoever made it; the operator's tool
/// looks for the partner's heartbeats.
TEST_F(HostileLog, APartnerThatIsKeptOutIsMissedByTheStatus)
{
	PAIR_OR_RETURN(startReadyPair());
	Attacker holder(lab(), {"hold-connection", "", HostId::a});
	holder.awaitHold(false);
	EXPECT_TRUE(
	    waitForStatus(HostId::a, "that the partner does not answer",
	                  [](const nlohmann::json& status)
	                  { return status["problems"].dump().find("the partner does not answer") != std::string::npos; }));
	EXPECT_EQ(lab().owners(), "a");
	holder.end();
	EXPECT_TRUE(waitUntilReady());
}

} // namespace velarix::lab::hostile
