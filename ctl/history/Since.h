/// From when on a history is wanted, as people write it.
#pragma once

#include <optional>
#include <string_view>

#include "inspect/LogLine.h"

namespace velarix::ctl
{

using namespace inspect;

/// A span before now ("90s", "15m", "2h", "1d12h", "2 weeks"), a local date
/// ("2026-11-21", "2026-11-21 09:07", "2026-11-21T09:07:05"; with a "Z" at its
/// end UTC), a local time of today ("09:07"), "today" or "yesterday".
/// @return empty when it is none of these, or before the year 1970
std::optional<Instant> parseSince(std::string_view text, Instant now);

} // namespace velarix::ctl
