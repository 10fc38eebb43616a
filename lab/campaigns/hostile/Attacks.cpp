#include "lab/campaigns/hostile/Attacks.h"

#include <algorithm>
#include <array>
#include <random>
#include <thread>

#include <poll.h>
#include <sys/socket.h>

#include "lab/campaigns/hostile/ArpSpoofing.h"
#include "lab/campaigns/hostile/Floods.h"
#include "lab/campaigns/hostile/Frames.h"
#include "lab/campaigns/hostile/IcmpForgery.h"
#include "lab/campaigns/hostile/Payload.h"
#include "lab/core/Files.h"
#include "lab/core/Plan.h"

namespace velarix::lab::hostile
{

namespace
{

/// How often the node has logged the payload as received.
long timesReceived(const AttackParameters& parameters)
{
	return timesIn(parameters.log, "received message: " + parameters.payload + "\n");
}

/// Says the payload and a farewell. Many a connection is reset unread: the node drops
/// those that wait when it has served one.
/// @return true when the node has answered the farewell with its own
bool isServed(const Descriptor& connection, const std::string& payload, AttackTally& tally)
{
	constexpr int answerMs = 15000; // a node that starts its programs takes its time
	pollfd watched{connection.get(), POLLIN, 0};
	char byte = 0;
	return sendPayload(connection, payload, tally) && ::shutdown(connection.get(), SHUT_WR) == 0 &&
	       ::poll(&watched, 1, answerMs) == 1 && ::recv(connection.get(), &byte, 1, MSG_DONTWAIT) == 0;
}

/// Until the node has logged it as received. An answer that is lost makes
/// the attacker say it again.
void sendOnce(const AttackParameters& parameters, AttackTally& tally, const std::string& from)
{
	const long before = timesReceived(parameters);
	const LabClock clock;
	while (!parameters.stop && clock.now() < Millis(45000))
	{
		const Descriptor connection = connectTo(heartbeatPortOf(parameters), handshakeLimit, tally, from);
		if (connection && isServed(connection, parameters.payload, tally) && timesReceived(parameters) > before)
		{
			break;
		}
		std::this_thread::sleep_for(Millis(20));
	}
	tally.received = timesReceived(parameters) - before;
}

void forged(const AttackParameters& parameters, AttackTally& tally)
{
	sendOnce(parameters, tally, {});
}

void forgedOverService(const AttackParameters& parameters, AttackTally& tally)
{
	sendOnce(parameters, tally, plan::attackerServiceAddress);
}

/// On one connection, each when the one before has been read: the receiver pauses
/// half a second after each.
void repeated(const AttackParameters& parameters, AttackTally& tally)
{
	constexpr long wanted = 4;
	const long before = timesReceived(parameters);
	const LabClock clock;
	Descriptor connection;
	while (!parameters.stop && tally.received < wanted && clock.now() < Millis(45000))
	{
		if (!connection)
		{
			connection = connectTo(heartbeatPortOf(parameters), handshakeLimit, tally);
		}
		if (connection && !sendPayload(connection, parameters.payload, tally))
		{
			connection.reset();
		}
		std::this_thread::sleep_for(connection ? Millis(600) : Millis(20));
		tally.received = timesReceived(parameters) - before;
	}
}

void pretend(const AttackParameters& parameters, AttackTally& tally)
{
	const std::string payload = forgedHeartbeat("1", "1", "0");
	while (!parameters.stop)
	{
		const Descriptor connection = connectTo(heartbeatPortOf(parameters), connectLimit, tally);
		if (connection)
		{
			sendPayload(connection, payload, tally);
		}
		std::this_thread::sleep_for(Millis(400));
	}
}

void spoofed(const AttackParameters& parameters, AttackTally& tally)
{
	whileSpoofing(
	    {Network::communication, targetsAddress(parameters, Network::communication), partnersAddress(parameters)},
	    tally,
	    [&]
	    {
		    sendOnce(parameters, tally, partnersAddress(parameters));
		    untilStopped(parameters);
	    });
}

/// Whatever has reached the target in a few seconds: heartbeats, answers to pings, packets of the tunnel.
void replayRecorded(const AttackParameters& parameters, AttackTally& tally)
{
	replayFrames(plan::communicationInterface, parameters.recorded, parameters.stop, tally);
}

/// The answers to the requests go to the partner, by the node's other interface.
void requestBlindly(const AttackParameters& parameters, AttackTally& tally)
{
	RawSender sender;
	std::mt19937_64 numbers(parameters.seed);
	while (!parameters.stop)
	{
		sender.sendSyn(heartbeatPortOf(parameters),
		               socketAddress(partnersAddress(parameters), static_cast<int>(1024 + numbers() % 60000)), tally);
		std::this_thread::sleep_for(Millis(100));
	}
}

AttackGoal receivedOnce(long)
{
	return {.messages = 1, .received = 1};
}

AttackGoal sentAll(long count)
{
	return {.messages = count, .read = std::max(1L, count / 500)};
}

AttackGoal sentOneByOne(long count)
{
	return {.messages = readOnesOf(count), .read = readOnesOf(count)};
}

/// Of a message a second, in the shortest time that a pair is watched.
AttackGoal holdsReceiver(long)
{
	return {.messages = 10, .read = 10};
}

/// Each costs the receiver its receiving time.
AttackGoal stays(long)
{
	return {.messages = 3, .read = 3};
}

AttackGoal clientPool(long)
{
	// What the kernel lets wait at a port that the agent opens for 64.
	return {.atOnce = clientPoolSize, .open = 64};
}

AttackGoal resetAll(long count)
{
	return {.connections = resetsOf(count)};
}

AttackGoal receivedFourTimes(long)
{
	return {.messages = 4, .received = 4};
}

AttackGoal speaks(long)
{
	return {.messages = 1, .read = 1};
}

constexpr std::array<AttackInfo, 32> attacks{{
    {.name = "random",
     .carryOut = sendRandom,
     .what = "random messages, each on a connection of its own",
     .goal = sentAll},
    {.name = "random-one-by-one",
     .carryOut = sendRandomOneByOne,
     .what = "random messages on one connection, each waited for",
     .goal = sentOneByOne},
    {.name = "client-pool",
     .lasting = true,
     .carryOut = connectClientPool,
     .what = "200 clients at once that say nothing",
     .goal = clientPool},
    {.name = "silent",
     .lasting = true,
     .carryOut = connectSilently,
     .what = "a connection that says nothing, again and again"},
    {.name = "slow",
     .lasting = true,
     .mark = "received message: ~",
     .carryOut = sendSlowly,
     .what = "20 clients that write one byte a second",
     .partner = PartnerReceived::hardly,
     .goal = holdsReceiver},
    {.name = "hold-connection",
     .lasting = true,
     .mark = "received message: /held/",
     .carryOut = holdConnection,
     .what = "one client that says something every second",
     .partner = PartnerReceived::hardly,
     .goal = holdsReceiver},
    {.name = "half-closed",
     .lasting = true,
     .mark = "received message: /staying/",
     .carryOut = neverClose,
     .what = "clients that never close their end",
     .partner = PartnerReceived::hardly,
     .goal = stays},
    {.name = "burst",
     .mark = "received message: ~",
     .carryOut = sendBurst,
     .what = "16 KiB in one connection, closed at once",
     .goal = receivedOnce},
    {.name = "resets", .carryOut = connectAndReset, .what = "half a message, then a reset", .goal = resetAll},
    {.name = "syn-flood",
     .lasting = true,
     .carryOut = synFlood,
     .what = "connection requests from hosts that are not there",
     .portUse = PortUse::frames,
     .partner = PartnerReceived::always},
    {.name = "syn-flood-no-cookies",
     .lasting = true,
     .bareTarget = true,
     .carryOut = synFlood,
     .what = "the same, and the kernel of the target answers without SYN cookies",
     .portUse = PortUse::frames,
     .partner = PartnerReceived::hardly},
    {.name = "scan-connect",
     .carryOut = scanByConnect,
     .what = "a connection to each of the 65535 ports",
     .leastTries = highestPort},
    {.name = "scan-syn",
     .carryOut = scanBySyn,
     .what = "a request to each of the 65535 ports, never followed up",
     .portUse = PortUse::frames,
     .partner = PartnerReceived::always,
     .leastTries = highestPort},
    {.name = "replay",
     .carryOut = forged,
     .what = "a heartbeat overheard on a node's interface, sent again",
     .goal = receivedOnce},
    {.name = "forged", .carryOut = forged, .what = "one heartbeat that no agent sent", .goal = receivedOnce},
    {.name = "forged-service",
     .overService = true,
     .carryOut = forgedOverService,
     .what = "one heartbeat that no agent sent, from the service network",
     .goal = receivedOnce},
    {.name = "repeated",
     .carryOut = repeated,
     .what = "the same four times on one connection",
     .goal = receivedFourTimes},
    {.name = "line-feeds",
     .carryOut = forged,
     .what = "a message that looks like lines of the log",
     .goal = receivedOnce},
    {.name = "false-master",
     .lasting = true,
     .carryOut = pretend,
     .what = "a master's heartbeat twice a second",
     .goal = speaks},
    {.name = "blind-syn",
     .lasting = true,
     .overService = true,
     .carryOut = requestBlindly,
     .what = "connection requests with the partner's address, from the service network",
     .portUse = PortUse::frames,
     .partner = PartnerReceived::always},
    {.name = "spoofed-partner",
     .lasting = true,
     .takes = TakenAddress::partner,
     .carryOut = spoofed,
     .what = "one forged heartbeat from the partner's address, with ARP answers to match",
     .stoppedBy = Mitigation::neighbours,
     .goal = receivedOnce},
    {.name = "impersonate-partner",
     .lasting = true,
     .takes = TakenAddress::partner,
     .carryOut = cutPartner,
     .what = "the partner's address taken over, with ARP answers to match",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::neighbours},
    {.name = "arp-cut-partner",
     .lasting = true,
     .carryOut = cutPartner,
     .what = "ARP answers that lead the partner's address to nobody",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::neighbours},
    {.name = "relay",
     .lasting = true,
     .relays = true,
     .carryOut = relayNodes,
     .what = "ARP answers that lead the nodes to the attacker, who passes packets on from its own address",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::neighbours},
    {.name = "recorded",
     .lasting = true,
     .carryOut = replayRecorded,
     .what = "packets that have reached the target, sent again and again",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::none},
    {.name = "arp-cut-gateway",
     .lasting = true,
     .carryOut = cutGateway,
     .what = "ARP answers that lead the gateway's address to nobody",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::neighbours},
    {.name = "arp-cut-node",
     .lasting = true,
     .carryOut = cutFromGateway,
     .what = "ARP answers to the gateway that lead the node's address to nobody",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::neighbours},
    {.name = "arp-claim-service",
     .lasting = true,
     .carryOut = claimFromClient,
     .what = "ARP answers to a client that lead the service address to nobody",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::none},
    {.name = "impersonate-service",
     .lasting = true,
     .takes = TakenAddress::service,
     .carryOut = claimFromNode,
     .what = "the service address answered for, to the target alone",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::none},
    {.name = "icmp-wrong-id",
     .lasting = true,
     .slowPings = true,
     .carryOut = floodReplies,
     .what = "echo replies with wrong identifiers from an address that the target pings",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::firewall},
    {.name = "icmp-requests",
     .lasting = true,
     .slowPings = true,
     .carryOut = floodRequests,
     .what = "echo requests from an address that the target pings",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::firewall},
    {.name = "icmp-known-id",
     .lasting = true,
     .carryOut = answerForPartner,
     .what = "echo replies from the partner's address with the identifier of the target's pings",
     .portUse = PortUse::none,
     .stoppedBy = Mitigation::neighbours},
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
