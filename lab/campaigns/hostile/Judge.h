/// The verdict on a case: how its record differs from what was written down. Nothing in
/// here waits.
#pragma once

#include <string>
#include <vector>

#include "lab/campaigns/hostile/Run.h"

namespace velarix::lab::hostile
{

/// What may come on top of an agent's figures by the end of an attack. Threads may
/// not change at all.
struct GrowthBounds
{
	int descriptors = 2; ///< a connection under way at both looks
	long residentKib = 4096;
};

/// Where the partner has to be received, a heartbeat is read in this time at least: a pass
/// without one lasts as long.
inline constexpr Millis longestGap{3000};
/// Where it is hardly received, no more than one is read in this time.
inline constexpr Millis hardlyReceived{5000};

/// @return one line for each difference
std::vector<std::string> differencesOf(const Record& record, const Plan& plan, const GrowthBounds& bounds = {});

} // namespace velarix::lab::hostile
