/// Times and spans as every verb writes them.
#pragma once

#include <chrono>
#include <string>

namespace velarix::inspect
{

/// For people: "0.4 s", "12 s", "3 min 5 s", "3 h 12 min", "2 d 4 h". A negative
/// span has a minus.
std::string spanText(std::chrono::milliseconds span);

/// For people, local time: "2026-11-21 09:07:05".
std::string localText(std::chrono::system_clock::time_point time);

/// For programs, UTC: "2026-11-21T08:07:05.300Z".
std::string isoText(std::chrono::system_clock::time_point time);

/// @return seconds, to the millisecond
double inSeconds(std::chrono::milliseconds span);

/// @return seconds since 1970, to the millisecond
double inSeconds(std::chrono::system_clock::time_point time);

} // namespace velarix::inspect
