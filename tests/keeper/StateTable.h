/// What the tables of the keeper's states share.
#pragma once

#include <set>
#include <string>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

#include "keeper/AddressMachine.h"

constexpr velarix::keeper::Millis kNow = 1'000'000;

/// @return milliseconds from `kNow`, "-" for never
inline std::string atText(velarix::keeper::Millis at)
{
	return at == velarix::keeper::kNever ? "-" : std::to_string(at - kNow);
}

/// Checks each event of each row. The rows have to decide as many pairs of state and event as given.
void everyRow(const auto& rows, std::size_t pairs, const auto& check)
{
	std::set<std::pair<decltype(rows[0].state), std::remove_cvref_t<decltype(rows[0].events[0])>>> decided;
	for (const auto& row : rows)
	{
		for (const auto event : row.events)
		{
			SCOPED_TRACE(std::string(row.name) + ", event " + std::to_string(static_cast<int>(event)));
			check(row, event);
			decided.emplace(row.state, event);
		}
	}
	EXPECT_EQ(decided.size(), pairs);
}
