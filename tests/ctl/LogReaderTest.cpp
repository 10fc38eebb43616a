// The log as one stream, from real files: archives, rotation and truncation while
// it is followed, broken lines, files that cannot be read.

#include <Poco/DeflatingStream.h>
#include <Poco/FileStream.h>

#include "CtlTest.h"
#include "PlainUser.h"

using namespace velarix::inspect;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace
{

class LogReaderTest : public CtlTest
{
protected:
	const LocalZone zone{"UTC0"};
	const fs::path log = below("/log/v.log");

	LogReaderTest() { fs::create_directories(log.parent_path()); }

	void append(const std::string& text) const { std::ofstream(log, std::ios::binary | std::ios::app) << text; }

	/// As the library rotates: renamed, then begun anew.
	fs::path rotate(const std::string& stamp) const
	{
		fs::path archive = log.string() + "." + stamp;
		fs::rename(log, archive);
		return archive;
	}

	static void pack(const fs::path& path)
	{
		std::ofstream packed(path.string() + ".gz", std::ios::binary);
		Poco::DeflatingOutputStream stream(packed, Poco::DeflatingStreamBuf::STREAM_GZIP);
		stream << readFile(path);
		stream.close();
		fs::remove(path);
	}

	std::vector<std::string> namesOf(const std::vector<LogFile>& files) const
	{
		std::vector<std::string> names;
		for (const LogFile& file : files)
		{
			names.push_back(file.path.filename().string());
		}
		return names;
	}
};

TEST_F(LogReaderTest, MessagesComeInOrderWithTheirFurtherLines)
{
	append("# Log file created/rotated Saturday, 21 Nov 26 07:59:15 GMT\n" + logLine("09:00:00.0", "Utill:62", "one") +
	       logLine("09:00:00.1", "Utill:78", "\n===\n=== process run\n===") + logLine("09:00:00.2", "Utill:62", "two"));
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), ElementsAre("# Log file created/rotated Saturday, 21 Nov 26 07:59:15 GMT",
	                                         "Utill:62 one", "Utill:78 \n===\n=== process run\n===", "Utill:62 two"));
	EXPECT_THAT(reader.trouble(), IsEmpty());
}

TEST_F(LogReaderTest, OfTwoArchivesWithOneStampTheHigherNumberIsTheOlder)
{
	for (const char* name : {"v.log.20261121090000100", "v.log.20261121090000100.0", "v.log.20261121090000100.10",
	                         "v.log.20261121090000100.9", "v.log.20261121090000099.gz", "v.log"})
	{
		write(std::string("/log/") + name, "");
	}
	std::vector<LogTrouble> trouble;
	EXPECT_THAT(namesOf(logFiles(log, trouble)),
	            ElementsAre("v.log.20261121090000099.gz", "v.log.20261121090000100.10", "v.log.20261121090000100.9",
	                        "v.log.20261121090000100.0", "v.log.20261121090000100", "v.log"));
	EXPECT_THAT(trouble, IsEmpty());
}

TEST_F(LogReaderTest, OnlyWhatTheRotationNamesIsAnArchive)
{
	for (const char* name : {"v.log.1", "v.log.bak", "v.log.2026112109000010", "v.log.202611210900001000",
	                         "v.log.20261321090000100", "v.log.20261121240000100", "v.log.20261121090000100.x",
	                         "v.log.20261121090000100x", "v.log.20261121090000100.", "w.log.20261121090000100",
	                         "v.log20261121090000100", "v.log.-0261121090000100", "v.log.99991121090000100"})
	{
		write(std::string("/log/") + name, logLine("08:00:00.0", "A:1", name));
	}
	std::vector<LogTrouble> trouble;
	EXPECT_THAT(namesOf(logFiles(log, trouble)), ElementsAre("v.log"));
}

TEST_F(LogReaderTest, TheStampOfAnArchiveIsUtcInAnyZone)
{
	const LocalZone other(kCentralEurope);
	write("/log/v.log.20261121090000100", "");
	std::vector<LogTrouble> trouble;
	const Instant expected = std::chrono::sys_days(std::chrono::year(2026) / 11 / 21) + 9h + 100ms;
	EXPECT_EQ(logFiles(log, trouble).front().rotated, expected);
}

