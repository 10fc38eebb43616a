/// What velarixctl tells about a real pair, sound and broken, and does with it.

#include "PairTest.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "ToolThreads.h"

namespace velarix::lab
{

using testing::HasSubstr;
using testing::StartsWith;

class Operator : public PairTest
{
};

TEST_F(Operator, SeesASoundPairFromBothNodes)
{
	PAIR_OR_RETURN(startReadyPair());

	const nlohmann::json a = status(HostId::a);
	EXPECT_EQ(a["role"]["value"], "master");
	EXPECT_EQ(a["partner"]["role"]["value"], "slave");
	EXPECT_EQ(a["agent"]["threads"], 4 + kToolThreads);
	EXPECT_EQ(a["programs"]["value"]["run"], true);
	EXPECT_EQ(a["virtual_ip"]["value"]["held"], true);
	EXPECT_EQ(a["virtual_ip"]["value"]["label"], "eth0:ha");
	EXPECT_EQ(a["virtual_ip"]["value"]["listed"], true);
	EXPECT_EQ(a["interfaces"]["eth0"]["value"], true);
	EXPECT_EQ(a["interfaces"]["eth1"]["value"], true);
	EXPECT_EQ(a["gateway_answers"]["value"], true);
	EXPECT_EQ(a["asks"]["value"], false);
	EXPECT_EQ(a["last_change"]["cause"], "configured-role");
	EXPECT_LT(a["role"]["age_seconds"], 5.0);
	EXPECT_LT(a["partner"]["heartbeat_received_age_seconds"], 5.0);

	const nlohmann::json b = status(HostId::b);
	EXPECT_EQ(b["role"]["value"], "slave");
	EXPECT_EQ(b["partner"]["role"]["value"], "master");
	EXPECT_EQ(b["partner"]["programs_run"]["value"], true);
	EXPECT_EQ(b["programs"]["value"]["run"], false);
	EXPECT_EQ(b["virtual_ip"]["value"]["held"], false);

	expectSays(ctl(HostId::a, {"status"}), 0,
	           {"\nrole         master", "failover     would work now, as far as the partner's heartbeats tell\n"});
}

TEST_F(Operator, HasFiguresForTheMonitoring)
{
	PAIR_OR_RETURN(startReadyPair());

	const CommandResult line = ctl(HostId::a, {"nagios"});
	EXPECT_EQ(line.status, 0);
	EXPECT_THAT(line.output, StartsWith("VELARIX OK - master, partner 198.51.100.12 standby, a failover would work|"
	                                    "heartbeat_age="));

	const CommandResult metrics = ctl(HostId::b, {"metrics"});
	EXPECT_EQ(metrics.status, 0);
	EXPECT_THAT(metrics.output, HasSubstr("\nvelarix_role{role=\"slave\"} 1\n"));
	EXPECT_THAT(metrics.output, HasSubstr("\nvelarix_fail_over_ready 1\n"));

	const std::string file = "/tmp/velarix.prom";
	ASSERT_EQ(ctl(HostId::a, {"metrics", "--textfile", file}).status, 0);
	ASSERT_TRUE(waitFor(
	    [&]
	    {
		    return ctl(HostId::a, {"metrics", "--textfile", file}).ok() &&
		           contentOf(lab().node(HostId::a).file(file)).find("velarix_heartbeats_sent_total 0\n") ==
		               std::string::npos;
	    },
	    moveLimit, "heartbeats to be counted"));
}

TEST_F(Operator, TellsAFrozenAgentAndAKilledOneApart)
{
	PAIR_OR_RETURN(startReadyPair());

	lab().freezeAgent(HostId::b);
	expectSays(ctl(HostId::b, {"status"}), 4, {"\nrole         not known: ", "agent        FROZEN"});
	EXPECT_EQ(ctl(HostId::b, {"nagios"}).status, 2);
	lab().thawAgent(HostId::b);
	ASSERT_TRUE(waitUntilReady());

	lab().killAgent(HostId::b);
	expectSays(ctl(HostId::b, {"status"}), 1, {"agent        DEAD", "failover     would NOT work now\n"});
	EXPECT_TRUE(waitForStatus(HostId::a, "that a failover would not work",
	                          [](const nlohmann::json& a)
	                          {
		                          return a["fail_over"]["works"] == false && a["role"]["value"] == "master" &&
		                                 a["partner"]["role"]["value"].is_null();
	                          }));

	lab().startAgent(HostId::b);
	EXPECT_TRUE(waitUntilReady());
}

/// Planned moves.
class OperatorSwitchover : public PairTest
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
};

TEST_F(OperatorSwitchover, MovesTheServiceThereAndBack)
{
	PAIR_OR_RETURN(startReadyPair());

	expectSays(ctl(HostId::a, {"switchover", "--dry-run"}), 0, {"would hand the service over to 198.51.100.12:\n"});
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
		expectSays(ctl(from, {"switchover"}, moveLimit), 0);
		EXPECT_TRUE(lab().waitForService(otherNode(from), moveLimit));
		EXPECT_EQ(status(from)["last_change"]["cause"], "switchover");
		ASSERT_TRUE(waitUntilReady());
	}
	EXPECT_EQ(heldBy("a+b", begin), Millis(0));
	std::printf("the longest time without the service: %lld ms\n", static_cast<long long>(outageSince(begin).count()));
}

