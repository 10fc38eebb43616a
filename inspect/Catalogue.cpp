#include "inspect/Catalogue.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <utility>

#include "inspect/Number.h"

namespace velarix::inspect
{

namespace
{

/// Fewer are in too many messages.
constexpr std::ptrdiff_t kLettersOfPart = 4;

std::ptrdiff_t letters(std::string_view text)
{
	return std::ranges::count_if(text, [](unsigned char c) { return std::isalpha(c) != 0; });
}

/// A text with gaps: literal pieces, and before each but the first what the gap
/// may hold.
struct Pattern
{
	struct Piece
	{
		bool digits = false; ///< the gap before it holds a number
		std::string_view text;
	};

	std::vector<Piece> pieces{1};

	explicit Pattern(const CatalogueRow& row)
	{
		const bool console = row.number == 0;
		std::string_view rest = row.text;
		std::size_t begin = 0;
		for (std::size_t at = 0; at < rest.size();)
		{
			const std::size_t end = endOfGap(rest, at, console);
			if (end == at)
			{
				++at;
				continue;
			}
			pieces.back().text = rest.substr(begin, at - begin);
			pieces.push_back({rest.substr(at, end - at) == "%d", {}});
			begin = end;
			at = end;
		}
		pieces.back().text = rest.substr(begin);
	}

	/// @return the position behind a gap that begins at `at`, else `at`
	static std::size_t endOfGap(std::string_view text, std::size_t at, bool console)
	{
		const std::string_view two = text.substr(at, 2);
		if (two == "%s" || two == "%d")
		{
			return at + 2;
		}
		const std::size_t end = console && text[at] == '<' ? text.find('>', at) : std::string_view::npos;
		return end == std::string_view::npos ? at : end + 1;
	}

	/// A word of its own, by which the message can be known.
	bool tells() const
	{
		return std::ranges::any_of(pieces, [](const Piece& piece) { return letters(piece.text) > 2; });
	}

	/// Whether a piece has the text in it, in whatever case.
	bool contains(std::string_view text) const
	{
		const auto lower = [](unsigned char c) { return std::tolower(c); };
		return std::ranges::any_of(pieces, [&](const Piece& piece)
		                           { return !std::ranges::search(piece.text, text, {}, lower, lower).empty(); });
	}
};

bool isNumber(std::string_view text)
{
	if (text.starts_with('-'))
	{
		text.remove_prefix(1);
	}
	return !text.empty() && std::all_of(text.begin(), text.end(), isDigit);
}

/// Without the line feeds at the ends, where pasting changes them.
std::string_view trimmed(std::string_view text)
{
	while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
	{
		text.remove_suffix(1);
	}
	while (!text.empty() && (text.front() == '\n' || text.front() == '\r'))
	{
		text.remove_prefix(1);
	}
	return text;
}

/// Whether the pieces from `index` on can follow, each behind its gap; the last
/// one stands at the end.
bool fits(const std::vector<Pattern::Piece>& pieces, std::size_t index, std::string_view text)
{
	const Pattern::Piece& piece = pieces[index];
	if (index + 1 == pieces.size())
	{
		const std::string_view literal = trimmed(piece.text);
		const std::string_view rest = trimmed(text);
		return rest.ends_with(literal) && (!piece.digits || isNumber(rest.substr(0, rest.size() - literal.size())));
	}
	for (std::size_t at = text.find(piece.text); at != std::string_view::npos; at = text.find(piece.text, at + 1))
	{
		if ((!piece.digits || isNumber(text.substr(0, at))) &&
		    fits(pieces, index + 1, text.substr(at + piece.text.size())))
		{
			return true;
		}
	}
	return false;
}

bool fits(const Pattern& pattern, std::string_view text)
{
	const std::string_view first = pattern.pieces.front().text;
	if (pattern.pieces.size() == 1)
	{
		return trimmed(text) == trimmed(first);
	}
	return text.starts_with(first) && fits(pattern.pieces, 1, text.substr(first.size()));
}

using Place = std::pair<std::string_view, int>;

const std::map<Place, const CatalogueRow*>& byPlace()
{
	static const std::map<Place, const CatalogueRow*> rows = []
	{
		std::map<Place, const CatalogueRow*> result;
		for (const CatalogueRow& row : catalogue())
		{
			if (row.number != 0)
			{
				result.emplace(Place(row.label, row.number), &row);
			}
		}
		return result;
	}();
	return rows;
}

} // namespace

std::string CatalogueRow::place() const
{
	return number == 0 ? std::string(label) : std::string(label) + ":" + std::to_string(number);
}

const CatalogueRow* findMessage(std::string_view label, int number)
{
	const auto found = byPlace().find(Place(label, number));
	return found == byPlace().end() ? nullptr : found->second;
}

bool canBe(const CatalogueRow& row, std::string_view text)
{
	return fits(Pattern(row), text);
}

std::vector<const CatalogueRow*> findByText(std::string_view text)
{
	std::vector<const CatalogueRow*> whole;
	std::vector<const CatalogueRow*> parts;
	for (const CatalogueRow& row : catalogue())
	{
		const Pattern pattern(row);
		if (pattern.tells() && !row.text.starts_with("**") && fits(pattern, text))
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
