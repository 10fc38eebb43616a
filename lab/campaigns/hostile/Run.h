/// One case of the table of attacks, on a lab of its own.
#pragma once

#include <cstdint>
#include <filesystem>

#include "lab/campaigns/Record.h"
#include "lab/campaigns/Times.h"
#include "lab/campaigns/hostile/CaseTable.h"
#include "lab/campaigns/hostile/Heartbeats.h"
#include "lab/campaigns/hostile/Record.h"
#include "lab/core/Lab.h"

namespace velarix::lab::hostile
{

struct Plan
{
	Case cell;
	Mitigation mitigation = Mitigation::none;
	CampaignTimes times{};
	std::uint64_t seed = 1;
	long count = 10000; ///< see AttackerPlan
	std::filesystem::path installRoot{};
	bool beside = false; ///< see AttackerPlan
};

/// Lets the pair serve behind the mitigation, starts the attack, injects the event, watches,
/// ends the attack, watches again. The record has the differences from what is expected.
/// @throws LabError when no lab can be made
Record runCase(const Plan& plan);

/// What the node has read from its heartbeat port so far.
ReceivedCounts receivedBy(Lab& lab, HostId node);

} // namespace velarix::lab::hostile
