/// Pings of one host that a third host cannot answer for it: anybody may send this node
/// ICMP packets with a false sender, so an answer counts only with the identifier and the
/// nonce that went out. Others are dropped by a filter in the kernel before they could
/// fill the socket's buffer.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "inspect/Descriptor.h"

namespace velarix::inspect
{

/// On the wire.
struct EchoPacket
{
	static constexpr std::uint32_t kNonceWords = 4;

	std::uint8_t type = 0;
	std::uint8_t code = 0;
	std::uint16_t checksum = 0;
	std::uint16_t id = 0;
	std::uint16_t sequence = 0;
	std::array<std::uint32_t, kNonceWords> nonce{};
};
static_assert(sizeof(EchoPacket) == 24);

class EchoSocket
{
public:
	EchoSocket() = default;
	/// Without the right to raw sockets, or a route, it is not usable; errno says why.
	explicit EchoSocket(const std::string& address);

	explicit operator bool() const { return static_cast<bool>(m_socket); }
	/// Can be read when an answer has come.
	int descriptor() const { return m_socket.get(); }
	/// Sends the next request. One that cannot go out is one without an answer.
	void request();
	/// Never waits. @return the sequence of an answer to a request of this socket
	std::optional<std::uint16_t> answer() const;
	/// @return that of the last request, from 1
	std::uint16_t sequence() const { return m_sequence; }

private:
	EchoPacket m_packet;
	std::uint16_t m_sequence = 0;
	Descriptor m_socket;
};

} // namespace velarix::inspect
