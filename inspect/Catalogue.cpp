#include "inspect/Catalogue.h"

#include <algorithm>
#include <cctype>

#include <Poco/RegularExpression.h>

namespace velarix::inspect
{

namespace
{

/// Fewer are in too many messages.
constexpr std::ptrdiff_t kLettersOfPart = 4;
/// Pasting changes them at the ends of a text.
constexpr std::string_view kFeeds = "\r\n";

std::ptrdiff_t letters(std::string_view text)
{
	return std::ranges::count_if(text, [](unsigned char c) { return std::isalpha(c) != 0; });
}

using Regular = Poco::RegularExpression;

/// A text with gaps for what is put in.
struct MessagePattern
{
	std::vector<std::string> literals;
	/// Of the whole text.
	std::string expression;

	explicit MessagePattern(const CatalogueRow& row)
	{
		const Regular gaps(row.number == 0 ? "%[sd]|<[^>]*>" : "%[sd]");
		const std::size_t front = std::min(row.text.find_first_not_of(kFeeds), row.text.size());
		const std::string text(row.text.substr(front, row.text.find_last_not_of(kFeeds) + 1 - front));
		Regular::Match gap{0, 0};
		std::size_t begin = 0;
		while (gaps.match(text, begin, gap) > 0)
		{
			take(text.substr(begin, gap.offset - begin));
			expression += text.compare(gap.offset, gap.length, "%d") == 0 ? "-?[0-9]+" : ".*";
			begin = gap.offset + gap.length;
		}
		take(text.substr(begin));
	}

	/// A word of its own, by which the message can be known.
	bool tells() const
	{
		return std::ranges::any_of(literals, [](const std::string& literal) { return letters(literal) > 2; });
	}

	/// Whether a piece has the text in it, in whatever case.
	bool contains(std::string_view text) const
	{
		const auto same = [](unsigned char one, unsigned char other)
		{ return std::tolower(one) == std::tolower(other); };
		const auto found = [&](const std::string& literal)
		{ return std::search(literal.begin(), literal.end(), text.begin(), text.end(), same) != literal.end(); };
		return !text.empty() && std::ranges::any_of(literals, found);
	}

	bool fits(std::string_view text) const
	{
		constexpr int kWhole = Regular::RE_DOTALL | Regular::RE_DOLLAR_ENDONLY | Regular::RE_ANCHORED;
		Regular::Match whole{0, 0};
		return Regular("[\r\n]*" + expression + "[\r\n]*$", kWhole).match(std::string(text), 0, whole) > 0;
	}

private:
	void take(const std::string& literal)
	{
		literals.push_back(literal);
		expression += "\\Q" + literal + "\\E";
	}
};

} // namespace

std::string CatalogueRow::place() const
{
	return number == 0 ? std::string(label) : std::string(label) + ":" + std::to_string(number);
}

const CatalogueRow* findMessage(std::string_view label, int number)
{
	const auto found = std::ranges::find_if(catalogue(), [&](const CatalogueRow& row)
	                                        { return row.number == number && row.label == label; });
	return number == 0 || found == catalogue().end() ? nullptr : &*found;
}

bool canBe(const CatalogueRow& row, std::string_view text)
{
	return MessagePattern(row).fits(text);
}

std::vector<const CatalogueRow*> findByText(std::string_view text)
{
	std::vector<const CatalogueRow*> whole;
	std::vector<const CatalogueRow*> parts;
	for (const CatalogueRow& row : catalogue())
	{
		const MessagePattern pattern(row);
		if (pattern.tells() && !row.text.starts_with("**") && pattern.fits(text))
		{
			whole.push_back(&row);
		}
		else if (letters(text) >= kLettersOfPart && pattern.contains(text))
		{
			parts.push_back(&row);
		}
	}
	return whole.empty() ? parts : whole;
}

} // namespace velarix::inspect
