/// Choosing cells by their names, for the matrix, the peers and the attacks.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "lab/core/Basics.h"

namespace velarix::lab
{

/// @return true when the filter is the name itself, or its beginning before a "/"
inline bool matchesFilter(const std::string& name, const std::string& filter)
{
	return name == filter || name.starts_with(filter + "/");
}

/// The cells that fit one of the filters, in their own order and each once; all
/// when there are no filters.
/// @param what  a cell's name in the words of the command
/// @throws LabError when a filter fits none
template <typename Cell>
std::vector<Cell> filtered(std::vector<Cell> cells, const std::vector<std::string>& filters,
                           const std::string& what = "cell")
{
	for (const std::string& filter : filters)
	{
		if (std::ranges::none_of(cells, [&](const Cell& cell) { return matchesFilter(cell.name, filter); }))
		{
			throw LabError("there is no " + what + " \"" + filter + "\" (--list names them)");
		}
	}
	const auto isLeftOut = [&](const Cell& cell)
	{ return std::ranges::none_of(filters, [&](const auto& filter) { return matchesFilter(cell.name, filter); }); };
	std::erase_if(cells, [&](const Cell& cell) { return !filters.empty() && isLeftOut(cell); });
	return cells;
}

} // namespace velarix::lab
