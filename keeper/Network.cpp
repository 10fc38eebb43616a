#include "keeper/Network.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <libmnl/libmnl.h>
#include <linux/filter.h>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/socket.h>

namespace velarix::keeper
{

namespace
{

using Socket = std::unique_ptr<mnl_socket, int (*)(mnl_socket*)>;

Socket openSocket(unsigned groups)
{
	Socket socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC), mnl_socket_close);
	if (!socket || mnl_socket_bind(socket.get(), groups, MNL_SOCKET_AUTOPID) != 0)
	{
		throw std::runtime_error(std::string("netlink: ") + std::strerror(errno));
	}
	return socket;
}

/// An address of an interface in network byte order, 4 or 16 bytes.
struct Address
{
	const char* interface;
	std::vector<std::uint8_t> bytes;
	unsigned prefix = 0; ///< 0, to remove: whatever it is
	std::string label = {};
	unsigned char scope = RT_SCOPE_UNIVERSE;
	std::uint32_t seconds = 0; ///< until it goes; 0: it stays
};

std::vector<std::uint8_t> bytesOf(std::uint32_t address, std::size_t length)
{
	std::vector<std::uint8_t> bytes(length);
	std::memcpy(&bytes[length - sizeof address], &address, sizeof address);
	return bytes;
}

Address addressOf(const AddressSettings& settings)
{
	return {settings.interface.c_str(), bytesOf(settings.address, 4)};
}

Address markerOf(const AddressSettings& settings)
{
	return {"lo", bytesOf(settings.address, 16), 128};
}

using Buffer = std::array<char, 8192>;

nlmsghdr* begin(Buffer& buffer, std::uint16_t type, std::uint16_t flags)
{
	nlmsghdr* message = mnl_nlmsg_put_header(buffer.data());
	message->nlmsg_type = type;
	message->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
	return message;
}

/// Sends the message at the beginning of the buffer. @return 0 or errno
int transact(Buffer& buffer)
{
	const auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data());
	const Socket socket = openSocket(0);
	const unsigned port = mnl_socket_get_portid(socket.get());
	ssize_t length = mnl_socket_sendto(socket.get(), message, message->nlmsg_len);
	length = length < 0 ? length : mnl_socket_recvfrom(socket.get(), buffer.data(), buffer.size());
	const bool done = length >= 0 && mnl_cb_run(buffer.data(), static_cast<std::size_t>(length), 0, port, nullptr,
	                                            nullptr) != MNL_CB_ERROR;
	return done ? 0 : errno;
}

/// @param kind of the interface, to make it; nullptr to remove it. @return 0 or errno
int requestLink(const std::string& name, const char* kind)
{
	Buffer buffer{};
	nlmsghdr* message = begin(buffer, kind != nullptr ? RTM_NEWLINK : RTM_DELLINK, kind != nullptr ? NLM_F_CREATE : 0);
	auto* info = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
	info->ifi_flags = IFF_UP;
	info->ifi_change = IFF_UP;
	mnl_attr_put_strz(message, IFLA_IFNAME, name.c_str());
	if (kind != nullptr)
	{
		nlattr* link = mnl_attr_nest_start(message, IFLA_LINKINFO);
		mnl_attr_put_str(message, IFLA_INFO_KIND, kind);
		mnl_attr_nest_end(message, link);
	}
	return transact(buffer);
}

/// @return 0 or errno
int request(std::uint16_t type, std::uint16_t flags, const Address& address)
{
	Buffer buffer{};
	nlmsghdr* message = begin(buffer, type, flags);
	auto* info = static_cast<ifaddrmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifaddrmsg)));
	info->ifa_family = address.bytes.size() == 4 ? AF_INET : AF_INET6;
	info->ifa_prefixlen = static_cast<std::uint8_t>(address.prefix);
	info->ifa_scope = address.scope;
	info->ifa_index = ::if_nametoindex(address.interface);
	mnl_attr_put(message, IFA_LOCAL, address.bytes.size(), address.bytes.data());
	if (address.prefix > 0)
	{
		mnl_attr_put(message, IFA_ADDRESS, address.bytes.size(), address.bytes.data());
	}
	if (!address.label.empty())
	{
		mnl_attr_put_strz(message, IFA_LABEL, address.label.c_str());
	}
	if (address.seconds > 0)
	{
		const ifa_cacheinfo times{address.seconds, address.seconds, 0, 0};
		mnl_attr_put(message, IFA_CACHEINFO, sizeof times, &times);
	}
	return transact(buffer);
}

bool isThere(const ifaddrs& entry, const Address& address)
{
	// An address may be listed by its label, eth0:ha.
	const std::string_view name(entry.ifa_name);
	const bool four = address.bytes.size() == 4;
	if (name.substr(0, name.find(':')) != address.interface || entry.ifa_addr->sa_family != (four ? AF_INET : AF_INET6))
	{
		return false;
	}
	const std::size_t offset = four ? offsetof(sockaddr_in, sin_addr) : offsetof(sockaddr_in6, sin6_addr);
	const auto* bytes = reinterpret_cast<const std::uint8_t*>(entry.ifa_addr) + offset;
	return std::equal(address.bytes.begin(), address.bytes.end(), bytes);
}

