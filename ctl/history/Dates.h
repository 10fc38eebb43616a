/// Dates and times as people and other programs write them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "inspect/LogLine.h"

namespace velarix::ctl
{

using inspect::Instant;

/// @param format as the library has it; without a zone the date is UTC
/// @return nothing for any other text, and for a year that no log has
std::optional<Instant> dateIn(const std::string& text, const std::string& format);

/// A span before now ("90s", "15m", "2h", "1d12h", "2 weeks"), a local date
/// ("2026-11-21", "2026-11-21 09:07", "2026-11-21T09:07:05"; with a "Z" at its
/// end UTC), a local time of today ("09:07"), "today" or "yesterday".
/// @return empty when it is none of these, or before the year 1970
std::optional<Instant> parseSince(std::string_view text, Instant now);

} // namespace velarix::ctl
