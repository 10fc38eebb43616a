/// The one way the lab and its tests wait: for something to hold, up to a limit,
/// telling what it last saw.
#pragma once

#include <functional>
#include <string>

#include "lab/core/Basics.h"

namespace velarix::lab
{

/// What a waiting person reads.
struct WaitProgress
{
	std::string what;  ///< what is being waited for
	std::string seen;  ///< the state last seen, may be empty
	Millis elapsed{0}; ///< since the wait began
	Millis limit{0};   ///< when the wait gives up
};

using WaitObserver = std::function<void(const WaitProgress&)>;

/// One wait; call hold() once.
struct Wait
{
	std::string what;
	Millis limit{10000};
	std::function<std::string()> seen{}; ///< renders the state for progress and failure
	WaitObserver observer{};             ///< called about four times a second

	/// Tries `holds` about every 10 ms.
	/// @return true as soon as it holds; false at the limit, after one line on
	///         standard error with the state last seen
	bool until(const std::function<bool()>& holds) const;
};

/// Short form of Wait.
bool waitFor(const std::function<bool()>& holds, Millis limit, const std::string& what,
             const std::function<std::string()>& seen = {});

} // namespace velarix::lab
