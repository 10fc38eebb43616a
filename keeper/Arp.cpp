#include "Arp.h"

#include <algorithm>
#include <array>
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

constexpr std::size_t kDestination = 0;
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
	std::fill_n(frame.begin() + kDestination, own.size(), std::uint8_t{0xff});
	std::ranges::copy(own, frame.begin() + kSource);
	std::ranges::copy(kFixed, frame.begin() + kType);
	frame[kOperation + 1] = ARPOP_REQUEST;
	std::ranges::copy(own, frame.begin() + kSenderMac);
	std::memcpy(&frame[kSenderAddress], &sender, sizeof sender);
	std::memcpy(&frame[kTargetAddress], &target, sizeof target);
	return frame;
}

/// Request or reply, Ethernet and IPv4, and the address as sender's or target's: the
/// rest of a flood ends in the kernel and does not wake anybody.
bool attachFilter(int descriptor, std::uint32_t address)
{
	const auto load = [](unsigned size, std::size_t offset) {
		return sock_filter{static_cast<std::uint16_t>(BPF_LD | size | BPF_ABS), 0, 0,
		                   static_cast<std::uint32_t>(offset)};
	};
	const auto unless = [](std::uint32_t value, std::uint8_t skip) {
		return sock_filter{BPF_JMP | BPF_JEQ | BPF_K, 0, skip, value};
	};
	const auto when = [](std::uint32_t value, std::uint8_t skip) {
		return sock_filter{BPF_JMP | BPF_JEQ | BPF_K, skip, 0, value};
	};
	const std::uint32_t host = ntohl(address);
	std::array<sock_filter, 12> code{{
	    load(BPF_H, kType),
	    unless(ETH_P_ARP, 8),
	    load(BPF_W, kArp),
	    unless(0x00010800, 6),
	    load(BPF_H, kArp + 4),
	    unless(0x0604, 4),
	    load(BPF_W, kSenderAddress),
	    when(host, 3),
	    load(BPF_W, kTargetAddress),
	    when(host, 1),
	    {BPF_RET | BPF_K, 0, 0, 0},
	    {BPF_RET | BPF_K, 0, 0, kArpSize},
	}};
	const sock_fprog program{static_cast<unsigned short>(code.size()), code.data()};
	return ::setsockopt(descriptor, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0;
}

} // namespace

ArpPacket readArp(std::span<const std::uint8_t> frame, std::uint32_t address, const Mac& own)
{
	if (frame.size() < kArpSize || !std::ranges::equal(frame.subspan(kType, kFixed.size()), kFixed))
	{
		return {};
	}
	const unsigned operation = frame[kOperation] * 256U + frame[kOperation + 1];
	if (operation != ARPOP_REQUEST && operation != ARPOP_REPLY)
	{
		return {};
	}
	ArpPacket packet;
	std::ranges::copy(frame.subspan(kSenderMac, packet.from.size()), packet.from.begin());
	std::uint32_t sender = 0;
	std::uint32_t target = 0;
	std::memcpy(&sender, &frame[kSenderAddress], sizeof sender);
	std::memcpy(&target, &frame[kTargetAddress], sizeof target);
	if (packet.from == own)
	{
		return packet;
	}
	if (sender == address)
	{
		packet.kind = ArpKind::claim;
	}
	else if (sender == 0 && target == address && operation == ARPOP_REQUEST)
	{
		packet.kind = ArpKind::foreignProbe;
	}
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
	Descriptor opened(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
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
		const ArpPacket packet = readArp({frame.data(), static_cast<std::size_t>(length)}, m_address, m_own);
		if (packet.kind != ArpKind::none)
		{
			handler(packet);
		}
	}
	return true;
}

void ArpSocket::send(const ArpFrame& frame) const
{
	// An interface that is down is heard of through netlink; what is sent then is lost.
	static_cast<void>(::send(m_socket.get(), frame.data(), frame.size(), MSG_DONTWAIT));
}

} // namespace velarix::keeper
