// The log as one stream, and from its end, from real files: archives, rotation and truncation while
// it is followed, broken lines, files that cannot be read.

#include <Poco/DeflatingStream.h>

#include "CtlTest.h"
#include "PlainUser.h"

using namespace velarix::inspect;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace
{

class Log : public CtlTest
{
protected:
	const LocalZone zone{"UTC0"};
	const fs::path log = below("/log/v.log");

	Log() { fs::create_directories(log.parent_path()); }

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

	std::vector<std::string> names()
	{
		std::vector<std::string> result;
		for (const LogFile& file : logFiles(log, trouble))
		{
			result.push_back(file.path.filename().string());
		}
		return result;
	}

	/// @return the last messages, oldest of them first
	std::vector<LogLine> lastLines(std::size_t count, Instant near)
	{
		std::vector<LogLine> lines;
		const auto take = [&](const LogLine& line)
		{
			lines.push_back(line);
			return lines.size() < count;
		};
		readBackwards(log, near, take, trouble);
		std::ranges::reverse(lines);
		return lines;
	}

	std::vector<std::string> last(std::size_t count)
	{
		std::vector<std::string> texts;
		for (const LogLine& line : lastLines(count, now))
		{
			texts.push_back(textOf(line));
		}
		return texts;
	}

	std::vector<LogTrouble> trouble;
	const Instant nine = std::chrono::sys_days(std::chrono::year(2026) / 11 / 21) + 9h;
};

TEST_F(Log, MessagesComeInOrderWithTheirFurtherLines)
{
	append("# Log file created/rotated Saturday, 21 Nov 26 07:59:15 GMT\n" + logLine("09:00:00.0", "Utill:62", "one") +
	       logLine("09:00:00.1", "Utill:78", "\n===\n=== process run\n===") + logLine("09:00:00.2", "Utill:62", "two"));
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), ElementsAre("# Log file created/rotated Saturday, 21 Nov 26 07:59:15 GMT",
	                                         "Utill:62 one", "Utill:78 \n===\n=== process run\n===", "Utill:62 two"));
	EXPECT_THAT(reader.trouble(), IsEmpty());
}

TEST_F(Log, OfTwoArchivesWithOneStampTheHigherNumberIsTheOlder)
{
	const LocalZone other(kCentralEurope);
	for (const char* name : {"v.log.20261121090000100", "v.log.20261121090000100.0", "v.log.20261121090000100.10",
	                         "v.log.20261121090000100.9", "v.log.20261121090000099.gz", "v.log",
	                         // No archives.
	                         "v.log.1", "v.log.bak", "v.log.2026112109000010", "v.log.202611210900001000",
	                         "v.log.20261321090000100", "v.log.20261121240000100", "v.log.20261121090000100.x",
	                         "v.log.20261121090000100x", "v.log.20261121090000100.", "w.log.20261121090000100",
	                         "v.log20261121090000100", "v.log.-0261121090000100", "v.log.99991121090000100"})
	{
		write(std::string("/log/") + name, "");
	}
	EXPECT_THAT(names(),
	            ElementsAre("v.log.20261121090000099.gz", "v.log.20261121090000100.10", "v.log.20261121090000100.9",
	                        "v.log.20261121090000100.0", "v.log.20261121090000100", "v.log"));
	EXPECT_EQ(logFiles(log, trouble).at(1).rotated, nine + 100ms) << "UTC";
	EXPECT_THAT(trouble, IsEmpty());
}

TEST_F(Log, ArchivesThatEndBeforeTheTimeAskedForAreNotOpened)
{
	write("/log/v.log.20261121090000100", logLine("08:00:00.0", "A:1", "first"));
	write("/log/v.log.20261121100000100", logLine("09:30:00.0", "A:2", "second"));
	write("/log/v.log", logLine("10:30:00.0", "A:3", "third"));
	LogReader exactly(log, nine + 100ms);
	EXPECT_THAT(readAll(exactly), ElementsAre("A:1 first", "A:2 second", "A:3 third"));
	LogReader later(log, nine + 101ms);
	EXPECT_THAT(readAll(later), ElementsAre("A:2 second", "A:3 third"));
}

