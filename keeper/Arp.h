/// ARP on one interface, for one address: what is sent, and what of the received is
/// looked at. The words are those of RFC 5227.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "inspect/Descriptor.h"
#include "keeper/AddressMachine.h"

namespace velarix::keeper
{

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
