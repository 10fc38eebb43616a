/// `velarix-evidence peers`: keepalived and ucarp through the cells of the matrix
/// that apply to them.
#pragma once

#include <string>
#include <vector>

#include "evidence/Lab.h"
#include "lab/campaigns/Campaign.h"

namespace velarix::evidence
{

struct PeerOptions : CampaignOptions ///< timelines and logs are kept of all runs
{
	std::vector<std::string> programs{}; ///< "keepalived", "ucarp"; empty: both
	std::vector<std::string> settings{}; ///< "defaults", "short"; empty: both
};

/// @return exit status: 0 when every run got to its end, else 1
/// @throws LabError when a program is missing or no lab can be made
int runPeers(const PeerOptions& options);

} // namespace velarix::evidence
