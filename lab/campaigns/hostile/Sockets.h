/// Ordinary TCP clients of a stranger, alone and in crowds. To be used on a thread
/// inside the stranger's network.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <netinet/in.h>

#include "lab/core/Basics.h"

namespace velarix::lab
{

/// What a stranger has done so far; written by its threads.
struct AttackTally
{
	std::atomic<long> tries{0};       ///< connections begun, or frames sent by hand
	std::atomic<long> connections{0}; ///< accepted by the node's kernel
	std::atomic<long> bytes{0};       ///< written to such connections
	std::atomic<long> messages{0};    ///< written whole
	std::atomic<long> mostAtOnce{0};  ///< clients of a crowd that were connected or connecting at once
	std::atomic<long> mostOpen{0};    ///< those of them that were connected
	std::atomic<long> heard{0};       ///< messages that the node's log tells as received
};

sockaddr_in socketAddress(const std::string& address, int port);

/// Connects, waiting at most that long.
/// @param from  the address to speak from; empty: the host's own
/// @return empty when it is refused or not answered
Descriptor connectTo(const sockaddr_in& to, Millis limit, AttackTally& tally, const std::string& from = {});

/// Writes without waiting, and counts it.
/// @return false when not all was taken
bool say(const Descriptor& connection, std::string_view words, AttackTally& tally);

/// Ends the connection with a reset instead of a farewell.
void resetConnection(Descriptor& connection);

/// Clients that are connected all the time: one that is refused or thrown out
/// comes again.
struct Crowd
{
	int size = 1;
	std::string firstWords{};   ///< said once by each
	std::string words{};        ///< said by each again and again
	Millis period{1000};        ///< how often
	bool staysWhenLeft = false; ///< goes on with its end open when the node has closed its own; another one comes

	/// Keeps them at it until `stop`.
	void besiege(const sockaddr_in& door, AttackTally& tally, const std::atomic<bool>& stop) const;
};

} // namespace velarix::lab
