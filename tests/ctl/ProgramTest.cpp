// The command line as a whole.

#include <fstream>
#include <sstream>

#include "CtlTest.h"
#include "ctl/Program.h"

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

// What the monitoring plug-in says on standard output is for the plug-in alone.
TEST_F(Program, TheWordNagiosElsewhereMakesNoPlugin)
{
	const Outcome wrong = run({"metrics", "--textfile", "nagios", "--bogus"});
	EXPECT_EQ(wrong.code, 2);
	EXPECT_EQ(wrong.out, "");
	const Outcome missing = run({"init", "--output", "nagios"});
	EXPECT_EQ(missing.code, 2);
	EXPECT_EQ(missing.out, "");
}

TEST_F(Program, APluginIsOneWithARootBeforeItToo)
{
	const Outcome outcome = run({"--root", root().string(), "nagios", "--bogus"});
	EXPECT_EQ(outcome.code, 3);
	EXPECT_THAT(outcome.out, StartsWith("VELARIX UNKNOWN - "));
	EXPECT_EQ(run({"--root=" + root().string(), "nagios", "--bogus"}).code, 3);
}

TEST_F(Program, ExplainNothingIsAUsageError)
{
	EXPECT_EQ(run({"explain", ""}).code, 2);
}

TEST_F(Program, AnOutputThatCannotBeWrittenIsNoSuccess)
{
	std::ofstream full("/dev/full");
	std::ostringstream errors;
	for (const std::vector<std::string>& words :
	     {std::vector<std::string>{"explain", "CHeartReciver:146"}, {"watch", "--json"}, {"check", "--json"}})
	{
		full.clear();
		velarix::ctl::Context context{.out = full,
		                              .err = errors,
		                              .now = std::chrono::system_clock::now,
		                              .paths = velarix::inspect::Paths(root()),
		                              .action = {}};
		EXPECT_EQ(velarix::ctl::run(words, context), 73) << words.front();
	}
	EXPECT_THAT(errors.str(), StartsWith("velarixctl: cannot write standard output\n"));
}
