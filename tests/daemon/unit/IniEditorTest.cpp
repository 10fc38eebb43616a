// The editor of the run-info record: what it keeps, and what its failures leave.

#include <optional>
#include <utility>

#include <sys/resource.h>

#include "Daemon.h"
#include "LogOutput.h"
#include "OwnProcess.h"
#include "PlainUser.h"
#include "QuorinINI.h"
#include "WaitingThread.h"

namespace
{

constexpr char kFile[] = "/usr/velarix/bin/log/editor.txt";
constexpr char kGood[] = "/usr/velarix/bin/log/good.txt";

class IniEditor : public DaemonTest
{
protected:
	IniEditor() { sandbox::writeFile(kFile, "[T]\nK = 1\n"); }

	/// One whole use of the editor, as the daemon does it.
	static bool change(const std::string& key, const std::string& value)
	{
		initialization editor;
		editor.loadFile(kFile);
		return editor.changeINI(key, value);
	}

	static std::string valueOf(const std::string& key)
	{
		initialization reader;
		reader.loadFile(kFile);
		return reader.getString(key);
	}
};

} // namespace

// Events to wait for: a file is about to be written, or closed.
extern "C" std::size_t __real_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* pFile);
extern "C" std::size_t __wrap_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* pFile);
extern "C" std::size_t __wrap_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* pFile)
{
	events::announce("fwrite");
	return __real_fwrite(data, size, count, pFile);
}

extern "C" int __real_fclose(std::FILE* pFile);
extern "C" int __wrap_fclose(std::FILE* pFile);
extern "C" int __wrap_fclose(std::FILE* pFile)
{
	events::announce("fclose");
	return __real_fclose(pFile);
}

