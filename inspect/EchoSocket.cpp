#include "inspect/EchoSocket.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <random>
#include <vector>

#include <arpa/inet.h>
#include <linux/filter.h>
#include <netinet/in.h>
#include <netinet/ip_icmp.h>
#include <sys/socket.h>

namespace velarix::inspect
{

namespace
{

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
	constexpr auto no = static_cast<std::uint8_t>(4 + 2 * EchoPacket::kNonceWords);
	std::vector<sock_filter> code{
	    BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 0),
	    BPF_STMT(BPF_LD | BPF_B | BPF_IND, offsetof(EchoPacket, type)),
	    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ICMP_ECHOREPLY, 0, no - 1),
	    BPF_STMT(BPF_LD | BPF_H | BPF_IND, offsetof(EchoPacket, id)),
	    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ntohs(packet.id), 0, no - 3),
	};
	for (std::uint32_t word = 0; word < EchoPacket::kNonceWords; ++word)
	{
		const auto offset = static_cast<std::uint32_t>(offsetof(EchoPacket, nonce) + sizeof(std::uint32_t) * word);
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
	EchoPacket packet;
	packet.type = ICMP_ECHO;
	packet.id = static_cast<std::uint16_t>(chance());
	std::ranges::generate(packet.nonce, [&] { return chance(); });
	return packet;
}

} // namespace

EchoSocket::EchoSocket(const std::string& address)
    : m_packet(freshPacket()), m_socket(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_ICMP))
{
	if (!m_socket)
	{
		return;
	}
	sockaddr_in target{};
	target.sin_family = AF_INET;
	errno = EINVAL;
	// Connected, the socket gets packets of this sender alone.
	if (::inet_pton(AF_INET, address.c_str(), &target.sin_addr) != 1 || !filterAnswers(m_socket.get(), m_packet) ||
	    ::connect(m_socket.get(), reinterpret_cast<const sockaddr*>(&target), sizeof target) != 0)
	{
		m_socket.close();
	}
}

void EchoSocket::request()
{
	m_packet.sequence = htons(++m_sequence);
	m_packet.checksum = 0;
	m_packet.checksum = checksumOf(m_packet);
	[[maybe_unused]] const ssize_t size = ::send(m_socket.get(), &m_packet, sizeof m_packet, 0);
}

std::optional<std::uint16_t> EchoSocket::answer() const
{
	std::array<char, 128> bytes{};
	for (ssize_t size = 0; (size = ::recv(m_socket.get(), bytes.data(), bytes.size(), 0)) > 0;)
	{
		// What came in before the filter was there is looked at once more.
		const std::size_t header = std::size_t{4} * (static_cast<unsigned char>(bytes[0]) & 0xfU);
		EchoPacket packet;
		if (static_cast<std::size_t>(size) < header + sizeof packet)
		{
			continue;
		}
		std::memcpy(&packet, bytes.data() + header, sizeof packet);
		if (packet.type == ICMP_ECHOREPLY && packet.id == m_packet.id && packet.nonce == m_packet.nonce &&
		    ntohs(packet.sequence) <= m_sequence)
		{
			return ntohs(packet.sequence);
		}
	}
	return std::nullopt;
}

} // namespace velarix::inspect
