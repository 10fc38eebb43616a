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
};

std::span<const AttackInfo> allAttacks();

/// @throws LabError when there is none of that name
const AttackInfo& attackNamed(std::string_view name);

/// How often the log tells that this text was received.
long timesReceived(const std::filesystem::path& log, const std::string& text);

} // namespace velarix::lab
