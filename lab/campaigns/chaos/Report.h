/// The result of random schedules: the verdict on the terminal, everything as JSON.
#pragma once

#include <string>
#include <vector>

#include "lab/campaigns/chaos/Run.h"

namespace velarix::lab::chaos
{

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
