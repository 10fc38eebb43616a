/// What velarixctl tells about a real pair, sound and broken.

#include "OperatorTest.h"

#include <gmock/gmock.h>

#include "ToolThreads.h"

namespace velarix::lab
{

using testing::HasSubstr;
using testing::StartsWith;

class Operator : public OperatorTest
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

	const CommandResult text = ctl(HostId::a, {"status"});
	EXPECT_EQ(text.status, 0);
	EXPECT_THAT(text.output, HasSubstr("\nrole         master"));
	EXPECT_THAT(text.output, HasSubstr("failover     would work now, as far as the partner's heartbeats tell\n"));
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

TEST_F(Operator, WatchesAMoveAsJson)
{
	PAIR_OR_RETURN(startReadyPair());

	lab().inject({FaultKind::programKilled, HostId::a});
	const CommandResult watched =
	    ctl(HostId::b, {"watch", "--json", "--interval", "0.2", "--count", "100"}, Millis(60000));
	EXPECT_EQ(watched.status, 0);
	std::vector<std::string> roles;
	std::istringstream lines(watched.output);
	for (std::string line; std::getline(lines, line);)
	{
		const nlohmann::json role = nlohmann::json::parse(line)["role"]["value"];
		if (roles.empty() || role != roles.back())
		{
			roles.push_back(role.is_string() ? role.get<std::string>() : "none");
		}
	}
	EXPECT_THAT(roles, testing::ElementsAre("slave", "master"));
	EXPECT_EQ(status(HostId::b)["last_change"]["cause"], "partner-asked");
}

TEST_F(Operator, TellsAFrozenAgentAndAKilledOneApart)
{
	PAIR_OR_RETURN(startReadyPair());

	lab().freezeAgent(HostId::b);
	const CommandResult frozen = ctl(HostId::b, {"status"});
	EXPECT_EQ(frozen.status, 4);
	EXPECT_THAT(frozen.output, HasSubstr("\nrole         not known: "));
	EXPECT_THAT(frozen.output, HasSubstr("agent        FROZEN"));
	EXPECT_EQ(ctl(HostId::b, {"nagios"}).status, 2);
	lab().thawAgent(HostId::b);
	ASSERT_TRUE(waitUntilReady());

	lab().killAgent(HostId::b);
	const CommandResult dead = ctl(HostId::b, {"status"});
	EXPECT_EQ(dead.status, 1);
	EXPECT_THAT(dead.output, HasSubstr("agent        DEAD"));
	EXPECT_THAT(dead.output, HasSubstr("failover     would NOT work now\n"));
	EXPECT_TRUE(waitForStatus(HostId::a, "that a failover would not work",
	                          [](const nlohmann::json& a)
	                          {
		                          return a["fail_over"]["works"] == false && a["role"]["value"] == "master" &&
		                                 a["partner"]["role"]["value"].is_null();
	                          }));

	lab().startAgent(HostId::b);
	EXPECT_TRUE(waitUntilReady());
}

TEST_F(Operator, KnowsThatASlaveWithoutItsCommunicationInterfaceTakesNothingOver)
{
	PAIR_OR_RETURN(startReadyPair());

	lab().inject({FaultKind::communicationInterfacePulled, HostId::b});
	EXPECT_TRUE(waitForStatus(HostId::b, "the missing carrier",
	                          [](const nlohmann::json& b) {
		                          return b["interfaces"]["eth1"]["value"] == false && b["fail_over"]["works"] == false;
	                          }));
	EXPECT_GE(ctl(HostId::b, {"nagios"}).status, 1);
	lab().repair({FaultKind::communicationInterfacePulled, HostId::b});
	EXPECT_TRUE(waitUntilReady());
}

TEST_F(Operator, TellsWhatAnUnprivilegedUserMayNotRead)
{
	PAIR_OR_RETURN(startReadyPair());

	const std::vector<std::string> asNobody{"setpriv",        "--reuid=65534", "--regid=65534",
	                                        "--clear-groups", program,         "status"};
	const CommandResult result = lab().run(HostId::a, asNobody);
	EXPECT_EQ(result.status, 4);
	EXPECT_THAT(result.output, HasSubstr("Permission denied"));
	EXPECT_THAT(result.output, HasSubstr("agent        runs as process"));
}

} // namespace velarix::lab
