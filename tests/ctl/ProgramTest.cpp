// The command line as a whole.

#include <new>

#include "CtlTest.h"
#include "PlainUser.h"
#include "ctl/Program.h"
#include "inspect/LogLine.h"

class Program : public CtlTest
{
};

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

TEST_F(Program, AnErrorThatNobodyForesawEndsItWithALine)
{
	for (const char* verb : {"status", "nagios", "metrics"})
	{
		std::ostringstream out;
		std::ostringstream err;
		velarix::ctl::Context context{.out = out,
		                              .err = err,
		                              .now = []() -> velarix::inspect::Instant { throw std::bad_alloc(); },
		                              .paths = velarix::inspect::Paths(root()),
		                              .action = {}};
		const bool plugin = std::string(verb) == "nagios";
		EXPECT_EQ(velarix::ctl::run({verb}, context), plugin ? 3 : 70) << verb;
		EXPECT_THAT(plugin ? out.str() : err.str(), HasSubstr("internal error: std::bad_alloc\n")) << verb;
	}
}

TEST_F(Program, HelpAndVersionAreVerbsToo)
{
	EXPECT_EQ(run({"help"}).out, run({"--help"}).out);
	EXPECT_EQ(run({"help", "status"}).out, run({"status", "--help"}).out);
	EXPECT_EQ(run({"--root", root().string(), "help", "status"}).out, run({"status", "--help"}).out);
	EXPECT_EQ(run({"version"}).out, run({"--version"}).out);
	EXPECT_EQ(run({"help"}).code, 0);
	EXPECT_EQ(run({"version"}).code, 0);
	EXPECT_EQ(run({"help", "statsu"}).code, 2);
}

TEST_F(Program, OfAVerbThatIsNearlyOneSuggestsIt)
{
	EXPECT_EQ(run({"stauts"}).err, "velarixctl: there is no verb \"stauts\"; did you mean status?\n");
	EXPECT_EQ(run({"event"}).err, "velarixctl: there is no verb \"event\"; did you mean events?\n");
	EXPECT_EQ(run({"frobnicate"}).err, "velarixctl: there is no verb \"frobnicate\"; see velarixctl --help\n");
}

TEST_F(Program, BeginsEachErrorWithItsName)
{
	for (const std::vector<std::string>& words : {std::vector<std::string>{},
	                                              {"status", "--bogus"},
	                                              {"watch", "--interval", "soon"},
	                                              {"--bogus"},
	                                              {"--root", (root() / "nowhere").string(), "status"}})
	{
		const Outcome outcome = run(words);
		EXPECT_THAT(outcome.err, StartsWith("velarixctl: "));
		EXPECT_THAT(outcome.err, testing::EndsWith("--help\n"));
		EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 1) << outcome.err;
		EXPECT_EQ(outcome.out, "");
		EXPECT_EQ(outcome.code, 2);
	}
}

TEST_F(Program, SaysWhoMayDoWhatAPlainUserMayNot)
{
	const std::filesystem::path file = write("/usr/velarix/log/velarix.log", "x\n");
	std::filesystem::permissions(file, std::filesystem::perms::none);
	fakeHost().user = 1000;
	const PlainUser plain;
	const Outcome outcome = run({"events", "--log", file.string()});
	EXPECT_THAT(outcome.err, testing::EndsWith("Permission denied\nvelarixctl: run it as root\n"));
	EXPECT_EQ(outcome.code, 77);
}

TEST_F(Program, ObeysNoTerminalCommandsInItsArguments)
{
	const std::string bell = "\033]0;x\007";
	for (const std::vector<std::string>& words : {std::vector<std::string>{bell},
	                                              {"status", bell},
	                                              {"status", "--" + bell},
	                                              {"watch", "--interval", bell},
	                                              {"explain", bell},
	                                              {"events", "--since", bell},
	                                              {"events", "--log", "/" + bell},
	                                              {"nagios", "--warning", bell},
	                                              {"nagios", "--" + bell},
	                                              {"--root", bell, "status"},
	                                              {"check", "/" + bell},
	                                              {"metrics", "--textfile", "/" + bell + "/x"}})
	{
		const Outcome outcome = run(words);
		EXPECT_THAT(outcome.out + outcome.err, testing::Not(HasSubstr("\033"))) << words.front();
		EXPECT_THAT(outcome.out + outcome.err, testing::Not(HasSubstr("\007"))) << words.front();
	}
}

TEST_F(Program, TakesNoDecimalComma)
{
	for (const std::vector<std::string>& words : {std::vector<std::string>{"watch", "--interval", "3,5"},
	                                              {"watch", "--count", "3,5"},
	                                              {"switchover", "--timeout", "3,5"},
	                                              {"init", "--port", "7,000"},
	                                              {"init", "--interval", "1,5"}})
	{
		EXPECT_EQ(run(words).code, 2) << words.front();
	}
	EXPECT_EQ(run({"nagios", "--warning", "3,5"}).code, 3);
}
