// The agent's kill when the kill of the programs itself fails: scripted, since
// the production kill always succeeds.

#include "Daemon.h"
#include "WorkerAccess.h"

namespace
{

/// What each kill of the managed programs does; the production kill cannot fail.
std::function<bool()> g_kill;

} // namespace

// In place of src/process/Kill.cpp.
bool Utill::processKill()
{
	events::add("kill");
	return g_kill();
}

bool Utill::processKill(std::vector<Poco::ProcessHandle*>* /*pHandles*/)
{
	return true;
}

bool Utill::advenceRunCheck(int /*unused*/)
{
	return true;
}

namespace
{

constexpr char kKill[] = "bool CAgent::kill()";

class CAgentKill : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		g_kill = [] { return true; };
		settings.programs({"/opt/app/bin/agent_kill_test"});
		apply();
		agent = std::make_unique<CAgent>(2);
		events::clear();
	}

	void TearDown() override
	{
		agent.reset();
		DaemonTest::TearDown();
	}

	std::unique_ptr<CAgent> agent;
};

TEST_F(CAgentKill, AKillThatReportsFailureIsLoggedAndEndsTheDaemon)
{
	g_kill = [] { return false; };
	EXPECT_EXIT(agent->kill(), testing::KilledBySignal(SIGABRT),
	            AllOf(HasSubstr("**ERROR**(CAgent:123)process killed[noName]\n"),
	                  HasSubstr(assertionReport("isKill == true", "CAgent", 131, kKill))));
}

TEST_F(CAgentKill, AnErrorOfTheKillIsLoggedAndEndsTheDaemon)
{
	g_kill = []() -> bool { throw Poco::SystemException("kill"); };
	EXPECT_EXIT(agent->kill(), testing::KilledBySignal(SIGABRT),
	            AllOf(HasSubstr("**ERROR**(CAgent:127)System exception: kill\n"), Not(HasSubstr("CAgent:123")),
	                  HasSubstr(assertionReport("isKill == true", "CAgent", 131, kKill))));
}

TEST_F(CAgentKill, AForeignErrorOfTheKillReachesTheCaller)
{
	g_kill = []() -> bool { throw std::runtime_error("foreign"); };
	EXPECT_THROW(agent->kill(), std::runtime_error);
}

TEST_F(CAgentKill, TheConstructorIgnoresAKillThatReportsFailure)
{
	g_kill = [] { return false; };
	const CAgent another(2);
	EXPECT_THAT(events::all(), ElementsAre("log D CAgent:25 stop virtual ip, process", //
	                                       "command vip-stop",                         //
	                                       "log I Utill:573 command(vip-stop) : ",     //
	                                       "kill",                                     //
	                                       "log I CAgent:38 Slave CAgent()"));
}

TEST_F(CAgentKill, AnErrorOfTheKillLeavesTheConstructor)
{
	g_kill = []() -> bool { throw Poco::SystemException("kill"); };
	EXPECT_THROW(CAgent(2), Poco::SystemException);
}

} // namespace
