/// Attacks that say nothing of sense: random messages, crowds, half-open connections,
/// scans. Each is carried out on a thread inside the attacker's network.
#pragma once

#include "lab/campaigns/hostile/Attacks.h"

namespace velarix::lab::hostile
{

/// How long a handshake is waited for where thousands are made.
inline constexpr Millis connectLimit{250};
/// The same where one matters.
inline constexpr Millis handshakeLimit{2000};

inline constexpr int highestPort = 65535;
inline constexpr int clientPoolSize = 200;

/// @return how many of an attack's count are resets
long resetsOf(long count);
/// @return how many of it are messages that are sent one by one
long readOnesOf(long count);

/// The target's heartbeat port.
sockaddr_in heartbeatPortOf(const AttackParameters& parameters);

void sendRandom(const AttackParameters& parameters, AttackTally& tally);
void connectAndReset(const AttackParameters& parameters, AttackTally& tally);
void sendRandomOneByOne(const AttackParameters& parameters, AttackTally& tally);
void connectClientPool(const AttackParameters& parameters, AttackTally& tally);
void connectSilently(const AttackParameters& parameters, AttackTally& tally);
void sendSlowly(const AttackParameters& parameters, AttackTally& tally);
void holdConnection(const AttackParameters& parameters, AttackTally& tally);
void neverClose(const AttackParameters& parameters, AttackTally& tally);
void sendBurst(const AttackParameters& parameters, AttackTally& tally);
void synFlood(const AttackParameters& parameters, AttackTally& tally);
void scanBySyn(const AttackParameters& parameters, AttackTally& tally);
void scanByConnect(const AttackParameters& parameters, AttackTally& tally);

} // namespace velarix::lab::hostile
