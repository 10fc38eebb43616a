/// How long a sound agent may be silent, from its settings.
#pragma once

#include <chrono>

#include "inspect/SettingsFile.h"

namespace velarix::ctl
{

using namespace inspect;

/// Settings that are missing or negative count as zero here: an agent with such
/// settings does not run for long anyway.
struct Timing
{
	std::chrono::seconds interval{};
	std::chrono::seconds receivingTime{};
	std::chrono::seconds checkCycle{};
	std::chrono::seconds waitingTime{};

	static Timing of(const SettingsFile& settings);

	/// Between two lines of any worker: the checker writes one each cycle, the
	/// sender one for each heartbeat or failed connect.
	std::chrono::milliseconds logPause() const;

	/// Between two lines of the receiver when it is not starting the service: a
	/// pass with three silent pings and a silence.
	std::chrono::milliseconds receiverPause() const;

	/// Between two lines that tell the role: whichever of checker and receiver is
	/// the slower.
	std::chrono::milliseconds rolePause() const;

	/// Between two heartbeats of a partner with the same settings.
	std::chrono::milliseconds heartbeatPause() const;

	/// A switchover from the end of the programs until they run on the partner,
	/// mostly: the agent notices, asks, the partner counts down twice and waits.
	std::chrono::milliseconds handOver() const;
};

} // namespace velarix::ctl
