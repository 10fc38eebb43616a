/// `velarix-evidence takeover`: how long take-overs last beyond their prescribed waits.
#pragma once

#include "evidence/Lab.h"
#include "lab/campaigns/Campaign.h"
#include "lab/core/NodeSettings.h"

namespace velarix::evidence
{

/// `only` names paths; `runs` counts the samples of each path.
struct TakeoverOptions : CampaignOptions
{
	PairSettings times{};
};

/// @return exit status: 0 when every path has its samples, else 1
/// @throws LabError when no lab can be made
int runTakeover(const TakeoverOptions& options);

} // namespace velarix::evidence
