// The start of the log and its lines.

#include <ctime>

#include <Poco/Logger.h>
#include <Poco/Thread.h>

#include "Daemon.h"
#include "LogOutput.h"
#include "OwnProcess.h"
#include "VelarixLog.h"

namespace
{

constexpr char kLog[] = "/usr/velarix/log/line.log";
constexpr char kTime[] = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9] ";

class LogLine : public DaemonTest
{
protected:
	LogLine() { useRealLogFileAt(kLog); }

	/// @return the one line of the log file
	static std::string line()
	{
		const std::vector<std::string> lines = logFileLines(kLog);
		EXPECT_EQ(lines.size(), 1U);
		return lines.empty() ? std::string() : lines.front();
	}
};

/// Writes one line in the time zone `zone` and expects its time stamp to lie within the call.
void expectLocalTime(const char* zone)
{
	::setenv("TZ", zone, 1);
	::tzset();
	const auto now = []
	{
		const std::time_t time = std::time(nullptr);
		char text[20] = "";
		std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&time));
		return std::string(text);
	};
	const std::string before = now();
	velarixLog->info("Source", 1, "%s", "text");
	const std::string stamp = logFileLines(kLog).back().substr(0, before.size());
	EXPECT_GE(stamp, before);
	EXPECT_LE(stamp, now());
}

TEST_F(LogLine, HoldsTimeProcessThreadPlaceLetterAndText)
{
	velarixLog->info("Source", 627, "%s", "some text");
	EXPECT_THAT(line(), MatchesRegex(std::string("^") + kTime + "\\[" + std::to_string(::getpid()) +
	                                 ":0\\]\\[Source:627\\] <I> some text$"));
}

TEST_F(LogLine, NamesTheThreadThatWritesIt)
{
	Poco::Thread thread;
	thread.start([](void*) { velarixLog->info("Source", 1, "%s", "text"); }, nullptr);
	thread.join();
	ASSERT_GT(thread.id(), 0);
	EXPECT_THAT(line(), HasSubstr(":" + std::to_string(thread.id()) + "][Source:1] <I> text"));
}

TEST_F(LogLine, IsInLocalTime)
{
	inOwnProcess([] { expectLocalTime("XYZ-05:45"); });
	inOwnProcess([] { expectLocalTime("XYZ+09:30"); });
}

TEST_F(LogLine, OfSeveralLinesOfTextKeepsThemTogether)
{
	velarixLog->info("Source", 1, "%s", "first\nsecond");
	const std::vector<std::string> lines = logFileLines(kLog);
	ASSERT_EQ(lines.size(), 2U);
	EXPECT_THAT(lines[0], MatchesRegex(std::string(kTime) + ".*<I> first"));
	EXPECT_EQ(lines[1], "second");
}

class LogStart : public DaemonTest
{
protected:
	LogStart() { configure(kLog, "7 days"); }

	void configure(const std::string& path, const std::string& purgeAge)
	{
		settings.set("LOG.PATH", path).set("LOG.PURGEAGE", purgeAge);
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

TEST_F(LogStart, IsSilentAndOpensTheFileAtOnceAndASecondOneIsRefused)
{
	const Console console = start();
	EXPECT_EQ(console.out, "");
	EXPECT_EQ(console.err, "");
	EXPECT_TRUE(exists(kLog));
	EXPECT_THAT(logFileLines(kLog), IsEmpty());
	EXPECT_EQ(start().out, "initLog fail : Exists\n");
	velarixLog->info("Source", 1, "%s", "still");
	EXPECT_THAT(logFileTexts(kLog), ElementsAre("[Source:1] <I> still"));
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
	EXPECT_EQ(start().out, "");
	velarixLog->info("Source", 1, "%s", "now");
	EXPECT_THAT(logFileTexts(kLog), ElementsAre("[Source:1] <I> now"));
}

} // namespace
