#include "keeper/Arp.h"

#include <algorithm>
#include <cstring>

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if_arp.h>
#include <sys/socket.h>

namespace velarix::keeper
{

namespace
{

constexpr std::size_t kSource = 6;
constexpr std::size_t kType = 12;
constexpr std::size_t kArp = 14;
constexpr std::size_t kOperation = kArp + 6;
constexpr std::size_t kSenderMac = kArp + 8;
constexpr std::size_t kSenderAddress = kArp + 14;
constexpr std::size_t kTargetAddress = kArp + 24;

/// Of every ARP packet that has Ethernet and IPv4: type, hardware, protocol, lengths.
constexpr std::array<std::uint8_t, 8> kFixed{0x08, 0x06, 0x00, 0x01, 0x08, 0x00, 6, 4};

ArpFrame request(std::uint32_t sender, std::uint32_t target, const Mac& own)
{
	ArpFrame frame{};
	std::fill_n(frame.begin(), own.size(), std::uint8_t{0xff});
	std::ranges::copy(own, frame.begin() + kSource);
	std::ranges::copy(kFixed, frame.begin() + kType);
	frame[kOperation + 1] = ARPOP_REQUEST;
	std::ranges::copy(own, frame.begin() + kSenderMac);
	std::memcpy(&frame[kSenderAddress], &sender, sizeof sender);
	std::memcpy(&frame[kTargetAddress], &target, sizeof target);
	return frame;
}

/// ARP of Ethernet and IPv4 with the address as sender's, or as target's of a sender without one: what
/// clients ask, and the rest of a flood, ends in the kernel and does not wake anybody.
bool attachFilter(int descriptor, std::uint32_t address)
{
	const std::uint32_t host = ntohl(address);
	std::array<sock_filter, 13> code{{
	    BPF_STMT(BPF_LD | BPF_H | BPF_ABS, kType),
	    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ETH_P_ARP, 0, 9),
	    BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kArp),
	    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x00010800, 0, 7),
	    BPF_STMT(BPF_LD | BPF_H | BPF_ABS, kArp + 4),
	    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x0604, 0, 5),
	    BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kSenderAddress),
	    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, host, 4, 0),
	    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 0, 2),
	    BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kTargetAddress),
	    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, host, 1, 0),
	    BPF_STMT(BPF_RET | BPF_K, 0),
	    BPF_STMT(BPF_RET | BPF_K, kArpSize),
	}};
	const sock_fprog program{code.size(), code.data()};
	return ::setsockopt(descriptor, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0;
}

} // namespace

ArpPacket readArp(std::span<const std::uint8_t> frame, std::uint32_t address, const Mac& own)
{
	if (frame.size() < kArpSize || !std::ranges::equal(frame.subspan(kType, kFixed.size()), kFixed))
	{
		return {};
	}
	ArpPacket packet;
	const unsigned operation = frame[kOperation] * 256U + frame[kOperation + 1];
	std::uint32_t sender = 0;
	std::uint32_t target = 0;
	std::ranges::copy(frame.subspan(kSenderMac, packet.from.size()), packet.from.begin());
	std::memcpy(&sender, &frame[kSenderAddress], sizeof sender);
	std::memcpy(&target, &frame[kTargetAddress], sizeof target);
	if (packet.from == own || (operation != ARPOP_REQUEST && operation != ARPOP_REPLY))
	{
		return packet;
	}
	const bool probe = sender == 0 && target == address && operation == ARPOP_REQUEST;
	packet.kind = sender == address ? ArpKind::claim : (probe ? ArpKind::foreignProbe : ArpKind::none);
	return packet;
}

ArpFrame arpProbe(std::uint32_t address, const Mac& own)
{
	return request(0, address, own);
}

ArpFrame arpAnnouncement(std::uint32_t address, const Mac& own)
{
	return request(address, address, own);
}

ArpSocket::ArpSocket(int interface, std::uint32_t address, const Mac& own) : m_address(address), m_own(own)
{
	// Without a protocol it gets nothing before the filter and the interface are set.
	inspect::Descriptor opened(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
	sockaddr_ll place{};
	place.sll_family = AF_PACKET;
	place.sll_protocol = htons(ETH_P_ARP);
	place.sll_ifindex = interface;
	if (opened && attachFilter(opened.get(), address) &&
	    ::bind(opened.get(), reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0)
	{
		m_socket = std::move(opened);
	}
}

bool ArpSocket::receive(int limit, const std::function<void(const ArpPacket&)>& handler) const
{
	std::array<std::uint8_t, 128> frame{};
	for (int i = 0; i < limit; ++i)
	{
		const ssize_t length = ::recv(m_socket.get(), frame.data(), frame.size(), 0);
		if (length < 0)
		{
			return false;
		}
		handler(readArp({frame.data(), static_cast<std::size_t>(length)}, m_address, m_own));
	}
	return true;
}

void ArpSocket::send(const ArpFrame& frame) const
{
	// An interface that is down is heard of through netlink; what is sent then is lost.
	static_cast<void>(::send(m_socket.get(), frame.data(), frame.size(), MSG_DONTWAIT));
}

} // namespace velarix::keeper
