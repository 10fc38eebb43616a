#include "lab/campaigns/hostile/Attacks.h"

#include <algorithm>
#include <array>
#include <random>
#include <thread>

#include <poll.h>
#include <sys/socket.h>

#include "lab/campaigns/hostile/Frames.h"
#include "lab/campaigns/hostile/Lies.h"
#include "lab/campaigns/hostile/Noise.h"
#include "lab/campaigns/hostile/Words.h"
#include "lab/core/Files.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

/// How often the node has told in its log that it received the words.
long timesHeard(const AttackOrders& orders)
{
	return timesIn(orders.log, "received message: " + orders.words + "\n");
}

/// Says the words and a farewell. Many a connection is reset unread: the node drops
/// those that wait when it has served one.
/// @return true when the node has answered the farewell with its own
bool isServed(const Descriptor& connection, const std::string& words, AttackTally& tally)
{
	constexpr int answerMs = 15000; // a node that starts its programs takes its time
	pollfd watched{connection.get(), POLLIN, 0};
	char byte = 0;
	return say(connection, words, tally) && ::shutdown(connection.get(), SHUT_WR) == 0 &&
	       ::poll(&watched, 1, answerMs) == 1 && ::recv(connection.get(), &byte, 1, MSG_DONTWAIT) == 0;
}

/// Until the node has read it, and told so in its log. An answer that is lost makes
/// the stranger say it again.
void sayOnce(const AttackOrders& orders, AttackTally& tally, const std::string& from)
{
	const long before = timesHeard(orders);
	const LabClock clock;
	while (!orders.stop && clock.now() < Millis(45000))
	{
		const Descriptor connection = connectTo(doorOf(orders), handshakeLimit, tally, from);
		if (connection && isServed(connection, orders.words, tally) && timesHeard(orders) > before)
		{
			break;
		}
		std::this_thread::sleep_for(Millis(20));
	}
	tally.heard = timesHeard(orders) - before;
}

void forged(const AttackOrders& orders, AttackTally& tally)
{
	sayOnce(orders, tally, {});
}

void forgedOverService(const AttackOrders& orders, AttackTally& tally)
{
	sayOnce(orders, tally, plan::attackerServiceAddress);
}

/// On one connection, each when the one before has been read: the receiver pauses
/// half a second after each.
void repeated(const AttackOrders& orders, AttackTally& tally)
{
	constexpr long wanted = 4;
	const long before = timesHeard(orders);
	const LabClock clock;
	Descriptor connection;
	while (!orders.stop && tally.heard < wanted && clock.now() < Millis(45000))
	{
		if (!connection)
		{
			connection = connectTo(doorOf(orders), handshakeLimit, tally);
		}
		if (connection && !say(connection, orders.words, tally))
		{
			connection.reset();
		}
		std::this_thread::sleep_for(connection ? Millis(600) : Millis(20));
		tally.heard = timesHeard(orders) - before;
	}
}

void pretend(const AttackOrders& orders, AttackTally& tally)
{
	const std::string words = forgedHeartbeat("1", "1", "0");
	while (!orders.stop)
	{
		const Descriptor connection = connectTo(doorOf(orders), knockLimit, tally);
		if (connection)
		{
			say(connection, words, tally);
		}
		std::this_thread::sleep_for(Millis(400));
	}
}

void spoofed(const AttackOrders& orders, AttackTally& tally)
{
	whileLying({Network::communication, targetsAddress(orders, Network::communication), partnersAddress(orders)}, tally,
	           [&]
	           {
		           sayOnce(orders, tally, partnersAddress(orders));
		           untilStopped(orders);
	           });
}

/// The answers to his requests go to the partner, by the node's other card.
void requestBlindly(const AttackOrders& orders, AttackTally& tally)
{
	SynSender sender;
	std::mt19937_64 numbers(orders.seed);
	while (!orders.stop)
	{
		sender.send(doorOf(orders), socketAddress(partnersAddress(orders), static_cast<int>(1024 + numbers() % 60000)),
		            tally);
		std::this_thread::sleep_for(Millis(100));
	}
}

AttackGoal heardOnce(long)
{
	return {.messages = 1, .heard = 1};
}

AttackGoal saidAll(long count)
{
	return {.messages = count, .read = std::max(1L, count / 500)};
}

AttackGoal saidOneByOne(long count)
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

AttackGoal crowd(long)
{
	// What the kernel lets wait at a port that the agent opens for 64.
	return {.atOnce = crowdSize, .open = 64};
}

AttackGoal resetAll(long count)
{
	return {.connections = resetsOf(count)};
}

AttackGoal heardFourTimes(long)
{
	return {.messages = 4, .heard = 4};
}

AttackGoal speaks(long)
{
	return {.messages = 1, .read = 1};
}

