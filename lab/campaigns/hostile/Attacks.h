/// The attacks: what each does to a pair, and how far it has to get where nothing
/// keeps it out.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lab/campaigns/hostile/Mitigation.h"
#include "lab/campaigns/hostile/Sockets.h"
#include "lab/core/Basics.h"

namespace velarix::lab::hostile
{

struct AttackParameters
{
	HostId target = HostId::a;
	std::uint64_t seed = 1;
	long count = 10000;    ///< random messages; resets a tenth, messages that are waited for a twentieth of it
	std::string payload{}; ///< the forged or captured heartbeat; of ICMP: the address it claims to come from, or an id
	std::filesystem::path log{};         ///< of the target, to see what it has read
	std::string at{};                    ///< address of the target that is attacked
	std::string partner{};               ///< address by which the target knows its partner
	std::vector<std::string> recorded{}; ///< frames that have reached it
	const std::atomic<bool>& stop;
};

/// What an attack comes to where nothing keeps it out; less, and it did not happen.
struct AttackGoal
{
	long connections = 1;
	long messages = 0;
	long atOnce = 0;   ///< clients, connected or connecting
	long open = 0;     ///< clients, connected at once
	long received = 0; ///< of what was forged or replayed: messages that the target has read
	long read = 0;     ///< messages that are not the partner's and that the target has read
};

/// How packets of an attack get to the heartbeat port.
enum class PortUse
{
	none,    ///< not at all
	frames,  ///< requests that are never followed up
	connects ///< connections
};

/// Whether the target receives heartbeats of its partner meanwhile, where nothing keeps the attack out.
enum class PartnerReceived
{
	sometimes, ///< as it comes
	always,
	hardly
};

/// An address of another host that the attacker answers for.
enum class TakenAddress
{
	nothing,
	partner, ///< of the target's partner, on the communication network
	service  ///< the virtual one
};

struct AttackInfo
{
	const char* name = ""; ///< in the table of expectations
	bool lasting = false;  ///< goes on until it is stopped; the others end by themselves
	/// In the target's log once the attacker has the receiver's connection; null:
	/// nothing has to be waited for.
	const char* mark = nullptr;
	TakenAddress takes = TakenAddress::nothing;
	bool overService = false; ///< comes over the service network
	bool bareTarget = false;  ///< the target's kernel makes no SYN cookies
	bool relays = false;      ///< passes on what is led to it, from its own address
	bool slowPings = false;   ///< partner and gateway answer pings 2 ms later
	void (*carryOut)(const AttackParameters& parameters, AttackTally& tally) = nullptr;
	const char* what = ""; ///< for a person
	PortUse portUse = PortUse::connects;
	/// The weakest mitigation that keeps it out; none: no mitigation does.
	Mitigation stoppedBy = Mitigation::port;
	PartnerReceived partner = PartnerReceived::sometimes;
	AttackGoal (*goal)(long count) = [](long) { return AttackGoal{}; }; ///< of an attack that connects
	/// Attempts even where a mitigation keeps it out: connections and frames.
	long leastTries = 1;

	/// What is sent a few times and no more comes when the event has turned the
	/// target's role; the others have begun before.
	bool comesAfterEvent() const { return !lasting && mark == nullptr && goal(1).received > 0; }

	/// The tunnel does not keep ARP answers out, and no connection passes beside it.
	bool isStoppedBy(Mitigation mitigation) const
	{
		const bool byTunnel = stoppedBy <= Mitigation::firewall || portUse == PortUse::connects;
		return stoppedBy != Mitigation::none && (mitigation == Mitigation::tunnel ? byTunnel : mitigation >= stoppedBy);
	}
};

std::span<const AttackInfo> allAttacks();

/// @throws LabError when there is none of that name
const AttackInfo& attackNamed(std::string_view name);

} // namespace velarix::lab::hostile
