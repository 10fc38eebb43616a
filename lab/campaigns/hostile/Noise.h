/// Attacks that say nothing of sense: random messages, crowds, half-open connections,
/// scans. Each is carried out on a thread inside the stranger's network.
#pragma once

#include "lab/campaigns/hostile/Attacks.h"

namespace velarix::lab
{

/// How long a handshake is waited for where thousands are made.
inline constexpr Millis knockLimit{250};
/// The same where one matters.
inline constexpr Millis handshakeLimit{2000};

inline constexpr int highestPort = 65535;
inline constexpr int crowdSize = 200;

/// @return how many of an attack's count are resets
long resetsOf(long count);
/// @return how many of it are messages that are sent one by one
long readOnesOf(long count);

/// The target's heartbeat port.
sockaddr_in doorOf(const AttackOrders& orders);

void sayRandom(const AttackOrders& orders, AttackTally& tally);
void resetOften(const AttackOrders& orders, AttackTally& tally);
void sayRandomSlowly(const AttackOrders& orders, AttackTally& tally);
void crowdIn(const AttackOrders& orders, AttackTally& tally);
void keepSilent(const AttackOrders& orders, AttackTally& tally);
void dribble(const AttackOrders& orders, AttackTally& tally);
void hold(const AttackOrders& orders, AttackTally& tally);
void neverClose(const AttackOrders& orders, AttackTally& tally);
void burst(const AttackOrders& orders, AttackTally& tally);
void synFlood(const AttackOrders& orders, AttackTally& tally);
void scanBySyn(const AttackOrders& orders, AttackTally& tally);
void scanByConnect(const AttackOrders& orders, AttackTally& tally);

} // namespace velarix::lab
