/// The hostile clients: what each does to the heartbeat port of one node.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>

#include "Basics.h"
#include "Sockets.h"

namespace velarix::lab
{

struct AttackOrders
{
	HostId target = HostId::a;
	std::uint64_t seed = 1;
	long count = 10000;          ///< random messages; resets a tenth, messages that are waited for a twentieth of it
	std::string words{};         ///< the forged or overheard heartbeat
	std::filesystem::path log{}; ///< of the target, to see what it has read
	const std::atomic<bool>& stop;
};

/// What an attack comes to where nothing keeps it out; less, and it did not happen.
struct AttackGoal
{
	long connections = 1;
	long messages = 0;
	long atOnce = 0; ///< clients, connected or connecting
	long open = 0;   ///< clients, connected at once
	long heard = 0;  ///< messages that the target has read
};

/// How packets of an attack get to the heartbeat port.
enum class Knock
{
	none,    ///< not at all
	frames,  ///< requests that are never followed up
	connects ///< connections
};

struct AttackInfo
{
	const char* name; ///< in the table of expectations
	bool lasting;     ///< goes on until it is stopped; the others end by themselves
	/// In the target's log once the stranger has got hold of the receiver; null:
	/// nothing has to be waited for.
	const char* mark;
	/// The stranger also has the address of the target's partner, and says so.
	bool asPartner;
	void (*carryOut)(const AttackOrders& orders, AttackTally& tally);
	const char* what; ///< for a person
	Knock knock = Knock::connects;
	AttackGoal (*goal)(long count) = [](long) { return AttackGoal{}; }; ///< of an attack that connects
	/// Tried also where a guard keeps it out: connections and frames.
	long leastTries = 1;

	/// What is said a few times and no more comes when the event has turned the
	/// target's role; the others are about it already.
	bool comesAfterEvent() const { return !lasting && mark == nullptr && goal(1).heard > 0; }
};

std::span<const AttackInfo> allAttacks();

/// @throws LabError when there is none of that name
const AttackInfo& attackNamed(std::string_view name);

} // namespace velarix::lab
