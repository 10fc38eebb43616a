// The tool's own ping against forged answers: a responder in a network namespace of
// the test's own answers echo requests as an attacker would, who sees them or not.

#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <set>
#include <thread>
#include <vector>

#include <Poco/Net/RawSocket.h>
#include <gtest/gtest.h>
#include <netinet/ip_icmp.h>
#include <sched.h>

#include "inspect/Host.h"

using namespace velarix::inspect;

namespace
{

using Poco::Net::SocketAddress;
using Packet = std::vector<std::uint8_t>;

/// Makes the answers to one echo request, in their order.
using Forge = std::function<std::vector<Packet>(const Packet&)>;

std::uint16_t checksumOf(const Packet& packet)
{
	std::uint32_t sum = 0;
	for (std::size_t at = 0; at + 1 < packet.size(); at += 2)
	{
		sum += static_cast<std::uint32_t>(packet[at] | packet[at + 1] << 8);
	}
	sum = (sum & 0xffffU) + (sum >> 16U);
	return static_cast<std::uint16_t>(~(sum + (sum >> 16U)));
}

/// @return the request as an echo reply with a byte changed
Packet reply(Packet packet, std::size_t changed = 0)
{
	packet[0] = ICMP_ECHOREPLY;
	if (changed != 0)
	{
		packet[changed] ^= 0x55U;
	}
	packet[2] = packet[3] = 0;
	const std::uint16_t checksum = checksumOf(packet);
	std::memcpy(packet.data() + 2, &checksum, sizeof checksum);
	return packet;
}

/// Pings 127.0.0.1 while the echo requests that pass on the loopback are answered so, in a network of its own.
/// @return what the ping tells; nothing without a network
std::optional<bool> ping(const char* source, const Forge& forge)
{
	std::optional<bool> seen;
	const auto pinged = [&]
	{
		// The kernel itself must not answer.
		if (::unshare(CLONE_NEWNET) != 0 ||
		    std::system("echo 1 >/proc/sys/net/ipv4/icmp_echo_ignore_all && ip link set lo up") != 0)
		{
			return;
		}
		Poco::Net::RawSocket requests(SocketAddress::IPv4, IPPROTO_ICMP);
		Poco::Net::RawSocket answers(SocketAddress::IPv4, IPPROTO_ICMP);
		answers.bind(SocketAddress(source, 0));
		const std::jthread responder(
		    [&](const std::stop_token& end)
		    {
			    while (!end.stop_requested())
			    {
				    if (!requests.poll(Poco::Timespan(0, 20'000), Poco::Net::Socket::SELECT_READ))
				    {
					    continue;
				    }
				    Packet bytes(256);
				    bytes.resize(static_cast<std::size_t>(requests.receiveBytes(bytes.data(), 256)));
				    bytes.erase(bytes.begin(), bytes.begin() + 4 * (bytes[0] & 0xf));
				    for (const Packet& answer : bytes[0] == ICMP_ECHO ? forge(bytes) : std::vector<Packet>())
				    {
					    answers.sendTo(answer.data(), static_cast<int>(answer.size()), SocketAddress("127.0.0.1", 0));
				    }
			    }
		    });
		seen = host::answersPing("127.0.0.1", 3);
	};
	std::thread(pinged).join();
	return seen;
}

constexpr char kTarget[] = "127.0.0.1";
constexpr char kOther[] = "127.0.0.2";

} // namespace

TEST(RealPing, CountsTheAnswerToItsOwnRequestAlone)
{
	struct Row
	{
		const char* name;
		const char* source;
		Forge forge;
		bool counts;
	};
	const auto honest = [](const Packet& request) { return std::vector<Packet>{reply(request)}; };
	const auto changedAt = [](std::size_t at)
	{ return [at](const Packet& request) { return std::vector<Packet>{reply(request, at)}; }; };
	const auto withoutNonce = [](const Packet& request)
	{ return std::vector<Packet>{reply(Packet(request.begin(), request.begin() + 8))}; };
	const auto flood = [](const Packet& request)
	{
		std::vector<Packet> all(2000, reply(request, 9));
		all.push_back(reply(request));
		return all;
	};
	const std::vector<Row> rows{
	    {"honest", kTarget, honest, true},
	    {"none", kTarget, [](const Packet&) { return std::vector<Packet>(); }, false},
	    {"wrong id", kTarget, changedAt(4), false},
	    {"sequence to come", kTarget, changedAt(6), false},
	    {"wrong nonce", kTarget, changedAt(8), false},
	    {"wrong end of the nonce", kTarget, changedAt(23), false},
	    {"no nonce", kTarget, withoutNonce, false},
	    {"another sender", kOther, honest, false},
	    {"a flood, then the answer", kTarget, flood, true},
	};
	for (const Row& row : rows)
	{
		int requests = 0;
		const auto seen = ping(row.source, [&](const Packet& request) { return ++requests, row.forge(request); });
		if (!seen)
		{
			GTEST_SKIP() << "no network namespace can be had";
		}
		EXPECT_EQ(seen, row.counts) << row.name;
		EXPECT_GE(requests, 1) << row.name;
	}
}

TEST(RealPing, EachHasAnIdentifierAndANonceOfItsOwn)
{
	std::set<Packet> identifiers;
	std::set<Packet> nonces;
	for (int i = 0; i < 4; ++i)
	{
		ping(kTarget,
		     [&](const Packet& request)
		     {
			     identifiers.emplace(request.begin() + 4, request.begin() + 6);
			     nonces.emplace(request.begin() + 8, request.begin() + 24);
			     return std::vector<Packet>{reply(request)};
		     });
	}
	EXPECT_GT(identifiers.size(), 1U);
	EXPECT_GE(nonces.size(), 4U);
}

TEST(RealPing, OfWhatIsNoAddressIsNotAnswered)
{
	if (host::whyNoPing())
	{
		GTEST_SKIP() << "no raw socket can be had";
	}
	EXPECT_EQ(host::answersPing("no address", 1), false);
	EXPECT_EQ(host::answersPing("", 1), false);
}
