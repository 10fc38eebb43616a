#include <Poco/Logger.h>

#include "Console.h"
#include "Daemon.h"
#include "LogFile.h"
#include "VelarixLog.h"

namespace
{

constexpr char kLog[] = "/usr/velarix/log/start.log";

class LogStart : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		::unlink(kLog);
		configure(kLog, "7 days");
	}

	void configure(const std::string& path, const std::string& purgeAge)
	{
		settings.set("LOG.PATH", path).set("LOG.PURGEAGE", purgeAge);
		apply();
		useUnsetLog();
	}

	static Console start()
	{
		return consoleOf([] { velarixLog->init(); });
	}

	/// Expects that the start prints the one line and leaves the log without a logger.
	static void expectRefused(const std::string& reason)
	{
		const Console console = start();
		EXPECT_EQ(console.out, "initLog fail : " + reason + "\n");
		EXPECT_EQ(console.err, "");
		EXPECT_EQ(Poco::Logger::has("FileLogger"), nullptr);
		EXPECT_EQ(consoleOf([] { velarixLog->error("Source", 1, "%s", "still here"); }).err,
		          "**ERROR**(Source:1)still here\n");
	}

	static bool exists(const char* path) { return ::access(path, F_OK) == 0; }
};

TEST_F(LogStart, IsSilentAndOpensTheFileAtOnce)
{
	const Console console = start();
	EXPECT_EQ(console.out, "");
	EXPECT_EQ(console.err, "");
	EXPECT_TRUE(exists(kLog));
	EXPECT_THAT(logFileLines(kLog), IsEmpty());
}

TEST_F(LogStart, ContinuesAnExistingFile)
{
	sandbox::writeFile(kLog, "from the run before\n");
	start();
	velarixLog->info("Source", 1, "%s", "of this run");
	EXPECT_THAT(sandbox::readFile(kLog), StartsWith("from the run before\n"));
	EXPECT_THAT(logFileTexts(kLog), ElementsAre(testing::_, "[Source:1] <I> of this run"));
}

TEST_F(LogStart, WhatItCannotUseIsSaidOnStandardOutputAndNothingIsMade)
{
	configure("/usr/velarix/none/start.log", "7 days");
	expectRefused("File not found: /usr/velarix/none/start.log");
	// The path is only opened at the end, so the purge age is what is complained of.
	configure("/usr/velarix/none/start.log", "7 fortnights");
	expectRefused("Invalid argument: purgeAge: 7 fortnights");
	configure(kLog, "soon");
	expectRefused("Invalid argument: Zero is not valid purge age.");
	configure(kLog, "7");
	expectRefused("Invalid argument: purgeAge: 7");
	EXPECT_FALSE(exists(kLog) || exists("/usr/velarix/none"));
}

TEST_F(LogStart, CanSucceedAfterItFailed)
{
	configure("/usr/velarix/none/start.log", "7 days");
	start();
	settings.set("LOG.PATH", kLog);
	apply();
	EXPECT_EQ(start().out, "");
	velarixLog->info("Source", 1, "%s", "now");
	EXPECT_THAT(logFileTexts(kLog), ElementsAre("[Source:1] <I> now"));
}

TEST_F(LogStart, ASecondStartIsRefusedAndTheFirstLoggerStays)
{
	start();
	EXPECT_EQ(start().out, "initLog fail : Exists\n");
	velarixLog->info("Source", 1, "%s", "still");
	EXPECT_THAT(logFileTexts(kLog), ElementsAre("[Source:1] <I> still"));
}

} // namespace
