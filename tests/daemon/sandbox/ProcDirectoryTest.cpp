// Counting in a /proc made by hand: what of a directory is looked at, how much of a status
// file, and what number of matches counts.

#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>

#include "Daemon.h"
#include "PlainUser.h"

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
	ProcDirectory()
	{
		settings.programs({"/opt/app/server"});
		g_untyped.clear();
		sandbox::coverProc();
	}

	~ProcDirectory() override { sandbox::showRealProc(); }

	static void directory(const std::string& name) { ASSERT_EQ(::mkdir(("/proc/" + name).c_str(), 0755), 0) << name; }

	static void process(const std::string& name, const std::string& status)
	{
		directory(name);
		sandbox::writeFile("/proc/" + name + "/status", status);
	}

	static bool isRunning() { return Utill::isProcessRunning(OBSERVATION_MODE_1); }
};

/// The entry is compared as a signed char with '9' in its first character, and a '.' is left out.
struct Entry
{
	const char* name;
	bool counts;
};

// clang-format off
const Entry kEntries[] = {
	{"1", true}, {"0", true}, {"9", true}, {"9abc", true}, {"-1", true}, {"+", true}, {" 1", true}, {",", true},
	{"!x", true}, {"\x01", true}, {"\x80", true}, {"\xc3\xa4", true}, {"\xff", true},
	{":", false}, {":12", false}, {"A", false}, {"self", false}, {"~", false}, {"\x7f", false}, {".1", false},
	{"..1", false}, {".server", false},
};
// clang-format on

TEST_F(ProcDirectory, EntriesUpToNineAreTakenForProcesses)
{
	for (const Entry& entry : kEntries)
	{
		process(entry.name, "Name:\tserver\n");
		EXPECT_EQ(isRunning(), entry.counts) << entry.name;
		std::filesystem::remove_all(std::string("/proc/") + entry.name);
	}
	EXPECT_THAT(events::all(), IsEmpty());
}

struct Status
{
	const char* name;
	std::string text;
	bool matches;
};

const Status kStatuses[] = {
    {"only the first line is used", "Name:\tother\nserver\n", false},
    {"a NUL ends the line", std::string("Name:\tother\0server\n", 19), false},
    {"a NUL behind the name", std::string("Name:\tserver\0\n", 14), true},
    {"a name that ends at the 127th character", std::string(121, 'x') + "server" + "more\n", true},
    {"a name that ends at the 128th character", std::string(122, 'x') + "server" + "more\n", false},
    {"the rest of a long line is no other line", std::string(127, 'x') + "server\nserver\n", false},
};

TEST_F(ProcDirectory, TheBeginningOfTheFirstLineIsSearched)
{
	directory("1");
	for (const Status& status : kStatuses)
	{
		sandbox::writeFile("/proc/1/status", status.text);
		EXPECT_EQ(isRunning(), status.matches) << status.name;
	}
	EXPECT_THAT(events::all(), IsEmpty());
}

/// Configured programs against running ones: the number of matches alone decides.
struct Count
{
	const char* name;
	std::vector<std::string> configured;
	std::vector<std::string> running;
	bool result;
	events::List lines;
};

// clang-format off
const Count kCounts[] = {
//   name                    configured            running                       result  lines
	{"NoneOfNone",           {},                   {},                           true,   {}},
	{"SomeOfNone",           {},                   {"a", "b"},                   true,   {}},
	{"NoneOfOne",            {"/p/qa"},            {},                           false,  {}},
	{"OtherOfOne",           {"/p/qa"},            {"qb"},                       false,  {}},
	{"OneOfOne",             {"/p/qa"},            {"qa"},                       true,   {}},
	{"TwoOfOne",             {"/p/qa"},            {"qa", "qa"},                 true,   {"log D Utill:241  2processes are running at the same time"}},
	{"ThreeOfOne",           {"/p/qa"},            {"qa", "qa", "qa"},           true,   {"log D Utill:241  3processes are running at the same time"}},
	{"NoneOfTwo",            {"/p/qa", "/p/qb"},   {"c"},                        false,  {}},
	{"FirstOfTwo",           {"/p/qa", "/p/qb"},   {"qa"},                       false,  {}},
	{"SecondOfTwo",          {"/p/qa", "/p/qb"},   {"qb"},                       false,  {}},
	{"BothOfTwo",            {"/p/qa", "/p/qb"},   {"qa", "qb"},                 true,   {}},
	{"FirstTwiceOfTwo",      {"/p/qa", "/p/qb"},   {"qa", "qa"},                 true,   {}},
	{"SecondTwiceOfTwo",     {"/p/qa", "/p/qb"},   {"qb", "qb"},                 true,   {}},
	{"BothAndOneMoreOfTwo",  {"/p/qa", "/p/qb"},   {"qa", "qb", "qb"},           true,   {"log D Utill:241  3processes are running at the same time"}},
	{"OneThatContainsTwo",   {"/p/qa", "/p/qb"},   {"qaqb"},                     true,   {}},
	{"SameTwiceConfigured",  {"/p/qa", "/r/qa"},   {"qa"},                       true,   {}},
	{"TwiceAndTwice",        {"/p/qa", "/r/qa"},   {"qa", "qa"},                 true,   {"log D Utill:241  4processes are running at the same time"}},
	{"ElevenOfOne",          {"/p/qa"},            std::vector<std::string>(11, "qa"), true, {"log D Utill:241  11processes are running at the same time"}},
};
// clang-format on

