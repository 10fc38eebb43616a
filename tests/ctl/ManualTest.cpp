// velarixctl(1) names what the program has, and nothing else.

#include <regex>
#include <sstream>

#include "CtlTest.h"
#include "ProgramHelp.h"

using testing::IsEmpty;
using testing::UnorderedElementsAreArray;

namespace
{

const std::string kGlobal = "GLOBAL OPTIONS";

/// A line of the page as it is read: without macro, quotation marks and escapes.
std::string plain(std::string line)
{
	static const std::regex macro("^\\.[A-Z]+ +");
	line = std::regex_replace(line, macro, "");
	line = std::regex_replace(line, std::regex("\\\\-"), "-");
	line = std::regex_replace(line, std::regex("\\\\\\(aq"), "'");
	line = std::regex_replace(line, std::regex("\\\\[|e]"), "");
	return std::regex_replace(line, std::regex("\""), "");
}

bool begins(const std::string& line, const std::string& text)
{
	return line.starts_with(text);
}

/// The page's lines by heading, whether of a section or of a part of one.
std::map<std::string, std::vector<std::string>> readPage()
{
	std::map<std::string, std::vector<std::string>> page;
	std::istringstream text(readFile(VELARIX_PACKAGING "/man/velarixctl.1.in"));
	std::string heading;
	for (std::string line; std::getline(text, line);)
	{
		if (begins(line, ".SH ") || begins(line, ".SS "))
		{
			heading = plain(line);
			page[heading];
		}
		else
		{
			page[heading].push_back(line);
		}
	}
	return page;
}

/// @return the terms that are explained below a heading
std::vector<std::string> terms(const std::vector<std::string>& lines)
{
	std::vector<std::string> all;
	for (std::size_t i = 1; i < lines.size(); ++i)
	{
		if (lines[i - 1] == ".TP")
		{
			all.push_back(plain(lines[i]));
		}
	}
	return all;
}

std::vector<std::string> optionsIn(const std::string& text)
{
	static const std::regex option("(^|[ (\\[])(--?[a-z][a-z-]*)");
	std::vector<std::string> all;
	for (std::sregex_iterator match(text.begin(), text.end(), option), end; match != end; ++match)
	{
		all.push_back((*match)[2]);
	}
	return all;
}

} // namespace

class Manual : public CtlTest
{
protected:
	ProgramHelp m_help =
	    readProgramHelp([this](const std::vector<std::string>& arguments) { return run(arguments).out; });
	std::map<std::string, std::vector<std::string>> m_page = readPage();

	/// @return the options of a verb that the page explains there
	std::set<std::string> reported(const std::string& verb)
	{
		std::set<std::string> all;
		for (const std::string& term : terms(m_page[verb.empty() ? kGlobal : verb]))
		{
			const std::vector<std::string> names = optionsIn(term);
			all.insert(names.begin(), names.end());
		}
		return all;
	}

	/// @return those of the program; each verb has the help besides its own
	std::set<std::string> had(const std::string& verb)
	{
		std::set<std::string> all = m_help[verb].names();
		verb.empty() ? 0U : all.erase("--help") + all.erase("-h");
		return all;
	}
};

TEST_F(Manual, HasEveryVerbAndNoOther)
{
	std::set<std::string> headings;
	for (const auto& [heading, lines] : m_page)
	{
		if (!heading.empty() && std::islower(static_cast<unsigned char>(heading.front())) != 0)
		{
			headings.insert(heading);
		}
	}
	std::set<std::string> verbs;
	for (const auto& [verb, help] : m_help)
	{
		verbs.insert(verb);
	}
	verbs.erase("");
	EXPECT_THAT(headings, UnorderedElementsAreArray(verbs));
}

TEST_F(Manual, HasEveryOptionOfEachVerbAndNoOther)
{
	for (const auto& [verb, help] : m_help)
	{
		EXPECT_EQ(reported(verb), had(verb)) << "velarixctl " << verb;
	}
}

TEST_F(Manual, MentionsNoOptionThatNobodyHas)
{
	std::set<std::string> known;
	for (const auto& [verb, help] : m_help)
	{
		known.merge(help.names());
	}
	int mentioned = 0;
	for (const auto& [heading, lines] : m_page)
	{
		for (const std::string& line : lines)
		{
			for (const std::string& option : optionsIn(plain(line)))
			{
				++mentioned;
				EXPECT_TRUE(known.contains(option) || !option.starts_with("--")) << heading << ": " << line;
			}
		}
	}
	EXPECT_GT(mentioned, 40);
}

TEST_F(Manual, HasEveryExitStatusAndNoOther)
{
	const std::string header = readFile(VELARIX_INSPECT_SOURCES "/ExitCode.h");
	const std::regex value("\\w+ = (\\d+)[,\\n]");
	std::vector<std::string> statuses;
	for (std::sregex_iterator match(header.begin(), header.end(), value), end; match != end; ++match)
	{
		statuses.push_back((*match)[1]);
	}
	EXPECT_THAT(statuses, testing::Contains("78"));
	EXPECT_EQ(terms(m_page["EXIT STATUS"]), statuses);
}

// The pages as they are installed; each as wide as an operator's terminal may be.
TEST(ManualPages, LeaveTheFormatterNothingToWarnAbout)
{
	for (const std::string page : {"velarixctl.1", "velarixha.8", "velarix.ini.5"})
	{
		for (const std::string width : {"78n", "120n"})
		{
			const std::string command =
			    "groff -man -ww -Wbreak -z -Tutf8 -rLL=" + width + " " VELARIX_MANUAL "/" + page + " 2>&1";
			FILE* formatter = ::popen(command.c_str(), "r");
			ASSERT_NE(formatter, nullptr);
			std::string said;
			for (int c = 0; (c = std::fgetc(formatter)) != EOF;)
			{
				said += static_cast<char>(c);
			}
			EXPECT_EQ(::pclose(formatter), 0) << command;
			EXPECT_THAT(said, IsEmpty()) << command;
		}
	}
}
