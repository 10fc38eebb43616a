// The command line as a whole.

#include "CtlTest.h"

using testing::HasSubstr;
using testing::StartsWith;

class Program : public CtlTest
{
};

TEST_F(Program, ToldNothingIsAUsageError)
{
	const Outcome outcome = run({});
	EXPECT_EQ(outcome.code, 2);
	EXPECT_EQ(outcome.out, "");
	EXPECT_THAT(outcome.err, HasSubstr("--help"));
}

TEST_F(Program, AnUnknownVerbIsAUsageError)
{
	const Outcome outcome = run({"frobnicate"});
	EXPECT_EQ(outcome.code, 2);
	EXPECT_THAT(outcome.err, HasSubstr("frobnicate"));
}

TEST_F(Program, ARootThatIsNoDirectoryIsAUsageError)
{
	const Outcome outcome = run({"--root", (root() / "nowhere").string()});
	EXPECT_EQ(outcome.code, 2);
	EXPECT_THAT(outcome.err, HasSubstr("--root"));
}

TEST_F(Program, HelpAndVersionGoToStandardOutput)
{
	EXPECT_EQ(run({"--help"}).code, 0);
	EXPECT_THAT(run({"--help"}).out, HasSubstr("--root"));
	EXPECT_EQ(run({"--version"}).code, 0);
	EXPECT_THAT(run({"--version"}).out, StartsWith("velarixctl "));
}
