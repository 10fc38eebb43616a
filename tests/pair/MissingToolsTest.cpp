/// What comes of a pair when a tool that the agent or the shipped settings call is not
/// there on one node.

#include <fstream>

#include "FailingNode.h"

namespace velarix::lab
{

class MissingTools : public FailingNode
{
protected:
	/// A pair without the tool on that node, which node a serves.
	bool startServingWithout(const std::string& tool, HostId node)
	{
		return startServingPair({}, [&](Lab& made) { takeAway(made, node, tool); });
	}

	/// The program of node a ends, so that it hands the service over.
	void handOver() { lab().inject({"program-kill", HostId::a}); }

	/// With the machine's tool, in the node's network.
	void raiseByHand(HostId node)
	{
		const std::string address = std::string(plan::virtualAddress) + "/" + std::to_string(plan::prefixLength);
		const std::string label = std::string(plan::serviceInterface) + ":ha";
		runOrThrow({{"ip", "addr", "add", address, "dev", plan::serviceInterface, "label", label},
		            {},
		            lab().node(node).host().insideNetwork()});
	}

	std::string interfaceOf(HostId node)
	{
		std::string interface;
		std::ifstream(lab().node(node).file("/sys/class/net/eth0/address")) >> interface;
		return interface;
	}
};

/// Both are used for nothing but the announcement.
class MissingAnnouncement : public MissingTools, public testing::WithParamInterface<const char*>
{
};

// The standby serves, and the clients go on asking the node that served before.
TEST_P(MissingAnnouncement, LeavesTheClientsWithTheOldNode)
{
	PAIR_OR_RETURN(startServingWithout(GetParam(), HostId::b));
	// What a client knows of a neighbour it forgets by and by, here not before the test ends.
	const CommandResult remembers =
	    lab().run(HostId::client, {"sh", "-c", "echo 3600000 >/proc/sys/net/ipv4/neigh/eth0/base_reachable_time_ms"});
	ASSERT_TRUE(remembers.ok()) << remembers.output;

	handOver();
	ASSERT_TRUE(waitForOwners("b"));
	ASSERT_TRUE(waitForProgramOn(HostId::b));
	const CommandResult known = lab().run(HostId::client, {"ip", "neigh", "show", plan::virtualAddress});
	EXPECT_NE(known.output.find(interfaceOf(HostId::a)), std::string::npos) << known.output;
	EXPECT_EQ(lab().answeredBy(), "none");

	const CommandResult forgets =
	    lab().run(HostId::client, {"ip", "neigh", "del", plan::virtualAddress, "dev", plan::serviceInterface});
	ASSERT_TRUE(forgets.ok()) << forgets.output;
	EXPECT_TRUE(lab().waitForService(HostId::b, moveLimit, Millis(1000)));
}

INSTANTIATE_TEST_SUITE_P(Tool, MissingAnnouncement, testing::Values("grep", "arping"),
                         [](const testing::TestParamInfo<const char*>& tool) { return tool.param; });

// It drops the address, and its programs run beside the partner's.
TEST_F(MissingTools, WithoutKillallANodeThatGivesUpKeepsItsPrograms)
{
	PAIR_OR_RETURN(startServingWithout("killall", HostId::a));
	lab().inject({"service-interface", HostId::a});
	ASSERT_TRUE(waitForOwners("b"));
	ASSERT_TRUE(waitForProgramOn(HostId::b));
	EXPECT_EQ(toldBy(HostId::a, "CHeartReciver:524"), 1);
	EXPECT_EQ(programsOn(HostId::a), 1U);
	EXPECT_TRUE(consoleHas(HostId::a, "killall: not found"));
}

// As master it waits for the address without end, and tells its partner that it is master.
TEST_F(MissingTools, WithoutIpAStandbyThatTakesOverNeverServesAndItsPartnerWaits)
{
	PAIR_OR_RETURN(startServingWithout("ip", HostId::b));
	handOver();
	ASSERT_TRUE(waitToBeTold(HostId::b, "Utill:496", 3));
	ASSERT_TRUE(waitToBeTold(HostId::a, "CHeartReciver:287", 3));
	EXPECT_EQ(lab().owners(), "none");
	EXPECT_EQ(lab().role(HostId::a), "slave");
	EXPECT_EQ(lab().role(HostId::b), "master");
	EXPECT_EQ(programsOn(HostId::a) + programsOn(HostId::b), 0U);
	EXPECT_EQ(heldBy("b", Millis(0)) + heldBy("a+b", Millis(0)), Millis(0));

	raiseByHand(HostId::b);
	EXPECT_TRUE(lab().waitForService(HostId::b, moveLimit, Millis(1000)));
}

TEST_F(MissingTools, WithoutIpAMasterThatGivesUpKeepsTheAddress)
{
	PAIR_OR_RETURN(startServingPair());
	takeAway(lab(), HostId::a, "ip");
	lab().inject({"service-interface", HostId::a});
	ASSERT_TRUE(waitForOwners("a+b"));
	ASSERT_TRUE(waitForProgramOn(HostId::b));
	EXPECT_EQ(programsOn(HostId::a), 0U) << "what follows the address in the kill command is done";
	EXPECT_EQ(lab().role(HostId::a), "slave");
}

// As with it: each raising drops the address first, so that there is none to be seen.
TEST_F(MissingTools, WithoutIfconfigATakeOverGoesAsWithIt)
{
	PAIR_OR_RETURN(startServingWithout("ifconfig", HostId::b));
	handOver();
	ASSERT_TRUE(lab().waitForService(HostId::b, moveLimit));
	EXPECT_EQ(toldBy(HostId::b, "Utill:573", "ip addr add"), 2);
	EXPECT_EQ(toldBy(HostId::b, "Utill:680"), 2);
	EXPECT_TRUE(consoleHas(HostId::b, "ifconfig: not found"));
}

TEST_F(MissingTools, WithoutIfconfigAStartCommandThatPrintsIsRepeatedAndNoProgramStarts)
{
	PAIR_OR_RETURN(startServingWithout("ifconfig", HostId::b));
	lab().inject({"start-prints", HostId::b});
	handOver();
	ASSERT_TRUE(waitToBeTold(HostId::b, "Utill:432", 3));
	EXPECT_EQ(lab().owners(), "b");
	EXPECT_EQ(programsOn(HostId::a) + programsOn(HostId::b), 0U);
}

TEST_F(MissingTools, WithoutPsNothingChanges)
{
	PAIR_OR_RETURN(startServingPair({},
	                                [](Lab& made)
	                                {
		                                takeAway(made, HostId::a, "ps");
		                                takeAway(made, HostId::b, "ps");
	                                }));
	handOver();
	ASSERT_TRUE(lab().waitForService(HostId::b, moveLimit));
	EXPECT_FALSE(consoleHas(HostId::a, "not found") || consoleHas(HostId::b, "not found"));
}

// Its partner, which it asks, serves.
TEST_F(MissingTools, WithoutCatAMasterGivesUp)
{
	PAIR_OR_RETURN(startPair({}, [](Lab& made) { takeAway(made, HostId::a, "cat"); }));
	ASSERT_TRUE(lab().waitForService(HostId::b, moveLimit));
	EXPECT_EQ(toldBy(HostId::a, "CHeartReciver:524"), 1);
	EXPECT_EQ(programsOn(HostId::a), 0U);
	EXPECT_TRUE(consoleHas(HostId::a, "cat: not found"));
}

TEST_F(MissingTools, WithoutCatAStandbyCountsNoSilenceAndCannotKeepTheService)
{
	PAIR_OR_RETURN(startServingWithout("cat", HostId::b));
	lab().inject({"agent-freeze", HostId::a});
	ASSERT_TRUE(waitToBeTold(HostId::b, "CHeartReciver:182", 4));
	EXPECT_EQ(toldBy(HostId::b, "CHeartReciver:192"), 0);

	lab().inject({"power-off", HostId::a});
	ASSERT_TRUE(waitToBeTold(HostId::b, "CHeartReciver:524", 2, 2 * moveLimit));
	EXPECT_GE(toldBy(HostId::b, "Utill:78"), 2) << "it takes over each time";
}

// The script that starts the programs may not be executed.
TEST_F(MissingTools, WithoutChmodNoProgramStartsAndThePartnerIsAsked)
{
	PAIR_OR_RETURN(startPair({}, [](Lab& made) { takeAway(made, HostId::a, "chmod"); }));
	ASSERT_TRUE(lab().waitForService(HostId::b, moveLimit));
	EXPECT_GE(toldBy(HostId::a, "CHeartReciver:567"), 1);
	EXPECT_TRUE(consoleHas(HostId::a, "chmod: not found"));
}

} // namespace velarix::lab
