#include "LogFile.h"
#include "PlainUser.h"
#include "QuorinINI.h"
#include "WorkerTest.h"

namespace
{

constexpr char kLog[] = "/usr/velarix/log/run-info-fatal.log";
constexpr char kFile[] = "/usr/velarix/bin/log/record.txt";

constexpr char kOpenFailed[] = "(1 == 0) && \"ini File fopen fail.\"";
constexpr char kLoadFile[] = "bool initialization::loadFile(const std::string&)";
constexpr char kReadError[] = "(1==0) && \"read ini error\"";
constexpr char kGetTime[] = "std::string CHeartSender::getProcessStartedTime()";

/// How many reads still succeed; negative: all of them.
int g_goodReads = -1;

class RunInfoFatal : public WorkerTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		sandbox::writeFile(kLog, "");
		settings.set("LOG.PATH", kLog);
		apply();
		useRealLogFile();
	}

	/// Expects that the load of `path` ends the daemon after one line with `text`.
	static void expectLoadFails(const std::string& path, const std::string& text)
	{
		EXPECT_FATAL_AFTER(initialization().loadFile(path), "**ERROR**(QuorinINI:29)" + text, kOpenFailed, "QuorinINI",
		                   30, kLoadFile);
		EXPECT_EQ(logFileTexts(kLog).back(), "[QuorinINI:29] <E> " + text);
	}
};

} // namespace

/// Stands before the C library's, also for the library that reads the record: no disk can
/// be made to fail behind its first bytes.
ssize_t read(int descriptor, void* buffer, size_t size)
{
	if (g_goodReads == 0)
	{
		errno = EIO;
		return -1;
	}
	g_goodReads -= g_goodReads > 0 ? 1 : 0;
	return ::syscall(SYS_read, descriptor, buffer, size);
}

namespace
{

TEST_F(RunInfoFatal, WhatIsNoFileThatOpensAndReadsCannotBeLoaded)
{
	expectLoadFails("/usr/velarix/bin/log/no-such.txt", "File not found: /usr/velarix/bin/log/no-such.txt");
	expectLoadFails("/usr/velarix/bin/log", "Cannot open file: not a file: /usr/velarix/bin/log");
	// It opens, and every read of it fails as on a broken disk.
	sandbox::shell("ln -sfn /proc/self/mem /usr/velarix/bin/log/broken.txt");
	expectLoadFails("/usr/velarix/bin/log/broken.txt", "I/O error: /usr/velarix/bin/log/broken.txt");
}

TEST_F(RunInfoFatal, AFileThatCannotBeReadToItsEndCannotBeLoaded)
{
	sandbox::writeFile(kFile, kRunInfo);
	const auto loadWithABadEnd = []
	{
		g_goodReads = 1;
		initialization().loadFile(kFile);
	};
	EXPECT_FATAL_AFTER(loadWithABadEnd(), "**ERROR**(QuorinINI:29)I/O error: /usr/velarix/bin/log/record.txt",
	                   kOpenFailed, "QuorinINI", 30, kLoadFile);
}

TEST_F(RunInfoFatal, AnUnreadableFileCannotBeLoaded)
{
	sandbox::writeFile(kFile, kRunInfo);
	ASSERT_EQ(::chmod(kFile, 0), 0);
	const PlainUser plainUser;
	expectLoadFails(kFile, "Access to file denied: /usr/velarix/bin/log/record.txt");
}

// A shortened path would let a later change rewrite another file.
TEST_F(RunInfoFatal, APathOf100CharactersCannotBeLoaded)
{
	std::string path = "/usr/velarix/bin/log/";
	path.append(100 - path.size(), 'p');
	sandbox::writeFile(path, kRunInfo);
	expectLoadFails(path, "Bad path syntax: path longer than 99 characters: " + path);
}

TEST_F(RunInfoFatal, WithoutARecordEveryUserOfItEndsTheDaemon)
{
	ASSERT_EQ(std::remove(velarix::kRunInfoPath), 0);
	const std::string error = "**ERROR**(QuorinINI:29)File not found: /usr/velarix/bin/log/runinfo.txt";
	std::string partnerTime = "20240131235959";
	EXPECT_FATAL_AFTER(make<CHeartReciver>()->saveStartedTime(), error, kOpenFailed, "QuorinINI", 30, kLoadFile);
	EXPECT_FATAL_AFTER(make<CHeartSender>()->saveStartedTime(), error, kOpenFailed, "QuorinINI", 30, kLoadFile);
	EXPECT_FATAL_AFTER(make<CHeartReciver>()->isStartedProcessFaster(partnerTime), error, kOpenFailed, "QuorinINI", 30,
	                   kLoadFile);
	EXPECT_NE(::access(velarix::kRunInfoPath, F_OK), 0);
}

TEST_F(RunInfoFatal, ARecordWithoutTheGeneralKeyEndsTheSender)
{
	sandbox::writeFile(velarix::kRunInfoPath, "[TRACE]\nMASTER_LAST_RUN_TIME = 1\nSLAVE_LAST_RUN_TIME = 2\n");
	EXPECT_FATAL_AFTER(make<CHeartSender>()->getProcessStartedTime(),
	                   "**ERROR**(CHeartSender:176)Not found: TRACE.LAST_RUN_TIME[noName]", kReadError, "CHeartSender",
	                   177, kGetTime);
	EXPECT_THAT(logFileTexts(kLog), ElementsAre("[CHeartSender:176] <E> Not found: TRACE.LAST_RUN_TIME[noName]"));
}

} // namespace
