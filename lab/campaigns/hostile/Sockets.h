/// Ordinary TCP clients of an attacker, alone and in pools. To be used on a thread
/// inside the attacker's network.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <netinet/in.h>

#include "lab/core/Basics.h"

namespace velarix::lab::hostile
{

/// What an attacker has done so far; written by its threads.
struct AttackTally
{
	std::atomic<long> tries{0};       ///< connections begun, or frames sent by hand
	std::atomic<long> connections{0}; ///< accepted by the node's kernel
	std::atomic<long> bytes{0};       ///< written to such connections
	std::atomic<long> messages{0};    ///< written whole
	std::atomic<long> mostAtOnce{0};  ///< clients of a clientPool that were connected or connecting at once
	std::atomic<long> mostOpen{0};    ///< those of them that were connected
	std::atomic<long> received{0};    ///< messages that the node has logged as received
};

sockaddr_in socketAddress(const std::string& address, int port);

/// Connects, waiting at most that long.
/// @param from  the address to speak from; empty: the host's own
/// @return empty when it is refused or not answered
Descriptor connectTo(const sockaddr_in& to, Millis limit, AttackTally& tally, const std::string& from = {});

/// Writes without waiting, and counts it.
/// @return false when not all was taken
bool sendPayload(const Descriptor& connection, std::string_view payload, AttackTally& tally);

/// Ends the connection with a reset instead of a farewell.
void resetConnection(Descriptor& connection);

/// Clients that are connected all the time: one that is refused or thrown out
/// comes again.
struct ClientPool
{
	int size = 1;
	std::string firstPayload{};   ///< sent once by each
	std::string payload{};        ///< sent by each again and again
	Millis period{1000};          ///< how often
	bool staysHalfClosed = false; ///< goes on with its end open when the node has closed its own; another one comes

	/// Keeps them at it until `stop`.
	void keepConnected(const sockaddr_in& target, AttackTally& tally, const std::atomic<bool>& stop) const;
};

} // namespace velarix::lab::hostile
