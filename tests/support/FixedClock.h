/// A clock that stands still, in a time zone of the test's choice, so that time
/// stamps are literal. A program that lists FixedClock.cpp links -Wl,--wrap=time.
#pragma once

#include <ctime>

namespace fixedclock
{

/// To the test's end the clock shows `seconds` since 1970, local time being `zone` (TZ).
void stopAt(std::time_t seconds, const char* zone);

} // namespace fixedclock
