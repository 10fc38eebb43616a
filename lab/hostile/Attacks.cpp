#include <algorithm>
#include <array>
#include <thread>

#include <poll.h>
#include <sys/socket.h>

#include "Attack.h"
#include "Files.h"
#include "Frames.h"
#include "Plan.h"
#include "Words.h"

namespace velarix::lab
{

namespace
{

constexpr Millis knock{250};     ///< for a handshake, where thousands are made
constexpr Millis patience{2000}; ///< for a handshake, where one matters
constexpr Millis floodLimit{900000};
constexpr int highestPort = 65535;
constexpr int crowdSize = 200;
/// What the kernel lets wait at a port that the agent opens for 64.
constexpr long openAtOnce = 64;

long resetsOf(long count)
{
	return std::max(1L, count / 10);
}

long readOnesOf(long count)
{
	return std::max(1L, count / 20);
}

/// How often the node has told in its log that it received the words.
long timesHeard(const AttackOrders& orders)
{
	return timesIn(orders.log, "received message: " + orders.words + "\n");
}

sockaddr_in doorOf(const AttackOrders& orders)
{
	return socketAddress(plan::addressOf(orders.target, Network::communication), plan::heartbeatPort);
}

/// Many connections after each other, from several threads, until what is counted
/// comes to `wanted`, or as many were tried in vain.
void flood(const AttackOrders& orders, AttackTally& tally, const std::atomic<long>& counted, long wanted,
           const std::function<void(UniqueFd& connection, std::mt19937_64& random)>& visit)
{
	const LabClock clock;
	const auto goesOn = [&]
	{
		const bool inVain = tally.connections == 0 && tally.tries >= wanted;
		return !orders.stop && !inVain && counted < wanted && clock.now() < floodLimit;
	};
	std::vector<std::thread> threads;
	for (std::uint64_t number = 0; number < 16; ++number)
	{
		threads.emplace_back(
		    [&, number]
		    {
			    std::mt19937_64 random(orders.seed * 1000 + number);
			    while (goesOn())
			    {
				    UniqueFd connection = connectTo(doorOf(orders), knock, tally);
				    connection ? visit(connection, random) : std::this_thread::sleep_for(Millis(5));
			    }
		    });
	}
	for (std::thread& thread : threads)
	{
		thread.join();
	}
}

void random(const AttackOrders& orders, AttackTally& tally)
{
	flood(orders, tally, tally.messages, orders.count,
	      [&](UniqueFd& connection, std::mt19937_64& numbers) { say(connection, randomWords(numbers), tally); });
}

void resets(const AttackOrders& orders, AttackTally& tally)
{
	flood(orders, tally, tally.connections, resetsOf(orders.count),
	      [&](UniqueFd& connection, std::mt19937_64& numbers)
	      {
		      say(connection, randomWords(numbers).substr(0, numbers() % 40), tally);
		      resetConnection(connection);
	      });
}

/// One message every 600 ms on one connection: the receiver pauses half a second
/// after each, so that each is read for itself.
void randomRead(const AttackOrders& orders, AttackTally& tally)
{
	std::mt19937_64 numbers(orders.seed);
	const LabClock clock;
	const long wanted = readOnesOf(orders.count);
	UniqueFd connection;
	while (tally.messages < wanted && !orders.stop && (tally.connections > 0 || clock.now() < Millis(30000)))
	{
		if (!connection)
		{
			connection = connectTo(doorOf(orders), patience, tally);
		}
		else if (!say(connection, randomWords(numbers), tally))
		{
			connection.reset();
		}
		std::this_thread::sleep_for(connection ? Millis(600) : Millis(20));
	}
}

void connections(const AttackOrders& orders, AttackTally& tally)
{
	Crowd{.size = crowdSize}.besiege(doorOf(orders), tally, orders.stop);
}

void silent(const AttackOrders& orders, AttackTally& tally)
{
	Crowd{.size = 1}.besiege(doorOf(orders), tally, orders.stop);
}

void slow(const AttackOrders& orders, AttackTally& tally)
{
	Crowd{.size = 20, .words = "~"}.besiege(doorOf(orders), tally, orders.stop);
}

void hold(const AttackOrders& orders, AttackTally& tally)
{
	Crowd{.size = 1, .words = "/held/"}.besiege(doorOf(orders), tally, orders.stop);
}

void neverCloses(const AttackOrders& orders, AttackTally& tally)
{
	Crowd{.size = 1, .firstWords = "/staying/", .staysWhenLeft = true}.besiege(doorOf(orders), tally, orders.stop);
}

/// 16 KiB and the farewell at once: 64 messages of 256 bytes for the receiver. A
/// connection that waits when the node has served another one is dropped unread.
void burst(const AttackOrders& orders, AttackTally& tally)
{
	const std::string first = "received message: " + std::string(256, '~');
	const LabClock clock;
	while (!orders.stop && tally.heard == 0 && clock.now() < Millis(45000))
	{
		UniqueFd connection = connectTo(doorOf(orders), patience, tally);
		const bool said = connection && say(connection, std::string(16384, '~'), tally);
		connection.reset();
		for (int look = 0; said && look < 40 && tally.heard == 0 && !orders.stop; ++look)
		{
			std::this_thread::sleep_for(Millis(50));
			tally.heard = timesIn(orders.log, first);
		}
		std::this_thread::sleep_for(Millis(20));
	}
}

void synFlood(const AttackOrders& orders, AttackTally& tally)
{
	SynSender sender;
	std::mt19937_64 numbers(orders.seed);
	while (!orders.stop)
	{
		const std::string nobody = "198.51.100." + std::to_string(128 + numbers() % 120);
		for (int port = 0; port < 20; ++port)
		{
			sender.send(doorOf(orders), socketAddress(nobody, static_cast<int>(1024 + numbers() % 60000)), tally);
		}
		std::this_thread::sleep_for(Millis(20));
	}
}

void scanBySyn(const AttackOrders& orders, AttackTally& tally)
{
	SynSender sender;
	sockaddr_in door = doorOf(orders);
	for (int port = 1; port <= highestPort && !orders.stop; ++port)
	{
		door.sin_port = htons(static_cast<std::uint16_t>(port));
		sender.send(door, socketAddress(plan::strangerAddress, 41000 + port % 20000), tally);
		std::this_thread::sleep_for(Millis(port % 100 == 0 ? 10 : 0));
	}
}

void scanByConnect(const AttackOrders& orders, AttackTally& tally)
{
	sockaddr_in door = doorOf(orders);
	AttackTally others;
	for (int port = 1; port <= highestPort && !orders.stop; ++port)
	{
		door.sin_port = htons(static_cast<std::uint16_t>(port));
		connectTo(door, knock, port == plan::heartbeatPort ? tally : others);
	}
	tally.tries += others.tries;
	// The receiver closes its port between two heartbeats: a scanner looks again.
	for (int look = 0; look < 100 && tally.connections == 0 && !orders.stop; ++look)
	{
		connectTo(doorOf(orders), knock, tally);
		std::this_thread::sleep_for(Millis(20));
	}
}

/// Says the words and a farewell. Many a connection is reset unread: the node drops
/// those that wait when it has served one.
/// @return true when the node has answered the farewell with its own
bool isServed(const UniqueFd& connection, const std::string& words, AttackTally& tally)
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
		const UniqueFd connection = connectTo(doorOf(orders), patience, tally, from);
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

/// On one connection, each when the one before has been read: the receiver pauses
/// half a second after each.
void repeated(const AttackOrders& orders, AttackTally& tally)
{
	constexpr long wanted = 4;
	const long before = timesHeard(orders);
	const LabClock clock;
	UniqueFd connection;
	while (!orders.stop && tally.heard < wanted && clock.now() < Millis(45000))
	{
		if (!connection)
		{
			connection = connectTo(doorOf(orders), patience, tally);
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
		const UniqueFd connection = connectTo(doorOf(orders), knock, tally);
		if (connection)
		{
			say(connection, words, tally);
		}
		std::this_thread::sleep_for(Millis(400));
	}
}

/// Answers come to the stranger as long as the target believes him.
void whileLying(const AttackOrders& orders, AttackTally& tally, const std::function<void(const std::string&)>& work)
{
	const std::string partner = plan::addressOf(otherNode(orders.target), Network::communication);
	ArpLiar lying(plan::communicationCard, plan::addressOf(orders.target, Network::communication));
	const std::jthread liar(
	    [&](const std::stop_token& end)
	    {
		    while (!end.stop_requested())
		    {
			    lying.claim(partner, tally);
			    std::this_thread::sleep_for(Millis(50));
		    }
	    });
	work(partner);
}

void untilStopped(const AttackOrders& orders)
{
	while (!orders.stop)
	{
		std::this_thread::sleep_for(Millis(20));
	}
}

void spoofed(const AttackOrders& orders, AttackTally& tally)
{
	whileLying(orders, tally,
	           [&](const std::string& partner)
	           {
		           sayOnce(orders, tally, partner);
		           untilStopped(orders);
	           });
}

void lie(const AttackOrders& orders, AttackTally& tally)
{
	whileLying(orders, tally, [&](const std::string&) { untilStopped(orders); });
}

AttackGoal heardOnce(long)
{
	return {.messages = 1, .heard = 1};
}

AttackGoal speaks(long)
{
	return {.messages = 1};
}

constexpr std::array<AttackInfo, 20> attacks{{
    {"random", false, nullptr, false, random, "random messages, each on a connection of its own", Knock::connects,
     [](long count) { return AttackGoal{.messages = count}; }},
    {"random-read", false, nullptr, false, randomRead, "random messages on one connection, each waited for",
     Knock::connects, [](long count) { return AttackGoal{.messages = readOnesOf(count)}; }},
    {"connections", true, nullptr, false, connections, "200 clients at once that say nothing", Knock::connects,
     [](long) { return AttackGoal{.atOnce = crowdSize, .open = openAtOnce}; }},
    {"silent", true, nullptr, false, silent, "a connection that says nothing, again and again"},
    {"slow", true, "received message: ~", false, slow, "20 clients that write one byte a second", Knock::connects,
     speaks},
    {"hold", true, "received message: /held/", false, hold, "one client that says something every second",
     Knock::connects, speaks},
    {"never-closes", true, "received message: /staying/", false, neverCloses, "clients that never close their end",
     Knock::connects, speaks},
    {"burst", false, "received message: ~", false, burst, "16 KiB in one connection, closed at once", Knock::connects,
     heardOnce},
    {"resets", false, nullptr, false, resets, "half a message, then a reset", Knock::connects,
     [](long count) { return AttackGoal{.connections = resetsOf(count)}; }},
    {"syn-flood", true, nullptr, false, synFlood, "connection requests from hosts that are not there", Knock::frames},
    {"scan-connect", false, nullptr, false, scanByConnect, "a connection to each of the 65535 ports", Knock::connects,
     [](long) { return AttackGoal{}; }, highestPort},
    {"scan-syn", false, nullptr, false, scanBySyn, "a request to each of the 65535 ports, never followed up",
     Knock::frames, [](long) { return AttackGoal{}; }, highestPort},
    {"replay", false, nullptr, false, forged, "a heartbeat overheard on a node's card, said again", Knock::connects,
     heardOnce},
    {"forged", false, nullptr, false, forged, "one heartbeat that no agent sent", Knock::connects, heardOnce},
    {"repeated", false, nullptr, false, repeated, "the same four times on one connection", Knock::connects,
     [](long) { return AttackGoal{.messages = 4, .heard = 4}; }},
    {"line-feeds", false, nullptr, false, forged, "a message that looks like lines of the log", Knock::connects,
     heardOnce},
    {"pretend", true, nullptr, false, pretend, "a master's heartbeat twice a second", Knock::connects, speaks},
    {"spoofed", true, nullptr, true, spoofed,
     "one forged heartbeat from the partner's address, with ARP answers to match", Knock::connects, heardOnce},
    {"stand-in", true, nullptr, true, lie, "the partner's address taken over, with ARP answers to match", Knock::none},
    {"cut", true, nullptr, false, lie, "ARP answers that lead the partner's address to nobody", Knock::none},
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
