/// The heartbeat on the wire: plain text, fields between "/", one message per
/// connection, for example /process/1/1/20240131235959/0/
///
/// There is no length, checksum, version or authentication. A peer's bytes are
/// never trusted: any text of any length is split or refused.
#pragma once

#include <string>

inline constexpr char kHeartbeatPrefix[] = "process";
inline constexpr char kHeartbeatMaster[] = "1";
inline constexpr char kHeartbeatSlave[] = "2";
inline constexpr char kHeartbeatAsking[] = "1";
inline constexpr char kHeartbeatNotAsking[] = "0";

/// The fields: as received, unchecked, or as they are to be sent.
struct HeartbeatMessage
{
	std::string prefix;         ///< begins with kHeartbeatPrefix in a heartbeat
	std::string processRunning; ///< "1" or "0"; no decision reads it
	std::string role;           ///< exactly kHeartbeatMaster means master, all else slave
	std::string startedTime;    ///< 14 digits or empty; no decision reads it
	std::string specialAsk;     ///< begins with kHeartbeatAsking when the partner asks
};

/// @return the text as it goes on the wire
std::string composeHeartbeat(const HeartbeatMessage& message);

/// Splits a received text at every "/". A "/" at the very end closes the message
/// and yields no field of its own; fields beyond the fifth are ignored.
/// @throws Poco::RangeException when fields are missing
HeartbeatMessage splitHeartbeat(const std::string& text);