TEST_F(Log, ADamagedPackedArchiveIsReportedAndTheRestIsRead)
{
	write("/log/v.log.20261121090000100.gz", "no such thing");
	append(logLine("09:30:00.0", "A:3", "third"));
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), ElementsAre("A:3 third"));
	ASSERT_EQ(reader.trouble().size(), 1U);
	EXPECT_EQ(reader.trouble().front().path.filename(), "v.log.20261121090000100.gz");
	EXPECT_EQ(reader.trouble().front().error, EIO);
}

TEST_F(Log, ALineIsHeldBackUntilItsEndIsWrittenOrItIsAskedFor)
{
	append(logLine("08:00:00.0", "A:1", "first") + "2026-11-21 08:00:01.0 [4711:3][A:2] <D> sec");
	LogReader reader(log);
	LogReader asked(log);
	EXPECT_THAT(readAll(reader), IsEmpty());
	EXPECT_THAT(readAll(asked), IsEmpty());
	LogLine line;
	ASSERT_TRUE(asked.last(line));
	EXPECT_EQ(line.text, "first");
	ASSERT_TRUE(asked.last(line));
	EXPECT_EQ(line.text, "sec");
	EXPECT_FALSE(asked.last(line));
	append("ond\n");
	EXPECT_THAT(readAll(reader), ElementsAre("A:1 first", "A:2 second"));
}

TEST_F(Log, BetweenTheTwoStepsOfARotationItWaits)
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

TEST_F(Log, SeveralRotationsAtATimeAreReadInOrder)
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

TEST_F(Log, AnArchivePackedWhileFollowingIsNotReadAgain)
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

TEST_F(Log, AFileThatWasPurgedAfterItsRotationIsReadToItsEnd)
{
	append(logLine("08:00:00.0", "A:1", "first"));
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), ElementsAre("A:1 first"));
	append(logLine("08:00:01.0", "A:2", "second"));
	fs::remove(rotate("20261121090000100"));
	append(logLine("08:00:02.0", "A:3", "third"));
	EXPECT_THAT(readAll(reader), ElementsAre("A:2 second", "A:3 third"));
}

TEST_F(Log, AFileThatWasCutDownIsReadFromItsBeginning)
{
	append(logLine("08:00:00.0", "A:1", "first") + logLine("08:00:01.0", "A:2", "second"));
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), ElementsAre("A:1 first", "A:2 second"));
	fs::resize_file(log, 0);
	EXPECT_THAT(readAll(reader), IsEmpty());
	append(logLine("08:00:02.0", "A:3", "third"));
	EXPECT_THAT(readAll(reader), ElementsAre("A:3 third"));
}

TEST_F(Log, AMissingFileIsReportedOnceAndReadWhenItAppears)
{
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), IsEmpty());
	EXPECT_THAT(readAll(reader), IsEmpty());
	ASSERT_EQ(reader.trouble().size(), 1U);
	EXPECT_EQ(reader.trouble().front().path, log);
	EXPECT_EQ(reader.trouble().front().error, ENOENT);
	append(logLine("08:00:00.0", "A:1", "first"));
	EXPECT_THAT(readAll(reader), ElementsAre("A:1 first"));
	LogReader nowhere(below("/nowhere/v.log"));
	EXPECT_THAT(readAll(nowhere), IsEmpty());
	const auto path = [](const fs::path& one) { return testing::Field(&LogTrouble::path, one); };
	EXPECT_THAT(nowhere.trouble(), ElementsAre(path(below("/nowhere")), path(below("/nowhere/v.log"))));
}

TEST_F(Log, ADirectoryOrAPipeInItsPlaceIsReportedAndNotWaitedFor)
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

