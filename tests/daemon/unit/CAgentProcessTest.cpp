// The agent's construction, what it does to the node in order, its process start and its kill.

#include "Daemon.h"
#include "Utilities.h"
#include "WorkerAccess.h"

namespace
{

/// The managed program of the tests in which one runs: this program's own name.
constexpr char kOwnName[] = "/opt/app/bin/daemon_unit";

class CAgentProcess : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		agent = std::make_unique<CAgent>(2);
		events::clear();
	}

	void TearDown() override
	{
		agent.reset();
		DaemonTest::TearDown();
	}

	/// From now on the log fails at the line "run time wrote", as on a full disk.
	static void refuseTheTimeLine(std::function<void()> thrower)
	{
		onLogLine(
		    [thrower](const std::string& event)
		    {
			    if (event.find("CAgent:179") != std::string::npos)
			    {
				    thrower();
			    }
		    });
	}

	/// From now on the run of the script throws.
	static void scriptThrows(std::function<void()> thrower)
	{
		fakeoutside::onAction(
		    [thrower](const std::string& event)
		    {
			    if (event == "system /usr/velarix/bin/ini/processList.sh")
			    {
				    thrower();
			    }
		    });
	}

	/// The start ends the daemon; the error line comes first.
	void expectFatalStart(std::function<void()> thrower, const std::string& errorLine)
	{
		scriptThrows(std::move(thrower));
		EXPECT_FATAL_AFTER(agent->processStart(), errorLine, "1 == 0", "CAgent", 100, "bool CAgent::processStart()");
	}

	static std::string recordedTime()
	{
		const std::string record = sandbox::readFile(velarix::kRunInfoPath);
		return record.substr(std::string("[TRACE]\nLAST_RUN_TIME = ").size(), 14);
	}

	std::unique_ptr<CAgent> agent;
};

TEST_F(CAgentProcess, ProcessStartRunsTheScriptWithoutTheAddressAndRecordsTheTime)
{
	EXPECT_TRUE(agent->processStart());
	EXPECT_THAT(events::all(),
	            ElementsAre("log D CAgent:71 try to process run",                   //
	                        "log D Utill:48 try to start virtual ip",               //
	                        "log D Utill:62 try to run processes",                  //
	                        "system chmod 755 /usr/velarix/bin/ini/processList.sh", //
	                        "system /usr/velarix/bin/ini/processList.sh",           //
	                        kBanner,                                                //
	                        "log D CAgent:179 run time wrote:TRACE.LAST_RUN_TIME(" + recordedTime() + ")[noName]"));
	EXPECT_TRUE(agent->isRunning());
	EXPECT_NE(recordedTime(), "20240131235959");
}

TEST_F(CAgentProcess, TheRunningFlagIsSetAfterTheScriptAndBeforeTheTimeIsRecorded)
{
	std::vector<bool> flags;
	scriptThrows([&] { flags.push_back(agent->isRunning()); });
	refuseTheTimeLine([&] { flags.push_back(agent->isRunning()); });
	EXPECT_TRUE(agent->processStart());
	EXPECT_THAT(flags, ElementsAre(false, true));
}

TEST_F(CAgentProcess, AnErrorOfTheLibraryAtTheStartEndsTheDaemon)
{
	expectFatalStart([] { throw Poco::NotFoundException("script"); },
	                 "**ERROR**(CAgent:84)Not found: script: NotFoundException");
	expectFatalStart([] { throw Poco::NoPermissionException("script"); },
	                 "**ERROR**(CAgent:88)No permission: script: NoPermissionException");
	expectFatalStart([] { throw Poco::SystemException("fork"); },
	                 "**ERROR**(CAgent:92)System exception: fork: SystemException");
	expectFatalStart([] { throw Poco::TimeoutException("script"); }, "**ERROR**(CAgent:96)Timeout: script");
}

TEST_F(CAgentProcess, KillWithNoProgramRunningDoesNothing)
{
	EXPECT_TRUE(agent->kill());
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(CAgentProcess, KillOfARunningProgramRunsTheCommandAndLogsAtErrorLevel)
{
	settings.programs({kOwnName});
	apply();
	EXPECT_TRUE(agent->kill());
	EXPECT_THAT(events::without({"log D Utill:241"}),
	            ElementsAre("command kill-by-name daemon_unit",                     //
	                        "log I Utill:573 command(kill-by-name daemon_unit) : ", //
	                        "log E CAgent:123 process killed[noName]"));
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
