// What a message means, found by its place, by a pasted line in any of its forms,
// and by its text; the verb around it.

#include <iostream>

#include <nlohmann/json.hpp>

#include "CtlTest.h"
#include "StoryBook.h"
#include "ctl/history/Explain.h"

using namespace velarix::ctl;
using namespace velarix::inspect;

namespace
{

TEST(Catalogue, HasEveryRowOfThePage)
{
	const std::string page = readFile(VELARIX_CTL_PAGE);
	std::size_t rows = 0;
	std::istringstream lines(page);
	for (std::string line; std::getline(lines, line);)
	{
		const bool numbered = line.starts_with("| ") && line.size() > 2 && (std::isdigit(line[2]) != 0);
		rows += numbered || line.starts_with("| - |") ? 1 : 0;
	}
	EXPECT_GT(rows, 150U);
	EXPECT_EQ(catalogue().size(), rows);
}

TEST(Catalogue, AnErrorKnowsTheFatalConditionBehindIt)
{
	EXPECT_EQ(findMessage("CHeartReciver", 137)->fatal, 138);
	EXPECT_EQ(findMessage("CAgent", 84)->fatal, 100);
	EXPECT_EQ(findMessage("CAgent", 96)->fatal, 100);
	EXPECT_EQ(findMessage("CAgent", 127)->fatal, 131);
	EXPECT_EQ(findMessage("Configuraion", 82)->fatal, 83);
	EXPECT_EQ(findMessage("CHeartReciver", 79)->fatal, 0);
}

TEST(Catalogue, ReferencesToOtherLinesAreFilledIn)
{
	for (const CatalogueRow& row : catalogue())
	{
		for (const std::string_view text : {row.when, row.action})
		{
			if (text.starts_with("as line ") || text.starts_with("after line "))
			{
				EXPECT_THAT(std::string(text), HasSubstr(" (")) << row.place();
			}
		}
	}
}

/// The rows of explain.txt.
TEST(ExplainMessage, IsFoundInEachOfItsForms)
{
	const StoryBook book(VELARIX_CTL_TABLES "/explain.txt");
	const std::vector<std::string>& rows = book.stories().front().lines;
	for (const std::string& line : rows)
	{
		const std::size_t mark = line.rfind(" => ");
		const std::string message = line.substr(0, mark);
		std::string found;
		for (const Explanation& explanation : explain(message))
		{
			found +=
			    (found.empty() ? "" : ", ") + explanation.row->place() + (explanation.otherText ? " (other text)" : "");
		}
		EXPECT_EQ(found.empty() ? whyUnknown(message) : found, line.substr(mark + 4)) << message;
	}
	EXPECT_GT(rows.size(), 40U);
	ASSERT_EQ(explain("**WARNING**something").size(), 1U);
	EXPECT_EQ(explain("**WARNING**something").front().row->text, "**WARNING**<text>");
	EXPECT_EQ(explain("**CRITICAL**something").front().row->text, "**CRITICAL**<text>");
}

TEST(ExplainMessage, WhatIsNotKnownIsNothing)
{
	for (const char* message : {"", "x", " is ", "CHeartReciver", "CHeartReciver:", "CHeartReciver:0",
	                            "CHeartReciver:550", "CHeartReciver:-549", "NoLabel:12", "hello world", "[1:2]",
	                            ":::::", "549", "CHeartRec:549", "CHeartReciver:99999999999999999999"})
	{
		EXPECT_THAT(explain(message), IsEmpty()) << message;
	}
}

/// The verb, with its standard input.
class ExplainVerb : public CtlTest
{
protected:
	Outcome runWith(const std::string& input, const std::vector<std::string>& arguments) const
	{
		std::istringstream stream(input);
		std::streambuf* const before = std::cin.rdbuf(stream.rdbuf());
		std::cin.clear();
		const Outcome outcome = run(arguments);
		std::cin.rdbuf(before);
		std::cin.clear();
		return outcome;
	}
};

// The pages' tables are held against the code by the tests of events, status and check.
TEST_F(ExplainVerb, KnowsEveryWordThatThePagesList)
{
	const std::set<std::string> headings{"| event |",   "| cause |", "| fault |",   "| id |",
	                                     "| finding |", "| agent |", "| address |", "| service |"};
	std::size_t known = 0;
	for (const char* page : {"events.md", "monitoring.md", "check.md", "keeper.md"})
	{
		std::istringstream lines(readFile(std::filesystem::path(VELARIX_CTL_EVENTS).parent_path() / page));
		bool inTable = false;
		for (std::string line; std::getline(lines, line);)
		{
			inTable = line.starts_with("|") && (inTable || headings.contains(line.substr(0, line.find('|', 1) + 1)));
			if (inTable && line.starts_with("| `"))
			{
				const std::string word = line.substr(3, line.find('`', 3) - 3);
				EXPECT_EQ(run({"explain", word}).code, 0) << word;
				++known;
			}
		}
	}
	EXPECT_GT(known, 250U);
}

TEST_F(ExplainVerb, ReadsStandardInputAndTellsEachPlaceOnce)
{
	const std::string beat = "2026-11-21 09:07:05.3 [1:2][CHeartSender:124] <D> beat sent[noName]:/process/1/1/x/0/\n";
	const Outcome outcome = runWith("# Log file created/rotated Saturday, 21 Nov 26 07:59:15 GMT\n" + beat + beat +
	                                    "2026-11-21 09:07:05.3 [1:3][Utill:573] <I> command(x) : a\n\nb\n\n" + beat,
	                                {"explain", "-"});
	EXPECT_EQ(outcome.code, 0);
	EXPECT_EQ(outcome.err, "");
	expectGolden("explain-input.txt", outcome.out);
}

TEST_F(ExplainVerb, OneUnknownLineOfManyEndsWithOneAndNoLineWithZero)
{
	const Outcome outcome = runWith("CAgent:25\nhello\nCAgent:38\n", {"explain", "-"});
	EXPECT_EQ(outcome.code, 1);
	EXPECT_EQ(outcome.err, "velarixctl: neither a message of the daemon nor a word of velarixctl: \"hello\"\n");
	EXPECT_THAT(outcome.out, AllOf(HasSubstr("CAgent:25"), HasSubstr("CAgent:38")));
	const Outcome nothing = runWith("", {"explain", "-"});
	EXPECT_EQ(nothing.code, 0);
	EXPECT_EQ(nothing.out, "");
}

TEST_F(ExplainVerb, EveryLineOfARealLogIsKnown)
{
	for (const char* name : {"host-loss-b", "service-interface-a", "both-masters-a", "printing-start-command-a"})
	{
		const Outcome outcome =
		    runWith(readFile(std::string(VELARIX_CTL_LOGS) + "/" + name + ".log"), {"explain", "--json", "-"});
		EXPECT_EQ(outcome.code, 0) << name;
		EXPECT_EQ(outcome.err, "") << name;
		EXPECT_THAT(outcome.out, testing::Not(HasSubstr("\"text_agrees\":false"))) << name;
	}
}

} // namespace
