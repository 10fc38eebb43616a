/// The result of random schedules, for a person and for a program.
#pragma once

#include <string>
#include <vector>

#include "ChaosRun.h"

namespace velarix::lab
{

struct ChaosResults
{
	std::uint64_t seed = 1;
	PairTimes times{};
	std::vector<ChaosStepRecord> records;
	std::vector<std::string> problems; ///< lanes that did not get to their end

	/// @return true when there are steps, all lanes ended well and every invariant held
	bool good() const;
};

/// How many steps, which faults struck how often, how fast the pair recovered,
/// and each violation with the command that repeats it.
std::string toText(const ChaosResults& results);
std::string toJson(const ChaosResults& results);

} // namespace velarix::lab
