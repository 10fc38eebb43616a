/// One case of the table of attacks, on a lab of its own.
#pragma once

#include <cstdint>
#include <filesystem>

#include "HostileRecord.h"
#include "HostileTable.h"
#include "Lab.h"
#include "MatrixTimes.h"

namespace velarix::lab
{

struct HostilePlan
{
	HostileCell cell;
	Guard guard = Guard::none;
	MatrixTimes times{};
	std::uint64_t seed = 1;
	long count = 10000; ///< see AttackOrders
	std::filesystem::path installRoot{};
};

/// What may come on top of an agent's figures by the end of an attack. Threads may
/// not change at all.
struct GrowthBounds
{
	int descriptors = 2; ///< a connection under way at both looks
	long residentKib = 4096;
};

/// Lets the pair serve behind the guard, attacks, lets the event come, watches, ends
/// the attack, watches again. What is not as written down is told in differences.
/// @throws LabError when no lab can be made
HostileRecord runHostile(const HostilePlan& plan);

/// How a record differs from what was written down. Nothing in here waits.
std::vector<std::string> differencesOf(const HostileRecord& record, const HostilePlan& plan,
                                       const GrowthBounds& bounds = {});

/// The agents' figures and roles now. Takes two seconds.
PairMoment momentOf(Lab& lab);

} // namespace velarix::lab
