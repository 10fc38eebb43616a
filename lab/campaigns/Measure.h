/// One phase of a run: what the timeline of a lab tells about it; watching the lab until nothing happens any
/// more, and looking what is on it then.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "lab/campaigns/Json.h"
#include "lab/core/Basics.h"
#include "lab/core/Lab.h"
#include "lab/core/LogWatch.h"
#include "lab/core/NodeSettings.h"
#include "lab/core/Timeline.h"
#include "lab/tables/Expectations.h"

namespace velarix::lab
{

/// One phase of a run: a fault stands, or has been repaired.
struct PhaseRecord
{
	Millis from{0}; ///< just before the fault or the repair
	Millis to{0};
	Millis took{0};        ///< for the lab to inject or repair; booting a host is the longest
	bool steady = false;   ///< nothing changed any more for the quiet time
	Millis steadyAfter{0}; ///< the last change, since the beginning of the phase
	std::string owner;     ///< in the end: none, a, b, a+b
	std::string answer;    ///< who answered most of the last seconds: none, a, b, or mixed
	std::string programs;  ///< nodes on which the managed program runs: none, a, b, a+b
	Millis outage{0};      ///< longest time without an answer to the client
	Millis outageBegin{0};
	Millis outageEnd{0};
	bool outageOpen = false; ///< it had not ended when the phase did
	Millis noAnswer{0};      ///< all the time without an answer
	Millis splitBrain{0};
	Millis splitBrainLongest{0}; ///< longest interval of it
	Millis noOwner{0};
	std::optional<Millis> firstChange; ///< of the owner, since the beginning; empty: it did not change
	int moves = 0;     ///< of the address from one node to the other, the last owner before the phase included
	std::string ended; ///< nodes whose agent ended by itself: "", a, b, a+b
	std::vector<std::string> disagreements; ///< between the logs and what was observed
	std::optional<Millis> noticed;          ///< from the beginning of the outage to the decision; empty: as overhead
	std::optional<Millis> overhead;         ///< outage beyond the fixed waits; empty: another path, or no outage
	std::optional<Millis> pings; ///< part of the overhead: silent probes beyond a second each; empty: as overhead
	std::vector<std::string> differences; ///< from what was expected of the phase; empty: all as expected
};

/// What was seen otherwise than it was expected, one line for each.
struct Differences : std::vector<std::string>
{
	void add(const std::string& what, const std::string& seen, const std::string& wanted)
	{
		push_back(what + " " + seen + ", expected " + wanted);
	}
	void atLeast(const std::string& what, long seen, long least)
	{
		seen < least ? add(what, std::to_string(seen), "at least " + std::to_string(least)) : void();
	}
	void atMost(const std::string& what, long seen, long most)
	{
		seen > most ? add(what, std::to_string(seen), "at most " + std::to_string(most)) : void();
	}
	void atMost(const std::string& what, Millis seen, Millis most)
	{
		seen > most ? add(what, secondsText(seen), "at most " + secondsText(most)) : void();
	}
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(PhaseRecord, from, to, took, steady, steadyAfter, owner, answer, programs, outage,
                                   outageBegin, outageEnd, outageOpen, noAnswer, splitBrain, splitBrainLongest, noOwner,
                                   firstChange, moves, ended, disagreements, noticed, overhead, pings, differences)
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

/// Starts both agents and waits until this node serves and the other one is on standby.
/// @throws LabError when it does not come to that within twice the limit
void letServe(Lab& lab, HostId master, Millis limit);

/// Waits until owners and roles have not changed for `quiet`, at most `limit`
/// since `from`, and measures the whole.
/// @param took  see PhaseRecord
PhaseRecord observe(Lab& lab, Millis from, Millis quiet, Millis limit, Millis took = Millis(0));

/// Nodes on which the managed program runs (zombies left out).
std::string programsOf(Lab& lab);

/// What is on the nodes and should not be: zombies, programs where the address is
/// not, announcers of an address that is not held, commands that do not end. Takes
/// two looks, a second and a half apart.
std::vector<std::string> leftOn(Lab& lab);

/// The errors that the nodes' logs tell, one line each, but for the two that every
/// silence brings.
std::string errorsIn(Lab& lab);

} // namespace velarix::lab
