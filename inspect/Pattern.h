/// Regular expressions in the form of ECMAScript. They are compiled in one source, since
/// the standard library's header costs each source that includes it two seconds of build.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace velarix::inspect
{

class Pattern
{
public:
	/// What was found, and behind it each group: an empty text for one that took no part.
	/// Empty when nothing was found.
	using Groups = std::vector<std::string>;

	/// @throws std::runtime_error for an expression that is none
	explicit Pattern(const std::string& expression);

	/// The whole text has to match.
	Groups matched(const std::string& text) const;
	/// The first place that matches.
	Groups found(const std::string& text) const;
	std::vector<Groups> all(const std::string& text) const;
	/// @param by  $1 is the first group
	std::string replaced(const std::string& text, const std::string& by) const;

private:
	struct Expression;
	std::shared_ptr<const Expression> m_expression;
};

} // namespace velarix::inspect
