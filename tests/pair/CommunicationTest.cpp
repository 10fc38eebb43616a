/// Failures of the communication network.

#include "PairTest.h"

namespace velarix::lab
{

class Communication : public PairTest
{
};

TEST_F(Communication, MastersInterfaceUnpluggedWhileTheGatewayIsThere)
{
	PAIR_OR_RETURN(startServingPair());

	const Millis pulled = lab().clock().now();
	lab().inject({FaultKind::communicationInterfacePulled, HostId::a});
	// It cannot reach the gateway any more: it is the isolated one and gives up.
	ASSERT_TRUE(waitForAction(HostId::a, "the gateway does not answer", pulled));
	ASSERT_TRUE(lab().waitForService(HostId::b, moveLimit));
	EXPECT_EQ(lab().role(HostId::a), "slave");
	EXPECT_EQ(heldBy("a+b", pulled), Millis(0));

	const Millis plugged = lab().clock().now();
	lab().repair({FaultKind::communicationInterfacePulled, HostId::a});
	ASSERT_TRUE(lab().waitForService(HostId::b, moveLimit));
	EXPECT_EQ(lab().role(HostId::a), "slave");
	EXPECT_EQ(heldBy("none", plugged) + heldBy("a", plugged) + heldBy("a+b", plugged), Millis(0));
}

TEST_F(Communication, CutBetweenTheNodesGivesTwoOwnersUntilItIsJoined)
{
	PAIR_OR_RETURN(startServingPair());

	// Both nodes reach the gateway, so each takes the other for dead.
	lab().inject({FaultKind::communicationCut});
	ASSERT_TRUE(waitFor([&] { return lab().owners() == "a+b"; }, moveLimit, "both nodes to hold the address",
	                    [&] { return lab().stateText(); }));
	lab().repair({FaultKind::communicationCut});
	// Two masters that hear each other go back to the roles that are set.
	ASSERT_TRUE(lab().waitForService(HostId::a, moveLimit));
	EXPECT_EQ(lab().role(HostId::a), "master");
	EXPECT_EQ(lab().role(HostId::b), "slave");
}

TEST_F(Communication, WithoutGatewayNothingIsSteadyAndWithItOneOwner)
{
	PAIR_OR_RETURN(startServingPair());

	const Millis gone = lab().clock().now();
	lab().inject({FaultKind::gatewayGone});
	ASSERT_TRUE(waitForAction(HostId::a, "the gateway does not answer", gone));
	ASSERT_TRUE(waitFor([&] { return heldBy("none", gone) > Millis(0); }, moveLimit, "the master to give up",
	                    [&] { return lab().stateText(); }));
	lab().repair({FaultKind::gatewayGone});
	std::string owner;
	ASSERT_TRUE(waitFor(
	    [&]
	    {
		    owner = lab().owners();
		    return (owner == "a" || owner == "b") && owner == lab().answeredBy();
	    },
	    moveLimit, "one node to serve again", [&] { return lab().stateText(); }));
	EXPECT_TRUE(lab().waitForService(*hostNamed(owner), moveLimit));
}

} // namespace velarix::lab
