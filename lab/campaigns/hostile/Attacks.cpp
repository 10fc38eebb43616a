#include "lab/campaigns/hostile/Attacks.h"

#include <array>

#include "lab/core/Basics.h"

namespace velarix::lab::hostile
{

namespace
{

constexpr long highestPort = 65535;

constexpr AttackGoal receivedOnce{.messages = 1, .received = 1};
/// Of a message a second, in the shortest time that a pair is watched.
constexpr AttackGoal holdsReceiver{.messages = 10, .read = 10};

/// On the service network, where no mitigation keeps it out.
constexpr AttackInfo onKeeper(const char* name, const char* what, long leastTries, bool lasting = true)
{
	return {.name = name,
	        .lasting = lasting,
	        .onKeeper = true,
	        .what = what,
	        .portUse = PortUse::none,
	        .stoppedBy = Mitigation::none,
	        .leastTries = leastTries};
}

constexpr std::array<AttackInfo, 39> attacks{{
    {.name = "random",
     .what = "random messages, each on a connection of its own",
     .goal = {.messagesPer = 1, .readPer = 500}},
    {.name = "random-one-by-one",
     .what = "random messages on one connection, each waited for",
     .goal = {.messagesPer = 20, .readPer = 20}},
    {.name = "client-pool",
     .lasting = true,
     .what = "200 clients at once that say nothing",
     // Open: what the kernel lets wait at a port that the agent opens for 64.
     .goal = {.atOnce = 200, .open = 64}},
    {.name = "silent", .lasting = true, .what = "a connection that says nothing, again and again"},
    {.name = "slow",
     .lasting = true,
     .mark = "received message: ~",
     .what = "20 clients that write one byte a second",
     .partner = PartnerReceived::hardly,
     .goal = holdsReceiver},
    {.name = "hold-connection",
     .lasting = true,
     .mark = "received message: /held/",
     .what = "one client that says something every second",
     .partner = PartnerReceived::hardly,
     .goal = holdsReceiver},
    {.name = "half-closed",
     .lasting = true,
     .mark = "received message: /staying/",
     .what = "clients that never close their end", // each costs the receiver its receiving time
     .partner = PartnerReceived::hardly,
     .goal = {.messages = 3, .read = 3}},
    {.name = "burst",
     .mark = "received message: ~",
     .what = "16 KiB in one connection, closed at once",
     .goal = receivedOnce},
    {.name = "resets", .what = "half a message, then a reset", .goal = {.connectionsPer = 10}},
    {.name = "syn-flood",
     .lasting = true,
     .what = "connection requests from hosts that are not there",
     .portUse = PortUse::frames,
     .partner = PartnerReceived::always},
    {.name = "syn-flood-no-cookies",
     .lasting = true,
     .bareTarget = true,
     .what = "the same, and the kernel of the target answers without SYN cookies",
     .portUse = PortUse::frames,
     .partner = PartnerReceived::hardly},
    {.name = "scan-connect", .what = "a connection to each of the 65535 ports", .leastTries = highestPort},
    {.name = "scan-syn",
     .what = "a request to each of the 65535 ports, never followed up",
     .portUse = PortUse::frames,
     .partner = PartnerReceived::always,
     .leastTries = highestPort},
    {.name = "replay", .what = "a heartbeat overheard on a node's interface, sent again", .goal = receivedOnce},
    {.name = "forged", .what = "one heartbeat that no agent sent", .goal = receivedOnce},
    {.name = "forged-service",
     .overService = true,
     .what = "one heartbeat that no agent sent, from the service network",
     .goal = receivedOnce},
    {.name = "repeated", .what = "the same four times on one connection", .goal = {.messages = 4, .received = 4}},
    {.name = "line-feeds", .what = "a message that looks like lines of the log", .goal = receivedOnce},
    {.name = "false-master",
     .lasting = true,
     .what = "a master's heartbeat twice a second",
     .goal = {.messages = 1, .read = 1}},
    {.name = "blind-syn",
     .lasting = true,
     .overService = true,
     .what = "connection requests with the partner's address, from the service network",
     .portUse = PortUse::frames,
     .partner = PartnerReceived::always},
    {.name = "spoofed-partner",
     .lasting = true,
     .takes = TakenAddress::partner,
     .what = "one forged heartbeat from the partner's address, with ARP answers to match",
     .stoppedBy = Mitigation::neighbours,
     .goal = receivedOnce},
    {.name = "impersonate-partner",
     .lasting = true,
     .takes = TakenAddress::partner,
     .what = "the partner's address taken over, with ARP answers to match",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::neighbours},
    {.name = "arp-cut-partner",
     .lasting = true,
     .what = "ARP answers that lead the partner's address to nobody",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::neighbours},
    {.name = "relay",
     .lasting = true,
     .relays = true,
     .what = "ARP answers that lead the nodes to the attacker, who passes packets on from its own address",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::neighbours},
    {.name = "recorded",
     .lasting = true,
     .what = "packets that have reached the target, sent again and again",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::none},
    {.name = "arp-cut-gateway",
     .lasting = true,
     .what = "ARP answers that lead the gateway's address to nobody",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::neighbours},
    {.name = "arp-cut-node",
     .lasting = true,
     .what = "ARP answers to the gateway that lead the node's address to nobody",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::neighbours},
    {.name = "arp-claim-service",
     .lasting = true,
     .what = "ARP answers to a client that lead the service address to nobody",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::none},
    {.name = "impersonate-service",
     .lasting = true,
     .takes = TakenAddress::service,
     .what = "the service address answered for, to the target alone",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::none},
    {.name = "icmp-wrong-id",
     .lasting = true,
     .slowPings = true,
     .what = "echo replies with wrong identifiers from an address that the target pings",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::firewall},
    {.name = "icmp-requests",
     .lasting = true,
     .slowPings = true,
     .what = "echo requests from an address that the target pings",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::firewall},
    {.name = "icmp-known-id",
     .lasting = true,
     .what = "echo replies from the partner's address with the identifier of the target's pings",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::neighbours},
    onKeeper("arp-announcements", "ARP announcements of the service address by another host, hundreds a second", 1000),
    onKeeper("arp-claims", "ARP answers with the service address of another host, to the target alone", 100),
    onKeeper("arp-requests", "ARP requests for the service address, thousands a second", 10000),
    onKeeper("arp-probes", "ARP probes for the service address, thousands a second", 10000),
    onKeeper("arp-malformed", "ARP packets that are cut short or have wrong fields, thousands a second", 10000),
    onKeeper("arp-answers", "an answer to each ARP probe for the service address", 5),
    onKeeper("address-removals", "the service address removed by root of the target, for ten seconds", 100, false),
}};

} // namespace

std::span<const AttackInfo> allAttacks()
{
	return attacks;
}

const AttackInfo& attackNamed(std::string_view name)
{
	for (const AttackInfo& info : attacks)
	{
		if (info.name == name)
		{
			return info;
		}
	}
	throw LabError("there is no attack \"" + std::string(name) + "\"");
}

} // namespace velarix::lab::hostile
