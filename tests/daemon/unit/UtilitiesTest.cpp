// Small operations, and the wait for a database whose check fails.

#include <limits>

#include "Daemon.h"
#include "Database.h"
#include "Utilities.h"

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

using CurrentTime = DaemonTest;

TEST(Utilities, ATextIsFoundAnywhereAndTheEmptyOneAlways)
{
	for (const char* pattern : {"my", "sql", "d", "mysqld", ""})
	{
		EXPECT_TRUE(finds("mysqld", pattern)) << pattern;
	}
	EXPECT_TRUE(finds("", ""));
}

TEST(Utilities, ATextIsReadAsItsLeadingNumber)
{
	const std::map<std::string, double> numbers{{"42", 42.0},
	                                            {"-1.5", -1.5},
	                                            {"  7 apples", 7.0},
	                                            {"12.25abc", 12.25},
	                                            {"abc", 0.0},
	                                            {"x12", 0.0},
	                                            {"", 0.0},
	                                            {"1e999", std::numeric_limits<double>::max()},
	                                            {"-1e999", std::numeric_limits<double>::lowest()}};
	for (const auto& [text, value] : numbers)
	{
		EXPECT_EQ(number(text), value) << text;
	}
}

TEST_F(CurrentTime, FiveSecondsPastSevenPastNineOnTheThirdOfJanuary2026)
{
	events::stopClock(1767431225);
	EXPECT_EQ(getCurrentTime(), "20260103090705");
}

TEST(Utilities, TheDifferenceOfTwoTimesIsThatOfTheNumbersAndNotOfTheSeconds)
{
	EXPECT_EQ(difference("3", "10"), 7.0);
	EXPECT_EQ(difference("10", "3"), -7.0);
	EXPECT_EQ(difference("20251231235959", "20260101000000"), 8869764041.0);
}

TEST(Utilities, ValuesAreWrittenInDecimal)
{
	EXPECT_EQ(boolToString(true), "1");
	EXPECT_EQ(boolToString(false), "0");
	EXPECT_EQ(Utill::intToString(-12), "-12");
	EXPECT_EQ(Utill::intToString(0), "0");
	EXPECT_EQ(Utill::intToString(std::numeric_limits<int>::min()), "-2147483648");
	EXPECT_EQ(Utill::intToString(std::numeric_limits<int>::max()), "2147483647");
}

} // namespace

namespace
{

int g_failures = 0; ///< of the next checks
MODE* g_pLastMode = nullptr;

} // namespace

// In place of src/net/DatabaseCheck.cpp.
bool DBFileCheck(MODE* pMode)
{
	events::add("database check");
	g_pLastMode = pMode;
	return g_failures-- <= 0;
}

namespace
{

using DatabaseWait = DaemonTest;

TEST_F(DatabaseWait, ADatabaseThatComesUpAfterTwoChecksIsWorking)
{
	g_failures = 2;
	MODE mode = MODE_MASTER;
	testing::internal::CaptureStdout();
	events::at("sleep 1000", [] { std::cout << "(a second) "; });
	EXPECT_TRUE(isDBOn(&mode));
	EXPECT_EQ(g_pLastMode, &mode);
	EXPECT_EQ(testing::internal::GetCapturedStdout(), "(a second) waiting database...: 1\n"
	                                                  "(a second) waiting database...: 2\n"
	                                                  "**DEBUG**(Utill:728)DB is working\n");
	EXPECT_THAT(events::all(), ElementsAre("database check", "sleep 1000", "database check", "sleep 1000",
	                                       "database check", "log D Utill:728 DB is working"));
}

TEST_F(DatabaseWait, AHundredFailedChecksEndTheWait)
{
	g_failures = 100;
	std::string console;
	for (int i = 1; i <= 100; ++i)
	{
		console += "waiting database...: " + std::to_string(i) + "\n";
	}
	testing::internal::CaptureStdout();
	EXPECT_FALSE(isDBOn(nullptr));
	EXPECT_EQ(testing::internal::GetCapturedStdout(), console + "**DEBUG**(Utill:739)DB is not working\n");
	EXPECT_EQ(events::all().size(), 201U);
}

} // namespace
