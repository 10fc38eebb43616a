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
std::vector<Cell> filtered(const std::vector<Cell>& cells, const std::vector<std::string>& filters,
                           const std::string& what = "cell")
{
	for (const std::string& filter : filters)
	{
		if (std::none_of(cells.begin(), cells.end(),
		                 [&](const Cell& cell) { return matchesFilter(cell.name, filter); }))
		{
			throw LabError(std::string("there is no ").append(what).append(" \"").append(filter) +
			               "\" (--list names them)");
		}
	}
	std::vector<Cell> chosen;
	std::copy_if(cells.begin(), cells.end(), std::back_inserter(chosen),
	             [&](const Cell& cell)
	             {
		             return filters.empty() ||
		                    std::any_of(filters.begin(), filters.end(),
		                                [&](const std::string& filter) { return matchesFilter(cell.name, filter); });
	             });
	return chosen;
}

} // namespace velarix::lab
