/// `velarix-evidence idle`: what agent, keepalived and monit cost while nothing happens.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "evidence/Lab.h"
#include "lab/campaigns/Campaign.h"
#include "lab/core/NodeSettings.h"

namespace velarix::evidence
{

struct IdleOptions : ReportOptions
{
	std::filesystem::path installRoot{};
	PairSettings times{};
	int seconds = 60; ///< of a window
	int windows = 5;
	std::vector<std::string> guards{}; ///< empty: all
};

/// The guards run side by side, each in a lab of its own; then their memory is measured
/// once more, one after the other.
/// @return exit status: 0 when all was measured, else 1
/// @throws LabError when a guard is not installed or no lab can be made
int runIdle(const IdleOptions& options);

} // namespace velarix::evidence
