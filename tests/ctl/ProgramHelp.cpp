#include "ProgramHelp.h"

#include <regex>
#include <sstream>
#include <stdexcept>

namespace
{

enum class Section
{
	other,
	arguments,
	options,
	verbs
};

/// @return the section that the heading begins
Section sectionOf(const std::string& line)
{
	static const std::map<std::string, Section> sections{
	    {"Positionals:", Section::arguments}, {"Options:", Section::options}, {"Subcommands:", Section::verbs}};
	const auto found = sections.find(line);
	return found == sections.end() ? Section::other : found->second;
}

/// Calls the function with the first word of each entry and what follows it.
void forEachEntry(const std::string& help,
                  const std::function<void(Section, const std::string& name, const std::string& rest)>& take)
{
	static const std::regex entry("  (\\S+)(.*)");
	std::istringstream text(help);
	Section section = Section::other;
	std::smatch match;
	for (std::string line; std::getline(text, line);)
	{
		if (!line.empty() && line.front() != ' ')
		{
			section = sectionOf(line);
		}
		else if (std::regex_match(line, match, entry))
		{
			take(section, match[1], match[2]);
		}
	}
}

/// @param rest " SECONDS:POSITIVE  give up ...", " a|b=a  ...", " Excludes: --other",
///        or "   print ..."
std::string valueName(const std::string& rest)
{
	static const std::regex value("^ ([^ :=]+).*");
	std::smatch match;
	const std::string name = std::regex_match(rest, match, value) ? match[1].str() : std::string();
	return name == "Excludes" || name == "Needs" ? std::string() : name;
}

std::vector<std::string> separated(const std::string& names)
{
	std::vector<std::string> all;
	std::istringstream text(names);
	for (std::string name; std::getline(text, name, ',');)
	{
		all.push_back(name);
	}
	return all;
}

} // namespace

std::set<std::string> VerbHelp::names() const
{
	std::set<std::string> all;
	for (const HelpOption& option : options)
	{
		all.insert(option.names.begin(), option.names.end());
	}
	return all;
}

ProgramHelp readProgramHelp(const std::function<std::string(const std::vector<std::string>&)>& help)
{
	ProgramHelp program;
	std::vector<std::string> verbs{""};
	for (std::size_t i = 0; i < verbs.size(); ++i)
	{
		const std::string verb = verbs[i];
		VerbHelp& entry = program[verb];
		forEachEntry(help(verb.empty() ? std::vector<std::string>{"--help"} : std::vector<std::string>{verb, "--help"}),
		             [&](Section section, const std::string& name, const std::string& rest)
		             {
			             if (section == Section::options)
			             {
				             entry.options.push_back({separated(name), valueName(rest)});
			             }
			             else if (section == Section::arguments)
			             {
				             entry.arguments.push_back(name);
			             }
			             else if (section == Section::verbs)
			             {
				             verbs.push_back(name);
			             }
		             });
	}
	if (program.size() < 2 || program[""].options.empty())
	{
		throw std::runtime_error("the help has changed its form: no verbs or options are found in it");
	}
	return program;
}
