/// The network as the keeper sees it: the kernel's interfaces and addresses, changes of them
/// and word of changes, and ARP on one interface for one address. The words of ARP are
/// those of RFC 5227.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "inspect/Descriptor.h"
#include "keeper/AddressMachine.h"
#include "keeper/Settings.h"

struct mnl_socket;

namespace velarix::keeper
{

/// What this machine's network shows of the address.
struct Sight
{
	int index = 0; ///< of the service interface; 0: there is none
	Mac mac{};
	bool up = false;      ///< up and with carrier
	bool present = false; ///< the address is on the interface
	/// The address stands on lo as ::192.0.2.100: the marker. The agent takes the virtual
	/// address for raised, without its countdown, when its text is anywhere in what ifconfig
	/// prints. This is printed, and answers no IPv4 ping. Without IPv6 on lo an interface
	/// without address and carrier that is called 192.0.2.100 serves as well.
	bool marker = false;
	std::vector<Mac> own; ///< of all interfaces of this machine
};

/// Looks at everything anew: what is heard through NetlinkBell may have been lost.
/// @return nothing when the kernel does not tell
std::optional<Sight> look(const AddressSettings& settings);

/// Each @return 0 or errno
/// @param seconds after which the kernel removes it, unless it is added again; 0: never
int addAddress(const AddressSettings& settings, std::uint32_t seconds = 0);
int setMarker(const AddressSettings& settings);
/// Removes the address from its interface, whatever its prefix, until the kernel has none.
int removeAddress(const AddressSettings& settings);
int removeMarker(const AddressSettings& settings);

/// Rings when an interface or an address of this machine has changed.
class NetlinkBell
{
public:
	/// @throws std::runtime_error
	NetlinkBell();

	int descriptor() const;
	/// Until the next change. What it was is not reported: look().
	void quiet() const;

private:
	std::unique_ptr<mnl_socket, int (*)(mnl_socket*)> m_socket;
};

/// @return "02:00:00:00:00:01"
std::string macText(const Mac& mac);

enum class ArpKind : std::uint8_t
{
	none,        ///< malformed, our own, or about something else
	claim,       ///< its sender says that it has the address
	foreignProbe ///< its sender wants to have it
};

struct ArpPacket
{
	ArpKind kind = ArpKind::none;
	Mac from{};
};

/// Ethernet header, ARP.
inline constexpr std::size_t kArpSize = 42;
using ArpFrame = std::array<std::uint8_t, kArpSize>;

/// Reads a frame as it came from the wire, of any content and length.
/// @param address in network byte order
/// @param own     the interface's hardware address: its packets are not looked at
ArpPacket readArp(std::span<const std::uint8_t> frame, std::uint32_t address, const Mac& own);

/// @return an ARP probe: a broadcast request without a sender's address
ArpFrame arpProbe(std::uint32_t address, const Mac& own);
/// @return an ARP announcement: a broadcast request for its sender's own address
ArpFrame arpAnnouncement(std::uint32_t address, const Mac& own);

/// A packet socket that gets nothing but well-formed claims of the address and probes for it.
class ArpSocket
{
public:
	ArpSocket() = default;
	/// @param interface its index; errors are kept: the socket is then not open
	ArpSocket(int interface, std::uint32_t address, const Mac& own);

	explicit operator bool() const { return static_cast<bool>(m_socket); }
	int descriptor() const { return m_socket.get(); }
	void probe() const { send(arpProbe(m_address, m_own)); }
	void announce() const { send(arpAnnouncement(m_address, m_own)); }

	/// Hands over what waits, at most `limit` packets of any kind.
	/// @return whether the limit was reached: more may wait
	bool receive(int limit, const std::function<void(const ArpPacket&)>& handler) const;

private:
	void send(const ArpFrame& frame) const;

	inspect::Descriptor m_socket;
	std::uint32_t m_address = 0;
	Mac m_own{};
};

} // namespace velarix::keeper
