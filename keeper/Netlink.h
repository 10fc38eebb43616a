/// The kernel's interfaces and addresses: asked, changed and watched over rtnetlink.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "AddressMachine.h"

struct mnl_socket;
struct nlmsghdr;

namespace velarix::keeper
{

struct Link
{
	int index = 0; ///< 0: there is no such interface
	Mac mac{};
	bool up = false; ///< up and with carrier
	std::string name;
};

/// An address of an interface, of either family, in network byte order.
struct Address
{
	int interface = 0;
	int prefix = 0;
	std::vector<std::uint8_t> bytes; ///< 4 or 16
};

/// @return the four bytes of an IPv4 address
std::vector<std::uint8_t> addressBytes(std::uint32_t address);

/// @return `address` as an IPv4-compatible IPv6 address, ::192.0.2.100: the marker
///
/// The agent takes the virtual address for raised, without its countdown, when its text
/// stands anywhere in what ifconfig prints. This one does, and answers no IPv4 ping.
std::vector<std::uint8_t> markerBytes(std::uint32_t address);

using NetlinkSocket = std::unique_ptr<mnl_socket, int (*)(mnl_socket*)>;

/// Requests, answered before the call returns.
class Netlink
{
public:
	Netlink();

	std::vector<Link> links();
	std::vector<Address> addresses(int family);
	/// Adds or, when it is there, changes it. @return 0 or errno
	int add(const Address& address, const std::string& label);
	/// @return 0 or errno
	int remove(const Address& address);

private:
	int request(nlmsghdr* message, const std::function<void(const nlmsghdr*)>& answer = {});

	NetlinkSocket m_socket;
	unsigned m_sequence = 0;
};

/// What the kernel tells of its own accord.
class NetlinkMonitor
{
public:
	NetlinkMonitor();

	int descriptor() const;
	/// Reads what waits. @return false when something was lost: ask for the state anew
	bool receive(const std::function<void(const Link&)>& onLink, const std::function<void(const Address&)>& onRemoved);

private:
	NetlinkSocket m_socket;
};

} // namespace velarix::keeper
