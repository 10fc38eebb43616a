#include <fcntl.h>

#include <ctime>

#include <Poco/AutoPtr.h>
#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeFormatter.h>
#include <Poco/File.h>
#include <Poco/Message.h>
#include <Poco/Timestamp.h>

#include "Daemon.h"
#include "LogFileChannel.h"
#include "LogOutput.h"
#include "VelarixLog.h"

using testing::UnorderedElementsAre;

namespace
{

constexpr char kDirectory[] = "/usr/velarix/log/rotation";
constexpr char kLog[] = "/usr/velarix/log/rotation/v.log";
constexpr std::time_t kHour = 3600;

/// A log directory of its own, with purge age "3 days".
class LogRotation : public DaemonTest
{
protected:
	LogRotation()
	{
		sandbox::shell("rm -rf /usr/velarix/log/rotation && mkdir /usr/velarix/log/rotation");
		settings.set("LOG.PATH", kLog).set("LOG.PURGEAGE", "3 days");
	}

	/// Leaves a log file whose first line says that it was begun `age` ago.
	static void leaveLogOf(std::time_t age)
	{
		const Poco::Timestamp begun = Poco::Timestamp() - age * Poco::Timestamp::resolution();
		sandbox::writeFile(kLog, "# Log file created/rotated " +
		                             Poco::DateTimeFormatter::format(begun, Poco::DateTimeFormat::RFC1036_FORMAT) +
		                             "\nan old line\n");
	}

	/// Leaves an archive that was last written `age` ago.
	static void leaveArchive(const std::string& name, std::time_t age)
	{
		const std::string path = std::string(kDirectory) + "/" + name;
		sandbox::writeFile(path, "archived\n");
		const timespec times[2] = {{std::time(nullptr) - age, 0}, {std::time(nullptr) - age, 0}};
		ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
	}

	static void writeOneLine()
	{
		useRealLogFile();
		velarixLog->info("Source", 1, "%s", "a new line");
	}

