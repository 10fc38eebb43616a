// The shell runner with real commands.

#include "ShellRunner.h"

#include <cerrno>
#include <filesystem>
#include <iterator>

#include <sys/wait.h>

#include "Daemon.h"
#include "RealPrograms.h"

using testing::ElementsAre;

namespace
{

class RealCommand : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		programs::warmUpLog();
	}

	static std::string outputOf(std::string command) { return shellCommand(command); }

	static std::size_t openDescriptors()
	{
		const std::filesystem::directory_iterator begin("/proc/self/fd");
		return static_cast<std::size_t>(std::distance(begin, std::filesystem::directory_iterator()));
	}
};

TEST_F(RealCommand, TheOutputOfABackgroundProcessIsAwaited)
{
	EXPECT_EQ(outputOf("(sleep 0.2; echo late) & echo early"), "early\n\nlate\n\n");
}

TEST_F(RealCommand, ABackgroundProcessWithoutThePipeIsNotAwaited)
{
	EXPECT_EQ(outputOf("sleep 1000 >/dev/null 2>&1 & echo early"), "early\n\n");
}

TEST_F(RealCommand, NothingOfACommandIsLeftBehind)
{
	const std::size_t before = openDescriptors();
	outputOf("echo first");
	EXPECT_EQ(openDescriptors(), before);
	EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
	EXPECT_EQ(errno, ECHILD);
}

TEST_F(RealCommand, ACommandThatCannotBeStartedGivesTheMarker)
{
	EXPECT_EQ(programs::withoutDescriptors([] { return outputOf("echo first"); }), "velarixErr");
	EXPECT_THAT(events::all(),
	            ElementsAre("log E Utill:550 shell command run error(fp is NULL): echo first", "sleep 1000"));
}

} // namespace
