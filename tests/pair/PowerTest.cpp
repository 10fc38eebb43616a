/// Servers that lose their power and come back.

#include "PairTest.h"

namespace velarix::lab
{

class Power : public PairTest
{
};

TEST_F(Power, MasterHostDiesAndComesBackAsStandby)
{
	PAIR_OR_RETURN(startServingPair());

	const Millis off = lab().clock().now();
	lab().inject({FaultKind::powerOff, HostId::a});
	EXPECT_EQ(lab().owners(), "none");
	ASSERT_TRUE(lab().waitForService(HostId::b, moveLimit));
	EXPECT_EQ(lab().role(HostId::b), "master");
	EXPECT_EQ(heldBy("a+b", off), Millis(0));
	// Rest of the receiver's pass, two silent probes, five seconds of countdown.
	EXPECT_GE(outageSince(off), Millis(5000));
	EXPECT_LE(outageSince(off), Millis(20000));

	// The service is not moved back: a returning node that hears a master stays standby.
	const Millis on = lab().clock().now();
	lab().repair({FaultKind::powerOff, HostId::a});
	ASSERT_TRUE(waitFor([&] { return lab().role(HostId::a) == "slave"; }, moveLimit, "node a to be on standby",
	                    [&] { return lab().stateText(); }));
	ASSERT_TRUE(lab().waitForService(HostId::b, moveLimit));
	EXPECT_EQ(heldBy("b", on), heldBy("b", on) + heldBy("a", on) + heldBy("a+b", on) + heldBy("none", on));
	EXPECT_LT(outageSince(on), Millis(1000));
	EXPECT_EQ(lab().role(HostId::a), "slave");
	// The disk came back with it: one log, with the lines of both lives.
	const std::string log = contentOf(lab().node(HostId::a).diskFile(plan::logFile));
	const std::string line = "stop virtual ip, process";
	EXPECT_NE(log.find(line), log.rfind(line));
}

TEST_F(Power, StandbyHostDiesAndTheMasterIsNotConcerned)
{
	PAIR_OR_RETURN(startServingPair());

	const Millis off = lab().clock().now();
	lab().inject({FaultKind::powerOff, HostId::b});
	// Three silences of the master, during which it has no reason to act.
	ASSERT_TRUE(waitFor([&] { return lab().clock().now() - off > Millis(10000); }, Millis(20000), "ten seconds alone"));
	EXPECT_EQ(lab().role(HostId::a), "master");
	lab().repair({FaultKind::powerOff, HostId::b});
	ASSERT_TRUE(waitFor([&] { return lab().role(HostId::b) == "slave"; }, moveLimit, "node b to be on standby",
	                    [&] { return lab().stateText(); }));
	ASSERT_TRUE(lab().waitForService(HostId::a, moveLimit));
	EXPECT_EQ(heldBy("none", off) + heldBy("b", off) + heldBy("a+b", off), Millis(0));
	EXPECT_LT(outageSince(off), Millis(1000));
}

} // namespace velarix::lab