TEST_F(LogReaderTest, ArchivesThatEndBeforeTheTimeAskedForAreNotOpened)
{
	write("/log/v.log.20261121090000100", logLine("08:00:00.0", "A:1", "first"));
	write("/log/v.log.20261121100000100", logLine("09:30:00.0", "A:2", "second"));
	write("/log/v.log", logLine("10:30:00.0", "A:3", "third"));
	const Instant nine = std::chrono::sys_days(std::chrono::year(2026) / 11 / 21) + 9h;
	LogReader exactly(log, nine + 100ms);
	EXPECT_THAT(readAll(exactly), ElementsAre("A:1 first", "A:2 second", "A:3 third"));
	LogReader later(log, nine + 101ms);
	EXPECT_THAT(readAll(later), ElementsAre("A:2 second", "A:3 third"));
}

TEST_F(LogReaderTest, ADamagedPackedArchiveIsReportedAndTheRestIsRead)
{
	write("/log/v.log.20261121090000100.gz", "no such thing");
	append(logLine("09:30:00.0", "A:3", "third"));
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), ElementsAre("A:3 third"));
	ASSERT_EQ(reader.trouble().size(), 1U);
	EXPECT_EQ(reader.trouble().front().path.filename(), "v.log.20261121090000100.gz");
	EXPECT_EQ(reader.trouble().front().error, EIO);
}

TEST_F(LogReaderTest, ALineIsHeldBackUntilItsEndIsWritten)
{
	append(logLine("08:00:00.0", "A:1", "first") + "2026-11-21 08:00:01.0 [4711:3][A:2] <D> sec");
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), IsEmpty());
	append("ond\n");
	EXPECT_THAT(readAll(reader), ElementsAre("A:1 first", "A:2 second"));
}

TEST_F(LogReaderTest, TheUnfinishedRestIsHandedOutWhenAskedFor)
{
	append(logLine("08:00:00.0", "A:1", "first") + "2026-11-21 08:00:01.0 [4711:3][A:2] <D> sec");
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), IsEmpty());
	LogLine line;
	ASSERT_TRUE(reader.last(line));
	EXPECT_EQ(line.text, "first");
	ASSERT_TRUE(reader.last(line));
	EXPECT_EQ(line.text, "sec");
	EXPECT_FALSE(reader.last(line));
}

TEST_F(LogReaderTest, BetweenTheTwoStepsOfARotationItWaits)
{
	append(logLine("08:00:00.0", "A:1", "first"));
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), ElementsAre("A:1 first"));
	rotate("20261121090000100");
	EXPECT_THAT(readAll(reader), IsEmpty());
	append(logLine("08:00:02.0", "A:2", "second"));
	EXPECT_THAT(readAll(reader), ElementsAre("A:2 second"));
	EXPECT_THAT(reader.trouble(), IsEmpty());
}

TEST_F(LogReaderTest, SeveralRotationsAtATimeAreReadInOrder)
{
	write("/log/v.log.20261121070000100", logLine("07:00:00.0", "A:0", "old"));
	append(logLine("08:00:00.0", "A:1", "first"));
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), ElementsAre("A:0 old", "A:1 first"));
	append(logLine("08:00:01.0", "A:2", "second"));
	rotate("20261121090000100");
	append(logLine("08:00:02.0", "A:3", "third"));
	rotate("20261121100000100");
	append(logLine("08:00:03.0", "A:4", "fourth"));
	pack(rotate("20261121110000100"));
	append(logLine("08:00:04.0", "A:5", "fifth"));
	EXPECT_THAT(readAll(reader), ElementsAre("A:2 second", "A:3 third", "A:4 fourth", "A:5 fifth"));
}

TEST_F(LogReaderTest, AnArchivePackedWhileFollowingIsNotReadAgain)
{
	append(logLine("07:00:00.0", "A:0", "old"));
	const fs::path old = rotate("20261121070000100");
	append(logLine("08:00:00.0", "A:1", "first"));
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), ElementsAre("A:0 old", "A:1 first"));
	pack(old);
	rotate("20261121090000100");
	append(logLine("08:00:02.0", "A:2", "second"));
	EXPECT_THAT(readAll(reader), ElementsAre("A:2 second"));
}

TEST_F(LogReaderTest, AFileThatWasPurgedAfterItsRotationIsReadToItsEnd)
{
	append(logLine("08:00:00.0", "A:1", "first"));
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), ElementsAre("A:1 first"));
	append(logLine("08:00:01.0", "A:2", "second"));
	fs::remove(rotate("20261121090000100"));
	append(logLine("08:00:02.0", "A:3", "third"));
	EXPECT_THAT(readAll(reader), ElementsAre("A:2 second", "A:3 third"));
}

