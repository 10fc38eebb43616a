#include "ctl/check/Checks.h"

#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <string_view>
#include <vector>

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

bool hasBlank(const std::string& text)
{
	return text.find_first_of(" \t") != std::string::npos;
}

/// "cd DIRECTORY" and "PROGRAM &" are what the run script gets.
void withArguments(Findings& findings, const Program& program)
{
	const std::string directory = program.path.substr(0, program.path.rfind('/') + 1);
	const std::string script = programName(program.path.substr(0, program.path.find_first_of(" \t")));
	findings.add(hasBlank(directory) ? "argument-with-slash" : "program-with-arguments", program.key, program.name,
	             script, directory);
}

void path(Findings& findings, const Program& program)
{
	if (program.path.front() != '/')
	{
		const bool bare = program.path.find('/') == std::string::npos;
		findings.add(bare ? "program-without-directory" : "relative-program", program.key, program.path);
	}
	if (const std::size_t at = program.path.find_first_of("$`\"'\\|&;<>()*?[]{}~!#"); at != std::string::npos)
	{
		findings.add("shell-character-in-program", program.key, program.path.substr(at, 1));
	}
}

/// @return what is wrong with the name that the agent looks for; null for nothing
const char* nameFault(const std::string& name)
{
	if (name.size() > kProcessNameLength)
	{
		return "long-program-name";
	}
	if (kStatusFront.find(name) != std::string_view::npos)
	{
		return "name-in-every-process";
	}
	if (contains(kInterpreters, name))
	{
		return "name-of-an-interpreter";
	}
	return kAgentName.find(name) != std::string_view::npos ? "name-of-the-agent" : nullptr;
}

/// The start command leaves a shell and what it calls behind.
void helper(Findings& findings, const Program& program)
{
	std::set<std::string> helpers{"sh"};
	for (const std::string& called : commandOf(findings, key::kStartCommand).programs())
	{
		helpers.insert(baseName(called).substr(0, kProcessNameLength));
	}
	const auto found = std::ranges::find_if(helpers, [&](const std::string& name)
	                                        { return name.find(program.name) != std::string::npos; });
	if (found != helpers.end() && !findings.has("name-of-an-interpreter", program.key))
	{
		findings.add("name-of-a-helper", program.key, program.name, *found);
	}
}

void one(Findings& findings, const Program& program)
{
	if (program.path.empty())
	{
		findings.add("empty-program", program.key, emptyEffect(*findKey(program.key)));
		return;
	}
	if (program.name.empty())
	{
		findings.add("program-is-a-directory", program.key);
		return;
	}
	if (hasBlank(program.path))
	{
		withArguments(findings, program);
		return;
	}
	path(findings, program);
	if (const char* fault = nameFault(program.name))
	{
		findings.add(fault, program.key, program.name, program.name.size());
	}
	helper(findings, program);
}

/// One program's process counts once for every configured name that it contains.
void within(Findings& findings, const Program& inner, const Program& outer)
{
	if (!inner.name.empty() && !hasBlank(inner.path) && outer.name.find(inner.name) != std::string::npos)
	{
		findings.add(inner.name == outer.name ? "same-name" : "name-within-a-name", inner.key, outer.key, inner.name,
		             outer.name);
	}
}

} // namespace

std::vector<Program> programsOf(const Findings& findings)
{
	std::vector<Program> result;
	for (const std::string& path : findings.file.programs())
	{
		result.push_back({programKey(static_cast<int>(result.size()) + 1), path, programName(path)});
	}
	return result;
}

void programs(Findings& findings)
{
	const std::vector<Program> all = programsOf(findings);
	for (auto left = all.begin(); left != all.end(); ++left)
	{
		one(findings, *left);
		for (auto right = left + 1; right != all.end(); ++right)
		{
			const bool inOrder = left->name.size() <= right->name.size();
			within(findings, inOrder ? *left : *right, inOrder ? *right : *left);
		}
	}
}

} // namespace velarix::ctl::checks