TEST_F(ProcDirectory, TheNumberOfMatchesDecides)
{
	for (const Count& row : kCounts)
	{
		SCOPED_TRACE(row.name);
		settings.programs(row.configured);
		for (std::size_t i = 0; i < row.running.size(); ++i)
		{
			process(std::to_string(i + 1), "Name:\t" + row.running[i] + "\nUmask:\t0022\n");
		}
		events::clear();
		EXPECT_EQ(isRunning(), row.result);
		EXPECT_EQ(events::all(), row.lines);
		for (std::size_t i = 0; i < row.running.size(); ++i)
		{
			std::filesystem::remove_all("/proc/" + std::to_string(i + 1));
		}
	}
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
	EXPECT_TRUE(isRunning());
	EXPECT_THAT(events::all(), ElementsAre("log D Utill:241  4processes are running at the same time"));
}

TEST_F(ProcDirectory, AStatusThatCannotBeReadIsReportedAndSkippedAndWithoutProcNothingRuns)
{
	const std::string cannot = "log E Utill:216 Can't read file [/proc/17/status]";
	directory("17");
	process("18", "Name:\tserver\n");
	EXPECT_TRUE(isRunning());
	sandbox::writeFile("/proc/17/status", "Name:\tserver\n");
	std::filesystem::remove_all("/proc/18");
	ASSERT_EQ(::chmod("/proc/17/status", 0), 0);
	const PlainUser user;
	EXPECT_FALSE(isRunning());
	ASSERT_EQ(::chmod("/proc", 0), 0);
	EXPECT_FALSE(isRunning());
	EXPECT_THAT(events::all(), ElementsAre(cannot, cannot, "log E Utill:204 NO_DIR(/proc)"));
}

TEST_F(ProcDirectory, AStatusWithoutALineMatchesNothingAndThePreviousLineIsNotCountedAgain)
{
	// Whatever the order of the entries, an empty one follows the matching one.
	process("1", "");
	process("2", "Name:\tserver\n");
	process("3", "");
	directory("4");
	directory("4/status");
	EXPECT_TRUE(isRunning());
	EXPECT_THAT(events::all(), IsEmpty());
	settings.programs({"/opt/app/server", "/opt/app/worker"});
	EXPECT_FALSE(isRunning());
}

TEST_F(ProcDirectory, AnEmptyPathIsReportedForEachProcessAndMatchesIt)
{
	settings.programs({""});
	process("1", "Name:\tone\n");
	process("2", "Name:\ttwo\n");
	EXPECT_TRUE(isRunning());
	EXPECT_THAT(events::all(), ElementsAre("log E Utill:178 Out of range", "log E Utill:178 Out of range",
	                                       "log D Utill:241  2processes are running at the same time"));
}

TEST_F(ProcDirectory, WhatIsNoDirectoryOrHasNoKnownTypeIsSkippedEvenUnderANumber)
{
	process("5", "Name:\tserver\n");
	EXPECT_TRUE(isRunning());
	g_untyped = "5";
	sandbox::writeFile("/proc/6", "Name:\tserver\n");
	process("elsewhere", "Name:\tserver\n");
	ASSERT_EQ(::symlink("elsewhere", "/proc/7"), 0);
	ASSERT_EQ(::mkfifo("/proc/8", 0600), 0);
	EXPECT_FALSE(isRunning());
	EXPECT_THAT(events::all(), IsEmpty());
}

} // namespace
