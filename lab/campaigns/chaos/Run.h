/// A random schedule on one pair, with a look at the invariants after each step.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "lab/campaigns/Record.h"
#include "lab/campaigns/chaos/Schedule.h"
#include "lab/campaigns/matrix/CellRun.h"
#include "lab/core/Lab.h"

namespace velarix::lab::chaos
{

struct Options
{
	std::filesystem::path installRoot{};
	CampaignTimes times{};
	std::vector<std::string> kinds{};
	std::uint64_t seed = 1;
	int worker = 0;
	std::optional<int> steps{};       ///< at most
	std::optional<Millis> duration{}; ///< no step begins after it
};

struct StepRecord
{
	int worker = 0;
	int step = 0;                      ///< from 1
	std::string faults;                ///< as drawn
	std::vector<std::string> injected; ///< those that found a place, as "NAME:NODE"
	Millis recovery{0};                ///< from the last repair until nothing changed any more
	Millis noAnswer{0};                ///< all the time without an answer, from the first fault on
	Millis splitBrain{0};
	std::vector<std::string> violations; ///< empty: the invariants hold
	std::string timeline;                ///< of the step, when they do not
};

/// What is wrong with a pair that has come to rest; empty: the invariants hold.
/// @param after   from the last repair until then
/// @param ended   nodes on which an agent ended by itself since the first fault: "", a, b, a+b
/// @param agents  nodes on which an agent runs: none, a, b, a+b
std::vector<std::string> violationsOf(const PhaseRecord& after, const std::string& ended, const std::string& agents);

/// Runs the schedule of one worker. A pair that is not well after a step is
/// replaced by a fresh one.
/// @param reported  after each step, with its record
/// @return why the worker did not get to its end; empty when it did
std::string runWorker(const Options& options, const std::function<void(const StepRecord&)>& report);

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(StepRecord, worker, step, faults, injected, recovery, noAnswer, splitBrain,
                                   violations, timeline)

} // namespace velarix::lab::chaos