constexpr std::array<AttackInfo, 27> attacks{{
    {.name = "random",
     .carryOut = sayRandom,
     .what = "random messages, each on a connection of its own",
     .goal = saidAll},
    {.name = "random-read",
     .carryOut = sayRandomSlowly,
     .what = "random messages on one connection, each waited for",
     .goal = saidOneByOne},
    {.name = "connections",
     .lasting = true,
     .carryOut = crowdIn,
     .what = "200 clients at once that say nothing",
     .goal = crowd},
    {.name = "silent",
     .lasting = true,
     .carryOut = keepSilent,
     .what = "a connection that says nothing, again and again"},
    {.name = "slow",
     .lasting = true,
     .mark = "received message: ~",
     .carryOut = dribble,
     .what = "20 clients that write one byte a second",
     .partner = PartnerHeard::hardly,
     .goal = holdsReceiver},
    {.name = "hold",
     .lasting = true,
     .mark = "received message: /held/",
     .carryOut = hold,
     .what = "one client that says something every second",
     .partner = PartnerHeard::hardly,
     .goal = holdsReceiver},
    {.name = "never-closes",
     .lasting = true,
     .mark = "received message: /staying/",
     .carryOut = neverClose,
     .what = "clients that never close their end",
     .partner = PartnerHeard::hardly,
     .goal = stays},
    {.name = "burst",
     .mark = "received message: ~",
     .carryOut = burst,
     .what = "16 KiB in one connection, closed at once",
     .goal = heardOnce},
    {.name = "resets", .carryOut = resetOften, .what = "half a message, then a reset", .goal = resetAll},
    {.name = "syn-flood",
     .lasting = true,
     .carryOut = synFlood,
     .what = "connection requests from hosts that are not there",
     .knock = Knock::frames,
     .partner = PartnerHeard::always},
    {.name = "syn-flood-bare",
     .lasting = true,
     .bareTarget = true,
     .carryOut = synFlood,
     .what = "the same, and the kernel of the target answers without SYN cookies",
     .knock = Knock::frames,
     .partner = PartnerHeard::hardly},
    {.name = "scan-connect",
     .carryOut = scanByConnect,
     .what = "a connection to each of the 65535 ports",
     .leastTries = highestPort},
    {.name = "scan-syn",
     .carryOut = scanBySyn,
     .what = "a request to each of the 65535 ports, never followed up",
     .knock = Knock::frames,
     .partner = PartnerHeard::always,
     .leastTries = highestPort},
    {.name = "replay",
     .carryOut = forged,
     .what = "a heartbeat overheard on a node's card, said again",
     .goal = heardOnce},
    {.name = "forged", .carryOut = forged, .what = "one heartbeat that no agent sent", .goal = heardOnce},
    {.name = "forged-service",
     .overService = true,
     .carryOut = forgedOverService,
     .what = "one heartbeat that no agent sent, from the service network",
     .goal = heardOnce},
    {.name = "repeated", .carryOut = repeated, .what = "the same four times on one connection", .goal = heardFourTimes},
    {.name = "line-feeds", .carryOut = forged, .what = "a message that looks like lines of the log", .goal = heardOnce},
    {.name = "pretend",
     .lasting = true,
     .carryOut = pretend,
     .what = "a master's heartbeat twice a second",
     .goal = speaks},
    {.name = "blind",
     .lasting = true,
     .overService = true,
     .carryOut = requestBlindly,
     .what = "connection requests with the partner's address, from the service network",
     .knock = Knock::frames,
     .partner = PartnerHeard::always},
    {.name = "spoofed",
     .lasting = true,
     .borrowed = Borrowed::partner,
     .carryOut = spoofed,
     .what = "one forged heartbeat from the partner's address, with ARP answers to match",
     .stoppedBy = Guard::neighbours,
     .goal = heardOnce},
    {.name = "stand-in",
     .lasting = true,
     .borrowed = Borrowed::partner,
     .carryOut = cutPartner,
     .what = "the partner's address taken over, with ARP answers to match",
     .knock = Knock::none,
     .stoppedBy = Guard::neighbours},
    {.name = "cut",
     .lasting = true,
     .carryOut = cutPartner,
     .what = "ARP answers that lead the partner's address to nobody",
     .knock = Knock::none,
     .stoppedBy = Guard::neighbours},
    {.name = "cut-gateway",
     .lasting = true,
     .carryOut = cutGateway,
     .what = "ARP answers that lead the gateway's address to nobody",
     .knock = Knock::none,
     .stoppedBy = Guard::neighbours},
    {.name = "cut-from-gateway",
     .lasting = true,
     .carryOut = cutFromGateway,
     .what = "ARP answers to the gateway that lead the node's address to nobody",
     .knock = Knock::none,
     .stoppedBy = Guard::neighbours},
    {.name = "claim",
     .lasting = true,
     .carryOut = claimFromClient,
     .what = "ARP answers to a client that lead the service address to nobody",
     .knock = Knock::none,
     .stoppedBy = Guard::none},
    {.name = "stand-in-service",
     .lasting = true,
     .borrowed = Borrowed::service,
     .carryOut = claimFromNode,
     .what = "the service address answered for, to the target alone",
     .knock = Knock::none,
     .stoppedBy = Guard::none},
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

} // namespace velarix::lab
