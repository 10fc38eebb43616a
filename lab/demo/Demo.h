/// velarix-demo: shows a newcomer what a pair does.
#pragma once

#include <string>

#include "lab/core/NodeSettings.h"

namespace velarix::lab::demo
{

struct Options
{
	std::string installRoot{};
	PairSettings pair{.profile = Profile::keeper};
	std::string timelineFile{}; ///< scripts/lib/timeline_svg.py draws it; empty: none
};

/// Runs all phases on a lab of its own and prints what happens, and a table of them in the end.
/// @return exit status: 0 when every phase ended as expected, else 1
/// @throws LabError when the lab cannot run or a file cannot be written
int run(const Options& options);

} // namespace velarix::lab::demo
