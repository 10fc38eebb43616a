/// `velarix-lab soak`: one pair for a long time, with faults, and whether its agents grow.
#pragma once

#include <string>

#include "lab/campaigns/soak/Run.h"

namespace velarix::lab::program
{

struct SoakCommand
{
	soak::Options options{};
	int minutes = 60;
	int warmUp = 600;           ///< seconds
	bool restarts = false;      ///< faults that end an agent as well
	std::string expectations{}; ///< the file that names the faults; empty: that of this build
	std::string json{};         ///< file for all samples; empty: none
};

/// @return exit status: 0 when no bound was crossed, else 1
/// @throws LabError
int runSoak(const SoakCommand& command);

} // namespace velarix::lab::program
