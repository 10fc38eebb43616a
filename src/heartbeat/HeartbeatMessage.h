/// The heartbeat on the wire: plain text, fields between "/", one message per
/// connection, for example /process/1/1/20240131235959/0/
///
/// There is no length, checksum, version or authentication. A peer's bytes are
/// never trusted: any text of any length is split or refused.
#pragma once

#include <string>

/// The fields as received, unchecked.
struct HeartbeatMessage
{
	std::string prefix;         ///< begins with "process" in a heartbeat
	std::string processRunning; ///< "1" or "0"; no decision reads it
	std::string role;           ///< exactly "1" means master, all else slave
	std::string startedTime;    ///< 14 digits or empty; no decision reads it
	std::string specialAsk;     ///< begins with "1" when the partner asks
};

/// Splits a received text at every "/". A "/" at the very end closes the message
/// and yields no field of its own; fields beyond the fifth are ignored.
/// @throws Poco::RangeException when fields are missing
HeartbeatMessage splitHeartbeat(const std::string& text);
