/// One case of the table of attacks, on a lab of its own, and what it came to. A case has a process of its own and
/// hands its record back as JSON; evidence/scripts/render.py makes a table of a file of them.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/types.h>

#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/Json.h"
#include "lab/campaigns/Times.h"
#include "lab/campaigns/hostile/Attacks.h"
#include "lab/core/Lab.h"

namespace velarix::lab::hostile
{

/// An agent as the kernel shows it: the lowest figures of two seconds.
struct AgentFigures
{
	pid_t pid = 0; ///< as the lab sees it; 0: there is none
	int threads = 0;
	int descriptors = 0;
	long residentKib = 0;
};

/// The process that holds the address, as the kernel shows it; zeros: there is none.
struct KeeperFigures
{
	pid_t pid = 0;
	long cpuMs = 0; ///< since its start
	long residentKib = 0;
};

struct PairSnapshot
{
	std::array<std::string, 2> roles;
	std::array<AgentFigures, 2> agents;
};

/// The pair while the attack went on.
struct Observation
{
	std::string owner; ///< in the end
	std::array<std::string, 2> roles;
	long durationMs = 0;
	long outageMs = 0; ///< the longest
	bool outageOpen = false;
	long noAnswerMs = 0;  ///< all outages
	long duplicateMs = 0; ///< both nodes held the address
	int moves = 0;        ///< of the address from one node to the other
	std::string ended;    ///< nodes whose agent ended by itself
};

/// What the attacker has done so far, as it says.
struct AttackTally
{
	long tries = 0;       ///< connections begun and frames made by hand
	long connections = 0; ///< that the node's kernel accepted
	long messages = 0;    ///< written completely
	long bytes = 0;
	long atOnce = 0;     ///< clients of a pool at once, connected or connecting
	long open = 0;       ///< clients of a pool that were connected at once
	long received = 0;   ///< of what was forged or replayed: messages that the target read
	std::string payload; ///< the heartbeat that was forged or replayed
};

struct Record : AttackTally
{
	std::string name;
	std::string mitigation;
	long read = 0;    ///< messages that the target read during the attack, its partner's among them
	long partner = 0; ///< its partner's
	long dropped = 0; ///< packets that the target's firewall dropped
	PairSnapshot before;
	KeeperFigures keeperBefore; ///< the target's, just before the attack
	Observation during;
	KeeperFigures keeperAfter;            ///< when it has been watched
	PairSnapshot after;                   ///< once nothing changes any more
	std::string owner;                    ///< then
	std::vector<std::string> differences; ///< from what is expected; empty: none
	std::string timeline;                 ///< when there are differences
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(AttackTally, tries, connections, messages, bytes, atOnce, open, received, payload)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(AgentFigures, pid, threads, descriptors, residentKib)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(KeeperFigures, pid, cpuMs, residentKib)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(PairSnapshot, roles, agents)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Observation, owner, roles, durationMs, outageMs, outageOpen, noAnswerMs, duplicateMs,
                                   moves, ended)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Record, name, mitigation, tries, connections, messages, bytes, atOnce, open,
                                   received, read, partner, dropped, payload, before, keeperBefore, during, keeperAfter,
                                   after, owner, differences, timeline)

std::string titleOf(const Record& record);
inline std::vector<std::string> differencesOf(const Record& record)
{
	return record.differences;
}

/// One line for each with the figures that an attack is judged by, and below it the differences.
std::string toText(const std::vector<Record>& records);

struct Plan
{
	Case cell;
	Mitigation mitigation = Mitigation::none;
	CampaignTimes times{};
	std::uint64_t seed = 1;
	long count = 10000; ///< see AttackerPlan
	std::filesystem::path installRoot{};
	bool beside = false; ///< see AttackerPlan
};

/// Lets the pair serve behind the mitigation, starts the attack, injects the event, watches,
/// ends the attack, watches again.
void runIn(Lab& lab, const Plan& plan, Record& record);
LabOptions optionsFor(const Plan& plan);

/// The record of a run that has not begun.
Record recordOf(const Plan& plan);

/// @return one line for each difference of the record from what was written down.
std::vector<std::string> differencesOf(const Record& record, const Plan& plan);

/// What the node has read from its heartbeat port so far.
ReceivedCounts receivedBy(Lab& lab, HostId node);

} // namespace velarix::lab::hostile
