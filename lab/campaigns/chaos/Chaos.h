/// Random schedules of faults. A schedule is drawn whole from its seed, before
/// anything happens, and from nothing else: the same seed gives the same faults
/// at the same distances, whatever the pair does.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "lab/campaigns/Measure.h"
#include "lab/campaigns/Times.h"
#include "lab/core/Basics.h"
#include "lab/core/Fault.h"
#include "lab/core/Lab.h"

namespace velarix::lab::chaos
{

/// A fault that is injected into a node by what the node is at the time.
struct DrawnFault
{
	std::string kind;
	bool onMaster = true; ///< else on the other node; not used by faults that are not on a node
	Millis pause{0};      ///< before it comes
};

struct Step
{
	std::vector<DrawnFault> faults; ///< one or two
	Millis stands{0};               ///< from the last of them to the first repair
	Millis betweenRepairs{0};
};

/// One endless schedule.
class Schedule
{
public:
	/// @param worker  schedules of one seed that run side by side
	/// @param kinds  to draw from, not empty
	Schedule(std::uint64_t seed, int worker, std::vector<std::string> kinds);

	Step next();

private:
	std::uint64_t m_state;
	std::vector<std::string> m_kinds;

	/// Evenly from 0 to `below` - 1, the same on every machine.
	std::uint64_t draw(std::uint64_t below);
	Millis drawTime(Millis longest);
	DrawnFault drawFault(Millis longestPause);
};

/// "power-off of the master, deaf of the other one"
std::string toText(const Step& step);

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
/// @throws LabError when the worker does not get to its end
void runWorker(const Options& options, const std::function<void(const StepRecord&)>& report);

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(StepRecord, worker, step, faults, injected, recovery, noAnswer, splitBrain,
                                   violations, timeline)

/// Why a worker did not get to its end.
struct Problem
{
	int worker = 0;
	int step = 0; ///< that was under way, from 1
	std::string problem;
};

struct Results
{
	std::uint64_t seed = 1;
	PairSettings times{};
	std::vector<StepRecord> records;
	std::vector<Problem> problems; ///< workers that did not get to their end

	/// @return true when there are steps, all workers ended well and every invariant held
	bool good() const;
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Problem, worker, step, problem)

/// How many steps and faults there were, and each violation and problem with the command
/// that repeats it.
std::string toText(const Results& results);
nlohmann::json jsonOf(const Results& results);

} // namespace velarix::lab::chaos
