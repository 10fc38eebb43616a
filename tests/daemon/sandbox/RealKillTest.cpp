// Kills of real programs by their handles, inside the process table of the sandbox.

#include "RealPrograms.h"

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

using RealKill = DaemonTest;

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
