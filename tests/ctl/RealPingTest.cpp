// The tool's own ping against forged answers: a responder in a network namespace of
// the test's own answers echo requests as an attacker would, who sees them or not.

#include <array>
#include <atomic>
#include <cstring>
#include <fstream>
#include <functional>
#include <set>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/ip_icmp.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "inspect/Descriptor.h"
#include "inspect/Host.h"

using namespace velarix::inspect;

namespace
{

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

sockaddr_in loopback(const char* address)
{
	sockaddr_in result{};
	result.sin_family = AF_INET;
	::inet_pton(AF_INET, address, &result.sin_addr);
	return result;
}

/// Answers the echo requests that pass on the loopback until it goes.
class Responder
{
public:
	Responder(const char* source, Forge forge)
	    : m_forge(std::move(forge)), m_socket(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP)),
	      m_sender(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP))
	{
		const sockaddr_in from = loopback(source);
		EXPECT_EQ(::bind(m_sender.get(), reinterpret_cast<const sockaddr*>(&from), sizeof from), 0);
		m_thread = std::thread([this] { work(); });
	}
	~Responder()
	{
		m_ended = true;
		m_thread.join();
	}
	Responder(const Responder&) = delete;
	Responder& operator=(const Responder&) = delete;

	int requests() const { return m_requests; }

private:
	Forge m_forge;
	Descriptor m_socket;
	Descriptor m_sender;
	std::atomic<bool> m_ended = false;
	std::atomic<int> m_requests = 0;
	std::thread m_thread;

	void work()
	{
		const sockaddr_in to = loopback("127.0.0.1");
		while (!m_ended)
		{
			pollfd wanted{m_socket.get(), POLLIN, 0};
			std::array<std::uint8_t, 256> bytes{};
			if (::poll(&wanted, 1, 20) <= 0)
			{
				continue;
			}
			const ssize_t size = ::recv(m_socket.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
			const std::size_t header = 4U * (bytes[0] & 0xfU);
			if (size <= 0 || bytes[header] != ICMP_ECHO)
			{
				continue;
			}
			++m_requests;
			for (const Packet& answer : m_forge(Packet(bytes.data() + header, bytes.data() + size)))
			{
				::sendto(m_sender.get(), answer.data(), answer.size(), 0, reinterpret_cast<const sockaddr*>(&to),
				         sizeof to);
			}
		}
	}
};

/// @return false when there is no namespace to be had
bool enterNetwork()
{
	if (::unshare(CLONE_NEWNET) != 0)
	{
		return false;
	}
	// The kernel itself must not answer.
	std::ofstream("/proc/sys/net/ipv4/icmp_echo_ignore_all") << 1;
	const Descriptor any(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
	ifreq request{};
	std::strcpy(request.ifr_name, "lo");
	request.ifr_flags = IFF_UP | IFF_RUNNING;
	return ::ioctl(any.get(), SIOCSIFFLAGS, &request) == 0;
}

struct Answer
{
	std::optional<bool> seen;
	int requests = 0;
};

class RealPing : public testing::Test
{
protected:
	/// Pings 127.0.0.1 while answers are forged. The namespace goes with the thread.
	static Answer ping(const char* source, const Forge& forge)
	{
		Answer answer;
		bool network = true;
		std::thread(
		    [&]
		    {
			    network = enterNetwork();
			    if (network)
			    {
				    const Responder responder(source, forge);
				    answer.seen = host::answersPing("127.0.0.1", 3);
				    answer.requests = responder.requests();
			    }
		    })
		    .join();
		if (!network)
		{
			answer.requests = -1;
		}
		return answer;
	}
};

constexpr char kTarget[] = "127.0.0.1";
constexpr char kOther[] = "127.0.0.2";

} // namespace

TEST_F(RealPing, CountsTheAnswerToItsOwnRequestAlone)
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
		const Answer answer = ping(row.source, row.forge);
		if (answer.requests < 0)
		{
			GTEST_SKIP() << "no network namespace can be had";
		}
		EXPECT_EQ(answer.seen, row.counts) << row.name;
		EXPECT_GE(answer.requests, 1) << row.name;
	}
}

TEST_F(RealPing, EachHasAnIdentifierAndANonceOfItsOwn)
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

TEST_F(RealPing, OfWhatIsNoAddressIsNotAnswered)
{
	if (host::whyNoPing())
	{
		GTEST_SKIP() << "no raw socket can be had";
	}
	EXPECT_EQ(host::answersPing("no address", 1), false);
	EXPECT_EQ(host::answersPing("", 1), false);
}
