/// Heartbeats that no agent sent, and what a node has read from its heartbeat port, as its
/// log tells.
#pragma once

#include <string>

namespace velarix::lab::hostile
{

/// The start time that every forged heartbeat carries; no agent of a lab sends it,
/// so a log shows which messages were forged. lab/guest/attacker.py has both, too.
inline constexpr const char* forgedTime = "20000101000000";
/// The same in random messages that resemble heartbeats.
inline constexpr const char* randomTime = "20260101000000";

/// @param fields  "ROLE-RUNNING-ASK", for example "2-0-1"
/// @throws LabError when the text is not of that form
std::string forgedHeartbeat(const std::string& fields);

struct ReceivedCounts
{
	long all = 0;     ///< messages, each read of the socket being one
	long partner = 0; ///< of them heartbeats of an agent: its partner's, and what is replayed of them
};

/// @param log  text of a node's log
ReceivedCounts receivedIn(const std::string& log);

} // namespace velarix::lab::hostile
