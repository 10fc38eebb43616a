/// What the tables of the keeper's states share.
#pragma once

#include <set>
#include <string>
#include <utility>

#include "keeper/AddressMachine.h"

constexpr velarix::keeper::Millis kNow = 1'000'000;

/// @return milliseconds from `kNow`, "-" for never
inline std::string atText(velarix::keeper::Millis at)
{
	return at == velarix::keeper::kNever ? "-" : std::to_string(at - kNow);
}

/// @return how many pairs of state and event the rows decide
auto decidedBy(const auto& rows)
{
	std::set<std::pair<decltype(rows[0].state), decltype(rows[0].event)>> decided;
	for (const auto& row : rows)
	{
		decided.emplace(row.state, row.event);
	}
	return decided.size();
}
