/// The verdict on a case: how its record differs from what was written down. Nothing in
/// here waits.
#pragma once

#include <string>
#include <vector>

#include "lab/campaigns/hostile/Run.h"

namespace velarix::lab::hostile
{

/// @return one line for each difference
std::vector<std::string> differencesOf(const Record& record, const Plan& plan);

} // namespace velarix::lab::hostile
