#include <unistd.h>

#include <Poco/FileChannel.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Logger.h>
#include <Poco/PatternFormatter.h>

#include "Console.h"
#include "Daemon.h"
#include "LogLines.h"
#include "Sandbox.h"
#include "VelarixLog.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

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

TEST_F(LogStart, BuildsTheLoggerThatLetsDebugLinesThrough)
{
	start();
	Poco::Logger* const pLogger = Poco::Logger::has("FileLogger");
	ASSERT_NE(pLogger, nullptr);
	EXPECT_EQ(pLogger->getLevel(), 7);
}

TEST_F(LogStart, FormatsInLocalTime)
{
	start();
	const auto pFormatting = Poco::Logger::get("FileLogger").getChannel().cast<Poco::FormattingChannel>();
	ASSERT_FALSE(pFormatting.isNull());
	const auto pFormatter = pFormatting->getFormatter().cast<Poco::PatternFormatter>();
	ASSERT_FALSE(pFormatter.isNull());
	EXPECT_EQ(pFormatter->getProperty("pattern"), "%Y-%m-%d %H:%M:%S.%c [%P:%I][%U:%u] <%q> %t");
	EXPECT_EQ(pFormatter->getProperty("times"), "local");
}

TEST_F(LogStart, RotatesDailyAndPurgesByTheConfiguredAge)
{
	start();
	const auto pFormatting = Poco::Logger::get("FileLogger").getChannel().cast<Poco::FormattingChannel>();
	ASSERT_FALSE(pFormatting.isNull());
	const auto pFile = pFormatting->getChannel().cast<Poco::FileChannel>();
	ASSERT_FALSE(pFile.isNull());
	EXPECT_EQ(pFile->getProperty("path"), kLog);
	EXPECT_EQ(pFile->getProperty("rotation"), "daily");
	EXPECT_EQ(pFile->getProperty("purgeAge"), "7 days");
	EXPECT_EQ(pFile->getProperty("archive"), "timestamp");
	// What is not set stays as the library has it.
	EXPECT_EQ(pFile->getProperty("times"), "utc");
	EXPECT_EQ(pFile->getProperty("compress"), "false");
	EXPECT_EQ(pFile->getProperty("purgeCount"), "");
}

TEST_F(LogStart, ContinuesAnExistingFile)
{
	sandbox::writeFile(kLog, "from the run before\n");
	start();
	velarixLog->info("Source", 1, "%s", "of this run");
	EXPECT_THAT(sandbox::readFile(kLog), StartsWith("from the run before\n"));
	EXPECT_THAT(logFileTexts(kLog), ElementsAre(testing::_, "[Source:1] <I> of this run"));
}

TEST_F(LogStart, AMissingDirectoryIsToldOnStandardOutput)
{
	configure("/usr/velarix/none/start.log", "7 days");
	expectRefused("File not found: /usr/velarix/none/start.log");
	EXPECT_FALSE(exists("/usr/velarix/none"));
}

TEST_F(LogStart, APurgeAgeThatIsNoNumberIsRefusedBeforeTheFileIsMade)
{
	configure(kLog, "soon");
	expectRefused("Invalid argument: Zero is not valid purge age.");
	EXPECT_FALSE(exists(kLog));
}

TEST_F(LogStart, APurgeAgeWithoutAUnitIsRefused)
{
	configure(kLog, "7");
	expectRefused("Invalid argument: purgeAge: 7");
	EXPECT_FALSE(exists(kLog));
}

// The path is only opened at the end, so the purge age is what is complained of.
TEST_F(LogStart, ABadPurgeAgeComesBeforeABadPath)
{
	configure("/usr/velarix/none/start.log", "7 fortnights");
	expectRefused("Invalid argument: purgeAge: 7 fortnights");
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
