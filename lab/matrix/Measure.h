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

/// Fills in leg.noticed and leg.overhead: how long the outage of the leg lasted beyond
/// the prescribed waits of the path. That is what came after the decision less the waits
/// prescribed there, and what came before it beyond the waits prescribed there at most.
/// Where the decision begins with a pass of the receiver, the pass before it counts;
/// else all the time since the outage began, less what the lab itself took. Leaves both
/// empty when there was no ended outage or the path was not taken.
/// @param passes  beginnings of the receivers' passes, of node a and node b
void measureOverhead(const Timeline& timeline, const std::array<std::vector<Millis>, 2>& passes, const Path& path,
                     const PairTimes& times, LegRecord& leg);

} // namespace velarix::lab
