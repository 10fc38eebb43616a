/// Regular expressions of the library (PCRE) with each group as a text.
#pragma once

#include <string>
#include <vector>

#include <Poco/RegularExpression.h>

namespace velarix::inspect
{

class Pattern
{
public:
	/// What was found, and behind it nine groups: an empty text for one that took no part, or
	/// that the expression has not. Empty when nothing was found.
	using Groups = std::vector<std::string>;

	/// @throws Poco::Exception for an expression that is none
	explicit Pattern(const std::string& expression);

	/// The whole text has to match.
	Groups matched(const std::string& text) const { return groups(m_whole, text, 0); }
	/// The first place that matches.
	Groups found(const std::string& text) const { return groups(m_part, text, 0); }
	/// One place after the other; an expression that matches an empty text finds none.
	std::vector<Groups> all(const std::string& text) const;
	/// @param by  $1 is the first group
	std::string replaced(std::string text, const std::string& by) const;

private:
	Poco::RegularExpression m_part;
	Poco::RegularExpression m_whole;

	static Groups groups(const Poco::RegularExpression& expression, const std::string& text, std::size_t from);
};

} // namespace velarix::inspect
