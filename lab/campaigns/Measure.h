/// What the timeline of a lab tells about An interval. Nothing in here
/// waits or needs a lab.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "lab/campaigns/Record.h"
#include "lab/core/Basics.h"
#include "lab/core/LogWatch.h"
#include "lab/core/NodeSettings.h"
#include "lab/core/Timeline.h"
#include "lab/tables/Expectations.h"

namespace velarix::lab
{

/// Fills in everything that the timeline tells about the time from phase.from to
/// phase.to: owners, answers, outage, moves, ended agents, disagreements at the end
/// and at every gain of the address.
void measure(const Timeline& timeline, PhaseRecord& phase);

/// When a track of roles or owners last changed between two times; `from` when none did.
Millis lastChange(const Timeline& timeline, Millis from, Millis to);

/// What the logs tell beside the timeline, of node a and node b.
using Observed = std::array<LogSeen, 2>;

/// Fills in phase.noticed, phase.overhead and phase.pings: how long the outage of the phase lasted beyond
/// the fixed waits of the path. That is what came after the decision less the waits
/// fixed there, and what came before it beyond the waits fixed there at most.
/// Where the decision begins with a pass of the receiver, the pass before it counts;
/// else all the time since the outage began, less what the lab itself took. phase.pings is
/// the part of it in which the deciding node's probes were silent beyond the second that
/// is counted for each: how long ten pings are waited for is up to the library and to the
/// kernel's answers. Leaves all empty when there was no ended outage or the path was not
/// taken.
void measureOverhead(const Timeline& timeline, const Observed& observed, const Path& path, const PairSettings& times,
                     PhaseRecord& phase);

} // namespace velarix::lab
