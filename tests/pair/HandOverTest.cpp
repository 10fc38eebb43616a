/// Masters that notice a failure of their own and ask the partner to take over.

#include "PairTest.h"

namespace velarix::lab
{

class HandOver : public PairTest
{
protected:
	/// The node that gave up is on standby and asks no longer.
	bool settledOn(HostId master)
	{
		const HostId standby = otherNode(master);
		return lab().waitForService(master, moveLimit) && lab().role(standby) == "slave" &&
		       lab().role(master) == "master";
	}
};

TEST_F(HandOver, ProgramKilledThenServiceInterfaceUnplugged)
{
	PAIR_OR_RETURN(startServingPair());

	const Millis killed = lab().clock().now();
	lab().inject({FaultKind::programKilled, HostId::a});
	ASSERT_TRUE(waitForAction(HostId::a, "asks the partner", killed));
	ASSERT_TRUE(settledOn(HostId::b));
	EXPECT_EQ(heldBy("a+b", killed), Millis(0));
	// The address is raised twice on this way, five seconds of countdown each.
	EXPECT_GE(outageSince(killed), Millis(10000));
	EXPECT_LE(outageSince(killed), Millis(25000));

	const Millis pulled = lab().clock().now();
	lab().inject({FaultKind::serviceInterfacePulled, HostId::b});
	ASSERT_TRUE(waitForAction(HostId::b, "the service interface has no carrier", pulled));
	ASSERT_TRUE(settledOn(HostId::a));
	EXPECT_EQ(heldBy("a+b", pulled), Millis(0));

	const Millis plugged = lab().clock().now();
	lab().repair({FaultKind::serviceInterfacePulled, HostId::b});
	ASSERT_TRUE(settledOn(HostId::a));
	EXPECT_EQ(heldBy("none", plugged) + heldBy("b", plugged) + heldBy("a+b", plugged), Millis(0));
}

} // namespace velarix::lab
