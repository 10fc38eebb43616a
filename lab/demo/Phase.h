/// A phase of the demo: something that happens, an expected end and a measured result.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "lab/core/Basics.h"
#include "lab/core/Lab.h"

namespace velarix::lab::demo
{

struct Phase
{
	std::string title;                 ///< what happens, for the table and the picture
	std::string prospect;              ///< what a person will see, one sentence
	HostId ownerAfter;                 ///< the node that has to hold the service alone in the end
	std::function<void(Lab&)> happens; ///< faults, repairs, starts
	Millis limit{60000};               ///< to reach the end
	bool ownerBefore = true;           ///< the phase begins with a single owner
	std::string otherAfter = "slave";  ///< role of the other node in the end; empty: any
};

struct PhaseResult
{
	std::string title;
	std::string expected;     ///< node that was to hold the service
	std::string ownersBefore; ///< "none", "a", "b", "a+b"
	std::string ownersAfter;
	std::string answeredAfter; ///< node that answers the client in the end
	Millis from{0};
	Millis to{0};
	Millis outage{0};     ///< longest time without a break in which the client had no answer
	Millis splitBrain{0}; ///< time in which both nodes held the address
	bool asExpected = false;
};

/// Runs one phase: notes it in the timeline, lets it happen, and waits until the
/// expected node has held the service alone, and answered, for three seconds
/// and the other node has its role.
PhaseResult runPhase(Lab& lab, const Phase& phase, const WaitObserver& observer = {});

/// The table of results, with a head and one line per phase.
std::string toTable(const std::vector<PhaseResult>& results);

/// @return true when there are results and every one is as expected
bool allAsExpected(const std::vector<PhaseResult>& results);

} // namespace velarix::lab::demo
