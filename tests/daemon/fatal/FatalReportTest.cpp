#include <csignal>

#include <gtest/gtest.h>

#include "velarix/fatal.h"

namespace
{

TEST(FatalReport, HasTheFormOfAFailedAssertionInEveryBuild)
{
	EXPECT_EXIT(velarix::fatal("a != b", "Label", 12, "int Class::operation(const std::string&)"),
	            testing::KilledBySignal(SIGABRT),
	            "^fatal_test: Label:12: int Class::operation\\(const std::string&\\): Assertion `a != b' "
	            "failed\\.\n$");
}

TEST(FatalReport, PrintsTheExpressionAsItIsGiven)
{
	EXPECT_EXIT(velarix::fatal("(1 == 0) && \"ini File fopen fail.\"", "Label", 30, "void f()"),
	            testing::KilledBySignal(SIGABRT),
	            "^fatal_test: Label:30: void f\\(\\): Assertion "
	            "`\\(1 == 0\\) && \"ini File fopen fail\\.\"' failed\\.\n$");
}

} // namespace
