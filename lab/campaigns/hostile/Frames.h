/// Packets that a stranger makes by hand, and those that he overhears. To be used
/// on a thread inside the network in question.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "lab/campaigns/hostile/Sockets.h"
#include "lab/core/Basics.h"

namespace velarix::lab
{

/// Sends connection requests that are never followed up.
class SynSender
{
public:
	/// @throws LabError without the privilege for raw sockets
	SynSender();

	/// @param from  source address; need not be the host's own
	void send(const sockaddr_in& to, const sockaddr_in& from, AttackTally& tally);

private:
	Descriptor m_socket;
};

/// Tells one host that an address belongs to this host's card: an answer to a
/// question that nobody asked.
class ArpLiar
{
public:
	/// @param victim  address of the host that is lied to; it has to answer questions
	/// @throws LabError when there is no such card or host
	ArpLiar(const std::string& card, const std::string& victim);

	void claim(const std::string& address, AttackTally& tally);

private:
	Descriptor m_socket;
	int m_index = 0;
	std::string m_victim;
	std::array<std::uint8_t, 6> m_own{};
	std::array<std::uint8_t, 6> m_theirs{};
};

/// Waits for a heartbeat that goes past a card, as somebody with a tap on the cable
/// does.
/// @param from  sender's address
/// @return its text; empty when none came within the limit
std::string overhearHeartbeat(const std::string& card, const std::string& from, Millis limit);

} // namespace velarix::lab
