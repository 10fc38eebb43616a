/// What can happen to the pair: the lab's faults, under the lab's names. A new one is a row of
/// the table in Faults.cpp.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "dev/simulate/World.h"

namespace velarix::simulate
{

/// What is known of what comes of a fault.
enum class Known
{
	survivable, ///< the other node, when it is well, takes over as long as this lasts
	passing,    ///< when it is over the pair is well by itself
	standing,   ///< passing; alone, and not on the node that serves, it changes nothing at all
	owned,      ///< passing; alone it does not move the address, whatever the nodes think of each other
	gateways,   ///< survivable, but passing on the configured master
	operators,  ///< survivable until the failing command is run; from then on the agent's order needs
	            ///< an operator: who serves is not judged any more
	none        ///< there is no such fault
};

struct FaultKind
{
	const char* name;
	bool onNode;
	Known keeper;
	Known plain;
	/// Seconds until the pair is well again after it, and after its repair, where it comes alone to
	/// a pair at rest: with the keeper, and without. 0: as after many faults.
	std::array<int, 2> within;
	void (*inject)(World& world, Node& node);
	void (*repair)(World& world, Node& node); ///< null: it is over at once

	Micros bound(Profile profile) const { return within.at(profile == Profile::keeper ? 0 : 1) * kSecond; }
	Known known(Profile profile) const { return profile == Profile::keeper ? keeper : plain; }
};

/// @return null for none
const FaultKind* faultNamed(std::string_view name);

struct Fault
{
	const FaultKind* kind = nullptr;
	Host node = hostA;
	Micros at = 0;
	Micros until = 0; ///< its repair; kNoTime where there is none
};

using Schedule = std::vector<Fault>;

inline constexpr Micros kScheduleLength = 160 * kSecond;

/// One to six faults, the first after 12 s, all repaired by 115 s. Every fourth begins with two
/// that meet.
Schedule scheduleFrom(std::uint64_t seed, Profile profile);

/// "12.345 power-off:a until 20.000"
std::string toText(const Fault& fault);

/// "power-off:a"
std::string nameOf(const Fault& fault);

} // namespace velarix::simulate
