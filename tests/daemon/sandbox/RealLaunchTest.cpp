// Launches of real programs: the run script from the agent's hands to the
// process table, and the direct launchers.

#include "CAgent.h"
#include "RealPrograms.h"

using namespace std::chrono_literals;

namespace
{

constexpr char kProof[] = "/usr/velarix/log/proof";
constexpr char kFailoverBanner[] = "log E Utill:140 \n"
                                   "=======================================================\n"
                                   "===================  failover  ==========================\n"
                                   "=======================================================";

class RealLaunch : public DaemonTest
{
protected:
	RealLaunch()
	{
		settings.set("AGENT.VIRTUAL_IP_STOP_COMMAND", "true")
		    .set("ADVENCE.PROCESS_KILL_COMMAND", "killall -q -9")
		    .programs({});
	}

	static void runScript(const std::string& text)
	{
		sandbox::writeFile(velarix::kRunScriptPath, text);
		Utill::voidProcessRun(true);
	}
};

TEST_F(RealLaunch, TheAgentsScriptStartsTheConfiguredProgramsInTheirDirectoryAndTheCommandKillsThemByName)
{
	settings.programs({programs::installSleeper("vxalpha"), programs::installSleeper("vxbeta")});
	const programs::Sleeper other("vxother");
	const CAgent agent(MODE_SLAVE);
	EXPECT_FALSE(Utill::isProcessRunning(OBSERVATION_MODE_1));
	Utill::voidProcessRun(true);
	ASSERT_TRUE(waitFor([] { return Utill::isProcessRunning(OBSERVATION_MODE_1); }, 5s, "both programs"));
	const std::vector<pid_t> alpha = programs::running("vxalpha");
	ASSERT_THAT(alpha, SizeIs(1));
	EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(alpha[0]) + "/cwd"), "/usr/velarix/programs");
	events::clear();
	EXPECT_TRUE(Utill::processKill());
	EXPECT_THAT(events::all(), ElementsAre("log I Utill:573 command(killall -q -9 vxalpha) : ",
	                                       "log I Utill:573 command(killall -q -9 vxbeta) : "));
	EXPECT_TRUE(waitFor([] { return !Utill::isProcessRunning(OBSERVATION_MODE_1); }, 5s, "end of both programs"));
	EXPECT_THAT(programs::running("vxother"), SizeIs(1));
}

TEST_F(RealLaunch, TheEndOfTheScriptIsAwaited)
{
	runScript("sleep 0.2\necho done > /usr/velarix/log/proof\n");
	EXPECT_EQ(sandbox::readFile(kProof), "done\n");
	EXPECT_THAT(events::all(),
	            ElementsAre("log D Utill:48 try to start virtual ip", "log D Utill:62 try to run processes", kBanner));
}

TEST_F(RealLaunch, AMissingScriptIsTakenAsStarted)
{
	testing::internal::CaptureStderr();
	Utill::voidProcessRun(true);
	testing::internal::GetCapturedStderr();
	EXPECT_THAT(events::only({"log E"}), ElementsAre(kBanner));
}

TEST_F(RealLaunch, AScriptWhoseEndCannotBeAwaitedEndsTheDaemon)
{
	sandbox::writeFile(velarix::kRunScriptPath, "true\n");
	const auto runWithoutEnds = []
	{
		std::signal(SIGCHLD, SIG_IGN);
		Utill::voidProcessRun(true);
	};
	EXPECT_END(runWithoutEnds(),
	           events::join({{"log D Utill:48 try to start virtual ip", "log D Utill:62 try to run processes",
	                          "log E Utill:72 can't run processes[-1]"}}),
	           "1==0", "Utill", 73, "static void Utill::voidProcessRun(bool)");
}

TEST_F(RealLaunch, HandleIBelongsToProgramI)
{
	std::vector<std::string> commands;
	const std::vector<std::string> names{"vxone", "vxtwo", "vxthree"};
	for (const std::string& name : names)
	{
		commands.push_back(programs::installSleeper(name));
	}
	const std::unique_ptr<std::vector<Poco::ProcessHandle*>> handles(Utill::processRun(commands));
	ASSERT_THAT(*handles, SizeIs(3));
	const std::string rule = "======================================================";
	EXPECT_THAT(
	    events::all(),
	    ElementsAre(
	        "log D Utill:96 " + commands[0] + " started run..", "log D Utill:96 " + commands[1] + " started run..",
	        "log D Utill:96 " + commands[2] + " started run..", "log E Utill:119 " + rule,
	        "log E Utill:120 ================ process run =========================", "log E Utill:121 " + rule));
	for (std::size_t i = 0; i < names.size(); ++i)
	{
		EXPECT_TRUE(waitFor([&] { return programs::running(names[i]) == std::vector<pid_t>{handles->at(i)->id()}; }, 5s,
		                    names[i]));
	}
	EXPECT_TRUE(Utill::processKill(handles.get()));
	for (Poco::ProcessHandle* pHandle : *handles)
	{
		delete pHandle;
	}
}

TEST_F(RealLaunch, AMissingProgramRaisesNothingAndItsProcessEndsWith72UnderTheFailoverBanner)
{
	settings.programs({"/usr/velarix/none/vxnobody"});
	const std::unique_ptr<std::vector<Poco::ProcessHandle*>> handles(Utill::processRun());
	ASSERT_THAT(*handles, SizeIs(1));
	EXPECT_EQ(handles->at(0)->wait(), 72);
	EXPECT_THAT(events::all(), ElementsAre("log D Utill:96 /usr/velarix/none/vxnobody started run..", kFailoverBanner));
	delete handles->at(0);
}

TEST_F(RealLaunch, AProgramPathWithABlankIsNotSplit)
{
	std::vector<std::string> commands{programs::installScript("vx one", "echo \"$#\" > /usr/velarix/log/proof\n")};
	const std::unique_ptr<std::vector<Poco::ProcessHandle*>> handles(Utill::processRun(commands));
	ASSERT_THAT(*handles, SizeIs(1));
	EXPECT_EQ(handles->at(0)->wait(), 0);
	EXPECT_EQ(sandbox::readFile(kProof), "0\n");
	delete handles->at(0);
}

TEST_F(RealLaunch, AShellFileRunsWithoutBeingAwaited)
{
	const std::string gate = "/usr/velarix/log/gate";
	settings.set("AGENT.BACKUP_COMMAND",
	             programs::installScript("vxbackup", "while [ ! -e " + gate +
	                                                     " ]; do sleep 0.01; done\n"
	                                                     "echo saved > /usr/velarix/log/proof\n"));
	Utill::shellFileRun("AGENT.BACKUP_COMMAND");
	EXPECT_EQ(sandbox::readFile(kProof), "");
	EXPECT_THAT(events::all(), IsEmpty());
	sandbox::writeFile(gate, "");
	EXPECT_TRUE(waitFor([] { return sandbox::readFile(kProof) == "saved\n"; }, 5s, "proof of the shell file"));
	EXPECT_GT(::waitpid(-1, nullptr, 0), 0);
}

} // namespace
