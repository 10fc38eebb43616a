/// Agents that fail while their host goes on.

#include "PairTest.h"

namespace velarix::lab
{

class AgentFailure : public PairTest
{
protected:
	static constexpr const char* staysStandby = "partner silent but reachable: stays standby";

	/// Since `since`, node a alone held the address and the client had answers.
	void expectNodeAServedThroughout(Millis since)
	{
		EXPECT_EQ(heldBy("none", since) + heldBy("b", since) + heldBy("a+b", since), Millis(0));
		EXPECT_LT(outageSince(since), Millis(1000));
		EXPECT_EQ(lab().role(HostId::b), "slave");
	}
};

/// The host answers pings, so the standby node leaves a silent master alone.
TEST_F(AgentFailure, FrozenMasterKeepsTheServiceAndGoesOn)
{
	PAIR_OR_RETURN(startServingPair());

	const Millis frozen = lab().clock().now();
	lab().inject({FaultKind::agentFrozen, HostId::a});
	ASSERT_TRUE(waitForAction(HostId::b, staysStandby, frozen));
	expectNodeAServedThroughout(frozen);
	lab().repair({FaultKind::agentFrozen, HostId::a});
	ASSERT_TRUE(lab().waitForService(HostId::a, moveLimit));
	expectNodeAServedThroughout(frozen);
	EXPECT_EQ(lab().role(HostId::a), "master");
}

TEST_F(AgentFailure, KilledMasterKeepsTheServiceUntilItIsStartedAgain)
{
	PAIR_OR_RETURN(startServingPair());

	const Millis killed = lab().clock().now();
	lab().inject({FaultKind::agentKilled, HostId::a});
	EXPECT_EQ(lab().role(HostId::a), "no agent");
	ASSERT_TRUE(waitForAction(HostId::b, staysStandby, killed));
	expectNodeAServedThroughout(killed);

	// A start begins clean: it drops the address and the programs, then the
	// election gives them back.
	const Millis started = lab().clock().now();
	lab().repair({FaultKind::agentKilled, HostId::a});
	ASSERT_TRUE(waitForAction(HostId::a, "starts clean", started));
	ASSERT_TRUE(lab().waitForService(HostId::a, moveLimit));
	EXPECT_EQ(heldBy("b", started) + heldBy("a+b", started), Millis(0));
	EXPECT_GT(heldBy("none", started), Millis(0));
}

} // namespace velarix::lab
