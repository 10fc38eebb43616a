/// Unsolicited ARP answers: they lead an address to the attacker's interface. To be
/// used on a thread inside the attacker's network.
#pragma once

#include <functional>
#include <string>

#include "lab/campaigns/hostile/Attacks.h"
#include "lab/core/Plan.h"

namespace velarix::lab::hostile
{

/// What a host on that network is made to send to the attacker instead.
struct ArpSpoof
{
	Network network = Network::communication;
	std::string victim;  ///< address of the host whose ARP cache is changed
	std::string address; ///< the entry
};

std::string partnersAddress(const AttackParameters& parameters);
std::string targetsAddress(const AttackParameters& parameters, Network network);

/// Works while the answer is sent twenty times a second.
/// @throws LabError when no host answers for the victim
void whileSpoofing(const ArpSpoof& spoof, AttackTally& tally, const std::function<void()>& work);

void untilStopped(const AttackParameters& parameters);

/// The target takes the attacker's interface for its partner's.
void cutPartner(const AttackParameters& parameters, AttackTally& tally);
/// Both nodes take the attacker's interface for each other's, and the attacker passes everything on.
void relayNodes(const AttackParameters& parameters, AttackTally& tally);
/// The target's pings to the gateway go astray.
void cutGateway(const AttackParameters& parameters, AttackTally& tally);
/// The target's pings reach the gateway, the answers go astray.
void cutFromGateway(const AttackParameters& parameters, AttackTally& tally);
/// A client's requests to the service address go astray.
void claimFromClient(const AttackParameters& parameters, AttackTally& tally);
/// The target's pings to the service address reach the attacker.
void claimFromNode(const AttackParameters& parameters, AttackTally& tally);

} // namespace velarix::lab::hostile
