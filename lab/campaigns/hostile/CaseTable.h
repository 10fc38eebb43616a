/// The table of attacks and of what is expected of each: one row for each case.
/// lab/tables/attacks.toml explains the keys.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "lab/campaigns/hostile/Attacks.h"
#include "lab/campaigns/hostile/Mitigation.h"
#include "lab/core/Basics.h"
#include "lab/core/Fault.h"

namespace velarix::lab::hostile
{

/// How long the client has no service while the attack goes on.
enum class Outage
{
	none,    ///< never longer than a second
	some,    ///< an outage that ends
	mostly,  ///< more than half of the time
	lasting, ///< an outage that has not ended
	any
};

/// @return "-", "some", "mostly", "lasting", "any"
const char* nameOf(Outage outage);

struct Outcome
{
	std::string owner;               ///< at the end of the attack: a, b, a+b, none, either (a or b), any
	Outage outage = Outage::none;    ///< at the client
	std::optional<bool> duplicate{}; ///< two nodes hold the address for a time; empty: perhaps
	std::string after;               ///< owner once the attack is over and nothing changes any more: a, b, either
};

struct Case
{
	std::string name; ///< attack / target / role of the target
	std::string attack;
	std::string detail; ///< of forged heartbeats: the fields; of "replay": whose heartbeat; of ICMP: gateway, or
	                    ///< partner for the partner's and the virtual address
	HostId master = HostId::a;
	HostId target = HostId::a;
	std::optional<Fault> event;      ///< comes while the attack goes on
	std::array<Outcome, 5> outcomes; ///< by mitigation
	std::string note;

	const Outcome& expected(Mitigation mitigation) const { return outcomes[static_cast<std::size_t>(mitigation)]; }
};

/// @return whether the owners are those of the word of an outcome
bool isOwner(const std::string& owners, const std::string& word);

/// @throws LabError with the line's number and what is wrong with it
std::vector<Case> parseTable(const std::string& text);

/// @param path  empty: the table of this build
/// @throws LabError also when the file cannot be read
std::vector<Case> readTable(const std::string& path);

} // namespace velarix::lab::hostile
