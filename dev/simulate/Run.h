/// One schedule in one world, and what must not come of it.
///
/// | invariant | holds | keeper | plain | known exceptions |
/// |---|---|---|---|---|
/// | one-owner | at most one node holds the address, but for this long at a time | 1 s | kPlainSplit |
///   keeper: not counted while the nodes do not hear each other's ARP or a keeper that holds is
///   not there; plain: not counted unless everything is well, nothing in plain settings ends it |
/// | service-with-address | a program runs where the address is, but for this long | 1 s | - |
///   plain: nothing ties a program to the address; nodes that stand still or are overloaded |
/// | served | one owner, its program runs and answers the client | kKeeperSettle | kPlainSettle |
///   counted since the last change while nothing is wrong but on one node, and that of a kind
///   which the other node can replace ("survivable" in Faults.cpp) |
/// | one-master | one node is master, and it is the owner | as served | as served | as served |
/// | threads | no worker of an agent ends, no agent ends itself | never | never | none |
#pragma once

#include <optional>
#include <string>

#include "dev/simulate/Faults.h"

namespace velarix::simulate
{

struct Violation
{
	const char* invariant = nullptr;
	Micros at = 0;
	std::string detail;
};

struct Outcome
{
	std::optional<Violation> violation;
	std::string timeline; ///< when it was asked for
	Micros settled = 0;   ///< the longest time until the pair was well again
	bool leftAddress = false; ///< plain settings: a standby without programs has kept the address
};

Outcome run(const Schedule& schedule, Profile profile, std::uint64_t seed, bool withTimeline = false);

/// The least of the schedule that still gives a violation of the same invariant: fewer faults,
/// then rounder times.
Schedule minimised(Schedule schedule, Profile profile, std::uint64_t seed, const char* invariant);

} // namespace velarix::simulate
