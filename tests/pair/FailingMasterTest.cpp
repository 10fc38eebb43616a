/// A master whose system fails under it while the other node is sound.

#include <algorithm>
#include <csignal>
#include <map>
#include <random>

#include "FailingNode.h"

namespace velarix::lab
{

class FailingMaster : public FailingNode
{
protected:
	static constexpr const char* staysStandby = "partner silent but reachable: stays standby";

	/// Words for an agent whose mounts are its own, so that they can be changed for it alone.
	static std::vector<std::string> ownMounts() { return {"unshare", "--mount"}; }

	/// An empty directory over the /proc of the agent, which wears ownMounts().
	void hideProcFromAgent(HostId node)
	{
		const std::optional<Process> agent = lab().node(node).agent();
		ASSERT_TRUE(agent);
		const CommandResult hidden =
		    lab().run(node, {"nsenter", "--mount", "--target", std::to_string(agent->pidInside), "mount", "-t", "tmpfs",
		                     "nothing", "/proc"});
		ASSERT_TRUE(hidden.ok()) << hidden.output;
	}

#if !defined(__SANITIZE_ADDRESS__)
	/// How many descriptors the agent has open at a look, its listening socket among them and what
	/// it waits with not. They are numbered without a gap.
	std::size_t heldDescriptors(pid_t agent)
	{
		std::map<int, std::string> held;
		const auto look = [&]
		{
			held = descriptorsOf(agent);
			const auto are = [&](const char* kind) {
				return std::ranges::count_if(held, [&](const auto& one)
				                             { return one.second.find(kind) != std::string::npos; });
			};
			const auto sockets = are("socket:");
			const auto erased =
			    std::erase_if(held, [](const auto& one) { return one.second.find("eventpoll") != std::string::npos; });
			return erased == 1 && sockets == 1 && std::ssize(held) == held.rbegin()->first + 1;
		};
		EXPECT_TRUE(waitFor(look, moveLimit, "an agent that waits for a heartbeat and does nothing else"));
		return held.size();
	}
#endif
};

// What it cannot go on without ends it at each start. The service would not start it: the
// missing record is seen before.
TEST_F(FailingMaster, ThatEndsServesOnUntilItIsStartedAgainAndThenNobodyDoes)
{
	PAIR_OR_RETURN(startServingPair());
	const Millis since = lab().clock().now();
	std::filesystem::remove(lab().node(HostId::a).file(plan::runInfoFile));
	ASSERT_TRUE(waitFor([&] { return !lab().node(HostId::a).agent(); }, moveLimit, "the agent to end"));
	ASSERT_TRUE(waitForAction(HostId::b, staysStandby, since));
	EXPECT_EQ(heldBy("none", since) + heldBy("b", since) + heldBy("a+b", since), Millis(0));
	EXPECT_EQ(programsOn(HostId::a), 1U);

	lab().node(HostId::a).startAgent();
	ASSERT_TRUE(waitFor([&] { return !lab().node(HostId::a).agent(); }, moveLimit, "the agent to end again"));
	// The sampler sees the address a moment after the agent has dropped it.
	EXPECT_TRUE(waitForOwners("none"));
	EXPECT_EQ(programsOn(HostId::a), 0U);
	ASSERT_TRUE(waitForAction(HostId::b, staysStandby, lab().clock().now()));
	EXPECT_EQ(heldBy("b", since), Millis(0));
	EXPECT_EQ(lab().role(HostId::b), "slave");
}

// It cannot give the address back, and its partner, which it asks, takes over.
TEST_F(FailingMaster, WithoutANewProcessItGivesUpAndKeepsAddressAndPrograms)
{
	const std::string capabilities = "+net_admin,+net_raw,+dac_override,+kill";
	// The limit of processes counts those of a user in every namespace: one that nobody else is.
	std::random_device chance;
	const std::string user =
	    "--reuid=" + std::to_string(std::uniform_int_distribution<uid_t>(1U << 20, 1U << 30)(chance));
	const std::vector<std::string> words{"setpriv", user, "--inh-caps=" + capabilities,
	                                     "--ambient-caps=" + capabilities};
	PAIR_OR_RETURN(startServingPair({}, [&](Lab& made) { made.node(HostId::a).wrapAgent(words); }));
	const std::optional<Process> agent = lab().node(HostId::a).agent();
	ASSERT_TRUE(agent);

	const Millis since = lab().clock().now();
	// No process that it makes, no thread either, from now on.
	const CommandResult limited =
	    lab().run(HostId::a, {"setpriv", user, "prlimit", "--pid", std::to_string(agent->pidInside), "--nproc=1:1"});
	ASSERT_TRUE(limited.ok()) << limited.output;
	ASSERT_TRUE(waitForOwners("a+b"));
	EXPECT_EQ(lab().role(HostId::a), "slave");
	EXPECT_EQ(lab().role(HostId::b), "master");
	EXPECT_EQ(toldBy(HostId::a, "CHeartReciver:524"), 1);
	EXPECT_GT(toldBy(HostId::a, "Utill:550"), 2) << "the carrier, the kill command, the stop command";
	EXPECT_EQ(programsOn(HostId::a), 1U);
	EXPECT_EQ(heldBy("none", since), Millis(0));
}

// Its partner is not asked and, while both speak, waits for the node that is set as master.
TEST_F(FailingMaster, WithoutRawSocketsItGivesUpAndBeginsAgainAndAgain)
{
	const std::vector<std::string> words{"setpriv", "--bounding-set=-net_raw", "--inh-caps=-net_raw"};
	PAIR_OR_RETURN(startPair({}, [&](Lab& made) { made.node(HostId::a).wrapAgent(words); }));
	ASSERT_TRUE(waitToBeTold(HostId::a, "CHeartReciver:508", 2));
	EXPECT_GE(toldBy(HostId::a, "Utill:78"), 2) << "the programs are started each time";
	EXPECT_EQ(heldBy("b", Millis(0)) + heldBy("a+b", Millis(0)), Millis(0));
	EXPECT_EQ(lab().role(HostId::b), "slave");
}

// It drops the address and asks its partner; nobody ends its programs.
TEST_F(FailingMaster, WithoutProcItHandsOverAndItsProgramsGoOn)
{
	PAIR_OR_RETURN(startServingPair({}, [](Lab& made) { made.node(HostId::a).wrapAgent(ownMounts()); }));
	hideProcFromAgent(HostId::a);
	ASSERT_TRUE(waitForOwners("b"));
	ASSERT_TRUE(waitForProgramOn(HostId::b));
	EXPECT_EQ(toldBy(HostId::a, "CHeartReciver:567"), 1);
	EXPECT_EQ(lab().role(HostId::a), "slave");
	EXPECT_EQ(programsOn(HostId::a), 1U);
}

TEST_F(FailingMaster, WithoutProcOnBothNodesTheServiceMovesToAndFro)
{
	PAIR_OR_RETURN(startServingPair({},
	                                [](Lab& made)
	                                {
		                                made.node(HostId::a).wrapAgent(ownMounts());
		                                made.node(HostId::b).wrapAgent(ownMounts());
	                                }));
	hideProcFromAgent(HostId::b);
	hideProcFromAgent(HostId::a);
	EXPECT_TRUE(waitToBeTold(HostId::a, "CHeartReciver:567", 2, 2 * moveLimit));
	EXPECT_TRUE(waitToBeTold(HostId::b, "CHeartReciver:567", 2, 2 * moveLimit));
}

#if !defined(__SANITIZE_ADDRESS__)
// UndefinedBehaviorSanitizer, which comes with the address sanitizer here, looks at an
// object's memory through a pipe, and takes an object for none where it gets no pipe.

// It can end nothing, and no heartbeat tells its partner to take over.
TEST_F(FailingMaster, WithoutADescriptorItGivesUpAndServesOnWhileItsPartnerWaits)
{
	PAIR_OR_RETURN(startServingPair());
	const std::optional<Process> agent = lab().node(HostId::a).agent();
	ASSERT_TRUE(agent);
	const std::string held = std::to_string(heldDescriptors(agent->pid));
	const Millis since = lab().clock().now();
	const CommandResult limited =
	    lab().run(HostId::a, {"prlimit", "--pid", std::to_string(agent->pidInside), "--nofile=" + held + ":" + held});
	ASSERT_TRUE(limited.ok()) << limited.output;
	const auto gaveUp = [&]
	{
		const bool ended = !lab().node(HostId::a).agent();
		return toldBy(HostId::a, "Utill:550", "killall") >= 1 && (ended || toldBy(HostId::a, "CHeartReciver:79") >= 10);
	};
	ASSERT_TRUE(waitFor(gaveUp, moveLimit, "node a to give up", [&] { return lab().stateText(); }));
	// It tries again and again without a pause, or ends at that.
	lab().node(HostId::a).signalAgent(SIGSTOP);
	EXPECT_TRUE(consoleHas(HostId::a, "Server Error: I/O error: Too many open files"));

	ASSERT_TRUE(waitForAction(HostId::b, staysStandby, since));
	EXPECT_EQ(lab().owners(), "a");
	EXPECT_EQ(programsOn(HostId::a), 1U);
	EXPECT_EQ(heldBy("none", since) + heldBy("b", since) + heldBy("a+b", since), Millis(0));
	EXPECT_EQ(lab().role(HostId::b), "slave");
}
#endif

} // namespace velarix::lab
