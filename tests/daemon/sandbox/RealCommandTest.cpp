// The shell runner with real commands.

#include "ShellRunner.h"

#include <cerrno>
#include <iterator>

#include "Daemon.h"
#include "RealPrograms.h"

namespace
{

class RealCommand : public DaemonTest
{
protected:
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

} // namespace
