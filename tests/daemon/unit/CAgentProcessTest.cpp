// The agent's own process start and kill, its flag and its start time.

#include <future>

#include "Daemon.h"
#include "Utilities.h"
#include "WorkerAccess.h"

namespace
{

constexpr char kBanner[] = "log E Utill:78 \n"
                           "======================================================\n"
                           "================ process run =========================\n"
                           "======================================================";
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

	/// Runs `action` on another thread; a lock left behind makes it hang.
	static void expectNotLocked(const std::function<void()>& action)
	{
		auto done = std::async(std::launch::async, action);
		ASSERT_EQ(done.wait_for(std::chrono::seconds(5)), std::future_status::ready);
		done.get();
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

TEST_F(CAgentProcess, AForeignErrorWhileSavingTheTimeReachesTheCallerWithTheLockFree)
{
	refuseTheTimeLine([] { throw std::runtime_error("foreign"); });
	EXPECT_THROW(agent->saveStartedTime(), std::runtime_error);
	EXPECT_THAT(events::only({"log E"}), IsEmpty());
	expectNotLocked([&] { EXPECT_THROW(agent->saveStartedTime(), std::runtime_error); });
}

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

TEST_F(CAgentProcess, AForeignErrorAtTheStartReachesTheCallerWithTheLockFree)
{
	scriptThrows([] { throw std::runtime_error("foreign"); });
	EXPECT_THROW(agent->processStart(), std::runtime_error);
	EXPECT_FALSE(agent->isRunning());
	EXPECT_EQ(sandbox::readFile(velarix::kRunInfoPath), kRunInfo);
	expectNotLocked([&] { EXPECT_THROW(agent->processStart(), std::runtime_error); });
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

} // namespace
