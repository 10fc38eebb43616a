/// `velarix-lab matrix`: strikes pairs with every fault and compares what happens
/// with what was written down before.
#pragma once

#include <string>

#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/matrix/CellRun.h"

namespace velarix::lab::program
{

struct MatrixOptions : CampaignOptions ///< timelines are kept of runs that differ
{
	CampaignTimes times{};
	std::string expectations{}; ///< file; empty: the table of this build
	bool shortForm = false;     ///< the cells that stand for the whole
};

/// @return exit status: 0 when every run was as expected, else 1
/// @throws LabError
int runMatrix(const MatrixOptions& options);

} // namespace velarix::lab::program
