// A ping that a third host cannot decide: anybody may send this node ICMP packets with
// a false sender, so an answer counts only with the nonce that went out, and others
// are dropped by a filter in the kernel before they could fill the socket's buffer.

#include "inspect/Host.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <random>
#include <vector>

#include <arpa/inet.h>
#include <linux/filter.h>
#include <netinet/in.h>
#include <netinet/ip_icmp.h>
#include <poll.h>
#include <sys/socket.h>

#include "inspect/Descriptor.h"

namespace velarix::inspect::host
{

namespace
{

using Steady = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPatience{100};
constexpr std::uint32_t kNonceWords = 4;

struct EchoPacket
{
	std::uint8_t type;
	std::uint8_t code;
	std::uint16_t checksum;
	std::uint16_t id;
	std::uint16_t sequence;
	std::array<std::uint32_t, kNonceWords> nonce;
};
static_assert(sizeof(EchoPacket) == 24);

/// The Internet checksum.
std::uint16_t checksumOf(const EchoPacket& packet)
{
	std::array<std::uint16_t, sizeof packet / 2> words{};
	std::memcpy(words.data(), &packet, sizeof packet);
	std::uint32_t sum = 0;
	for (const std::uint16_t word : words)
	{
		sum += word;
	}
	sum = (sum & 0xffffU) + (sum >> 16U);
	return static_cast<std::uint16_t>(~(sum + (sum >> 16U)));
}

/// Lets through echo replies with the packet's id and nonce. A raw socket's packets
/// begin with the IP header, whose length `ldx msh` puts into X.
bool filterAnswers(int socket, const EchoPacket& packet)
{
	constexpr auto no = static_cast<std::uint8_t>(4 + 2 * kNonceWords);
	std::vector<sock_filter> code{
	    BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 0),
	    BPF_STMT(BPF_LD | BPF_B | BPF_IND, offsetof(EchoPacket, type)),
	    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ICMP_ECHOREPLY, 0, no - 1),
	    BPF_STMT(BPF_LD | BPF_H | BPF_IND, offsetof(EchoPacket, id)),
	    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ntohs(packet.id), 0, no - 3),
	};
	for (std::uint32_t word = 0; word < kNonceWords; ++word)
	{
		const auto offset = static_cast<std::uint32_t>(offsetof(EchoPacket, nonce) + 4 * word);
		const auto toRefusal = static_cast<std::uint8_t>(no - 5 - 2 * word);
		code.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_IND, offset));
		code.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ntohl(packet.nonce.at(word)), 0, toRefusal));
	}
	code.push_back(BPF_STMT(BPF_RET | BPF_K, 0xffff));
	code.push_back(BPF_STMT(BPF_RET | BPF_K, 0));
	const sock_fprog program{static_cast<unsigned short>(code.size()), code.data()};
	return ::setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0;
}

EchoPacket freshPacket()
{
	std::random_device chance;
	EchoPacket packet{ICMP_ECHO, 0, 0, static_cast<std::uint16_t>(chance()), 0, {}};
	std::ranges::generate(packet.nonce, [&] { return chance(); });
	return packet;
}

/// What came in before the filter was there is looked at once more.
/// @return whether the bytes are an answer to a request of this run
bool isAnswer(const char* bytes, std::size_t size, const EchoPacket& request)
{
	const std::size_t header = size == 0 ? 0 : 4U * (static_cast<unsigned char>(bytes[0]) & 0xfU);
	EchoPacket packet{};
	if (size < header + sizeof packet)
	{
		return false;
	}
	std::memcpy(&packet, bytes + header, sizeof packet);
	return packet.type == ICMP_ECHOREPLY && packet.id == request.id && packet.nonce == request.nonce &&
	       ntohs(packet.sequence) <= ntohs(request.sequence);
}

/// Reads until an answer or the deadline.
bool awaitAnswer(int socket, const EchoPacket& request)
{
	const Steady::time_point deadline = Steady::now() + kPatience;
	for (Steady::duration left = kPatience; left > Steady::duration::zero(); left = deadline - Steady::now())
	{
		pollfd wanted{socket, POLLIN, 0};
		const auto wait = std::chrono::ceil<std::chrono::milliseconds>(left).count();
		if (::poll(&wanted, 1, static_cast<int>(wait)) <= 0)
		{
			continue;
		}
		std::array<char, 128> bytes{};
		const ssize_t size = ::recv(socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
		if (size > 0 && isAnswer(bytes.data(), static_cast<std::size_t>(size), request))
		{
			return true;
		}
	}
	return false;
}

} // namespace

std::optional<bool> answersPing(const std::string& address, int count)
{
	const Descriptor socket(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP));
	if (!socket)
	{
		return std::nullopt;
	}
	sockaddr_in target{};
	target.sin_family = AF_INET;
	EchoPacket packet = freshPacket();
	// Connected, the socket gets packets of this sender alone.
	if (::inet_pton(AF_INET, address.c_str(), &target.sin_addr) != 1 || !filterAnswers(socket.get(), packet) ||
	    ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&target), sizeof target) != 0)
	{
		return false;
	}
	for (int sent = 1; sent <= count; ++sent)
	{
		packet.sequence = htons(static_cast<std::uint16_t>(sent));
		packet.checksum = 0;
		packet.checksum = checksumOf(packet);
		// A request that cannot go out is one without an answer.
		[[maybe_unused]] const ssize_t size = ::send(socket.get(), &packet, sizeof packet, 0);
		if (awaitAnswer(socket.get(), packet))
		{
			return true;
		}
	}
	return false;
}

} // namespace velarix::inspect::host
