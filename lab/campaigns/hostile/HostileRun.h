/// One case of the table of attacks, on a lab of its own.
#pragma once

#include <cstdint>
#include <filesystem>

#include "lab/campaigns/hostile/Heard.h"
#include "lab/campaigns/hostile/HostileRecord.h"
#include "lab/campaigns/hostile/HostileTable.h"
#include "lab/campaigns/Times.h"
#include "lab/core/Lab.h"

namespace velarix::lab
{

struct HostilePlan
{
	HostileCell cell;
	Guard guard = Guard::none;
	CampaignTimes times{};
	std::uint64_t seed = 1;
	long count = 10000; ///< see AttackOrders
	std::filesystem::path installRoot{};
};

/// Lets the pair serve behind the guard, attacks, lets the event come, watches, ends
/// the attack, watches again. What is not as written down is told in differences.
/// @throws LabError when no lab can be made
HostileRecord runHostile(const HostilePlan& plan);

/// The agents' figures and roles now. Takes two seconds.
PairMoment momentOf(Lab& lab);

/// What the stranger has done, into the record of the case.
void keepTally(const AttackTally& tally, HostileRecord& record);

/// What the node has read from its heartbeat port so far.
HeardCounts heardBy(Lab& lab, HostId node);

} // namespace velarix::lab
