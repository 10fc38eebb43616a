/// The hostile clients: what each does to a pair, and what it comes to where nothing
/// keeps it out.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "lab/campaigns/hostile/Guard.h"
#include "lab/campaigns/hostile/Sockets.h"
#include "lab/core/Basics.h"

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
	long heard = 0;  ///< of what was forged or replayed: messages that the target has read
	long read = 0;   ///< messages that are not the partner's and that the target has read
};

/// How packets of an attack get to the heartbeat port.
enum class Knock
{
	none,    ///< not at all
	frames,  ///< requests that are never followed up
	connects ///< connections
};

/// Whether the target hears its partner meanwhile, where nothing keeps the attack out.
enum class PartnerHeard
{
	sometimes, ///< as it comes
	always,
	hardly
};

/// An address that is not his, and that the stranger answers for.
enum class Borrowed
{
	nothing,
	partner, ///< of the target's partner, on the communication network
	service  ///< the virtual one
};

struct AttackInfo
{
	const char* name = ""; ///< in the table of expectations
	bool lasting = false;  ///< goes on until it is stopped; the others end by themselves
	/// In the target's log once the stranger has got hold of the receiver; null:
	/// nothing has to be waited for.
	const char* mark = nullptr;
	Borrowed borrowed = Borrowed::nothing;
	bool overService = false; ///< comes over the service network
	bool bareTarget = false;  ///< the target's kernel makes no SYN cookies
	void (*carryOut)(const AttackOrders& orders, AttackTally& tally) = nullptr;
	const char* what = ""; ///< for a person
	Knock knock = Knock::connects;
	/// The weakest guard that keeps it out; none: no guard does.
	Guard stoppedBy = Guard::firewall;
	PartnerHeard partner = PartnerHeard::sometimes;
	AttackGoal (*goal)(long count) = [](long) { return AttackGoal{}; }; ///< of an attack that connects
	/// Tried also where a guard keeps it out: connections and frames.
	long leastTries = 1;

	/// What is said a few times and no more comes when the event has turned the
	/// target's role; the others are about it already.
	bool comesAfterEvent() const { return !lasting && mark == nullptr && goal(1).heard > 0; }

	bool isStoppedBy(Guard guard) const { return stoppedBy != Guard::none && guard >= stoppedBy; }
};

std::span<const AttackInfo> allAttacks();

/// @throws LabError when there is none of that name
const AttackInfo& attackNamed(std::string_view name);

} // namespace velarix::lab
