/// Packets that an attacker makes by hand, and those it captures. To be used on a
/// thread inside the network in question.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lab/campaigns/hostile/Sockets.h"
#include "lab/core/Basics.h"

namespace velarix::lab::hostile
{

/// Sends IPv4 packets of its own making.
class RawSender
{
public:
	/// @throws LabError without the privilege for raw sockets
	RawSender();

	/// A connection request that is never followed up.
	/// @param from  source address; need not be the host's own
	void sendSyn(const sockaddr_in& to, const sockaddr_in& from, AttackTally& tally);
	/// An ICMP message with that type and identifier, as the wire has it.
	void sendIcmp(const std::string& to, const std::string& from, std::uint8_t type, std::uint16_t id,
	              AttackTally& tally);

private:
	Descriptor m_socket;

	void send(const void* packet, std::size_t size, in_addr_t to, AttackTally& tally);
};

/// Changes one host's ARP cache: an answer that it did not ask for leads an address to
/// this host's interface.
class ArpSpoofer
{
public:
	/// @param victim  address of the host whose cache is changed; it has to answer ARP
	/// @throws LabError when there is no such interface or host
	ArpSpoofer(const std::string& interface, const std::string& victim);

	void claim(const std::string& address, AttackTally& tally);

private:
	Descriptor m_socket;
	int m_index = 0;
	std::string m_victim;
	std::array<std::uint8_t, 6> m_own{};
	std::array<std::uint8_t, 6> m_theirs{};
};

/// Waits for a heartbeat on an interface, as a tap on the cable sees it.
/// @param from  sender's address
/// @return its text; empty when none came within the limit
std::string captureHeartbeat(const std::string& interface, const std::string& from, Millis limit);

/// @return the IPv4 frames that come in to that interface meanwhile
std::vector<std::string> recordFrames(const std::string& interface, Millis span);

/// Sends frames again, to where they went, until it is stopped.
/// @throws LabError without the privilege for raw sockets
void replayFrames(const std::string& interface, const std::vector<std::string>& frames, const std::atomic<bool>& stop,
                  AttackTally& tally);

/// Waits for a ping likewise.
/// @return its identifier, as the wire has it; empty when none came within the limit
std::optional<std::uint16_t> capturePing(const std::string& interface, const std::string& from, Millis limit);

} // namespace velarix::lab::hostile