void addLink(Sight& sight, const ifaddrs& entry, const std::string& interface)
{
	sockaddr_ll link{};
	std::memcpy(&link, entry.ifa_addr, sizeof link);
	Mac mac{};
	std::copy_n(std::begin(link.sll_addr), mac.size(), mac.begin());
	sight.own.push_back(mac);
	if (entry.ifa_name == interface)
	{
		sight.index = link.sll_ifindex;
		sight.mac = mac;
		sight.up = (entry.ifa_flags & IFF_UP) != 0 && (entry.ifa_flags & IFF_RUNNING) != 0;
	}
}

// ARP: where things are in its frames.

constexpr std::size_t kSource = 6;
constexpr std::size_t kType = 12;
constexpr std::size_t kArp = 14;
constexpr std::size_t kOperation = kArp + 6;
constexpr std::size_t kSenderMac = kArp + 8;
constexpr std::size_t kSenderAddress = kArp + 14;
constexpr std::size_t kTargetAddress = kArp + 24;

/// Of every ARP packet that has Ethernet and IPv4: type, hardware, protocol, lengths.
constexpr std::array<std::uint8_t, 8> kFixed{0x08, 0x06, 0x00, 0x01, 0x08, 0x00, 6, 4};

ArpFrame arpRequest(std::uint32_t sender, std::uint32_t target, const Mac& own)
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

std::optional<Sight> look(const AddressSettings& settings)
{
	ifaddrs* list = nullptr;
	if (::getifaddrs(&list) != 0)
	{
		return std::nullopt;
	}
	const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, ::freeifaddrs);
	const Address address = addressOf(settings);
	const Address marker = markerOf(settings);
	Sight sight;
	for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next)
	{
		if (entry->ifa_addr == nullptr)
		{
			continue;
		}
		if (entry->ifa_addr->sa_family == AF_PACKET)
		{
			addLink(sight, *entry, settings.interface);
			sight.marker = sight.marker || (entry->ifa_name == settings.text && (entry->ifa_flags & IFF_UP) != 0);
		}
		sight.present = sight.present || isThere(*entry, address);
		sight.marker = sight.marker || isThere(*entry, marker);
	}
	return sight;
}

int addAddress(const AddressSettings& settings, std::uint32_t seconds)
{
	Address address = addressOf(settings);
	address.seconds = seconds;
	address.prefix = static_cast<unsigned>(settings.prefix);
	if (settings.interface == "lo")
	{
		// Never the source of a packet that leaves.
		address.scope = RT_SCOPE_HOST;
	}
	else
	{
		address.label = settings.label();
	}
	return request(RTM_NEWADDR, NLM_F_CREATE | NLM_F_REPLACE, address);
}

int setMarker(const AddressSettings& settings)
{
	int error = request(RTM_NEWADDR, NLM_F_CREATE | NLM_F_REPLACE, markerOf(settings));
	// Not every kernel has both.
	for (const char* kind : {"dummy", "bridge"})
	{
		error = error != 0 ? requestLink(settings.text, kind) : 0;
	}
	return error;
}

int removeAddress(const AddressSettings& settings)
{
	constexpr int kTries = 33;
	int error = 0;
	for (int i = 0; i < kTries && error == 0; ++i)
	{
		error = request(RTM_DELADDR, 0, addressOf(settings));
	}
	return error == EADDRNOTAVAIL || error == ENODEV ? 0 : (error == 0 ? EBUSY : error);
}

int removeMarker(const AddressSettings& settings)
{
	const int error = request(RTM_DELADDR, 0, markerOf(settings));
	const int linkError = requestLink(settings.text, nullptr);
	return linkError == 0 ? 0 : error;
}

NetlinkBell::NetlinkBell() : m_socket(openSocket(RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR))
{
}

int NetlinkBell::descriptor() const
{
	return mnl_socket_get_fd(m_socket.get());
}

void NetlinkBell::quiet() const
{
	constexpr int kAtOnce = 256;
	char discarded = 0;
	for (int i = 0; i < kAtOnce; ++i)
	{
		// ENOBUFS says that some were lost, which is all the same.
		if (::recv(descriptor(), &discarded, sizeof discarded, MSG_DONTWAIT) < 0 && errno != ENOBUFS)
		{
			return;
		}
	}
}

std::string macText(const Mac& mac)
{
	std::array<char, 20> text{};
	std::snprintf(text.data(), text.size(), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
	              mac[5]);
	return text.data();
}

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
	return arpRequest(0, address, own);
}

ArpFrame arpAnnouncement(std::uint32_t address, const Mac& own)
{
	return arpRequest(address, address, own);
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
