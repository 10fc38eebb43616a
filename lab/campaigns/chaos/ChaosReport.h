/// The result of random schedules, for a person and for a program.
#pragma once

#include <string>
#include <vector>

#include "lab/campaigns/chaos/ChaosRun.h"

namespace velarix::lab
{

/// Why a lane did not get to its end.
struct ChaosProblem
{
	int lane = 0;
	int step = 0; ///< that was under way, from 1
	std::string text;
};

struct ChaosResults
{
	std::uint64_t seed = 1;
	PairTimes times{};
	std::vector<ChaosStepRecord> records;
	std::vector<ChaosProblem> problems; ///< lanes that did not get to their end

	/// @return true when there are steps, all lanes ended well and every invariant held
	bool good() const;
};

/// How many steps, which faults struck how often, how fast the pair recovered,
/// and each violation and problem with the command that repeats it.
std::string toText(const ChaosResults& results);
std::string toJson(const ChaosResults& results);
/// Reads what toJson wrote.
/// @throws LabError when the text is no such report
ChaosResults chaosFrom(const std::string& json);

} // namespace velarix::lab