/// Node a has a key that b accepts; what it may do there is the line of authorized_keys.
class OperatorOverSsh : public PairTest
{
protected:
	void serve()
	{
		for (const HostId node : {HostId::a, HostId::b})
		{
			lab::shell(lab().host(node), "mount -t tmpfs -o mode=700 none /root; mkdir -m 700 /root/.ssh");
		}
		lab::shell(lab().host(HostId::a), "ssh-keygen -q -t ed25519 -N '' -f /root/.ssh/id_ed25519; "
		                                  "echo StrictHostKeyChecking accept-new >/root/.ssh/config");
		lab::shell(lab().host(HostId::b),
		           "dropbearkey -t ed25519 -f /root/key >/dev/null 2>&1; dropbear -r /root/key -P /root/pid");
	}

	void allow(const std::string& options)
	{
		const std::string key = contentOf(lab().node(HostId::a).file("/root/.ssh/id_ed25519.pub"));
		lab::shell(lab().host(HostId::b), "umask 077; printf '%s' '" + options + key + "' >/root/.ssh/authorized_keys");
	}
};

TEST_F(OperatorOverSsh, APairIsSeenAndPutIntoMaintenanceFromOneNode)
{
	PAIR_OR_RETURN(startReadyPair());
	serve();
	expectSays(ctl(HostId::a, {"pair"}), 3, {"partner-not-reached"});

	allow("restrict,command=\"velarixctl status --for-pair\" ");
	const CommandResult pair = ctl(HostId::a, {"pair", "--json"});
	EXPECT_EQ(pair.status, 0) << pair.output;
	EXPECT_EQ(nlohmann::json::parse(pair.output)["nodes"][1]["role"]["value"], "slave") << pair.output;

	allow("");
	expectSays(ctl(HostId::a, {"maintenance", "on", "--pair"}), 0);
	EXPECT_EQ(status(HostId::b)["problems"][0]["id"], "maintenance");
	expectSays(ctl(HostId::a, {"maintenance", "off", "--pair"}), 0);
	EXPECT_TRUE(waitUntilReady());

	EXPECT_EQ(ctl(HostId::a, {"switchover", "--dry-run"}).status, 0);
	lab().inject({"service-interface", HostId::b});
	expectSays(ctl(HostId::a, {"switchover"}), 69,
	           {"refused: the partner could not take the service: its status says that"});
	EXPECT_EQ(lab().owners(), "a");
}

/// An administrator works on the pair, and nothing fails over.
class OperatorMaintenance : public PairTest, public testing::WithParamInterface<Profile>
{
protected:
	void maintenance(HostId node, const std::string& word) { expectSays(ctl(node, {"maintenance", word}), 0); }
};

TEST_P(OperatorMaintenance, AServiceMayBeStoppedAndStarted)
{
	PairSettings settings;
	settings.profile = GetParam();
	const LabOptions options({}, settings);
	PAIR_OR_RETURN(startReadyPair(options));
	maintenance(HostId::b, "on");
	maintenance(HostId::a, "on");
	EXPECT_EQ(status(HostId::a)["problems"][0]["id"], "maintenance");
	const Millis begin = lab().clock().now();

	lab().run(HostId::a, {"pkill", "-9", "-x", "labhttpd"});
	ASSERT_TRUE(waitFor([&] { return lab().answeredBy() == "none"; }, moveLimit, "the service to be gone"));
	// Longer than the pair would need to notice it and to move the service.
	const auto moved = [&] { return lab().answeredBy() != "none" || lab().owners() != "a"; };
	EXPECT_FALSE(waitFor(moved, Millis(15000), "nothing"));

	if (GetParam() == Profile::plain)
	{
		EXPECT_EQ(ctl(HostId::a, {"maintenance", "off"}).status, 69) << "the agent would give the service up";
		lab().run(HostId::a, {"sh", "-c", std::string("setsid ") + plan::serviceProgram + " >/dev/null 2>&1 &"});
		ASSERT_TRUE(waitFor([&] { return lab().answeredBy() == "a"; }, moveLimit, "the service to answer again"));
	}
	maintenance(HostId::a, "off");
	maintenance(HostId::b, "off");
	ASSERT_TRUE(waitUntilReady());
	EXPECT_TRUE(lab().waitForService(HostId::a, moveLimit));
	for (const char* owners : {"none", "b", "a+b"})
	{
		EXPECT_EQ(heldBy(owners, begin), Millis(0)) << owners;
	}
}

INSTANTIATE_TEST_SUITE_P(Settings, OperatorMaintenance, testing::Values(Profile::plain, Profile::keeper),
                         [](const auto& row) { return nameOf(row.param); });

} // namespace velarix::lab
