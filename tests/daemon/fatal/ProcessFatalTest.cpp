// Where the programs end the daemon: a run script that cannot be written, since a node without
// it could take over and start nothing, launches that cannot be carried out, since no agent is
// better than one that believes in a service it could not start, and a checker without its flag.

#include <cstddef>
#include <new>

#include <sys/mount.h>

#include "Workers.h"

using events::join;

namespace
{

constexpr char kDirectory[] = "/usr/velarix/bin/ini";

/// The construction of the agent: no line and no command comes before the script is written.
/// @param line of the error; the report is the next
void expectNoScript(unsigned line, const std::string& error, const char* expression)
{
	EXPECT_END(const CAgent agent(MODE_SLAVE), {"log E CAgent:" + std::to_string(line) + " " + error}, expression,
	           "CAgent", line + 1, "void CAgent::makeProcessRunShellScript()");
}

// The settings are read when the log is made, so their directory can go afterwards.
using RunScriptFatal = DaemonTest;

TEST_F(RunScriptFatal, ALinkToNowhereInItsPlaceEndsTheDaemon)
{
	ASSERT_EQ(::symlink("/usr/velarix/nowhere", velarix::kRunScriptPath), 0);
	expectNoScript(212, "failed to creat processList", "1 == 0");
}

TEST_F(RunScriptFatal, AMissingDirectoryEndsTheDaemon)
{
	std::filesystem::remove_all(kDirectory);
	expectNoScript(218, "File not found: /usr/velarix/bin/ini/processList.sh", "0");
}

TEST_F(RunScriptFatal, AFullDiskAfterTheCreationEndsTheDaemon)
{
	ASSERT_EQ(::mount("tmpfs", kDirectory, "tmpfs", 0, "size=4k"), 0);
	sandbox::writeFile(std::string(kDirectory) + "/filling", "the one page there is");
	expectNoScript(250, "Cannot write file: /usr/velarix/bin/ini/processList.sh", "1 == 0");
	ASSERT_EQ(::umount2(kDirectory, MNT_DETACH), 0);
}

using LaunchingFatal = DaemonTest;

TEST_F(LaunchingFatal, AScriptThatNoShellCouldRunEndsTheDaemonBehindTheRaisedAddressAndTheWaitingTime)
{
	fakeoutside::systemGives("/usr/velarix/bin/ini/processList.sh", 127);
	settings.set("AGENT.WAITING_TIME_BEFORE_PROCESS_RUN", "2");
	EXPECT_END(Utill::voidProcessRun(false),
	           join({steps::kTryPrograms,
	                 steps::kRaiseAddress,
	                 {"sleep 1000", "sleep 1000"},
	                 steps::kScriptRuns,
	                 {"log E Utill:72 can't run processes[127]"}}),
	           "1==0", "Utill", 73, "static void Utill::voidProcessRun(bool)");
}

TEST_F(LaunchingFatal, AProgramThatCannotBeLaunchedEndsTheDaemon)
{
	events::at("launch /opt/app/two", events::throws(Poco::NotFoundException("two")));
	std::vector<std::string> commands{"/opt/app/one", "/opt/app/two"};
	const events::List launches{"launch /opt/app/one", "log D Utill:96 /opt/app/one started run..",
	                            "launch /opt/app/two"};
	EXPECT_END(Utill::processRun(commands), join({launches, {"log E Utill:115 Not found: two"}}), "1 == 0", "Utill",
	           116, "static std::vector<Poco::ProcessHandle*>* Utill::processRun(std::vector<std::string>&)");
	settings.programs(commands);
	EXPECT_END(Utill::processRun(), join({launches, {"log E Utill:136 Not found: two"}}), "1 == 0", "Utill", 137,
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
	EXPECT_END(construct(nullptr), {}, "bProcessRuning != __null", "ProcessChecker", 33, kConstructor);
	settings.remove("ADVENCE.PROCESS_KILL_COMMAND");
	EXPECT_END(construct(nullptr), {"log E Configuraion:65 Not found: ADVENCE.PROCESS_KILL_COMMAND"}, kNoText);
}

TEST_F(CheckerFatal, ARunningFlagLostDuringConstructionEndsTheDaemon)
{
	alignas(ProcessChecker) std::byte place[sizeof(ProcessChecker)];
	const events::List loaded{"log D ProcessChecker:69 process list loaded[noName]"};
	events::at(loaded[0], [&] { WorkerAccess::runningFlag(*reinterpret_cast<ProcessChecker*>(place)) = nullptr; });
	EXPECT_END(new (place) ProcessChecker(&handles, &running, &mode, location), loaded, "m_bProcessRunning != __null",
	           "ProcessChecker", 43, kConstructor);
}

TEST_F(CheckerFatal, ARunningFlagLostLaterEndsTheDaemonInTheNextCycle)
{
	ProcessChecker checker(&handles, &running, &mode, location);
	WorkerAccess::runningFlag(checker) = nullptr;
	EXPECT_END(checker.run(), {}, "m_bProcessRunning != __null", "ProcessChecker", 96,
	           "virtual void ProcessChecker::run()");
}

} // namespace
