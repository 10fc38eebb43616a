// What the construction of the agent does to the node, in order.

#include <type_traits>

#include "Reported.h"
#include "WorkerAccess.h"

namespace
{

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

	/// The construction, reported on standard error.
	static void makeAgentReporting()
	{
		reportEverything();
		const CAgent agent(2);
	}
};

TEST_F(CAgentConstruction, ASlaveDropsTheAddressThenKillsEveryProgramThenSaysSo)
{
	settings.programs({"/opt/app/bin/server", "/opt/app/bin/worker"});
	apply();
	EXPECT_THAT(eventsOfConstruction(2),
	            ElementsAre("log D CAgent:25 stop virtual ip, process",        //
	                        "command vip-stop",                                //
	                        "log I Utill:573 command(vip-stop) : ",            //
	                        "command kill-by-name server",                     //
	                        "log I Utill:573 command(kill-by-name server) : ", //
	                        "command kill-by-name worker",                     //
	                        "log I Utill:573 command(kill-by-name worker) : ", //
	                        "log I CAgent:38 Slave CAgent()"));
}

TEST_F(CAgentConstruction, EveryOtherRoleIsMadeCleanInTheSameWay)
{
	for (const auto& [role, line] : std::map<MODE, std::string>{{1, "log I CAgent:33 Master CAgent()"},
	                                                            {3, "log E CAgent:42 wrong mode setting: 3"},
	                                                            {0, "log E CAgent:42 wrong mode setting: 0"},
	                                                            {-7, "log E CAgent:42 wrong mode setting: -7"}})
	{
		EXPECT_THAT(eventsOfConstruction(role),
		            ElementsAre("log D CAgent:25 stop virtual ip, process",              //
		                        "command vip-stop",                                      //
		                        "log I Utill:573 command(vip-stop) : ",                  //
		                        "command kill-by-name noSuchServer",                     //
		                        "log I Utill:573 command(kill-by-name noSuchServer) : ", //
		                        line));
		CAgent agent(role);
		EXPECT_EQ(AgentAccess::mode(agent), role);
	}
}

TEST_F(CAgentConstruction, TheRunScriptIsRewrittenBeforeAnythingElse)
{
	sandbox::writeFile(velarix::kRunScriptPath, "an older script\n");
	std::string scriptAtFirstLine;
	onLogLine(
	    [&](const std::string& event)
	    {
		    if (event == "log D CAgent:25 stop virtual ip, process")
		    {
			    scriptAtFirstLine = sandbox::readFile(velarix::kRunScriptPath);
		    }
	    });
	const CAgent agent(2);
	EXPECT_EQ(events::all().front(), "log D CAgent:25 stop virtual ip, process");
	EXPECT_EQ(scriptAtFirstLine, "cd /opt/app/bin/\n/opt/app/bin/noSuchServer &\n");
}

TEST_F(CAgentConstruction, AtFirstNothingRunsAndNobodyWorks)
{
	CAgent agent(2);
	EXPECT_EQ(AgentAccess::handles(agent), nullptr);
	EXPECT_EQ(AgentAccess::mode(agent), 2);
	EXPECT_FALSE(AgentAccess::running(agent));
	EXPECT_FALSE(agent.isRunning());
	EXPECT_EQ(AgentAccess::processLocation(agent), "noName");
	EXPECT_EQ(AgentAccess::observationMode(agent), OBSERVATION_MODE_1);
	EXPECT_TRUE(AgentAccess::checker(agent).isNull());
	EXPECT_TRUE(AgentAccess::sender(agent).isNull());
	EXPECT_TRUE(AgentAccess::reciver(agent).isNull());
	EXPECT_FALSE(AgentAccess::checkerThread(agent).isRunning());
	EXPECT_FALSE(AgentAccess::senderThread(agent).isRunning());
	EXPECT_FALSE(AgentAccess::reciverThread(agent).isRunning());
	EXPECT_FALSE(AgentAccess::spareThread(agent).isRunning());
}

TEST_F(CAgentConstruction, TheRoleSpecificStepsDoNothing)
{
	CAgent agent(2);
	events::clear();
	agent.masterInit();
	agent.slaveInit();
	EXPECT_THAT(events::all(), IsEmpty());
	EXPECT_EQ(AgentAccess::mode(agent), 2);
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

TEST_F(CAgentConstruction, TheDestructorIsTheOnlyVirtualOperation)
{
	EXPECT_TRUE(std::has_virtual_destructor_v<CAgent>);
	EXPECT_FALSE(std::is_copy_constructible_v<CAgent>);
	EXPECT_FALSE(std::is_copy_assignable_v<CAgent>);
}

} // namespace
