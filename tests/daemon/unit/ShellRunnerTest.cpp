#include "ShellRunner.h"
#include "Daemon.h"

namespace
{

class ShellRunner : public DaemonTest
{
protected:
	std::string outputOf(const std::string& printed)
	{
		fakeoutside::commandPrints("show", {printed});
		std::string command = "show";
		return shellCommand(command);
	}
};

TEST_F(ShellRunner, ALongLineIsCutAfterEach255Bytes)
{
	const std::string fits(254, 'a');
	const std::string piece(255, 'b');
	EXPECT_EQ(outputOf(fits + "\n"), fits + "\n\n");
	EXPECT_EQ(outputOf(piece + "\n"), piece + "\n\n\n");
	EXPECT_EQ(outputOf(piece + piece + "c\n"), piece + "\n" + piece + "\nc\n\n");
}

TEST_F(ShellRunner, TheCommandIsLoggedWithItsDoubledOutput)
{
	outputOf("first\nsecond\n");
	EXPECT_THAT(events::all(), ElementsAre("command show", "log I Utill:573 command(show) : first\n\nsecond\n\n"));
}

TEST_F(ShellRunner, TheCommandHasEndedWhenItIsLoggedAndIsNotEchoed)
{
	int open = -1;
	events::at("log I", [&open] { open = fakeoutside::openPipes(); });
	testing::internal::CaptureStdout();
	outputOf("first\n");
	EXPECT_THAT(testing::internal::GetCapturedStdout(), IsEmpty());
	EXPECT_EQ(open, 0);
}

TEST_F(ShellRunner, ACommandThatCannotBeStartedGivesTheMarkerAfterASecond)
{
	fakeoutside::commandFails("show");
	std::string command = "show";
	EXPECT_EQ(shellCommand(command), "velarixErr");
	EXPECT_THAT(events::all(),
	            ElementsAre("command show", "log E Utill:550 shell command run error(fp is NULL): show", "sleep 1000"));
}

} // namespace
