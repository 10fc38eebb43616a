// Where the programs end the daemon: a run script that cannot be written, since a node without
// it could take over and start nothing, launches that cannot be carried out, since no agent is
// better than one that believes in a service it could not start, and a checker without its flag.

#include <cstddef>
#include <new>

#include <sys/mount.h>

#include "ReceiverTest.h"
#include "Reported.h"

namespace
{

constexpr char kDirectory[] = "/usr/velarix/bin/ini";

// The settings are read when the log is made, so their directory can go afterwards.
class RunScriptFatal : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		::unlink(velarix::kRunScriptPath);
	}

	/// The construction, reported on standard error: no line and no command comes before
	/// the script is written.
	/// @param line of the error; the report is the next
	static void expectEnd(unsigned line, const std::string& error, const char* expression)
	{
		EXPECT_FATAL_AFTER(
		    {
			    reportEverything();
			    const CAgent agent(MODE_SLAVE);
		    },
		    reported({kBegin, "log E CAgent:" + std::to_string(line) + " " + error}), expression, "CAgent", line + 1,
		    "void CAgent::makeProcessRunShellScript()");
	}
};

TEST_F(RunScriptFatal, ALinkToNowhereInItsPlaceEndsTheDaemon)
{
	ASSERT_EQ(::symlink("/usr/velarix/nowhere", velarix::kRunScriptPath), 0);
	expectEnd(212, "failed to creat processList", "1 == 0");
	::unlink(velarix::kRunScriptPath);
}

TEST_F(RunScriptFatal, AMissingDirectoryEndsTheDaemon)
{
	const std::string away = std::string(kDirectory) + ".away";
	ASSERT_EQ(::rename(kDirectory, away.c_str()), 0);
	expectEnd(218, "File not found: /usr/velarix/bin/ini/processList.sh", "0");
	ASSERT_EQ(::rename(away.c_str(), kDirectory), 0);
}

TEST_F(RunScriptFatal, AFullDiskAfterTheCreationEndsTheDaemon)
{
	ASSERT_EQ(::mount("tmpfs", kDirectory, "tmpfs", 0, "size=4k"), 0);
	sandbox::writeFile(std::string(kDirectory) + "/filling", "the one page there is");
	expectEnd(250, "Cannot write file: /usr/velarix/bin/ini/processList.sh", "1 == 0");
	ASSERT_EQ(::umount2(kDirectory, MNT_DETACH), 0);
}

using LaunchingFatal = DaemonTest;

TEST_F(LaunchingFatal, AScriptThatNoShellCouldRunEndsTheDaemonBehindTheRaisedAddressAndTheWaitingTime)
{
	const std::string script = "/usr/velarix/bin/ini/processList.sh";
	fakeoutside::systemGives(script, 127);
	settings.set("AGENT.WAITING_TIME_BEFORE_PROCESS_RUN", "2");
	apply();
	EXPECT_FATAL_AFTER(
	    {
		    reportEverything();
		    Utill::voidProcessRun(false);
	    },
	    reported(steps::join({kBegin, "log D Utill:48 try to start virtual ip", steps::raiseAddress(), "sleep 1000",
	                          "sleep 1000", "log D Utill:62 try to run processes", "system chmod 755 " + script,
	                          "system " + script, "log E Utill:72 can't run processes[127]"})),
	    "1==0", "Utill", 73, "static void Utill::voidProcessRun(bool)");
}

TEST_F(LaunchingFatal, AProgramThatCannotBeLaunchedEndsTheDaemon)
{
	fakeoutside::launchThrows("/opt/app/two", [] { throw Poco::NotFoundException("two"); });
	std::vector<std::string> commands{"/opt/app/one", "/opt/app/two"};
	EXPECT_FATAL_AFTER(Utill::processRun(commands), "**ERROR**(Utill:115)Not found: two", "1 == 0", "Utill", 116,
	                   "static std::vector<Poco::ProcessHandle*>* Utill::processRun(std::vector<std::string>&)");
	settings.programs(commands);
	apply();
	EXPECT_FATAL_AFTER(Utill::processRun(), "**ERROR**(Utill:136)Not found: two", "1 == 0", "Utill", 137,
	                   "static std::vector<Poco::ProcessHandle*>* Utill::processRun()");
}

constexpr char kConstructor[] =
    "ProcessChecker::ProcessChecker(std::vector<Poco::ProcessHandle*>**, bool*, MODE*, std::string&)";

class CheckerFatal : public WorkerTest
{
protected:
	void construct(bool* pRunning) { const ProcessChecker checker(&handles, pRunning, &mode, location); }
};

// Between the kill command and the cycle.
TEST_F(CheckerFatal, ConstructionWithoutARunningFlagEndsTheDaemon)
{
	settings.remove("PROCESS_CHECK.PROCESS_CHECK_CYCLE");
	apply();
	EXPECT_FATAL(construct(nullptr), "bProcessRuning != __null", "ProcessChecker", 33, kConstructor);
	settings.remove("ADVENCE.PROCESS_KILL_COMMAND");
	apply();
	EXPECT_NO_TEXT(construct(nullptr), "ADVENCE.PROCESS_KILL_COMMAND");
}

TEST_F(CheckerFatal, ARunningFlagLostDuringConstructionEndsTheDaemon)
{
	alignas(ProcessChecker) std::byte place[sizeof(ProcessChecker)];
	onLogLine([&](const std::string&)
	          { WorkerAccess::runningFlag(*reinterpret_cast<ProcessChecker*>(place)) = nullptr; });
	EXPECT_FATAL(new (place) ProcessChecker(&handles, &running, &mode, location), "m_bProcessRunning != __null",
	             "ProcessChecker", 43, kConstructor);
}

TEST_F(CheckerFatal, ARunningFlagLostLaterEndsTheDaemonInTheNextCycle)
{
	ProcessChecker checker(&handles, &running, &mode, location);
	WorkerAccess::runningFlag(checker) = nullptr;
	EXPECT_FATAL(checker.run(), "m_bProcessRunning != __null", "ProcessChecker", 96,
	             "virtual void ProcessChecker::run()");
}

} // namespace
