/// What the timeline of a lab tells about a stretch of time. Nothing in here
/// waits or needs a lab.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "Basics.h"
#include "Expectations.h"
#include "NodeSettings.h"
#include "Record.h"
#include "Timeline.h"

namespace velarix::lab
{

/// Fills in everything that the timeline tells about the time from leg.from to
/// leg.to: owners, answers, outage, moves, ended agents, disagreements at the end
/// and at every gain of the address.
void measure(const Timeline& timeline, LegRecord& leg);

/// When a lane of roles or owners last changed between two times; `from` when none did.
Millis lastChange(const Timeline& timeline, Millis from, Millis to);

/// How long the outage of the leg lasted beyond the prescribed waits of the path:
/// what came after the decision less the waits prescribed there, and what came
/// before it less the longest waits prescribed there and what the lab itself took,
/// if that is positive.
/// @param passes  beginnings of the receivers' passes, of node a and node b
/// @return empty when there was no ended outage or the path was not taken
std::optional<Millis> overheadOf(const Timeline& timeline, const std::array<std::vector<Millis>, 2>& passes,
                                 const LegRecord& leg, const Path& path, const PairTimes& times);

/// "none", "a", "b", "a+b"
std::string nodesText(bool a, bool b);

} // namespace velarix::lab
