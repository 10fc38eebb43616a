/// Counts over the log that go on from run to run. The log is not read from its
/// beginning each time: the former counts stand in the file that the last run
/// wrote, with the moment up to which they count, and only what was logged since
/// then is added.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "ctl/status/LogTail.h"

namespace velarix::ctl
{

class Exposition;

struct Counters
{
	/// Every message up to this moment is counted.
	std::optional<Instant> until;
	/// By the metric and the value of its label.
	std::map<std::pair<std::string_view, std::string>, std::uint64_t> counts;
	/// The role changed last, as the former run knew it; kept so that the log need
	/// not be searched each time.
	std::optional<Instant> roleChanged;
};

/// @return the counts of a file that writeCounters wrote; zeros and no moment for
///         any other text
Counters readCounters(const std::string& exposition);

/// Adds what was logged after `counters.until` and up to a little before now,
/// and moves `until` there. Counters without a moment begin at zero.
void countOn(Counters& counters, const LogWish& log);

void writeCounters(Exposition& out, const Counters& counters);

} // namespace velarix::ctl
