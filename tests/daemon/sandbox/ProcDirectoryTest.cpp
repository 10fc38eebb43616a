// Counting in a /proc made by hand: what of a directory is looked at, and how
// much of a status file.

#include <thread>

#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Daemon.h"
#include "PlainUser.h"
#include "Sandbox.h"
#include "Utill.h"
#include "WaitFor.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace
{

/// The name of the entry whose type the directory does not tell.
std::string g_untyped;

} // namespace

// readdir, as code with large file offsets calls it.
extern "C" dirent64* __real_readdir64(DIR* pDirectory);
extern "C" dirent64* __wrap_readdir64(DIR* pDirectory);
extern "C" dirent64* __wrap_readdir64(DIR* pDirectory)
{
	dirent64* pEntry = __real_readdir64(pDirectory);
	if (pEntry != nullptr && g_untyped == pEntry->d_name)
	{
		pEntry->d_type = DT_UNKNOWN;
	}
	return pEntry;
}

namespace
{

class ProcDirectory : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		settings.programs({"/opt/app/server"});
		apply();
		g_untyped.clear();
		sandbox::coverProc();
	}

	void TearDown() override
	{
		sandbox::showRealProc();
		DaemonTest::TearDown();
	}

	static void directory(const std::string& name) { ASSERT_EQ(::mkdir(("/proc/" + name).c_str(), 0755), 0) << name; }

	static void process(const std::string& name, const std::string& status)
	{
		directory(name);
		sandbox::writeFile("/proc/" + name + "/status", status);
	}

	static bool isRunning() { return Utill::isProcessRunning(OBSERVATION_MODE_1); }
};

TEST_F(ProcDirectory, EveryProcessDirectoryIsLookedAt)
{
	process("1", "Name:\tserver\n");
	process("22", "Name:\tserver\n");
	process("333", "Name:\tother\n");
	process("99999", "Name:\tserver\n");
	EXPECT_TRUE(isRunning());
	EXPECT_THAT(events::all(), ElementsAre("log D Utill:241  3processes are running at the same time"));
}

TEST_F(ProcDirectory, OnlyTheFirstLineIsUsed)
{
	process("1", "Name:\tother\nserver\n");
	EXPECT_FALSE(isRunning());
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(ProcDirectory, ANulEndsTheLine)
{
	process("1", std::string("Name:\tother\0server\n", 19));
	EXPECT_FALSE(isRunning());
	process("2", std::string("Name:\tserver\0\n", 14));
	EXPECT_TRUE(isRunning());
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(ProcDirectory, ALineThatComesInPiecesIsReadToItsEnd)
{
	directory("1");
	ASSERT_EQ(::mkfifo("/proc/1/status", 0600), 0);
	std::thread writer(
	    []
	    {
		    const int fifo = ::open("/proc/1/status", O_WRONLY | O_CLOEXEC);
		    EXPECT_EQ(::write(fifo, "Name:\tser", 9), 9);
		    waitFor(
		        [fifo]
		        {
			        int unread = 0;
			        EXPECT_EQ(::ioctl(fifo, FIONREAD, &unread), 0);
			        return unread == 0;
		        },
		        std::chrono::seconds(10), "the first piece to be read");
		    EXPECT_EQ(::write(fifo, "ver\nmore", 8), 8);
		    ::close(fifo);
	    });
	EXPECT_TRUE(isRunning());
	writer.join();
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(ProcDirectory, TheNameMayBeAnywhereInTheLine)
{
	process("1", "server\n");
	process("2", "Name:\tobserver2\n");
	settings.programs({"/opt/app/server", "server"});
	apply();
	EXPECT_TRUE(isRunning());
	EXPECT_THAT(events::all(), ElementsAre("log D Utill:241  4processes are running at the same time"));
}

TEST_F(ProcDirectory, ANameThatEndsAtThe127thCharacterIsFound)
{
	process("1", std::string(121, 'x') + "server" + "more\n");
	EXPECT_TRUE(isRunning());
}

TEST_F(ProcDirectory, ANameThatEndsAtThe128thCharacterIsNotFound)
{
	process("1", std::string(122, 'x') + "server" + "more\n");
	EXPECT_FALSE(isRunning());
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(ProcDirectory, TheRestOfALongFirstLineIsNotReadAsAnotherLine)
{
	process("1", std::string(127, 'x') + "server\nserver\n");
	EXPECT_FALSE(isRunning());
}

TEST_F(ProcDirectory, ADirectoryWithoutStatusIsReportedAndSkipped)
{
	directory("17");
	process("18", "Name:\tserver\n");
	EXPECT_TRUE(isRunning());
	EXPECT_THAT(events::all(), ElementsAre("log E Utill:216 Can't read file [/proc/17/status]"));
}

TEST_F(ProcDirectory, AStatusThatMustNotBeReadIsReportedAndSkipped)
{
	process("17", "Name:\tserver\n");
	ASSERT_EQ(::chmod("/proc/17/status", 0), 0);
	const PlainUser user;
	EXPECT_FALSE(isRunning());
	EXPECT_THAT(events::all(), ElementsAre("log E Utill:216 Can't read file [/proc/17/status]"));
}

TEST_F(ProcDirectory, AnEmptyStatusMatchesNothingAndThePreviousLineIsNotCountedAgain)
{
	// Whatever the order of the entries, an empty one follows the matching one.
	process("1", "");
	process("2", "Name:\tserver\n");
	process("3", "");
	EXPECT_TRUE(isRunning());
	EXPECT_THAT(events::all(), IsEmpty());
	settings.programs({"/opt/app/server", "/opt/app/worker"});
	apply();
	EXPECT_FALSE(isRunning());
}

TEST_F(ProcDirectory, AStatusThatGivesNoLineMatchesNothing)
{
	directory("1");
	directory("1/status");
	process("2", "Name:\tserver\n");
	directory("3");
	directory("3/status");
	EXPECT_TRUE(isRunning());
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(ProcDirectory, AnEmptyPathIsReportedForEachProcessAndMatchesIt)
{
	settings.programs({""});
	apply();
	process("1", "Name:\tone\n");
	process("2", "Name:\ttwo\n");
	EXPECT_TRUE(isRunning());
	EXPECT_THAT(events::all(), ElementsAre("log E Utill:178 Out of range", "log E Utill:178 Out of range",
	                                       "log D Utill:241  2processes are running at the same time"));
}

TEST_F(ProcDirectory, AFileAndALinkAreSkippedEvenUnderANumber)
{
	sandbox::writeFile("/proc/5", "Name:\tserver\n");
	process("elsewhere", "Name:\tserver\n");
	ASSERT_EQ(::symlink("elsewhere", "/proc/6"), 0);
	ASSERT_EQ(::mkfifo("/proc/7", 0600), 0);
	EXPECT_FALSE(isRunning());
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(ProcDirectory, AnEntryWhoseTypeIsNotToldIsSkipped)
{
	process("5", "Name:\tserver\n");
	EXPECT_TRUE(isRunning());
	g_untyped = "5";
	EXPECT_FALSE(isRunning());
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(ProcDirectory, AnEntryNameOf255CharactersIsReadToo)
{
	process(std::string(255, '1'), "Name:\tserver\n");
	EXPECT_TRUE(isRunning());
	EXPECT_THAT(events::all(), IsEmpty());
}

} // namespace
