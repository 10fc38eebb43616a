/// What the program's own help tells of its verbs and options: what manual page and
/// completion have to agree with.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

struct HelpOption
{
	/// As they are typed: "-f", "--follow".
	std::vector<std::string> names;
	/// Name of the value: "FILE", "a|b"; empty for an option without one.
	std::string value;
};

struct VerbHelp
{
	std::vector<HelpOption> options;
	/// Names of the arguments: "FILE".
	std::vector<std::string> arguments;

	/// @return every name of every option
	std::set<std::string> names() const;
};

/// By verb; the program's own options are under the empty name.
using ProgramHelp = std::map<std::string, VerbHelp>;

/// @param help what the program prints for these arguments
ProgramHelp readProgramHelp(const std::function<std::string(const std::vector<std::string>&)>& help);
