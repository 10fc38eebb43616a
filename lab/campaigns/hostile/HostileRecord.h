/// What one case came to, and how it travels: a case has a process of its own and
/// hands its record back as JSON.
#pragma once

#include <array>
#include <string>
#include <vector>

#include <sys/types.h>

#include "lab/campaigns/Record.h"
#include "lab/core/Basics.h"

namespace velarix::lab
{

/// An agent as the kernel shows it: the lowest figures of two seconds.
struct AgentVitals
{
	pid_t pid = 0; ///< as the lab sees it; 0: there is none
	int threads = 0;
	int descriptors = 0;
	long residentKib = 0;
};

/// One moment of the pair.
struct PairMoment
{
	std::array<std::string, 2> roles;
	std::array<AgentVitals, 2> agents;
};

struct HostileRecord
{
	std::string name;
	std::string guard;
	long tries = 0;       ///< connections begun and frames made by hand
	long connections = 0; ///< that the node's kernel accepted
	long messages = 0;    ///< written whole
	long bytes = 0;
	long atOnce = 0;  ///< clients of a crowd at once, connected or connecting
	long open = 0;    ///< clients of a crowd that were connected at once
	long heard = 0;   ///< of what was forged or replayed: messages that the target read
	long read = 0;    ///< messages that the target read during the attack, its partner's among them
	long partner = 0; ///< its partner's
	long dropped = 0; ///< packets that the target's firewall dropped
	PairMoment before;
	PairMoment after;                     ///< once all is at rest
	std::array<std::string, 2> roles;     ///< in the end of the attack
	std::string words;                    ///< the heartbeat that was forged or replayed
	PhaseRecord during;                     ///< of the attack
	std::string owner;                    ///< once all is at rest
	std::vector<std::string> differences; ///< from what was written down; empty: none
	std::string timeline;                 ///< when there are differences
};

std::string toJson(const HostileRecord& record);
/// All records of a run of the command.
std::string toJson(const std::vector<HostileRecord>& records);
/// @throws LabError when the text is no record
HostileRecord hostileRecordFrom(const std::string& json);

/// One line for each, and below it the differences.
std::string toText(const std::vector<HostileRecord>& records);
/// The same as a table for a document.
std::string toMarkdown(const std::vector<HostileRecord>& records);

} // namespace velarix::lab
