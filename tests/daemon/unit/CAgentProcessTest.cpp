// The agent's construction, what it does to the node in order, its process start and its kill.

#include "Utilities.h"
#include "Workers.h"

using events::join;

namespace
{

/// The managed program of the tests in which one runs: this program's own name.
constexpr char kOwnName[] = "/opt/app/bin/daemon_unit";

class CAgentProcess : public DaemonTest
{
protected:
	CAgentProcess() { events::clear(); }

	std::unique_ptr<CAgent> agent = std::make_unique<CAgent>(2);
};

const events::List kTry{"log D CAgent:71 try to process run"};

TEST_F(CAgentProcess, ProcessStartRunsTheScriptWithoutTheAddressSetsTheFlagAndRecordsTheTime)
{
	events::at(kScript, [this] { EXPECT_FALSE(agent->isRunning()); });
	events::at("log D CAgent:179", [this] { EXPECT_TRUE(agent->isRunning()); });
	events::stopClock(1767431225);
	EXPECT_TRUE(agent->processStart());
	EXPECT_EQ(events::all(), join({kTry,
	                               steps::kRunProgramsOnly,
	                               {"log D CAgent:179 run time wrote:TRACE.LAST_RUN_TIME(20260103090705)[noName]"}}));
	EXPECT_TRUE(agent->isRunning());
	EXPECT_THAT(sandbox::readFile(velarix::kRunInfoPath), StartsWith("[TRACE]\nLAST_RUN_TIME = 20260103090705\n"));
}

TEST_F(CAgentProcess, AnErrorOfTheLibraryAtTheStartEndsTheDaemon)
{
	for (std::size_t i = 0; i < 4; ++i) // what is not of the library it does not catch
	{
		const auto& [failure, text] = steps::kScriptFailures[i];
		events::at(kScript, failure);
		const std::string line = "log E CAgent:" + std::to_string(84 + 4 * i) + " " + text;
		EXPECT_END(agent->processStart(), join({kTry, steps::kTryPrograms, steps::kScriptRuns, {line}}), "1 == 0",
		           "CAgent", 100, "bool CAgent::processStart()");
	}
}

TEST_F(CAgentProcess, KillOfARunningProgramRunsTheCommandAndLogsAtErrorLevel)
{
	EXPECT_TRUE(agent->kill());
	EXPECT_THAT(events::all(), IsEmpty());
	settings.programs({kOwnName});
	EXPECT_TRUE(agent->kill());
	EXPECT_THAT(events::without({"log D Utill:241"}),
	            ElementsAre("command kill-by-name daemon_unit",                     //
	                        "log I Utill:573 command(kill-by-name daemon_unit) : ", //
	                        "log E CAgent:123 process killed[noName]"));
}

TEST_F(CAgentProcess, AKillThatFailsEndsTheDaemon)
{
	settings.programs({kOwnName});
	events::at("command kill-by-name", events::throws(Poco::SystemException("kill")));
	EXPECT_END(agent->kill(),
	           join({{"log D Utill:241  2processes are running at the same time", "command kill-by-name daemon_unit",
	                  "log E CAgent:127 System exception: kill"}}),
	           "isKill == true", "CAgent", 131, "bool CAgent::kill()");
}

class CAgentConstruction : public DaemonTest
{
protected:
	/// The events of the construction alone, without those of the destruction.
	static events::List eventsOfConstruction(MODE mode)
	{
		events::clear();
		const CAgent agent(mode);
		return events::all();
	}
};

TEST_F(CAgentConstruction, WhateverTheRoleTheAddressIsDroppedThenEveryProgramIsKilled)
{
	settings.programs({"/opt/app/bin/server", "/opt/app/bin/worker"});
	for (const auto& [role, line] : std::map<MODE, std::string>{{1, "log I CAgent:33 Master CAgent()"},
	                                                            {2, "log I CAgent:38 Slave CAgent()"},
	                                                            {3, "log E CAgent:42 wrong mode setting: 3"},
	                                                            {0, "log E CAgent:42 wrong mode setting: 0"},
	                                                            {-7, "log E CAgent:42 wrong mode setting: -7"}})
	{
		EXPECT_THAT(eventsOfConstruction(role),
		            ElementsAre("log D CAgent:25 stop virtual ip, process",        //
		                        "command vip-stop",                                //
		                        "log I Utill:573 command(vip-stop) : ",            //
		                        "command kill-by-name server",                     //
		                        "log I Utill:573 command(kill-by-name server) : ", //
		                        "command kill-by-name worker",                     //
		                        "log I Utill:573 command(kill-by-name worker) : ", //
		                        line));
		CAgent agent(role);
		EXPECT_EQ(AgentAccess::mode(agent), role);
	}
}

TEST_F(CAgentConstruction, AtFirstNothingRunsAndNobodyWorks)
{
	CAgent agent(2);
	EXPECT_EQ(AgentAccess::handles(agent), nullptr);
	EXPECT_FALSE(AgentAccess::running(agent));
	EXPECT_FALSE(agent.isRunning());
	EXPECT_EQ(AgentAccess::processLocation(agent), "noName");
	EXPECT_EQ(AgentAccess::observationMode(agent), OBSERVATION_MODE_1);
	EXPECT_TRUE(AgentAccess::checker(agent).isNull());
	EXPECT_TRUE(AgentAccess::sender(agent).isNull());
	EXPECT_TRUE(AgentAccess::reciver(agent).isNull());
}

TEST_F(CAgentConstruction, TheDestructorLogsTheRoleOfThatMoment)
{
	{
		CAgent agent(2);
		AgentAccess::mode(agent) = 1;
		events::clear();
	}
	EXPECT_THAT(events::all(), ElementsAre("log I CAgent:49 ~CAgent()[1]"));
}

} // namespace