TEST_F(Log, AHugeMessageIsCutAndSaysByHowMuch)
{
	std::string many;
	for (int count = 0; count < 20000; ++count)
	{
		many += "\nfurther line";
	}
	const std::size_t head = logLine("08:00:00.0", "A:1", "").size() - 1;
	for (const auto& [text, kept] :
	     {std::pair(std::string(3 * kLongestText + 5, 'x'), kLongestText - head), {many, kLongestText}})
	{
		write("/log/v.log", logLine("08:00:00.0", "A:1", text) + logLine("08:00:01.0", "A:2", "second"));
		LogReader reader(log);
		LogLine line;
		ASSERT_TRUE(reader.next(line));
		EXPECT_EQ(line.place(), "A:1");
		EXPECT_EQ(line.text.size() + line.cut, text.size());
		EXPECT_EQ(line.text.size(), kept);
		EXPECT_THAT(readAll(reader), ElementsAre("A:2 second"));
	}
}

TEST_F(Log, FilesThatMayNotBeReadAreReportedAndReadOnceTheyMayBe)
{
	const PlainUser user;
	append(logLine("08:00:00.0", "A:1", "first"));
	fs::permissions(rotate("20261121090000100"), fs::perms::none);
	append(logLine("08:00:01.0", "A:2", "second"));
	fs::permissions(log, fs::perms::none);
	LogReader reader(log);
	EXPECT_THAT(readAll(reader), IsEmpty());
	ASSERT_EQ(reader.trouble().size(), 2U);
	EXPECT_EQ(reader.trouble().at(0).error, EACCES);
	EXPECT_EQ(reader.trouble().at(0).path.filename(), "v.log.20261121090000100");
	EXPECT_EQ(reader.trouble().at(1).path, log);
	fs::permissions(log, fs::perms::owner_read);
	EXPECT_THAT(readAll(reader), ElementsAre("A:2 second"));
}

// ---- from its end

TEST_F(Log, TheLastMessagesComeInTheirOrder)
{
	write("/log/v.log", "");
	EXPECT_THAT(last(9), IsEmpty());
	write("/log/v.log", "# remark\n" + logLine("08:00:00.0", "A:1", "first") +
	                        logLine("08:00:01.0", "A:2", "second\nfurther\n\nlines") +
	                        logLine("08:00:02.0", "A:3", "third"));
	EXPECT_THAT(last(1), ElementsAre("A:3 third"));
	EXPECT_THAT(last(2), ElementsAre("A:2 second\nfurther\n\nlines", "A:3 third"));
	EXPECT_THAT(last(99), ElementsAre("# remark", "A:1 first", "A:2 second\nfurther\n\nlines", "A:3 third"));
	EXPECT_THAT(trouble, IsEmpty());
}

TEST_F(Log, EveryMessageOfALongLogComesOnce)
{
	std::string text;
	for (int number = 1; number <= 20000; ++number)
	{
		text += logLine("08:00:00.0", "A:" + std::to_string(number),
		                std::string(static_cast<std::size_t>(number % 97), 'x'));
	}
	write("/log/v.log", text);
	int expected = 20000;
	readBackwards(
	    log, now,
	    [&](const LogLine& line)
	    {
		    EXPECT_EQ(line.number, expected);
		    EXPECT_EQ(line.text.size(), static_cast<std::size_t>(expected % 97));
		    --expected;
		    return true;
	    },
	    trouble);
	EXPECT_EQ(expected, 0);
}

TEST_F(Log, ArchivesFollowNewestFirst)
{
	pack(write("/log/v.log.20261121070000100",
	           logLine("06:00:00.0", "A:0", "earlier") + logLine("06:00:00.0", "A:1", "first")));
	write("/log/v.log.20261121080000100", logLine("07:00:00.0", "A:2", "second"));
	write("/log/v.log", "# remark\n" + logLine("08:00:02.0", "A:3", "third"));
	EXPECT_THAT(last(9), ElementsAre("A:0 earlier", "A:1 first", "A:2 second", "# remark", "A:3 third"));
	EXPECT_THAT(last(4), ElementsAre("A:1 first", "A:2 second", "# remark", "A:3 third"));
	EXPECT_THAT(trouble, IsEmpty());
}

