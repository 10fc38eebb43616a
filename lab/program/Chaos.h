/// `velarix-lab chaos`: random faults and healings, repeatable from a seed.
#pragma once

#include <optional>
#include <string>

#include "lab/campaigns/chaos/ChaosRun.h"

namespace velarix::lab
{

struct ChaosCommand
{
	ChaosOptions options{};
	std::optional<int> steps{};   ///< of all lanes together
	std::optional<int> minutes{}; ///< neither of both: ten minutes
	int jobs = 1;                 ///< lanes side by side
	std::optional<int> lane{};    ///< only this one
	std::string expectations{};   ///< the file that names the faults; empty: that of this build
	std::string form = "text";    ///< text or json
	std::string output{};         ///< file; empty: standard output
	std::string from{};           ///< a report as JSON: tell its results, run nothing; empty: run
};

/// @return exit status: 0 when every invariant held after every step, else 1
/// @throws LabError
int runChaos(const ChaosCommand& command);

} // namespace velarix::lab
