/// One schedule in one world, and what must not come of it:
///
/// | invariant | what holds | keeper | plain |
/// |---|---|---|---|
/// | one-owner | two nodes hold the address for this long at most, at a time | 1.1 s | 12 s |
/// | service-with-address | a program runs without the address for this long at most | 1 s | - |
/// | served | one owner, and the client has an answer from it, after | 16 s | 30 s |
/// | one-master | the owner is master and the other node is not, after | 16 s | 30 s |
/// | undisturbed | owner, answers and roles stay while nothing but a "standing" fault stands | always | always |
/// | asks-first | whoever raises the address has sent two probes since it received one of the other node | always | - |
/// | defended | the configured master keeps the address it holds whoever claims it | always | - |
/// | log | the role that an agent's log tells is another one than it has for this long at most | 5 s | 5 s |
/// | at-rest | nothing runs without a pause | always | always |
/// | threads | no worker ends, no agent ends itself | always | always |
///
/// After a fault that comes alone to a pair at rest, or its repair, the time of served and
/// one-master is the fault's own ("within" in Faults.cpp). That there is no state without a way
/// out is what served, one-master and at-rest say together: every schedule ends with all
/// repaired, and no time is without bound.
///
/// Known exceptions, each a consequence of the agent's fixed order:
/// - one-owner, keeper: counted while both holders live and hear each other's ARP in time. Plain:
///   while "served" is judged; nothing ends a split-brain of plain settings but a heartbeat
/// - service-with-address: not on nodes that stand still or are overloaded; a program that is
///   slow to end has its time, stop_timeout at most. Where both of the keeper's processes of a
///   service are killed, 6 s that the agent of a master has had to end it: on others ha-address does,
///   when it is asked for the address. Plain settings know no such thing: the program starts before
///   the address is there and outlives it wherever only the address goes
/// - served and one-master: since the last change, while everything is well but what is
///   "survivable" in Faults.cpp, on one node. Not after a failing command has been run
/// - defended: within a second after its carrier is back, or the host that stood still goes on, it
///   asks the network first, and yields to whoever answers
/// - undisturbed: not the roles where the fault is "owned": the nodes do not hear each other
/// - log: not on overloaded nodes; the agent logs a reset of its role after the commands of it, and
///   they wait for a service that is slow to end
/// - served and one-master, keeper: a holder without a carrier on the service network is none. It
///   yields when the carrier is back
/// - plain: a standby on which not all programs run never drops the address it has. From then on the
///   schedule is not judged for served and one-master; Outcome::leftAddress counts it, --left-at-most
///   limits it
#pragma once

#include <optional>
#include <string>

#include "dev/simulate/Faults.h"

namespace velarix::simulate
{

/// How long two nodes may hold the address with the keeper. A test shortens it.
/// The next heartbeat ends it, a second later at most; the slowest network takes its time.
inline Micros splitLimit = 1'100 * kMilli;

struct Violation
{
	const char* invariant = nullptr;
	Micros at = 0;
	std::string detail;
};

struct Outcome
{
	std::optional<Violation> violation;
	std::string timeline;     ///< when it was asked for
	Micros settled = 0;       ///< the longest time until the pair was well again
	bool leftAddress = false; ///< a standby without its programs has kept the address
};

Outcome run(const Schedule& schedule, Profile profile, std::uint64_t seed, bool withTimeline = false);

/// The least of the schedule that still gives a violation of the same invariant: fewer faults,
/// then rounder times.
Schedule minimised(Schedule schedule, Profile profile, std::uint64_t seed, const char* invariant);

} // namespace velarix::simulate