TEST_F(Log, ALineThatIsStillBeingWrittenIsLeftOut)
{
	write("/log/v.log.20261121080000100", logLine("07:00:00.0", "A:1", "first") + "cut off");
	write("/log/v.log", logLine("08:00:02.0", "A:2", "second") + "2026-11-21 08:00:03.0 [4711:3][A:3] <D> thi");
	EXPECT_THAT(last(9), ElementsAre("A:1 first\ncut off", "A:2 second"));
}

TEST_F(Log, TheMessageBehindAnUnfinishedOneIsFound)
{
	write("/log/v.log", logLine("08:00:00.0", "A:1", "first") + "2026-11-21 08:00:01.0 [47" +
	                        logLine("08:00:09.0", "CAgent:25", "stop", "4712:0"));
	EXPECT_THAT(last(9), ElementsAre("A:1 first\n2026-11-21 08:00:01.0 [47", "CAgent:25 stop"));
}

// Most of the file is a hole: nothing that is behind kLongestLine bytes is read.
TEST_F(Log, ALineWithoutABeginningEndsTheReading)
{
	write("/log/v.log", logLine("08:00:00.0", "A:1", "first"));
	fs::resize_file(log, 3UL * 1024 * 1024 * 1024);
	std::ofstream(log, std::ios::app) << "\n" << logLine("08:00:02.0", "A:3", "third");
	const std::vector<LogLine> lines = lastLines(9, now);
	ASSERT_GE(lines.size(), 1U);
	EXPECT_EQ(lines.back().place(), "A:3");
	EXPECT_THAT(lines, Not(Contains(testing::Property(&LogLine::place, "A:1"))));
	EXPECT_THAT(trouble, ElementsAre(testing::Field(&LogTrouble::error, EFBIG)));
}

TEST_F(Log, ALinkIsNoArchive)
{
	write("/log/v.log", logLine("08:00:02.0", "A:2", "written"));
	write("/elsewhere", logLine("08:00:01.0", "A:1", "secret"));
	fs::create_symlink("../elsewhere", below("/log/v.log.20261121080001500"));
	EXPECT_THAT(last(9), ElementsAre("A:2 written"));
}

TEST_F(Log, ALongLineIsCutWhereTheForwardReaderCutsIt)
{
	for (const std::size_t size : {kLongestText - 100, kLongestText, kLongestText + 1, 2 * kLongestText + 7})
	{
		write("/log/v.log", logLine("08:00:00.0", "A:1", std::string(size, 'x')) + logLine("08:00:02.0", "A:3", "y"));
		LogReader reader(log);
		LogLine forward;
		ASSERT_TRUE(reader.next(forward));
		const LogLine backward = lastLines(2, now).at(0);
		EXPECT_EQ(backward.text.size(), forward.text.size()) << size;
		EXPECT_EQ(backward.cut, forward.cut) << size;
		EXPECT_LE(backward.text.size(), kLongestText);
	}
}

TEST_F(Log, TheSecondOfTwoHoursIsTakenWhenItIsNearer)
{
	const LocalZone other(kCentralEurope);
	write("/log/v.log", "2026-10-25 02:59:59.0 [1:3][A:1] <D> summer\n"
	                    "2026-10-25 02:00:01.0 [1:3][A:2] <D> winter\n");
	const Instant midnight = std::chrono::sys_days(std::chrono::year(2026) / 10 / 25);
	const std::vector<LogLine> lines = lastLines(9, midnight + 1h + 5s);
	ASSERT_EQ(lines.size(), 2U);
	EXPECT_EQ(lines.at(0).time, midnight + 59min + 59s);
	EXPECT_EQ(lines.at(1).time, midnight + 1h + 1s);
}

TEST_F(Log, AMissingFileIsReportedAndItsArchivesAreRead)
{
	write("/log/v.log.20261121080000100", logLine("07:00:00.0", "A:1", "first"));
	EXPECT_THAT(last(9), ElementsAre("A:1 first"));
	EXPECT_THAT(trouble, ElementsAre(testing::Field(&LogTrouble::error, ENOENT)));
}

} // namespace
