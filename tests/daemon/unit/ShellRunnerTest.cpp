#include "ShellRunner.h"
#include "Daemon.h"
#include "FakeOutside.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class ShellRunner : public DaemonTest
{
protected:
	std::string outputOf(const std::string& printed)
	{
		fakeoutside::commandPrints("show", printed);
		std::string command = "show";
		return shellCommand(command);
	}
};

TEST_F(ShellRunner, ALineOf254CharactersComesInOnePiece)
{
	EXPECT_EQ(outputOf(std::string(254, 'a') + "\n"), std::string(254, 'a') + "\n\n");
}

TEST_F(ShellRunner, ALineOf255CharactersComesInTwoPieces)
{
	EXPECT_EQ(outputOf(std::string(255, 'a') + "\n"), std::string(255, 'a') + "\n\n\n");
}

TEST_F(ShellRunner, ALongLineIsCutAfterEach255Bytes)
{
	EXPECT_EQ(outputOf(std::string(255, 'a') + std::string(255, 'b') + "c\n"),
	          std::string(255, 'a') + "\n" + std::string(255, 'b') + "\n" + "c\n\n");
}

TEST_F(ShellRunner, TheCommandIsLoggedWithItsDoubledOutput)
{
	outputOf("first\nsecond\n");
	EXPECT_THAT(events::all(), ElementsAre("command show", "log I Utill:573 command(show) : first\n\nsecond\n\n"));
}

TEST_F(ShellRunner, TheCommandHasEndedWhenItIsLogged)
{
	int open = -1;
	onLogLine([&open](const std::string&) { open = fakeoutside::openPipes(); });
	outputOf("first\n");
	EXPECT_EQ(open, 0);
}

TEST_F(ShellRunner, ACommandThatPrintsNothingGivesTheEmptyTextAndAnEmptyOutputInTheLog)
{
	EXPECT_EQ(outputOf(""), "");
	EXPECT_THAT(events::all(), ElementsAre("command show", "log I Utill:573 command(show) : "));
}

TEST_F(ShellRunner, ACommandThatCannotBeStartedGivesTheMarkerAfterASecond)
{
	fakeoutside::commandFails("show");
	std::string command = "show";
	EXPECT_EQ(shellCommand(command), "velarixErr");
	EXPECT_THAT(events::all(),
	            ElementsAre("command show", "log E Utill:550 shell command run error(fp is NULL): show", "sleep 1000"));
}

TEST_F(ShellRunner, PercentSignsInCommandAndOutputAreNoFormats)
{
	fakeoutside::commandPrints("date +%s", "100%s\n");
	std::string command = "date +%s";
	EXPECT_EQ(shellCommand(command), "100%s\n\n");
	EXPECT_THAT(events::all(), ElementsAre("command date +%s", "log I Utill:573 command(date +%s) : 100%s\n\n"));
}

TEST_F(ShellRunner, ARunIsNotEchoedOnTheConsole)
{
	testing::internal::CaptureStdout();
	outputOf("first\n");
	EXPECT_THAT(testing::internal::GetCapturedStdout(), IsEmpty());
}

} // namespace
