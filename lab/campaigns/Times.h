/// How long the campaigns wait and what they allow, which follows from the settings of the pair;
/// and when a run injects, which follows from the seed, the cell and the number of the run.
#pragma once

#include <cstdint>
#include <random>
#include <string>

#include "lab/core/Basics.h"
#include "lab/core/NodeSettings.h"

namespace velarix::lab
{

struct CampaignTimes
{
	PairSettings pair{};
	Millis noOutage{1000}; ///< an outage up to this counts as none
	Millis slack{2000};    ///< allowed beyond the fixed waits: a loaded machine

	/// As long as the agent can be about something without a visible change: three
	/// silences are counted, the partner is probed, the address counted down to.
	Millis quiet() const;
	/// A phase that is not steady by then is not going to be.
	Millis patience() const { return 3 * quiet(); }
	/// A pair that does not serve by then is not going to.
	Millis serveLimit() const { return 6 * quiet(); }
	/// The longest run is a pair's start, a move and two phases.
	Millis runLimit() const { return 40 * quiet(); }
};

/// The name of the cell takes part, so that cells of one seed are not all struck
/// in the same moment of a pass.
std::uint64_t seedOfRun(std::uint64_t seed, int run, const std::string& cell);

/// Sleeps a part of `longest`, drawn evenly: a fault comes at any moment of a pass.
void waitForJitter(std::mt19937_64& random, Millis longest);

/// Adds up an expression such as "silence+2*ping+count".
/// @throws LabError naming the word that is no wait
Millis sumOf(const std::string& expression, const PairSettings& times);

/// "silence 3 s + 2 * ping 1 s + count 5 s", for the reports.
std::string explained(const std::string& expression, const PairSettings& times);

} // namespace velarix::lab
