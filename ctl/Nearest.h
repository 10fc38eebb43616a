/// What somebody who mistyped a word may have meant.
#pragma once

#include <algorithm>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

namespace velarix::ctl
{

/// @return how many letters must be put in, left out or replaced to make one the other
inline std::size_t distance(const std::string& from, const std::string& to)
{
	std::vector<std::size_t> row(to.size() + 1);
	std::iota(row.begin(), row.end(), std::size_t{0});
	for (const char letter : from)
	{
		std::size_t diagonal = row[0]++;
		for (std::size_t i = 0; i < to.size(); ++i)
		{
			const std::size_t replaced = diagonal + (letter == to[i] ? 0U : 1U);
			diagonal = row[i + 1];
			row[i + 1] = std::min({replaced, diagonal + 1, row[i] + 1});
		}
	}
	return row.back();
}

/// @return the first of the words that are most like it; empty when all are further than that
inline std::string nearest(const std::string& word, const std::vector<std::string>& known, std::size_t most)
{
	const auto best = std::ranges::min_element(known, {}, [&](const std::string& one) { return distance(word, one); });
	return best != known.end() && distance(word, *best) <= most ? *best : std::string();
}

} // namespace velarix::ctl