	static std::vector<std::string> archives()
	{
		std::vector<std::string> names;
		Poco::File(kDirectory).list(names);
		names.erase(std::remove(names.begin(), names.end(), "v.log"), names.end());
		return names;
	}
};

/// The library counts in universal time: a day with a changed clock is as long as the others.
TEST_F(LogRotation, AFileOf23HoursIsContinuedAndOneOf25IsArchivedUnderATimeStampWhateverTheClockDoes)
{
	const std::time_t now = std::time(nullptr);
	tm parts{};
	::gmtime_r(&now, &parts);
	// The clock stays, went on by an hour twelve hours ago, or will go back so.
	for (const int hours : {1000, -12, 12})
	{
		const std::string change = std::to_string(parts.tm_yday) + "/" + std::to_string(parts.tm_hour + hours);
		const std::string zone = "XXX0YYY," + change + "," + std::to_string((parts.tm_yday + 100) % 365);
		::setenv("TZ", hours == 1000 ? "UTC0" : zone.c_str(), 1);
		::tzset();
		leaveLogOf(23 * kHour);
		writeOneLine();
		EXPECT_THAT(archives(), IsEmpty());
		EXPECT_THAT(logFileTexts(kLog), ElementsAre("an old line", "[Source:1] <I> a new line"));
		leaveLogOf(25 * kHour);
		writeOneLine();
		EXPECT_THAT(logFileTexts(kLog), ElementsAre("[Source:1] <I> a new line"));
		ASSERT_THAT(archives(), ElementsAre(MatchesRegex("v\\.log\\.20[0-9]{15}")));
		EXPECT_THAT(logFileLines(std::string(kDirectory) + "/" + archives().front()), ElementsAre("an old line"));
		sandbox::shell("rm -f /usr/velarix/log/rotation/*");
	}
	::unsetenv("TZ");
	::tzset();
}

/// The library would end the daemon at it, at each start anew.
TEST_F(LogRotation, AFileWhoseFirstLineHasNoDateIsArchivedAtTheStart)
{
	for (const char* cut : {"", "Sunday, 22 N", "Sunday, 22 Xyz 26 00:08:12 GMT"})
	{
		sandbox::writeFile(kLog, std::string("# Log file created/rotated ") + cut + "\nan old line\n");
		writeOneLine();
		EXPECT_THAT(logFileTexts(kLog), ElementsAre("[Source:1] <I> a new line")) << cut;
		ASSERT_THAT(archives(), ElementsAre(MatchesRegex("v\\.log\\.20[0-9]{15}"))) << cut;
		EXPECT_THAT(logFileLines(std::string(kDirectory) + "/" + archives().front()), Contains("an old line"));
		ASSERT_EQ(std::remove((std::string(kDirectory) + "/" + archives().front()).c_str()), 0);
		ASSERT_EQ(std::remove(kLog), 0);
	}
}

/// Which days it can read differs between the library's versions.
TEST_F(LogRotation, AFileOfEachDayOfTheWeekIsContinuedOrArchived)
{
	for (long day = 0; day < 7; ++day)
	{
		leaveLogOf(day * 24 * kHour + kHour);
		writeOneLine();
		EXPECT_THAT(logFileTexts(kLog), Contains("[Source:1] <I> a new line")) << day;
		ASSERT_EQ(std::remove(kLog), 0);
	}
}

TEST_F(LogRotation, OnlyArchivesBeyondThePurgeAgeAreRemoved)
{
	leaveLogOf(25 * kHour);
	leaveArchive("v.log.20240101000000000", 71 * kHour);
	leaveArchive("v.log.20240101000000001", 73 * kHour);
	leaveArchive("w.log.20240101000000002", 73 * kHour);
	writeOneLine();
	EXPECT_THAT(archives(), UnorderedElementsAre("v.log.20240101000000000", "w.log.20240101000000002",
	                                             MatchesRegex("v\\.log\\.20[0-9]{15}")));
}

/// What the log says on standard output when it is given a line it cannot write.
std::string refusalOfALine()
{
	return consoleOf([] { velarixLog->info("Source", 2, "%s", "a line"); }).out;
}

TEST_F(LogRotation, ADirectoryThatBecameReadOnlyRefusesEveryLineFromThenOn)
{
	leaveLogOf(25 * kHour);
	useRealLogFile();
	sandbox::shell("mount --bind /usr/velarix/log/rotation /usr/velarix/log/rotation && "
	               "mount -o remount,bind,ro /usr/velarix/log/rotation");
	EXPECT_EQ(refusalOfALine(), "File is read-only: /usr/velarix/log/rotation/v.log\n");
	EXPECT_EQ(refusalOfALine(), "File is read-only: /usr/velarix/log/rotation/v.log\n");
	sandbox::shell("umount -l /usr/velarix/log/rotation");
	// A restart of the daemon is what helps.
	EXPECT_EQ(refusalOfALine(), "File is read-only: /usr/velarix/log/rotation/v.log\n");
	writeOneLine();
	EXPECT_THAT(logFileTexts(kLog), ElementsAre("[Source:1] <I> a new line"));
}

// The library's stream stays bad; a restart of the daemon is what helps.
TEST_F(LogRotation, AFullDiskRefusesEveryLineFromThenOn)
{
	sandbox::shell("mount -t tmpfs -o size=64k full /usr/velarix/log/rotation");
	writeOneLine();
	sandbox::shell("dd if=/dev/zero of=/usr/velarix/log/rotation/rest bs=1k count=100 2>/dev/null || true");
	const std::string page(4200, 'x'); // the room behind the log's last line is taken too
	const std::string refusal = consoleOf([&] { velarixLog->info("Source", 2, "%s", page.c_str()); }).out;
	// The library's versions (1.11 and 1.13) differ.
	EXPECT_THAT(refusal, testing::AnyOf(std::string("Cannot write file: ") + kLog + "\n",
	                                    std::string("File access error: no space left on device: ") + kLog + "\n"));
	ASSERT_EQ(::unlink("/usr/velarix/log/rotation/rest"), 0);
	EXPECT_EQ(refusalOfALine(), refusal);
	writeOneLine();
	EXPECT_TRUE(sandbox::readFile(kLog).ends_with("<I> a new line\n"));
	sandbox::shell("umount -l /usr/velarix/log/rotation");
}

TEST_F(LogRotation, AFileThatCannotBeOpenedIsTriedAgainWithTheNextLine)
{
	Poco::AutoPtr<LogFileChannel> channel(new LogFileChannel);
	channel->setProperty(Poco::FileChannel::PROP_PATH, "/usr/velarix/log/rotation/later/v.log");
	const Poco::Message line("Source", "a line", Poco::Message::PRIO_INFORMATION);
	EXPECT_THROW(channel->log(line), Poco::FileException);
	EXPECT_THROW(channel->log(line), Poco::FileException);
	sandbox::shell("mkdir /usr/velarix/log/rotation/later");
	channel->log(line);
	EXPECT_THAT(sandbox::readFile("/usr/velarix/log/rotation/later/v.log"), HasSubstr("a line\n"));
}

} // namespace
