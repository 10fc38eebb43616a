/// ARP answers that nobody asked for: they lead an address to the stranger's card. To be
/// used on a thread inside the stranger's network.
#pragma once

#include <functional>
#include <string>

#include "lab/campaigns/hostile/Attacks.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

/// What a host on that network is told to send to the stranger instead.
struct Lie
{
	Network network = Network::communication;
	std::string victim;  ///< address of the host that is told
	std::string address; ///< what it is told about
};

std::string partnersAddress(const AttackOrders& orders);
std::string targetsAddress(const AttackOrders& orders, Network network);

/// Works while the lie is told twenty times a second.
/// @throws LabError when nobody answers for the victim
void whileLying(const Lie& lie, AttackTally& tally, const std::function<void()>& work);

void untilStopped(const AttackOrders& orders);

/// The target takes the stranger's card for its partner's.
void cutPartner(const AttackOrders& orders, AttackTally& tally);
/// The target's pings to the gateway go astray.
void cutGateway(const AttackOrders& orders, AttackTally& tally);
/// The target's pings reach the gateway, the answers go astray.
void cutFromGateway(const AttackOrders& orders, AttackTally& tally);
/// A client's requests to the service address go astray.
void claimFromClient(const AttackOrders& orders, AttackTally& tally);
/// The target's pings to the service address reach the stranger.
void claimFromNode(const AttackOrders& orders, AttackTally& tally);

} // namespace velarix::lab
