// Messages that are too long to be kept whole, from a real file.

#include <filesystem>

#include "CtlTest.h"
#include "LogTestSupport.h"

using namespace velarix::inspect;
using testing::ElementsAre;

namespace
{

class LogCutTest : public CtlTest
{
protected:
	const LocalZone zone{"UTC0"};
	const std::filesystem::path log = below("/log/v.log");
};

TEST_F(LogCutTest, AHugeLineIsCutAndSaysByHowMuch)
{
	const std::string huge(3 * kLongestText + 5, 'x');
	write("/log/v.log", logLine("08:00:00.0", "A:1", huge) + logLine("08:00:01.0", "A:2", "second"));
	LogReader reader(log);
	LogLine line;
	ASSERT_TRUE(reader.next(line));
	const std::size_t head = logLine("08:00:00.0", "A:1", "").size() - 1;
	EXPECT_EQ(line.place(), "A:1");
	EXPECT_EQ(line.text.size() + line.cut, huge.size());
	EXPECT_EQ(line.text.size(), kLongestText - head);
	EXPECT_THAT(readAll(reader), ElementsAre("A:2 second"));
}

TEST_F(LogCutTest, AMessageOfManyLinesIsCutAndSaysByHowMuch)
{
	std::string many;
	for (int count = 0; count < 20000; ++count)
	{
		many += "further line\n";
	}
	write("/log/v.log", logLine("08:00:00.0", "A:1", "") + many + logLine("08:00:01.0", "A:2", "second"));
	LogReader reader(log);
	LogLine line;
	ASSERT_TRUE(reader.next(line));
	EXPECT_EQ(line.text.size(), kLongestText);
	EXPECT_EQ(line.text.size() + line.cut, many.size());
	EXPECT_THAT(readAll(reader), ElementsAre("A:2 second"));
}

} // namespace
