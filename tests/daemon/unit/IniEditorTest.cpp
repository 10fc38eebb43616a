#include <optional>
#include <utility>

#include "Daemon.h"
#include "OwnProcess.h"
#include "QuorinINI.h"
#include "WaitingThread.h"

namespace
{

constexpr char kFile[] = "/usr/velarix/bin/log/editor.txt";
constexpr char kOther[] = "/usr/velarix/bin/log/other.txt";

/// Called once, when the emptied file is about to be written.
std::function<void()> g_beforeTheWrite;
/// Called before each closing of a file.
std::function<void()> g_beforeAClose;

class IniEditor : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		sandbox::writeFile(kFile, "[T]\nK = 1\n");
	}

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

extern "C" std::size_t __real_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* pFile);
extern "C" std::size_t __wrap_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* pFile);
extern "C" std::size_t __wrap_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* pFile)
{
	if (const auto call = std::exchange(g_beforeTheWrite, nullptr))
	{
		call();
	}
	return __real_fwrite(data, size, count, pFile);
}

extern "C" int __real_fclose(std::FILE* pFile);
extern "C" int __wrap_fclose(std::FILE* pFile);
extern "C" int __wrap_fclose(std::FILE* pFile)
{
	if (g_beforeAClose)
	{
		g_beforeAClose();
	}
	return __real_fclose(pFile);
}

namespace
{

TEST_F(IniEditor, EachGetterGivesItsOwnType)
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
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(IniEditor, AMissingKeyReachesTheCallerOfEachGetterUnlogged)
{
	initialization reader;
	reader.loadFile(kFile);
	EXPECT_THROW(reader.getString("T.NONE"), Poco::NotFoundException);
	EXPECT_THROW(reader.getInt("T.NONE"), Poco::NotFoundException);
	EXPECT_THROW(reader.getBool("T.NONE"), Poco::NotFoundException);
	EXPECT_THROW(reader.getDouble("T.NONE"), Poco::NotFoundException);
	EXPECT_THROW(reader.getUInt("T.NONE"), Poco::NotFoundException);
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(IniEditor, AChangedValueIsSeenByANewObjectOnly)
{
	initialization editor;
	editor.loadFile(kFile);
	EXPECT_TRUE(editor.changeINI("T.K", "2"));
	EXPECT_EQ(editor.getString("T.K"), "1");
	EXPECT_EQ(valueOf("T.K"), "2");
}

TEST_F(IniEditor, AShorterPathLeavesNothingOfTheOneBefore)
{
	const std::string longer = std::string(kOther) + ".old";
	sandbox::writeFile(longer, "[T]\nK=8\n");
	sandbox::writeFile(kOther, "[T]\nK=8\n");
	initialization editor;
	editor.loadFile(longer);
	editor.loadFile(kOther);
	EXPECT_TRUE(editor.changeINI("T.K", "9"));
	EXPECT_EQ(sandbox::readFile(kOther), "[T]\nK = 9\n");
	EXPECT_EQ(sandbox::readFile(longer), "[T]\nK=8\n");
}

TEST_F(IniEditor, APathOf99CharactersIsKeptWhole)
{
	std::string path = "/usr/velarix/bin/log/";
	path.append(99 - path.size(), 'p');
	sandbox::writeFile(path, "[T]\nK=8\n");
	initialization editor;
	editor.loadFile(path);
	EXPECT_TRUE(editor.changeINI("T.K", "9"));
	EXPECT_EQ(sandbox::readFile(path), "[T]\nK = 9\n");
}

// The file as it is now counts, not as it was parsed.
TEST_F(IniEditor, LinesWrittenSinceTheLoadAreKept)
{
	initialization editor;
	editor.loadFile(kFile);
	sandbox::writeFile(kFile, "[T]\nNEW = 5\nK = 1\n");
	EXPECT_TRUE(editor.changeINI("T.K", "2"));
	EXPECT_EQ(sandbox::readFile(kFile), "[T]\nNEW = 5\nK = 2\n");
}

// In a process of its own: an editor that failed would hold up the other tests.
TEST_IN_OWN_PROCESS(IniEditor, ARefusedKeyDoesNotEvenOpenTheFile)
{
	initialization editor;
	editor.loadFile(kFile);
	ASSERT_EQ(std::remove(kFile), 0);
	testing::internal::CaptureStdout();
	const bool done = editor.changeINI("T." + std::string(98, 'N'), "2");
	EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
	EXPECT_FALSE(done);
	EXPECT_NE(::access(kFile, F_OK), 0);
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
	g_beforeTheWrite = [&seen]
	{
		seen = sandbox::readFile(kFile);
		EXPECT_THROW(valueOf("T.K"), Poco::NotFoundException);
	};
	EXPECT_TRUE(change("T.K", "2"));
	EXPECT_EQ(seen, "");
	EXPECT_EQ(valueOf("T.K"), "2");
}

// A second writer that began before the close could read a half of the file.
TEST_F(IniEditor, TheRewrittenFileIsClosedBeforeAnotherWriterMayBegin)
{
	std::atomic<int> closes = 0;
	std::optional<WaitingThread> other;
	g_beforeAClose = [&closes, &other]
	{
		if (++closes == 2)
		{
			other.emplace([] { change("T.K", "3"); });
			EXPECT_TRUE(other->waits());
		}
	};
	EXPECT_TRUE(change("T.K", "2"));
	ASSERT_TRUE(other.has_value());
	EXPECT_TRUE(other->returns());
	g_beforeAClose = nullptr;
	EXPECT_EQ(closes, 4);
	EXPECT_EQ(valueOf("T.K"), "3");
}

} // namespace
