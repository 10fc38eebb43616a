/// The attacks: what each does to a pair, and how far it has to get where nothing
/// keeps it out.
#pragma once

#include <span>
#include <string_view>

#include "lab/campaigns/hostile/Mitigation.h"

namespace velarix::lab::hostile
{

/// What an attack comes to where nothing keeps it out; less, and it did not happen.
struct AttackGoal
{
	long connections = 1;
	long messages = 0;
	long atOnce = 0;   ///< clients, connected or connecting
	long open = 0;     ///< clients, connected at once
	long received = 0; ///< of what was forged or replayed: messages that the target has read
	long read = 0;     ///< messages that are not the partner's and that the target has read
	// Where one is not 0: one for so many random messages, in place of the number above.
	long connectionsPer = 0;
	long messagesPer = 0;
	long readPer = 0;
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
	const char* name = ""; ///< in the table of expectations; lab/guest/attacker.py carries it out
	bool lasting = false;  ///< goes on until it is stopped; the others end by themselves
	/// In the target's log once the attacker has the receiver's connection; null:
	/// nothing has to be waited for.
	const char* mark = nullptr;
	TakenAddress takes = TakenAddress::nothing;
	bool overService = false; ///< comes over the service network
	bool bareTarget = false;  ///< the target's kernel makes no SYN cookies
	bool relays = false;      ///< passes on what is led to it, from its own address
	bool slowPings = false;   ///< partner and gateway answer pings 2 ms later
	bool onKeeper = false;    ///< on how the keeper holds the address: with its settings only
	const char* what = "";    ///< for a person
	PortUse portUse = PortUse::connects;
	/// The weakest mitigation that keeps it out; none: no mitigation does.
	Mitigation stoppedBy = Mitigation::port;
	PartnerReceived partner = PartnerReceived::sometimes;
	AttackGoal goal{}; ///< of an attack that connects
	/// Attempts even where a mitigation keeps it out: connections and frames.
	long leastTries = 1;

	/// What is sent a few times and no more comes when the event has turned the
	/// target's role; the others have begun before.
	bool comesAfterEvent() const { return !lasting && mark == nullptr && goal.received > 0; }

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