namespace
{

TEST_F(IniEditor, EachGetterGivesItsOwnTypeAndAMissingKeyReachesItsCallerUnlogged)
{
	sandbox::writeFile(kFile, "[T]\nTEXT = a b\nINT = -7\nUINT = 4294967295\nHALF = 2.5\nON = true\nOFF = false\n");
	initialization reader;
	EXPECT_TRUE(reader.loadFile(kFile));
	EXPECT_EQ(reader.getString("T.TEXT"), "a b");
	EXPECT_EQ(reader.getInt("T.INT"), -7);
	EXPECT_EQ(reader.getUInt("T.UINT"), 4294967295U);
	EXPECT_EQ(reader.getDouble("T.HALF"), 2.5);
	EXPECT_TRUE(reader.getBool("T.ON"));
	EXPECT_FALSE(reader.getBool("T.OFF"));
	EXPECT_THROW(reader.getString("T.NONE"), Poco::NotFoundException);
	EXPECT_THROW(reader.getInt("T.NONE"), Poco::NotFoundException);
	EXPECT_THROW(reader.getBool("T.NONE"), Poco::NotFoundException);
	EXPECT_THROW(reader.getDouble("T.NONE"), Poco::NotFoundException);
	EXPECT_THROW(reader.getUInt("T.NONE"), Poco::NotFoundException);
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(IniEditor, APathOf99CharactersIsKeptWholeAndAShorterOneLeavesNothingOfIt)
{
	std::string longer = "/usr/velarix/bin/log/";
	longer.append(99 - longer.size(), 'p');
	sandbox::writeFile(longer, "[T]\nK=8\n");
	initialization editor;
	editor.loadFile(longer);
	EXPECT_TRUE(editor.changeINI("T.K", "9"));
	EXPECT_EQ(sandbox::readFile(longer), "[T]\nK = 9\n");
	editor.loadFile(kFile);
	EXPECT_TRUE(editor.changeINI("T.K", "2"));
	EXPECT_EQ(sandbox::readFile(kFile), "[T]\nK = 2\n");
	EXPECT_EQ(sandbox::readFile(longer), "[T]\nK = 9\n");
}

// The file as it is now counts, not as it was parsed; the object still has that.
TEST_F(IniEditor, LinesWrittenSinceTheLoadAreKeptAndTheChangeIsSeenByANewObjectOnly)
{
	initialization editor;
	editor.loadFile(kFile);
	sandbox::writeFile(kFile, "[T]\nNEW = 5\nK = 1\n");
	EXPECT_TRUE(editor.changeINI("T.K", "2"));
	EXPECT_EQ(sandbox::readFile(kFile), "[T]\nNEW = 5\nK = 2\n");
	EXPECT_EQ(editor.getString("T.K"), "1");
	EXPECT_EQ(valueOf("T.K"), "2");
}

TEST_F(IniEditor, TheFileIsRewrittenInPlace)
{
	ASSERT_EQ(::chmod(kFile, 0640), 0);
	struct stat before
	{
	};
	struct stat after
	{
	};
	ASSERT_EQ(::stat(kFile, &before), 0);
	EXPECT_TRUE(change("T.K", "2"));
	ASSERT_EQ(::stat(kFile, &after), 0);
	EXPECT_EQ(after.st_ino, before.st_ino);
	EXPECT_EQ(after.st_mode, before.st_mode);
}

// Readers take no lock; a reader at the wrong moment finds no key.
TEST_F(IniEditor, AReaderInTheMiddleOfARewriteSeesAnEmptyFile)
{
	std::string seen = "not called";
	events::atNth(1, "fwrite",
	              [&seen]
	              {
		              seen = sandbox::readFile(kFile);
		              EXPECT_THROW(valueOf("T.K"), Poco::NotFoundException);
	              });
	EXPECT_TRUE(change("T.K", "2"));
	EXPECT_EQ(seen, "");
	EXPECT_EQ(valueOf("T.K"), "2");
}

// A second writer that began before the close could read a half of the file.
TEST_F(IniEditor, TheRewrittenFileIsClosedBeforeAnotherWriterMayBegin)
{
	std::optional<WaitingThread> other;
	events::atNth(2, "fclose",
	              [&other]
	              {
		              other.emplace([] { change("T.K", "3"); });
		              EXPECT_TRUE(other->waits());
	              });
	events::atNth(4, "fclose", [] {});
	EXPECT_TRUE(change("T.K", "2"));
	ASSERT_TRUE(other.has_value());
	EXPECT_TRUE(other->returns());
	EXPECT_EQ(valueOf("T.K"), "3");
}

/// Every test has a process of its own, since a lock that stays taken would
/// reach into the next one.
class ChangeIniFailures : public IniEditor
{
protected:
	ChangeIniFailures() { sandbox::writeFile(kGood, "[T]\nK = 1\n"); }
};

/// Expects that the change is refused with the one line on the console.
void expectRefusal(initialization& editor)
{
	const Console console = consoleOf([&] { EXPECT_FALSE(editor.changeINI("T.K", "2")); });
	EXPECT_EQ(console.out, "ini File fopen fail.\n");
	EXPECT_EQ(console.err, "");
	EXPECT_THAT(events::all(), IsEmpty());
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

/// A real failure of the write alone, as on a disk that fills up between the file's
/// emptying and its new bytes.
TEST_IN_OWN_PROCESS(ChangeIniFailures, BytesThatFindNoRoomLeaveAnEmptyFileAndNobodyIsTold)
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
	initialization editor;
	editor.loadFile(kFile);
	ASSERT_EQ(std::remove(kFile), 0);
	expectRefusal(editor);
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

TEST_IN_OWN_PROCESS(ChangeIniFailures, ARefusedKeyDoesNotEvenOpenTheFileAndLeavesTheLockFree)
{
	initialization editor;
	editor.loadFile(kFile);
	ASSERT_EQ(std::remove(kFile), 0);
	const Console console = consoleOf([&] { EXPECT_FALSE(editor.changeINI("T." + std::string(98, 'N'), "2")); });
	EXPECT_EQ(console.out, "");
	EXPECT_NE(::access(kFile, F_OK), 0);
	const WaitingThread other([] { changeGood("3"); });
	EXPECT_TRUE(other.returns());
	EXPECT_EQ(sandbox::readFile(kGood), "[T]\nK = 3\n");
}

} // namespace
