#include "Utilities.h"

#include <array>
#include <limits>
#include <thread>
#include <type_traits>
#include <vector>

#include "Daemon.h"
#include "FixedClock.h"
#include "Utill.h"

namespace
{

bool finds(std::string text, std::string pattern)
{
	return stringFinder(text, pattern);
}

double number(std::string text)
{
	return string2double(text);
}

double difference(std::string first, std::string second)
{
	return calculateDefferentTime(first, second);
}

class CurrentTime : public DaemonTest
{
};

TEST(StringFinder, FindsAPatternAtTheBeginningInTheMiddleAndAtTheEnd)
{
	EXPECT_TRUE(finds("mysqld", "my"));
	EXPECT_TRUE(finds("mysqld", "sql"));
	EXPECT_TRUE(finds("mysqld", "d"));
	EXPECT_TRUE(finds("mysqld", "mysqld"));
}

TEST(StringFinder, IsTrueForAnEmptyPattern)
{
	EXPECT_TRUE(finds("mysqld", ""));
	EXPECT_TRUE(finds("", ""));
}

TEST(StringToDouble, ReadsTheLeadingNumber)
{
	EXPECT_EQ(number("42"), 42.0);
	EXPECT_EQ(number("-1.5"), -1.5);
	EXPECT_EQ(number("  7 apples"), 7.0);
	EXPECT_EQ(number("12.25abc"), 12.25);
}

TEST(StringToDouble, IsZeroForATextThatBeginsWithNoNumber)
{
	EXPECT_EQ(number("abc"), 0.0);
	EXPECT_EQ(number("x12"), 0.0);
	EXPECT_EQ(number(""), 0.0);
}

TEST(StringToDouble, IsTheEndOfTheRangeForANumberBeyondIt)
{
	EXPECT_EQ(number("1e999"), std::numeric_limits<double>::max());
	EXPECT_EQ(number("-1e999"), std::numeric_limits<double>::lowest());
}

TEST_F(CurrentTime, FiveSecondsPastSevenPastNineOnTheThirdOfJanuary2026)
{
	fixedclock::stopAt(1767431225, "UTC0");
	EXPECT_EQ(getCurrentTime(), "20260103090705");
}

TEST_F(CurrentTime, CountsTwentyFourHours)
{
	fixedclock::stopAt(1767225599, "UTC0");
	EXPECT_EQ(getCurrentTime(), "20251231235959");
	fixedclock::stopAt(1767225600, "UTC0");
	EXPECT_EQ(getCurrentTime(), "20260101000000");
}

TEST_F(CurrentTime, SeveralThreadsAskAtOnce)
{
	fixedclock::stopAt(1767431225, "UTC0");
	std::array<bool, 4> right{};
	std::vector<std::thread> threads;
	for (bool& result : right)
	{
		threads.emplace_back(
		    [&result]
		    {
			    result = true;
			    for (int i = 0; i < 1000; ++i)
			    {
				    result = result && getCurrentTime() == "20260103090705";
			    }
		    });
	}
	for (std::thread& thread : threads)
	{
		thread.join();
	}
	EXPECT_THAT(right, testing::Each(true));
}

TEST(DifferentTime, SubtractsTheFirstFromTheSecond)
{
	EXPECT_EQ(difference("3", "10"), 7.0);
	EXPECT_EQ(difference("10", "3"), -7.0);
}

TEST(DifferentTime, OfTwoStampsIsTheDifferenceOfTheNumbersAndNotOfTheSeconds)
{
	EXPECT_EQ(difference("20260103090759", "20260103090800"), 41.0);
	EXPECT_EQ(difference("20251231235959", "20260101000000"), 8869764041.0);
}

TEST(BoolToString, IsADigit)
{
	EXPECT_EQ(boolToString(true), "1");
	EXPECT_EQ(boolToString(false), "0");
}

TEST(IntToString, IsTheDecimalText)
{
	EXPECT_EQ(Utill::intToString(-12), "-12");
	EXPECT_EQ(Utill::intToString(0), "0");
	EXPECT_EQ(Utill::intToString(1234567), "1234567");
	EXPECT_EQ(Utill::intToString(std::numeric_limits<int>::min()), "-2147483648");
	EXPECT_EQ(Utill::intToString(std::numeric_limits<int>::max()), "2147483647");
}

TEST(UtillClass, HasAVirtualDestructorAndNoData)
{
	struct Pointer
	{
		virtual ~Pointer() = default;
	};
	EXPECT_TRUE(std::has_virtual_destructor_v<Utill>);
	EXPECT_TRUE(std::is_default_constructible_v<Utill>);
	EXPECT_EQ(sizeof(Utill), sizeof(Pointer));
}

} // namespace
