// The agent's kill when the kill of the programs itself fails: scripted, since
// the production kill always succeeds.

#include <stdexcept>

#include <Poco/Exception.h>

#include "CAgent.h"
#include "Daemon.h"
#include "FakeKill.h"
#include "WorkerAccess.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace
{

constexpr char kKill[] = "bool CAgent::kill()";

class CAgentKill : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
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
	fakekill::killGives(false);
	EXPECT_EXIT(agent->kill(), testing::KilledBySignal(SIGABRT),
	            AllOf(HasSubstr("**ERROR**(CAgent:123)process killed[noName]\n"),
	                  HasSubstr(assertionReport("isKill == true", "CAgent", 131, kKill))));
}

TEST_F(CAgentKill, AnErrorOfTheKillIsLoggedAndEndsTheDaemon)
{
	fakekill::killThrows([] { throw Poco::SystemException("kill"); });
	EXPECT_EXIT(agent->kill(), testing::KilledBySignal(SIGABRT),
	            AllOf(HasSubstr("**ERROR**(CAgent:127)System exception: kill\n"), Not(HasSubstr("CAgent:123")),
	                  HasSubstr(assertionReport("isKill == true", "CAgent", 131, kKill))));
}

TEST_F(CAgentKill, AForeignErrorOfTheKillReachesTheCaller)
{
	fakekill::killThrows([] { throw std::runtime_error("foreign"); });
	EXPECT_THROW(agent->kill(), std::runtime_error);
}

TEST_F(CAgentKill, TheConstructorIgnoresAKillThatReportsFailure)
{
	fakekill::killGives(false);
	const CAgent another(2);
	EXPECT_THAT(events::all(), ElementsAre("log D CAgent:25 stop virtual ip, process", //
	                                       "command vip-stop",                         //
	                                       "log I Utill:573 command(vip-stop) : ",     //
	                                       "kill",                                     //
	                                       "log I CAgent:38 Slave CAgent()"));
}

TEST_F(CAgentKill, AnErrorOfTheKillLeavesTheConstructor)
{
	fakekill::killThrows([] { throw Poco::SystemException("kill"); });
	EXPECT_THROW(CAgent(2), Poco::SystemException);
}

} // namespace
