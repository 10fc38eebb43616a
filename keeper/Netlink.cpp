#include "Netlink.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <libmnl/libmnl.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

namespace velarix::keeper
{

namespace
{

constexpr std::size_t kBuffer = 32768;

NetlinkSocket openSocket(unsigned groups)
{
	NetlinkSocket socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC), mnl_socket_close);
	if (!socket || mnl_socket_bind(socket.get(), groups, MNL_SOCKET_AUTOPID) != 0)
	{
		throw std::runtime_error(std::string("netlink: ") + std::strerror(errno));
	}
	return socket;
}

template <typename Handler> void forEachAttribute(const nlmsghdr* message, std::size_t header, Handler handler)
{
	const auto forward = [](const nlattr* attribute, void* data)
	{
		(*static_cast<Handler*>(data))(mnl_attr_get_type(attribute),
		                               std::span(static_cast<const std::uint8_t*>(mnl_attr_get_payload(attribute)),
		                                         mnl_attr_get_payload_len(attribute)));
		return MNL_CB_OK;
	};
	mnl_attr_parse(message, static_cast<unsigned>(header), forward, &handler);
}

Link readLink(const nlmsghdr* message)
{
	const auto* info = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
	Link link;
	link.index = info->ifi_index;
	link.up =
	    message->nlmsg_type == RTM_NEWLINK && (info->ifi_flags & IFF_UP) != 0 && (info->ifi_flags & IFF_RUNNING) != 0;
	forEachAttribute(message, sizeof(ifinfomsg),
	                 [&](int type, std::span<const std::uint8_t> payload)
	                 {
		                 if (type == IFLA_ADDRESS && payload.size() == link.mac.size())
		                 {
			                 std::ranges::copy(payload, link.mac.begin());
		                 }
		                 else if (type == IFLA_IFNAME)
		                 {
			                 link.name.assign(payload.begin(), std::ranges::find(payload, std::uint8_t{0}));
		                 }
	                 });
	return link;
}

Address readAddress(const nlmsghdr* message)
{
	const auto* info = static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(message));
	Address address;
	address.interface = static_cast<int>(info->ifa_index);
	address.prefix = info->ifa_prefixlen;
	forEachAttribute(message, sizeof(ifaddrmsg),
	                 [&](int type, std::span<const std::uint8_t> payload)
	                 {
		                 // IPv6 has its local address in IFA_ADDRESS, unless it is one end of two.
		                 if (type == IFA_LOCAL || (type == IFA_ADDRESS && address.bytes.empty()))
		                 {
			                 address.bytes.assign(payload.begin(), payload.end());
		                 }
	                 });
	return address;
}

nlmsghdr* putHeader(std::span<char> buffer, int type, int flags)
{
	nlmsghdr* message = mnl_nlmsg_put_header(buffer.data());
	message->nlmsg_type = static_cast<std::uint16_t>(type);
	message->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
	return message;
}

nlmsghdr* putAddress(std::span<char> buffer, int type, int flags, const Address& address)
{
	nlmsghdr* message = putHeader(buffer, type, NLM_F_ACK | flags);
	auto* info = static_cast<ifaddrmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifaddrmsg)));
	info->ifa_family = address.bytes.size() == 4 ? AF_INET : AF_INET6;
	info->ifa_prefixlen = static_cast<std::uint8_t>(address.prefix);
	info->ifa_index = static_cast<unsigned>(address.interface);
	mnl_attr_put(message, IFA_LOCAL, address.bytes.size(), address.bytes.data());
	mnl_attr_put(message, IFA_ADDRESS, address.bytes.size(), address.bytes.data());
	return message;
}

} // namespace

std::vector<std::uint8_t> addressBytes(std::uint32_t address)
{
	std::vector<std::uint8_t> bytes(sizeof address);
	std::memcpy(bytes.data(), &address, sizeof address);
	return bytes;
}

std::vector<std::uint8_t> markerBytes(std::uint32_t address)
{
	std::vector<std::uint8_t> bytes(16);
	std::memcpy(&bytes[12], &address, sizeof address);
	return bytes;
}

Netlink::Netlink() : m_socket(openSocket(0))
{
}