TEST_F(LogReaderTest, AFileThatWasCutDownIsReadFromItsBeginning)
{
	append(logLine("08:00:00.0", "A:1", "first") + logLine("08:00:01.0", "A:2", "second"));
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), ElementsAre("A:1 first", "A:2 second"));
	fs::resize_file(log, 0);
	EXPECT_THAT(readAll(reader), IsEmpty());
	append(logLine("08:00:02.0", "A:3", "third"));
	EXPECT_THAT(readAll(reader), ElementsAre("A:3 third"));
}

TEST_F(LogReaderTest, AMissingFileIsReportedOnceAndReadWhenItAppears)
{
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), IsEmpty());
	EXPECT_THAT(readAll(reader), IsEmpty());
	ASSERT_EQ(reader.trouble().size(), 1U);
	EXPECT_EQ(reader.trouble().front().path, log);
	EXPECT_EQ(reader.trouble().front().error, ENOENT);
	append(logLine("08:00:00.0", "A:1", "first"));
	EXPECT_THAT(readAll(reader), ElementsAre("A:1 first"));
}

TEST_F(LogReaderTest, AMissingDirectoryIsReportedWithTheFile)
{
	LogReader reader(below("/nowhere/v.log"));
	EXPECT_THAT(readAll(reader), IsEmpty());
	ASSERT_EQ(reader.trouble().size(), 2U);
	EXPECT_EQ(reader.trouble().at(0).path, below("/nowhere"));
	EXPECT_EQ(reader.trouble().at(1).path, below("/nowhere/v.log"));
}

TEST_F(LogReaderTest, ADirectoryOrAPipeInItsPlaceIsReportedAndNotWaitedFor)
{
	fs::create_directories(log);
	LogReader directory(log);
	EXPECT_THAT(readAll(directory), IsEmpty());
	EXPECT_EQ(directory.trouble().at(0).error, EISDIR);
	fs::remove(log);
	ASSERT_EQ(::mkfifo(log.c_str(), 0600), 0);
	LogReader pipe(log);
	EXPECT_THAT(readAll(pipe), IsEmpty());
	EXPECT_EQ(pipe.trouble().at(0).error, EINVAL);
}

TEST_F(LogReaderTest, AHugeLineIsCutAndSaysByHowMuch)
{
	const std::string huge(3 * kLongestText + 5, 'x');
	append(logLine("08:00:00.0", "A:1", huge) + logLine("08:00:01.0", "A:2", "second"));
	LogReader reader(log);
	LogLine line;
	ASSERT_TRUE(reader.next(line));
	const std::size_t head = logLine("08:00:00.0", "A:1", "").size() - 1;
	EXPECT_EQ(line.place(), "A:1");
	EXPECT_EQ(line.text.size() + line.cut, huge.size());
	EXPECT_EQ(line.text.size(), kLongestText - head);
	EXPECT_THAT(readAll(reader), ElementsAre("A:2 second"));
}

TEST_F(LogReaderTest, AMessageOfManyLinesIsCutAndSaysByHowMuch)
{
	std::string many;
	for (int count = 0; count < 20000; ++count)
	{
		many += "further line\n";
	}
	append(logLine("08:00:00.0", "A:1", "") + many + logLine("08:00:01.0", "A:2", "second"));
	LogReader reader(log);
	LogLine line;
	ASSERT_TRUE(reader.next(line));
	EXPECT_EQ(line.text.size(), kLongestText);
	EXPECT_EQ(line.text.size() + line.cut, many.size());
	EXPECT_THAT(readAll(reader), ElementsAre("A:2 second"));
}

TEST_F(LogReaderTest, FilesThatMayNotBeReadAreReportedAndTheOthersRead)
{
	const PlainUser user;
	append(logLine("08:00:00.0", "A:1", "first"));
	fs::permissions(rotate("20261121090000100"), fs::perms::none);
	append(logLine("08:00:01.0", "A:2", "second"));
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), ElementsAre("A:2 second"));
	ASSERT_EQ(reader.trouble().size(), 1U);
	EXPECT_EQ(reader.trouble().front().error, EACCES);
	EXPECT_EQ(reader.trouble().front().path.filename(), "v.log.20261121090000100");
}

TEST_F(LogReaderTest, AFileThatMayNotBeReadIsReadOnceItMayBe)
{
	const PlainUser user;
	append(logLine("08:00:01.0", "A:2", "second"));
	fs::permissions(log, fs::perms::none);
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), IsEmpty());
	EXPECT_EQ(reader.trouble().at(0).error, EACCES);
	fs::permissions(log, fs::perms::owner_read);
	EXPECT_THAT(readAll(reader), ElementsAre("A:2 second"));
}

} // namespace
