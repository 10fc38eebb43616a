// The log from its end: only as much as is asked for, the archives behind.

#include <cerrno>

#include <Poco/DeflatingStream.h>

#include "CtlTest.h"

using namespace velarix::inspect;
using namespace std::chrono_literals;
namespace fs = std::filesystem;
using testing::Property;

namespace
{

class LogBackwards : public CtlTest
{
protected:
	const LocalZone zone{"UTC0"};
	const fs::path log = below("/log/v.log");
	std::vector<LogTrouble> trouble;

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
			texts.push_back(line.hasHead() ? line.place() + " " + line.text : line.text);
		}
		return texts;
	}
};

TEST_F(LogBackwards, TheLastMessagesComeInTheirOrder)
{
	write("/log/v.log", "# remark\n" + logLine("08:00:00.0", "A:1", "first") +
	                        logLine("08:00:01.0", "A:2", "second\nfurther\n\nlines") +
	                        logLine("08:00:02.0", "A:3", "third"));
	EXPECT_THAT(last(1), ElementsAre("A:3 third"));
	EXPECT_THAT(last(2), ElementsAre("A:2 second\nfurther\n\nlines", "A:3 third"));
	EXPECT_THAT(last(99), ElementsAre("# remark", "A:1 first", "A:2 second\nfurther\n\nlines", "A:3 third"));
	EXPECT_THAT(trouble, IsEmpty());
}

TEST_F(LogBackwards, EveryMessageOfALongLogComesOnce)
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

TEST_F(LogBackwards, ArchivesFollowNewestFirst)
{
	write("/log/v.log.20261121070000100", logLine("06:00:00.0", "A:1", "first"));
	write("/log/v.log.20261121080000100", logLine("07:00:00.0", "A:2", "second"));
	write("/log/v.log", "# remark\n" + logLine("08:00:02.0", "A:3", "third"));
	EXPECT_THAT(last(9), ElementsAre("A:1 first", "A:2 second", "# remark", "A:3 third"));
	EXPECT_THAT(last(3), ElementsAre("A:2 second", "# remark", "A:3 third"));
}

TEST_F(LogBackwards, APackedArchiveIsReadLikeAnother)
{
	{
		std::ofstream packed(write("/log/v.log.20261121080000100.gz", ""), std::ios::binary);
		Poco::DeflatingOutputStream stream(packed, Poco::DeflatingStreamBuf::STREAM_GZIP);
		stream << logLine("07:00:00.0", "A:1", "first") << logLine("07:00:00.0", "A:2", "second");
		stream.close();
	}
	write("/log/v.log", logLine("08:00:02.0", "A:3", "third"));
	EXPECT_THAT(last(2), ElementsAre("A:2 second", "A:3 third"));
	EXPECT_THAT(trouble, IsEmpty());
}

TEST_F(LogBackwards, ALineThatIsStillBeingWrittenIsLeftOut)
{
	write("/log/v.log.20261121080000100", logLine("07:00:00.0", "A:1", "first") + "cut off");
	write("/log/v.log", logLine("08:00:02.0", "A:2", "second") + "2026-11-21 08:00:03.0 [4711:3][A:3] <D> thi");
	EXPECT_THAT(last(9), ElementsAre("A:1 first\ncut off", "A:2 second"));
}

TEST_F(LogBackwards, TheMessageBehindAnUnfinishedOneIsFound)
{
	write("/log/v.log", logLine("08:00:00.0", "A:1", "first") + "2026-11-21 08:00:01.0 [47" +
	                        logLine("08:00:09.0", "CAgent:25", "stop", "4712:0"));
	EXPECT_THAT(last(9), ElementsAre("A:1 first\n2026-11-21 08:00:01.0 [47", "CAgent:25 stop"));
}

// Most of the file is a hole: nothing that is behind kLongestLine bytes is read.
TEST_F(LogBackwards, ALineWithoutABeginningEndsTheReading)
{
	write("/log/v.log", logLine("08:00:00.0", "A:1", "first"));
	fs::resize_file(log, 3UL * 1024 * 1024 * 1024);
	std::ofstream(log, std::ios::app) << "\n" << logLine("08:00:02.0", "A:3", "third");
	const std::vector<LogLine> lines = lastLines(9, now);
	ASSERT_GE(lines.size(), 1U);
	EXPECT_EQ(lines.back().place(), "A:3");
	EXPECT_THAT(lines, Not(Contains(Property(&LogLine::place, "A:1"))));
	ASSERT_EQ(trouble.size(), 1U);
	EXPECT_EQ(trouble.front().error, EFBIG);
}

TEST_F(LogBackwards, ALinkIsNoArchive)
{
	write("/log/v.log", logLine("08:00:02.0", "A:2", "written"));
	write("/elsewhere", logLine("08:00:01.0", "A:1", "secret"));
	fs::create_symlink("../elsewhere", below("/log/v.log.20261121080001500"));
	EXPECT_THAT(last(9), ElementsAre("A:2 written"));
}

TEST_F(LogBackwards, ALongLineIsCutWhereTheForwardReaderCutsIt)
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

TEST_F(LogBackwards, TheSecondOfTwoHoursIsTakenWhenItIsNearer)
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

TEST_F(LogBackwards, AMissingFileIsReportedAndItsArchivesAreRead)
{
	write("/log/v.log.20261121080000100", logLine("07:00:00.0", "A:1", "first"));
	EXPECT_THAT(last(9), ElementsAre("A:1 first"));
	ASSERT_EQ(trouble.size(), 1U);
	EXPECT_EQ(trouble.front().path, log);
	EXPECT_EQ(trouble.front().error, ENOENT);
}

TEST_F(LogBackwards, AnEmptyFileHasNoMessages)
{
	write("/log/v.log", "");
	EXPECT_THAT(last(9), IsEmpty());
	EXPECT_THAT(trouble, IsEmpty());
}

} // namespace
