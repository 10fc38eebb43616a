#include "inspect/Pattern.h"

#include <regex>

namespace velarix::inspect
{

namespace
{

Pattern::Groups groupsOf(const std::smatch& match)
{
	return {match.begin(), match.end()};
}

} // namespace

struct Pattern::Expression
{
	std::regex regex;
};

Pattern::Pattern(const std::string& expression)
    : m_expression(std::make_shared<const Expression>(Expression{std::regex(expression)}))
{
}

Pattern::Groups Pattern::matched(const std::string& text) const
{
	std::smatch match;
	return std::regex_match(text, match, m_expression->regex) ? groupsOf(match) : Groups();
}

Pattern::Groups Pattern::found(const std::string& text) const
{
	std::smatch match;
	return std::regex_search(text, match, m_expression->regex) ? groupsOf(match) : Groups();
}

std::vector<Pattern::Groups> Pattern::all(const std::string& text) const
{
	std::vector<Groups> all;
	for (std::sregex_iterator at(text.begin(), text.end(), m_expression->regex), end; at != end; ++at)
	{
		all.push_back(groupsOf(*at));
	}
	return all;
}

std::string Pattern::replaced(const std::string& text, const std::string& by) const
{
	return std::regex_replace(text, m_expression->regex, by);
}

} // namespace velarix::inspect
