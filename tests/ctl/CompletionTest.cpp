// The completion for bash offers what the program has, and nothing else.

#include <cstdio>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "CtlTest.h"
#include "ProgramHelp.h"

using testing::UnorderedElementsAreArray;

namespace
{

using Words = std::vector<std::string>;

std::string quoted(const std::string& word)
{
	return "'" + word + "'";
}

/// @return what bash prints for a script, standard error included, one item a line
Words linesOf(const std::filesystem::path& script)
{
	FILE* shell = ::popen(("bash " + script.string() + " 2>&1").c_str(), "r");
	if (shell == nullptr)
	{
		throw std::runtime_error("no shell");
	}
	std::string said;
	for (int c = 0; (c = std::fgetc(shell)) != EOF;)
	{
		said += static_cast<char>(c);
	}
	EXPECT_EQ(::pclose(shell), 0) << said;
	Words lines;
	std::istringstream text(said);
	for (std::string line; std::getline(text, line);)
	{
		lines.push_back(line);
	}
	return lines;
}

Words behind(const std::string& verb, const Words& rest)
{
	Words words = verb.empty() ? Words() : Words{verb};
	words.insert(words.end(), rest.begin(), rest.end());
	return words;
}

/// @return what has to be offered for a value that the help calls so
Words offeredFor(const std::string& value)
{
	if (value == "DIR")
	{
		return {"dirnames"};
	}
	if (value == "FILE" || value == "PATH")
	{
		return {"default"};
	}
	if (value.find('|') == std::string::npos)
	{
		return {};
	}
	Words choices;
	std::istringstream text(value);
	for (std::string choice; std::getline(text, choice, '|');)
	{
		choices.push_back(choice);
	}
	return choices;
}

} // namespace

/// What is typed, and what has to be offered for the last word of it.
struct Line
{
	Words typed;
	Words expected;
};

class Completion : public CtlTest
{
protected:
	ProgramHelp m_help =
	    readProgramHelp([this](const std::vector<std::string>& arguments) { return run(arguments).out; });

	Words bash(const std::string& commands) const
	{
		return linesOf(
		    write("script", "set -u\nsource " + quoted(VELARIX_PACKAGING "/completion/velarixctl") + "\n" + commands));
	}

	/// Expects each line's offer, in any order; "default" and "dirnames" stand for the
	/// files and directories that the shell is asked to offer itself.
	void expectOffers(const std::vector<Line>& lines) const
	{
		// Out of a completion compopt has no meaning and says so.
		std::string script = "compopt() { printf '%s\\n' \"$2\"; }\n";
		for (const Line& line : lines)
		{
			script += "COMP_WORDS=(velarixctl";
			for (const std::string& word : line.typed)
			{
				script += " " + quoted(word);
			}
			script += "); COMP_CWORD=" + std::to_string(line.typed.size()) +
			          "; _velarixctl; [[ ${#COMPREPLY[@]} = 0 ]] || printf '%s\\n' \"${COMPREPLY[@]}\"; echo .\n";
		}
		std::vector<Words> offers(1);
		for (const std::string& said : bash(script))
		{
			if (said == ".")
			{
				offers.emplace_back();
			}
			else
			{
				offers.back().push_back(said);
			}
		}
		ASSERT_EQ(offers.size(), lines.size() + 1);
		for (std::size_t i = 0; i < lines.size(); ++i)
		{
			EXPECT_THAT(offers[i], UnorderedElementsAreArray(lines[i].expected))
			    << testing::PrintToString(lines[i].typed);
		}
	}
};

TEST_F(Completion, IsThatOfTheProgram)
{
	EXPECT_EQ(bash("complete -p velarixctl"), Words{"complete -F _velarixctl velarixctl"});
}

TEST_F(Completion, OffersEveryVerbAndNothingElse)
{
	Words verbs;
	for (const auto& [verb, help] : m_help)
	{
		verbs.push_back(verb);
	}
	std::erase(verbs, "");
	expectOffers({{{""}, verbs}, {{"--root", "/mnt", ""}, verbs}, {{"sw"}, {"switchover"}}, {{"x"}, {}}});
}

TEST_F(Completion, OffersEveryOptionOfEachVerbAndNothingElse)
{
	std::vector<Line> lines{{{"--root", "/mnt", "check", "--part"}, {"--partner"}}, {{"check", "--x"}, {}}};
	for (const auto& [verb, help] : m_help)
	{
		std::set<std::string> names = help.names();
		// It may stand behind every verb, too.
		names.insert("--root");
		lines.push_back({behind(verb, {"-"}), {names.begin(), names.end()}});
	}
	expectOffers(lines);
}

TEST_F(Completion, OffersBehindEachOptionWhatItTakes)
{
	std::vector<Line> lines;
	for (const auto& [verb, help] : m_help)
	{
		for (const HelpOption& option : help.options)
		{
			const std::string& name = option.names.back();
			if (option.value.empty())
			{
				// What follows is no value of it.
				lines.push_back({behind(verb, {name, "--roo"}), {"--root"}});
				continue;
			}
			const Words expected = offeredFor(option.value);
			lines.push_back({behind(verb, {name, ""}), expected});
			lines.push_back({behind(verb, {name, "="}), expected});
			lines.push_back({behind(verb, {name, "=", ""}), expected});
			lines.push_back({behind(verb, {name, "=", "x", "--roo"}), {"--root"}});
			// A value is wanted, and no option.
			const bool choice = option.value.find('|') != std::string::npos;
			lines.push_back({behind(verb, {name, "--roo"}), choice ? Words{} : expected});
		}
	}
	EXPECT_GT(lines.size(), 100);
	expectOffers(lines);
}

TEST_F(Completion, OffersFilesForTheArgumentThatIsOne)
{
	std::vector<Line> lines;
	for (const auto& [verb, help] : m_help)
	{
		if (!verb.empty())
		{
			const Words expected = help.arguments == Words{"FILE"} ? Words{"default"} : Words{};
			lines.push_back({{verb, ""}, verb == "maintenance" ? Words{"on", "off"} : expected});
			lines.push_back({{verb, "--root", "/mnt", "x"}, expected});
		}
	}
	expectOffers(lines);
}
