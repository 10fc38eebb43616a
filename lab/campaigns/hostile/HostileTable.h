/// The table of what strangers can and cannot do, written down before it is tried:
/// one row for each case. lab/hostile/expectations explains the columns.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "lab/campaigns/hostile/Attacks.h"
#include "lab/campaigns/hostile/Guard.h"
#include "lab/core/Basics.h"
#include "lab/core/Fault.h"

namespace velarix::lab
{

/// How the client is served while the attack goes on.
enum class Away
{
	none,    ///< never away for longer than a second
	some,    ///< away, and back
	mostly,  ///< away for more than half of the time
	lasting, ///< away in the end
	any
};

/// @return "-", "some", "mostly", "lasting", "any"
const char* nameOf(Away away);

struct HostileOutcome
{
	std::string owner;           ///< in the end of the attack: a, b, a+b, none, either (a or b), any
	Away away = Away::none;      ///< at the client
	std::optional<bool> twice{}; ///< two owners for a time; empty: perhaps
	std::string after;           ///< owner once the attack is over and all is at rest: a, b, either
};

struct HostileCell
{
	std::string name; ///< attack / target / role of the target
	std::string attack;
	std::string detail; ///< of forged heartbeats: the fields; of "replay": whose heartbeat; else empty
	HostId master = HostId::a;
	HostId target = HostId::a;
	std::optional<Fault> event;             ///< comes while the attack goes on
	std::array<HostileOutcome, 3> outcomes; ///< by guard
	std::string note;

	const HostileOutcome& expected(Guard guard) const { return outcomes[static_cast<std::size_t>(guard)]; }
};

/// @return whether the owners are those of an outcome's word
bool isOwner(const std::string& owners, const std::string& word);

/// @throws LabError with the line's number and what is wrong with it
std::vector<HostileCell> parseHostileTable(const std::string& text);

/// @param path  empty: the table of this build
/// @throws LabError also when the file cannot be read
std::vector<HostileCell> readHostileTable(const std::string& path);

} // namespace velarix::lab
