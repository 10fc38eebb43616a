#include "ctl/check/Checks.h"

#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/check/CommandText.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

/// What stands before the name in the line that the agent searches.
constexpr std::string_view kStatusFront = "Name:\t";

/// Whose processes are everywhere.
constexpr std::array kInterpreters{"sh", "bash", "dash", "perl", "python", "python3", "java", "node", "ruby", "php"};

struct Program
{
	std::string key;
	/// The whole configured text.
	std::string text;
	/// What the agent looks for.
	std::string name;
};

std::vector<Program> configured(const Findings& findings)
{
	std::vector<Program> result;
	for (const std::string& text : findings.file.programs())
	{
		result.push_back({programKey(static_cast<int>(result.size()) + 1), text, programName(text)});
	}
	return result;
}

bool hasBlank(const std::string& text)
{
	return text.find_first_of(" \t") != std::string::npos;
}

/// "cd DIRECTORY" and "PROGRAM &" are what the run script gets.
void withArguments(Findings& findings, const Program& program)
{
	const std::string directory = program.text.substr(0, program.text.rfind('/') + 1);
	const std::string remedy = "name a script \"" +
	                           programName(program.text.substr(0, program.text.find_first_of(" \t"))) +
	                           "\" that ends in \"exec PROGRAM ARGUMENTS\", and no arguments here";
	if (hasBlank(directory))
	{
		findings.error(program.key, {"argument-with-slash", program.key + " has an argument with a \"/\"",
		                             "the run script does \"cd " + directory +
		                                 "\", which fails, and the program is looked for as \"" + program.name +
		                                 "\", which is never found or killed: the service moves to and fro",
		                             remedy});
		return;
	}
	findings.error(program.key, {"program-with-arguments", program.key + " has arguments",
	                             "they are taken for a part of the name, \"" + program.name +
	                                 "\", which is never found or killed: the service moves to and fro",
	                             remedy});
}

void path(Findings& findings, const Program& program)
{
	if (program.text.find('/') == std::string::npos)
	{
		findings.error(program.key,
		               {"program-without-directory", program.key + " has no directory: " + program.text,
		                "the run script does \"cd\" to root's home and looks for the program on the path that the "
		                "agent was started with",
		                "write the absolute path"});
	}
	else if (program.text.front() != '/')
	{
		findings.error(program.key, {"relative-program", program.key + " is a relative path: " + program.text,
		                             "the run script changes to the directory first and then does not find the "
		                             "program below it: it never starts",
		                             "write the absolute path"});
	}
	if (const std::size_t at = program.text.find_first_of("$`\"'\\|&;<>()*?[]{}~!#"); at != std::string::npos)
	{
		findings.error(program.key,
		               {"shell-character-in-program",
		                program.key + " holds \"" + program.text.substr(at, 1) + "\", which the shell understands",
		                "the run script is read by the shell and starts something else, while the agent looks for the "
		                "text as it stands here",
		                "use a path without such characters, by a link if need be"});
	}
}

void name(Findings& findings, const Program& program)
{
	const std::string called = "the name \"" + program.name + "\" of " + program.key;
	if (program.name.size() > kProcessNameLength)
	{
		findings.error(program.key,
		               {"long-program-name", called + " has " + std::to_string(program.name.size()) + " characters",
		                "the kernel shows 15 of them: the program is never found running, and the service moves to and "
		                "fro",
		                "link or rename the program to a name of at most 15 characters"});
	}
	else if (kStatusFront.find(program.name) != std::string_view::npos)
	{
		findings.error(program.key,
		               {"name-in-every-process", called + " is a part of \"Name:\"",
		                "the agent searches the line \"Name: ...\" of each process and finds it in every one: that the "
		                "program has died is never noticed",
		                "choose a longer name"});
	}
	else if (std::ranges::find(kInterpreters, program.name) != kInterpreters.end())
	{
		findings.error(program.key,
		               {"name-of-an-interpreter", called + " is that of an interpreter",
		                "every script for it on the node counts as the program, and a kill ends them all: that the "
		                "program has died is not noticed",
		                "name a script of another name that ends in \"exec PROGRAM ARGUMENTS\""});
	}
	else if (kAgentName.find(program.name) != std::string_view::npos)
	{
		findings.error(program.key,
		               {"name-of-the-agent", called + " is a part of the agent's own, VelarixHA",
		                "the agent finds itself: that the program has died is never noticed", "choose another name"});
	}
}

/// The start command leaves a shell and what it calls behind.
void helper(Findings& findings, const Program& program)
{
	std::set<std::string> helpers{"sh"};
	for (const std::string& called : CommandText(findings.file.text(key::kStartCommand).value_or("")).programs())
	{
		helpers.insert(baseName(called).substr(0, kProcessNameLength));
	}
	const auto found = std::ranges::find_if(helpers, [&](const std::string& name)
	                                        { return name.find(program.name) != std::string::npos; });
	if (found != helpers.end() && !findings.has("name-of-an-interpreter", program.key))
	{
		findings.warning(program.key,
		                 {"name-of-a-helper",
		                  "the name \"" + program.name + "\" of " + program.key + " is a part of \"" + *found +
		                      "\", which the start command runs",
		                  "while that runs it counts as the program: that the program has died is not noticed",
		                  "choose another name"});
	}
}

void one(Findings& findings, const Program& program)
{
	if (program.text.empty())
	{
		findings.error(program.key, {"empty-program", program.key + " is empty", emptyEffect(*findKey(program.key)),
		                             "write the program's absolute path"});
		return;
	}
	if (program.name.empty())
	{
		findings.error(program.key,
		               {"program-is-a-directory", program.key + " ends in \"/\"",
		                "nothing is started, and the empty name is found in every process: nothing is noticed",
		                "write the program's absolute path"});
		return;
	}
	if (hasBlank(program.text))
	{
		withArguments(findings, program);
		return;
	}
	path(findings, program);
	name(findings, program);
	helper(findings, program);
}

/// One program's process counts once for every configured name that it contains.
void within(Findings& findings, const Program& inner, const Program& outer)
{
	const bool same = inner.name == outer.name;
	if (inner.name.empty() || hasBlank(inner.text) || outer.name.find(inner.name) == std::string::npos)
	{
		return;
	}
	const std::string names =
	    same ? "have the same name, \"" + inner.name + "\""
	         : "have names of which one contains the other: \"" + inner.name + "\" and \"" + outer.name + "\"";
	findings.warning(inner.key,
	                 {same ? "same-name" : "name-within-a-name", inner.key + " and " + outer.key + " " + names,
	                  "a process counts once for each name it contains, so that one of them stands in for the other: "
	                  "that one has died is not noticed while enough others run",
	                  "give them names of which none contains another"});
}

} // namespace

void programs(Findings& findings)
{
	const std::vector<Program> all = configured(findings);
	for (auto left = all.begin(); left != all.end(); ++left)
	{
		one(findings, *left);
		for (auto right = left + 1; right != all.end(); ++right)
		{
			within(findings, left->name.size() <= right->name.size() ? *left : *right,
			       left->name.size() <= right->name.size() ? *right : *left);
		}
	}
}

} // namespace velarix::ctl::checks
