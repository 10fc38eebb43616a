#include "inspect/Pattern.h"

#include <algorithm>

namespace velarix::inspect
{

namespace
{

using Regular = Poco::RegularExpression;

constexpr std::size_t kGroups = 10;

} // namespace

Pattern::Pattern(const std::string& expression)
    : m_part(expression, Regular::RE_DOLLAR_ENDONLY), m_whole("(?:" + expression + ")\\z", Regular::RE_ANCHORED)
{
}

Pattern::Groups Pattern::groups(const Regular& expression, const std::string& text, std::size_t from)
{
	Groups groups;
	if (expression.split(text, from, groups) > 0)
	{
		groups.resize(std::max(groups.size(), kGroups));
	}
	return groups;
}

std::vector<Pattern::Groups> Pattern::all(const std::string& text) const
{
	std::vector<Groups> all;
	Regular::Match match{0, 0};
	for (std::size_t at = 0; m_part.match(text, at, match) > 0 && match.length > 0; at = match.offset + match.length)
	{
		all.push_back(groups(m_part, text, at));
	}
	return all;
}

std::string Pattern::replaced(std::string text, const std::string& by) const
{
	m_part.subst(text, by, Regular::RE_GLOBAL);
	return text;
}

} // namespace velarix::inspect
