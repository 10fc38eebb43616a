/// What an attacker says to a heartbeat port: heartbeats that no agent sent, and
/// texts that are none.
#pragma once

#include <random>
#include <string>

namespace velarix::lab::hostile
{

/// The start time that every forged heartbeat carries; no agent of a lab sends it,
/// so a log shows which messages were forged.
inline constexpr const char* forgedTime = "20000101000000";

/// The same in random messages that resemble heartbeats.
inline constexpr const char* randomTime = "20260101000000";

/// @param role     field 3: "1" master, "2" slave
/// @param running  field 2
/// @param ask      field 5
std::string forgedHeartbeat(const std::string& role, const std::string& running, const std::string& ask);

/// The same from "ROLE-RUNNING-ASK", for example "2-0-1".
/// @throws LabError when the text is not of that form
std::string forgedHeartbeat(const std::string& fields);

/// A line feed, and what the log would show of a service address that is silent:
/// a head with this moment and a process that no agent is.
std::string forgedLogLine();

/// Up to 600 bytes that hold no heartbeat, however they are cut into reads (two that are
/// read as one may): noise, heartbeats with a wrong prefix or too few fields, format
/// directives, slashes only.
std::string randomPayload(std::mt19937_64& random);

} // namespace velarix::lab::hostile
