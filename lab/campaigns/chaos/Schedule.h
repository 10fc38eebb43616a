/// Random schedules of faults. A schedule is drawn whole from its seed, before
/// anything happens, and from nothing else: the same seed gives the same faults
/// at the same distances, whatever the pair does.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/core/Basics.h"
#include "lab/core/Fault.h"

namespace velarix::lab::chaos
{

/// A fault that is injected into a node by what the node is at the time.
struct DrawnFault
{
	std::string kind;
	bool onMaster = true; ///< else on the other node; not used by faults that are not on a node
	Millis pause{0};      ///< before it comes
};

struct Step
{
	std::vector<DrawnFault> faults; ///< one or two
	Millis stands{0};               ///< from the last of them to the first repair
	Millis betweenRepairs{0};
};

/// One endless schedule.
class Schedule
{
public:
	/// @param worker  schedules of one seed that run side by side
	/// @param kinds  to draw from, not empty
	Schedule(std::uint64_t seed, int worker, std::vector<std::string> kinds);

	Step next();

private:
	std::uint64_t m_state;
	std::vector<std::string> m_kinds;

	/// Evenly from 0 to `below` - 1, the same on every machine.
	std::uint64_t draw(std::uint64_t below);
	Millis drawTime(Millis longest);
	DrawnFault drawFault(Millis longestPause);
};

/// "power-off of the master, deaf of the other one"
std::string toText(const Step& step);

} // namespace velarix::lab::chaos
