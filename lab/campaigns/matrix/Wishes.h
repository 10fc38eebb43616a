/// Choosing cells by their names, for the matrix, the controls and the strangers.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "lab/core/Basics.h"

namespace velarix::lab
{

/// @return true when the wish is the name itself, or its beginning before a "/"
inline bool fitsWish(const std::string& name, const std::string& wish)
{
	return name == wish || name.starts_with(wish + "/");
}

/// The cells that fit one of the wishes, in their own order and each once; all
/// when there are no wishes.
/// @param what  a cell's name in the words of the command
/// @throws LabError when a wish fits none
template <typename Cell>
std::vector<Cell> wished(const std::vector<Cell>& cells, const std::vector<std::string>& wishes,
                         const std::string& what = "cell")
{
	for (const std::string& wish : wishes)
	{
		if (std::none_of(cells.begin(), cells.end(), [&](const Cell& cell) { return fitsWish(cell.name, wish); }))
		{
			throw LabError(std::string("there is no ").append(what).append(" \"").append(wish) +
			               "\" (--list names them)");
		}
	}
	std::vector<Cell> chosen;
	std::copy_if(cells.begin(), cells.end(), std::back_inserter(chosen),
	             [&](const Cell& cell)
	             {
		             return wishes.empty() ||
		                    std::any_of(wishes.begin(), wishes.end(),
		                                [&](const std::string& wish) { return fitsWish(cell.name, wish); });
	             });
	return chosen;
}

} // namespace velarix::lab
