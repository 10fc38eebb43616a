/// Planned moves on a real pair.

#include "OperatorTest.h"

#include <gmock/gmock.h>

namespace velarix::lab
{

using testing::HasSubstr;

class OperatorSwitchover : public OperatorTest
{
protected:
	/// Moves the service from one node to the other and looks whether all of it went.
	void move(HostId from)
	{
		const HostId to = otherNode(from);
		const Millis begin = lab().clock().now();
		const CommandResult result = ctl(from, {"switchover"}, moveLimit);
		const Millis took = lab().clock().now() - begin;
		ASSERT_EQ(result.status, 0) << result.output;
		EXPECT_THAT(result.output, HasSubstr(std::string("the service moved to ") +
		                                     plan::addressOf(to, Network::communication) + " in "));
		EXPECT_EQ(lab().owners(), nameOf(to));
		EXPECT_TRUE(lab().waitForService(to, moveLimit));
		EXPECT_EQ(heldBy("a+b", begin), Millis(0));
		// Two countdowns of five seconds.
		EXPECT_GE(took, Millis(10000));
		EXPECT_EQ(status(from)["last_change"]["cause"], "switchover");
		EXPECT_EQ(status(to)["last_change"]["cause"], "partner-asked");
	}

	void expectRefused(HostId node, const std::string& reason)
	{
		const CommandResult result = ctl(node, {"switchover"});
		EXPECT_EQ(result.status, 69);
		EXPECT_THAT(result.output, HasSubstr("velarixctl: refused: " + reason));
	}
};

TEST_F(OperatorSwitchover, MovesTheServiceThereAndBack)
{
	PAIR_OR_RETURN(startReadyPair());

	const CommandResult dry = ctl(HostId::a, {"switchover", "--dry-run"});
	EXPECT_EQ(dry.status, 0);
	EXPECT_THAT(dry.output, HasSubstr("would hand the service over to 198.51.100.12:\n"));
	EXPECT_EQ(lab().owners(), "a");

	move(HostId::a);
	// The node with AGENT.MODE 1 does not take it back by itself.
	ASSERT_TRUE(waitUntilReady());
	EXPECT_EQ(lab().owners(), "b");
	move(HostId::b);
}

TEST_F(OperatorSwitchover, MovesTheKeepersServiceThereAndBack)
{
	PairSettings settings;
	settings.profile = Profile::keeper;
	PAIR_OR_RETURN(startReadyPair(LabOptions({}, settings)));
	const Millis begin = lab().clock().now();
	// The third would be refused if the first two counted as flapping.
	for (const HostId from : {HostId::a, HostId::b, HostId::a})
	{
		const CommandResult result = ctl(from, {"switchover"}, moveLimit);
		ASSERT_EQ(result.status, 0) << result.output;
		EXPECT_TRUE(lab().waitForService(otherNode(from), moveLimit));
		EXPECT_EQ(status(from)["last_change"]["cause"], "switchover");
		ASSERT_TRUE(waitUntilReady());
	}
	EXPECT_EQ(heldBy("a+b", begin), Millis(0));
	std::printf("the longest time without the service: %lld ms\n", static_cast<long long>(outageSince(begin).count()));
}

TEST_F(OperatorSwitchover, MovesTheServiceWhenTheKillCommandLeavesTheAddressAlone)
{
	LabOptions options;
	options.settingsA.set("ADVENCE.PROCESS_KILL_COMMAND", "killall -q -9");
	PAIR_OR_RETURN(startReadyPair(options));
	move(HostId::a);
}

TEST_F(OperatorSwitchover, EndsTheProgramsBySignalWhenTheKillCommandDoesNot)
{
	LabOptions options;
	options.settingsA.set("ADVENCE.PROCESS_KILL_COMMAND",
	                      "ip addr del 192.0.2.100/24 dev eth0 >/dev/null 2>&1 && killall -q -9");
	PAIR_OR_RETURN(startReadyPair(options));

	const CommandResult result = ctl(HostId::a, {"switchover"}, moveLimit);
	EXPECT_EQ(result.status, 0) << result.output;
	EXPECT_THAT(result.output, HasSubstr("SIGTERM to labhttpd, process "));
	EXPECT_TRUE(lab().waitForService(HostId::b, moveLimit));
}

TEST_F(OperatorSwitchover, IsRefusedOnTheStandbyAndWithoutAPartner)
{
	PAIR_OR_RETURN(startReadyPair());
	expectRefused(HostId::b, "this node is standby: run it on the master, the partner 198.51.100.11");

	lab().killAgent(HostId::b);
	ASSERT_TRUE(waitForStatus(HostId::a, "that the partner does not answer",
	                          [](const nlohmann::json& a) { return a["partner"]["role"]["value"].is_null(); }));
	expectRefused(HostId::a, "the partner does not answer: ");
	EXPECT_EQ(lab().owners(), "a");

	lab().killAgent(HostId::a);
	expectRefused(HostId::a, "the role of this node is not known: ");
	EXPECT_TRUE(lab().waitForService(HostId::a, Millis(10000), Millis(0)));
}

TEST_F(OperatorSwitchover, GivesUpWaitingForAPartnerThatCannotTakeTheService)
{
	LabOptions options;
	options.settingsB.set("AGENT.VIRTUAL_IP_START_COMMAND", "true");
	PAIR_OR_RETURN(startReadyPair(options));

	const CommandResult result = ctl(HostId::a, {"switchover", "--timeout", "15"}, moveLimit);
	EXPECT_EQ(result.status, 75) << result.output;
	EXPECT_THAT(result.output, HasSubstr("not yet seen: the service address answers, the programs run on the partner"));
}

} // namespace velarix::lab
