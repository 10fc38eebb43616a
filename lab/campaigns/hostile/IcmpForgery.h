/// Forged ICMP messages. The agent's pings read every ICMP message that reaches the node:
/// one with a wrong identifier from the pinged address counts as a lost ping, one with
/// the right identifier as an answer. Each attack is carried out on a thread inside the
/// attacker's network.
#pragma once

#include <string>
#include <vector>

#include "lab/campaigns/hostile/Attacks.h"

namespace velarix::lab::hostile
{

/// Where messages claim to come from: "gateway", or "partner" for the partner's and the
/// virtual address, which a standby pings before it takes over.
/// @throws LabError for any other word
std::vector<std::string> sourcesNamed(HostId target, const std::string& word);

/// Echo replies with wrong identifiers from those addresses.
void floodReplies(const AttackParameters& parameters, AttackTally& tally);
/// Echo requests likewise.
void floodRequests(const AttackParameters& parameters, AttackTally& tally);
/// Echo replies from the partner with the identifier of the target's agent.
void answerForPartner(const AttackParameters& parameters, AttackTally& tally);

} // namespace velarix::lab::hostile