int Netlink::request(nlmsghdr* message, const std::function<void(const nlmsghdr*)>& answer)
{
	message->nlmsg_seq = ++m_sequence;
	if (mnl_socket_sendto(m_socket.get(), message, message->nlmsg_len) < 0)
	{
		return errno;
	}
	using Answer = const std::function<void(const nlmsghdr*)>;
	const auto forward = [](const nlmsghdr* received, void* data)
	{
		const auto& handler = *static_cast<Answer*>(data);
		if (handler)
		{
			handler(received);
		}
		return MNL_CB_OK;
	};
	std::array<char, kBuffer> buffer{};
	const unsigned port = mnl_socket_get_portid(m_socket.get());
	int result = MNL_CB_OK;
	while (result > MNL_CB_STOP)
	{
		const ssize_t length = mnl_socket_recvfrom(m_socket.get(), buffer.data(), buffer.size());
		if (length < 0)
		{
			return errno;
		}
		result = mnl_cb_run(buffer.data(), static_cast<std::size_t>(length), m_sequence, port, forward,
		                    const_cast<std::function<void(const nlmsghdr*)>*>(&answer));
	}
	return result < 0 ? errno : 0;
}

std::vector<Link> Netlink::links()
{
	std::array<char, 256> buffer{};
	nlmsghdr* message = putHeader(buffer, RTM_GETLINK, NLM_F_DUMP);
	static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)))->ifi_family = AF_UNSPEC;
	std::vector<Link> found;
	request(message, [&](const nlmsghdr* received) { found.push_back(readLink(received)); });
	return found;
}

std::vector<Address> Netlink::addresses(int family)
{
	std::array<char, 256> buffer{};
	nlmsghdr* message = putHeader(buffer, RTM_GETADDR, NLM_F_DUMP);
	static_cast<ifaddrmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifaddrmsg)))->ifa_family =
	    static_cast<std::uint8_t>(family);
	std::vector<Address> found;
	request(message, [&](const nlmsghdr* received) { found.push_back(readAddress(received)); });
	return found;
}

int Netlink::add(const Address& address, const std::string& label)
{
	std::array<char, 512> buffer{};
	nlmsghdr* message = putAddress(buffer, RTM_NEWADDR, NLM_F_CREATE | NLM_F_REPLACE, address);
	if (!label.empty() && label.size() < IFNAMSIZ)
	{
		mnl_attr_put_strz(message, IFA_LABEL, label.c_str());
	}
	return request(message);
}

int Netlink::remove(const Address& address)
{
	std::array<char, 512> buffer{};
	return request(putAddress(buffer, RTM_DELADDR, 0, address));
}

NetlinkMonitor::NetlinkMonitor() : m_socket(openSocket(RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR))
{
	const int flags = ::fcntl(descriptor(), F_GETFL);
	::fcntl(descriptor(), F_SETFL, flags | O_NONBLOCK);
}

int NetlinkMonitor::descriptor() const
{
	return mnl_socket_get_fd(m_socket.get());
}

bool NetlinkMonitor::receive(const std::function<void(const Link&)>& onLink,
                             const std::function<void(const Address&)>& onRemoved)
{
	struct Handlers
	{
		const std::function<void(const Link&)>& onLink;
		const std::function<void(const Address&)>& onRemoved;
	} handlers{onLink, onRemoved};
	const auto forward = [](const nlmsghdr* message, void* data)
	{
		const auto* to = static_cast<const Handlers*>(data);
		const bool link = message->nlmsg_type == RTM_NEWLINK || message->nlmsg_type == RTM_DELLINK;
		// Bridges tell of their ports in the same words: one that leaves a bridge is not gone.
		if (link && static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message))->ifi_family == AF_UNSPEC)
		{
			to->onLink(readLink(message));
		}
		else if (message->nlmsg_type == RTM_DELADDR)
		{
			to->onRemoved(readAddress(message));
		}
		return MNL_CB_OK;
	};
	std::array<char, kBuffer> buffer{};
	constexpr int kAtOnce = 64;
	for (int i = 0; i < kAtOnce; ++i)
	{
		const ssize_t length = mnl_socket_recvfrom(m_socket.get(), buffer.data(), buffer.size());
		if (length < 0)
		{
			return errno != ENOBUFS;
		}
		mnl_cb_run(buffer.data(), static_cast<std::size_t>(length), 0, 0, forward, &handlers);
	}
	return true;
}

} // namespace velarix::keeper
