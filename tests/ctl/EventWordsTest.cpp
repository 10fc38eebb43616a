// The words of events, causes and faults, and the page that lists them.

#include <fstream>
#include <set>

#include <gtest/gtest.h>

#include "ctl/history/Events.h"

using namespace velarix::ctl;
using namespace velarix::inspect;

namespace
{

/// The words in the first column of the table with this heading.
std::vector<std::string> wordsOfThePage(const std::string& heading)
{
	std::ifstream page(VELARIX_CTL_EVENTS);
	std::vector<std::string> words;
	bool inTable = false;
	for (std::string line; std::getline(page, line);)
	{
		if (inTable && line.starts_with("| `"))
		{
			words.push_back(line.substr(3, line.find('`', 3) - 3));
		}
		inTable = line.starts_with("| " + heading + " |") || (inTable && line.starts_with("|"));
	}
	return words;
}

template <typename Value> std::vector<std::string> wordsUpTo(Value last, std::size_t from = 0)
{
	std::vector<std::string> words;
	for (std::size_t value = from; value <= static_cast<std::size_t>(last); ++value)
	{
		words.emplace_back(wordOf(static_cast<Value>(value)));
	}
	return words;
}

TEST(EventWords, AreThoseOfTheirPage)
{
	EXPECT_EQ(wordsOfThePage("event"), wordsUpTo(EventKind::error));
	EXPECT_EQ(wordsOfThePage("cause"), wordsUpTo(Cause::notLogged, 1)); // but for "none"
	EXPECT_EQ(wordsOfThePage("fault"), wordsUpTo(Fault::foreignMessage));
}

} // namespace
