/// What the keeper reports: to the system's journal, and to a file whose lines
/// "velarixctl events" puts beside the agent's.
///
/// A line of the file: TIME PROGRAM[PID] EVENT: DETAIL
///
///   2026-11-22T04:40:01.123+0100 ha-address[417] raised: 192.0.2.100 on eth0
///
/// TIME is local with its offset, EVENT one word. The file may be cut at any time
/// (logrotate's copytruncate). Events of ha-address: started, waiting, raised, lowered,
/// conflict, yielded, stalled, removed, offline, stopped, failed; of services: started,
/// running, died, restarting, check-failed, stopping, stopped, failed; of ha-reach: started,
/// target-found, target-lost, target-back, reachable, shared-outage, partner-only,
/// handing-over, isolated, removed, stopped, failed; of all: killed.
#pragma once

#include <map>
#include <string>
#include <utility>

#include "keeper/AddressMachine.h"

namespace velarix::keeper
{

inline constexpr const char* kEventFile = "/usr/velarix/log/keeper.log";

class Journal
{
public:
	explicit Journal(std::string program) : m_program(std::move(program)) {}

	/// Writes one event. Of one kind at most five in ten seconds are written, and then how
	/// many were not: whoever can cause them cannot fill the disk.
	void event(const std::string& word, const std::string& detail);

private:
	struct Count
	{
		Millis since = 0;
		int written = 0;
		int held = 0;
	};

	std::string m_program;
	std::map<std::string, Count> m_counts;
};

/// @return CLOCK_REALTIME in seconds, of a moment of CLOCK_BOOTTIME
long long wallClock(Millis moment);
/// @return as 2026-11-22T04:40:01.123+0100
std::string timeText(long long seconds, int millis);

} // namespace velarix::keeper
