/// What a run of the matrix is remembered by, and how it travels: a run has a
/// process of its own and hands its record back as JSON.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lab/campaigns/Json.h"
#include "lab/core/Basics.h"

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

struct RunRecord
{
	std::string cell;
	int run = 0;
	std::uint64_t seed = 0;
	std::vector<PhaseRecord> phases;
	std::vector<std::string> left;        ///< what was left on the nodes in the end
	std::vector<std::string> differences; ///< of the run as a whole, beside those of its phases
	std::string timeline;                 ///< as text; of the matrix only when something differs

	/// @return true when neither a phase nor the whole differs
	bool asExpected() const;
};

/// @return one line for each difference; "fault: " and "repaired: " name the phase
std::vector<std::string> differencesOf(const RunRecord& record);

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(PhaseRecord, from, to, took, steady, steadyAfter, owner, answer, programs, outage,
                                   outageBegin, outageEnd, outageOpen, noAnswer, splitBrain, splitBrainLongest, noOwner,
                                   firstChange, moves, ended, disagreements, noticed, overhead, pings, differences)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(RunRecord, cell, run, seed, phases, left, differences, timeline)

} // namespace velarix::lab
