/// Figures over the runs of a cell.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lab/core/Basics.h"

namespace velarix::lab
{

struct Summary
{
	std::size_t count = 0;
	Millis median{0}; ///< of an even number, the mean of the two in the middle
	Millis p95{0};    ///< the smallest value that 95 of 100 do not exceed
	Millis max{0};
};

/// @return empty when there are no values
std::optional<Summary> summaryOf(std::vector<Millis> values);

/// "1.234 / 1.300 / 1.400", seconds; "-" without values
std::string toText(const std::optional<Summary>& summary);

} // namespace velarix::lab
