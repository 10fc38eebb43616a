#include <sys/resource.h>

#include "Daemon.h"
#include "OwnProcess.h"
#include "PlainUser.h"
#include "QuorinINI.h"
#include "WaitingThread.h"

namespace
{

constexpr char kFile[] = "/usr/velarix/bin/log/failing.txt";
constexpr char kGood[] = "/usr/velarix/bin/log/good.txt";

/// Every test has a process of its own, since a lock that stays taken would
/// reach into the next one.
class ChangeIniFailures : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		sandbox::writeFile(kFile, "[T]\nK = 1\n");
		sandbox::writeFile(kGood, "[T]\nK = 1\n");
	}
};

/// Expects that the change is refused with the one line on the console.
void expectRefusal(initialization& editor)
{
	testing::internal::CaptureStdout();
	testing::internal::CaptureStderr();
	const bool done = editor.changeINI("T.K", "2");
	EXPECT_EQ(testing::internal::GetCapturedStdout(), "ini File fopen fail.\n");
	EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
	EXPECT_FALSE(done);
	EXPECT_THAT(events::all(), IsEmpty());
}

void failToRead()
{
	initialization editor;
	editor.loadFile(kFile);
	ASSERT_EQ(std::remove(kFile), 0);
	expectRefusal(editor);
}

void failToWrite()
{
	initialization editor;
	editor.loadFile(kFile);
	ASSERT_EQ(::chmod(kFile, 0444), 0);
	const PlainUser plainUser;
	expectRefusal(editor);
}

bool changeGood(const std::string& value)
{
	initialization editor;
	editor.loadFile(kGood);
	return editor.changeINI("T.K", value);
}

void expectOthersWait()
{
	const WaitingThread other([] { changeGood("3"); });
	EXPECT_TRUE(other.waits());
	EXPECT_EQ(sandbox::readFile(kGood), "[T]\nK = 1\n");
}

void expectOthersGoOn()
{
	const WaitingThread other([] { changeGood("3"); });
	EXPECT_TRUE(other.returns());
	EXPECT_EQ(sandbox::readFile(kGood), "[T]\nK = 3\n");
}

/// A real failure of the write alone, as on a disk that fills up between the file's
/// emptying and its new bytes.
TEST_IN_OWN_PROCESS(ChangeIniFailures, BytesThatFindNoRoomLeaveAnEmptyFileAndNobodyIsReported)
{
	initialization editor;
	editor.loadFile(kFile);
	std::signal(SIGXFSZ, SIG_IGN);
	rlimit before{};
	ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
	const rlimit nothing{0, before.rlim_max};
	ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &nothing), 0);
	const bool done = editor.changeINI("T.K", "2");
	ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
	EXPECT_TRUE(done);
	EXPECT_EQ(sandbox::readFile(kFile), "");
}

TEST_IN_OWN_PROCESS(ChangeIniFailures, WithoutALoadThereIsNoFileToChange)
{
	initialization editor;
	expectRefusal(editor);
}

TEST_IN_OWN_PROCESS(ChangeIniFailures, AfterAReadFailureEveryOtherThreadWaits)
{
	failToRead();
	expectOthersWait();
}

TEST_IN_OWN_PROCESS(ChangeIniFailures, AfterAWriteFailureEveryOtherThreadWaits)
{
	failToWrite();
	expectOthersWait();
}

TEST_IN_OWN_PROCESS(ChangeIniFailures, TheThreadThatFailedToWriteCanTryAgain)
{
	failToWrite();
	failToWrite();
	EXPECT_TRUE(changeGood("2"));
	EXPECT_EQ(sandbox::readFile(kGood), "[T]\nK = 2\n");
}

TEST_IN_OWN_PROCESS(ChangeIniFailures, ARefusedKeyLeavesTheLockFree)
{
	initialization editor;
	editor.loadFile(kGood);
	EXPECT_FALSE(editor.changeINI(std::string(100, 'k'), "2"));
	expectOthersGoOn();
}

} // namespace
