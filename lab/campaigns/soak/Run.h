/// A soak: one pair for a long time in real time, a step of the random schedule of
/// faults every minute, and both agents sampled all the while.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "lab/campaigns/Times.h"
#include "lab/campaigns/soak/Series.h"
#include "lab/core/Fault.h"

namespace velarix::lab::soak
{

struct Options
{
	std::filesystem::path installRoot{};
	CampaignTimes times{};
	std::vector<FaultKind> kinds{}; ///< to draw from, see kindsFor
	std::uint64_t seed = 1;
	Millis duration{3600000};
	Millis period{60000};         ///< a step begins so often, the first one after that time
	Millis betweenSamples{10000}; ///< of memory, descriptors, threads and log files
	/// For zombies and kept descriptors. No part of a second: an agent that works in
	/// whole seconds would be met in the same moment of its work each time.
	Millis betweenLooks{290};
	Millis settle{0}; ///< after the last repair, until the pair is at rest; 0: as long as it can be about something
	Bounds bounds{};
};

struct FaultRecord
{
	Millis at{0};
	Fault fault{};
	bool repair = false;
};

struct Results
{
	std::uint64_t seed = 1;
	Millis duration{0};
	Millis period{60000}; ///< a step was due so often
	PairSettings times{};
	Bounds bounds{};
	std::vector<FaultRecord> faults;
	std::vector<Series> series;
	/// What the whole pair did that it must not.
	std::vector<std::string> problems;
};

/// The faults of random schedules that the soak draws from.
/// @param restarts  those that end an agent as well; without them each agent has one
///        series from the beginning to the end
std::vector<FaultKind> kindsFor(const std::vector<FaultKind>& forChaos, bool restarts);

/// @param reported  a line for whoever looks on
/// @throws LabError when there is no pair, or no time for a warm-up
Results runSoak(const Options& options, const std::function<void(const std::string&)>& report);

/// How many faults have to have injected: half as many as there were periods, at least one.
int fewestFaults(const Results& results);

/// Everything that crosses a bound, one sentence each, the pair's problems as well. A
/// node without a series that is long enough to be judged is one, too, and so are too few faults.
std::vector<std::string> crossingsOf(const Results& results);

/// A line for each series, and the verdict.
std::string toText(const Results& results);
/// The same with every sample and fault.
nlohmann::json jsonOf(const Results& results);

} // namespace velarix::lab::soak
