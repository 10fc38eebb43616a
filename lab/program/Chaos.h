/// `velarix-lab chaos`: random faults and repairs, repeatable from a seed.
#pragma once

#include <optional>
#include <string>

#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/chaos/Run.h"

namespace velarix::lab::program
{

struct ChaosCommand : ReportOptions
{
	chaos::Options options{};
	std::optional<int> steps{};   ///< of all workers together
	std::optional<int> minutes{}; ///< neither of both: ten minutes
	int jobs = 1;                 ///< workers side by side
	std::optional<int> worker{};  ///< only this one
	std::string expectations{};   ///< the file that names the faults; empty: that of this build
};

/// @return exit status: 0 when every invariant held after every step, else 1
/// @throws LabError
int runChaos(const ChaosCommand& command);

} // namespace velarix::lab::program
