/// A random schedule on one pair, with a look at the invariants after each step.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lab/campaigns/chaos/ChaosPlan.h"
#include "lab/campaigns/matrix/CellRun.h"
#include "lab/campaigns/matrix/Record.h"
#include "lab/core/Lab.h"

namespace velarix::lab
{

struct ChaosOptions
{
	std::filesystem::path installRoot{};
	MatrixTimes times{};
	std::vector<FaultKind> kinds{};
	std::uint64_t seed = 1;
	int lane = 0;
	std::optional<int> steps{};       ///< at most
	std::optional<Millis> duration{}; ///< no step begins after it
};

struct ChaosStepRecord
{
	int lane = 0;
	int step = 0;                    ///< from 1
	std::string faults;              ///< as drawn
	std::vector<std::string> struck; ///< those that found a place, as "NAME:NODE"
	Millis recovery{0};              ///< from the last healing until nothing changed any more
	Millis noAnswer{0};              ///< all the time without an answer, from the first fault on
	Millis twoOwners{0};
	std::vector<std::string> violations; ///< empty: the invariants hold
	std::string timeline;                ///< of the step, when they do not
};

/// A pair that serves, made ready for the faults of `options.kinds`.
/// @throws LabError when it does not come to that
std::unique_ptr<Lab> servingPair(const ChaosOptions& options);

/// The node that a drawn fault strikes now. The master is the node that holds the
/// address alone, or else node a.
Fault resolved(Lab& lab, const DrawnFault& drawn);

/// What is wrong with a pair that has come to rest; empty: the invariants hold.
/// @param after   from the last healing until then
/// @param ended   nodes on which an agent ended by itself since the first fault: "", a, b, a+b
/// @param agents  nodes on which an agent runs: none, a, b, a+b
std::vector<std::string> violationsOf(const LegRecord& after, const std::string& ended, const std::string& agents);

/// Runs the schedule of one lane. A pair that is not well after a step is
/// replaced by a fresh one.
/// @param told  after each step, with its record
/// @return why the lane did not get to its end; empty when it did
std::string runChaosLane(const ChaosOptions& options, const std::function<void(const ChaosStepRecord&)>& told);

std::string toJson(const std::vector<ChaosStepRecord>& records);
/// @throws LabError when the text holds no such records
std::vector<ChaosStepRecord> chaosRecordsFrom(const std::string& json);

} // namespace velarix::lab
