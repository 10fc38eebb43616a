/// A master whose system fails under it while the other node is sound.

#include <random>

#include "PairTest.h"

namespace velarix::lab
{

namespace
{

/// A user that nobody else on this host is: the limit of processes counts those of a user
/// in every namespace, and does not bind root.
std::string userOfItsOwn()
{
	std::random_device chance;
	return std::to_string(std::uniform_int_distribution<int>(1 << 20, 1 << 30)(chance));
}

} // namespace

class FailingMaster : public PairTest
{
protected:
	/// How often node a's log has a line of this source and number.
	int toldByA(const std::string& place)
	{
		int count = 0;
		for (const std::string& line : linesOf(lab().node(HostId::a).file(plan::logFile)))
		{
			count += line.find("[" + place + "]") != std::string::npos ? 1 : 0;
		}
		return count;
	}
};

// It cannot give the address back, and its partner, which it asks, takes over.
TEST_F(FailingMaster, WithoutANewProcessItGivesUpAndKeepsAddressAndPrograms)
{
	const std::string capabilities = "+net_admin,+net_raw,+dac_override,+kill";
	const std::string user = "--reuid=" + userOfItsOwn();
	const std::vector<std::string> words{"setpriv", user, "--inh-caps=" + capabilities,
	                                     "--ambient-caps=" + capabilities};
	PAIR_OR_RETURN(startPair({}, [&](Lab& made) { made.node(HostId::a).wrapAgent(words); }));
	ASSERT_TRUE(lab().waitForService(HostId::a, moveLimit, Millis(1000)));
	const std::optional<ProcessEntry> agent = lab().node(HostId::a).agent();
	ASSERT_TRUE(agent);

	const Millis since = lab().clock().now();
	// No process that it makes, no thread either, from now on.
	const CommandResult limited =
	    lab().run(HostId::a, {"setpriv", user, "prlimit", "--pid", std::to_string(agent->pidInHost), "--nproc=1:1"});
	ASSERT_TRUE(limited.ok()) << limited.output;
	ASSERT_TRUE(waitFor([&] { return lab().owners() == "a+b"; }, moveLimit, "both nodes to hold the address",
	                    [&] { return lab().stateText(); }));
	EXPECT_EQ(lab().role(HostId::a), "slave");
	EXPECT_EQ(lab().role(HostId::b), "master");
	EXPECT_EQ(toldByA("CHeartReciver:524"), 1);
	EXPECT_GT(toldByA("Utill:550"), 2) << "the carrier, the kill command, the stop command";
	EXPECT_EQ(processesNamed(lab().node(HostId::a).host().pid(), plan::serviceProgramName).size(), 1U);
	EXPECT_EQ(heldBy("none", since), Millis(0));
}

// Its partner is not asked and, while both speak, waits for the node that is set as master.
TEST_F(FailingMaster, WithoutRawSocketsItGivesUpAndBeginsAgainAndAgain)
{
	const std::vector<std::string> words{"setpriv", "--bounding-set=-net_raw", "--inh-caps=-net_raw"};
	PAIR_OR_RETURN(startPair({}, [&](Lab& made) { made.node(HostId::a).wrapAgent(words); }));
	ASSERT_TRUE(waitFor([&] { return toldByA("CHeartReciver:508") >= 2; }, moveLimit, "the master to give up twice",
	                    [&] { return lab().stateText(); }));
	EXPECT_GE(toldByA("Utill:78"), 2) << "the programs are started each time";
	EXPECT_EQ(heldBy("b", Millis(0)) + heldBy("a+b", Millis(0)), Millis(0));
	EXPECT_EQ(lab().role(HostId::b), "slave");
}

} // namespace velarix::lab
