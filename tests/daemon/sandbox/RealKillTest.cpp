// Kills of real programs, inside the process table of the sandbox.

#include <Poco/Process.h>

#include "Daemon.h"
#include "RealPrograms.h"

using namespace std::chrono_literals;

namespace
{

/// Three sleepers with their handles, as the direct launcher returns them.
class Handles
{
public:
	Handles()
	{
		std::vector<std::string> commands;
		for (const char* name : {"vxone", "vxtwo", "vxthree"})
		{
			commands.push_back(programs::installSleeper(name));
		}
		m_pHandles.reset(Utill::processRun(commands));
		events::clear();
	}
	~Handles()
	{
		for (Poco::ProcessHandle* pHandle : *m_pHandles)
		{
			::kill(pHandle->id(), SIGKILL);
			::waitpid(pHandle->id(), nullptr, 0);
			delete pHandle;
		}
	}
	Handles(const Handles&) = delete;
	Handles& operator=(const Handles&) = delete;

	std::vector<Poco::ProcessHandle*>* get() { return m_pHandles.get(); }
	pid_t id(std::size_t i) const { return m_pHandles->at(i)->id(); }
	std::string killed(std::size_t i) const { return "log D Utill:296 [" + std::to_string(id(i)) + "] killed"; }

	/// Ends process i behind the handle's back.
	void end(std::size_t i)
	{
		::kill(id(i), SIGKILL);
		::waitpid(id(i), nullptr, 0);
	}
	bool exists(std::size_t i) const { return ::kill(id(i), 0) == 0; }

private:
	std::unique_ptr<std::vector<Poco::ProcessHandle*>> m_pHandles;
};

class RealKill : public DaemonTest
{
protected:
	void configure(const std::vector<std::string>& paths)
	{
		settings.set("ADVENCE.PROCESS_KILL_COMMAND", "killall -q -9").programs(paths);
		apply();
	}
};

TEST_F(RealKill, EveryProgramIsKilledByItsName)
{
	configure({"/opt/app/vxalpha", "/opt/app/vxbeta"});
	Poco::ProcessHandle alpha = Poco::Process::launch(programs::installSleeper("vxalpha"), {});
	Poco::ProcessHandle beta = Poco::Process::launch(programs::installSleeper("vxbeta"), {});
	Poco::ProcessHandle other = Poco::Process::launch(programs::installSleeper("vxother"), {});
	ASSERT_TRUE(waitFor([] { return programs::running("vxalpha").size() == 1; }, 5s, "vxalpha"));
	ASSERT_TRUE(waitFor([] { return programs::running("vxbeta").size() == 1; }, 5s, "vxbeta"));
	ASSERT_TRUE(waitFor([] { return programs::running("vxother").size() == 1; }, 5s, "vxother"));
	EXPECT_TRUE(Utill::isProcessRunning(OBSERVATION_MODE_1));
	EXPECT_TRUE(Utill::processKill());
	alpha.wait();
	beta.wait();
	EXPECT_FALSE(Utill::isProcessRunning(OBSERVATION_MODE_1));
	EXPECT_THAT(programs::running("vxother"), SizeIs(1));
	EXPECT_THAT(events::all(), ElementsAre("log I Utill:573 command(killall -q -9 vxalpha) : ",
	                                       "log I Utill:573 command(killall -q -9 vxbeta) : "));
	Poco::Process::kill(other);
	other.wait();
}

TEST_F(RealKill, HandlesAreKilledAndAwaitedFromTheLastToTheFirst)
{
	Handles handles;
	EXPECT_TRUE(Utill::processKill(handles.get()));
	EXPECT_THAT(events::all(), ElementsAre(handles.killed(2), handles.killed(1), handles.killed(0)));
	EXPECT_FALSE(handles.exists(0));
	EXPECT_FALSE(handles.exists(1));
	EXPECT_FALSE(handles.exists(2));
}

TEST_F(RealKill, AProcessThatIsGoneIsLoggedAndTheOthersAreKilled)
{
	Handles handles;
	handles.end(1);
	EXPECT_TRUE(Utill::processKill(handles.get()));
	EXPECT_THAT(events::all(),
	            ElementsAre(handles.killed(2), "log E Utill:300 Not found: cannot kill process", handles.killed(0)));
	EXPECT_FALSE(handles.exists(0));
	EXPECT_FALSE(handles.exists(2));
}

TEST_F(RealKill, AProcessThatCannotBeAwaitedIsKilledButNotReportedSo)
{
	Handles handles;
	const auto before = std::signal(SIGCHLD, SIG_IGN);
	EXPECT_TRUE(Utill::processKill(handles.get()));
	std::signal(SIGCHLD, before);
	EXPECT_THAT(events::all(), SizeIs(3));
	EXPECT_THAT(events::only({"log E Utill:300 System exception: Cannot wait for process: "}), SizeIs(3));
	EXPECT_FALSE(handles.exists(0) || handles.exists(1) || handles.exists(2));
}

} // namespace
