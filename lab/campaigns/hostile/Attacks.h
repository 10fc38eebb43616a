/// The attacks: what each does to a pair, and how far it has to get where nothing keeps it out;
/// what an operator sets up against them, in steps; and the table of what is expected of each: one row for
/// each case, whose keys lab/tables/attacks.toml explains.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lab/core/Basics.h"
#include "lab/core/Fault.h"
#include "lab/core/Lab.h"

namespace velarix::lab::hostile
{

enum class Mitigation
{
	none,
	port,       ///< of the shipped rules those for the heartbeat port alone
	firewall,   ///< the shipped rules
	neighbours, ///< besides, fixed ARP entries on nodes and gateway, and their hardware addresses in the rules
	tunnel      ///< heartbeats in the WireGuard tunnel, with the rules that belong to it
};

/// @return "none", "port", "firewall", "neighbours", "tunnel"
const char* nameOf(Mitigation mitigation);
/// @throws LabError when there is none of that name
Mitigation mitigationNamed(const std::string& name);

/// Hardware addresses for the rules; empty: their rules stay out.
struct HardwareAddresses
{
	std::string partner{};
	std::string gateway{};
};

/// velarix-ha.nft, for `nft -f`.
/// @throws LabError when the file lacks what has to be replaced
std::string nftRules(HostId node, const HardwareAddresses& hardware = {});

/// velarix-ha.iptables, for `sh`. @throws LabError likewise
std::string iptablesRules(HostId node, const HardwareAddresses& hardware = {});

/// @return the hardware address of the host's interface on the communication network
inline std::string hardwareOf(HostId host)
{
	return Wiring::hardwareAddress(host, Network::communication);
}

/// Fixed ARP entries of a node (partner and gateway), or of the gateway (both nodes).
void fixNeighbours(Lab& lab, HostId host);

/// Sets the mitigation up on both nodes, and what of it belongs on the gateway there.
/// @throws LabError when a host does not take it
void applyMitigation(Lab& lab, Mitigation mitigation);

/// Packets that the rules have dropped on the node, by their own counters.
long droppedByFirewall(Lab& lab, HostId node);

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

/// The start time that every forged heartbeat carries; no agent of a lab sends it,
/// so a log shows which messages were forged. lab/guest/attacker.py has both, too.
inline constexpr const char* forgedTime = "20000101000000";
/// The same in random messages that resemble heartbeats.
inline constexpr const char* randomTime = "20260101000000";

/// @param fields  "ROLE-RUNNING-ASK", for example "2-0-1"
/// @throws LabError when the text is not of that form
std::string forgedHeartbeat(const std::string& fields);

struct ReceivedCounts
{
	long all = 0;     ///< messages, each read of the socket being one
	long partner = 0; ///< of them heartbeats of an agent: its partner's, and what is replayed of them
};

/// @param log  text of a node's log
ReceivedCounts receivedIn(const std::string& log);

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
