/// The partner's side of a heartbeat connection, on sockets of the library. Its calls are made
/// in actions (Events.h) or where no call is waited for.
#pragma once

#include <array>
#include <chrono>
#include <stdexcept>
#include <string>

#include <poll.h>

#include <Poco/Net/NetException.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/StreamSocket.h>

namespace peer
{

using namespace std::chrono_literals;

/// @return what of `wanted` or POLLERR holds within `limit`; not a call that is announced
inline short pollFor(const Poco::Net::Socket& socket, short wanted, std::chrono::milliseconds limit)
{
	pollfd asked{socket.impl()->sockfd(), wanted, 0};
	::poll(&asked, 1, static_cast<int>(limit.count()));
	return asked.revents;
}

class Socket : public Poco::Net::StreamSocket
{
public:
	using StreamSocket::StreamSocket;
	Socket(const StreamSocket& other) : StreamSocket(other) {}

	void send(const std::string& bytes) { sendBytes(bytes.data(), static_cast<int>(bytes.size())); }
	/// @return everything up to the other side's end of file
	std::string receiveAll()
	{
		std::string all;
		std::array<char, 4096> piece{};
		for (int n = 0; (n = receiveBytes(piece.data(), piece.size())) > 0;)
		{
			all.append(piece.data(), static_cast<std::size_t>(n));
		}
		return all;
	}
	/// @return whether the other side's end of file or reset comes within `limit`;
	///         nothing else may be there to be received
	bool isAtEnd(std::chrono::milliseconds limit) const
	{
		char byte = 0;
		return pollFor(*this, POLLIN, limit) != 0 && ::recv(impl()->sockfd(), &byte, 1, 0) <= 0;
	}
	/// @return whether the other side answers with a reset within `limit`
	bool isReset(std::chrono::milliseconds limit = 10s) const { return (pollFor(*this, 0, limit) & POLLERR) != 0; }
	/// Closes with a reset instead of an orderly end.
	void reset()
	{
		setLinger(true, 0);
		close();
	}
};

/// @return a connection to the address
inline Socket connectTo(std::uint16_t port, const std::string& address = "127.0.0.1")
{
	return Socket(Poco::Net::SocketAddress(address, port));
}

/// @return whether somebody listens there
inline bool somebodyListensOn(std::uint16_t port, const std::string& address = "127.0.0.1")
{
	try
	{
		connectTo(port, address);
		return true;
	}
	catch (const Poco::Net::ConnectionRefusedException&)
	{
		return false;
	}
}

/// Listens like the partner's receiver, but accepts only when asked to. The port may be shared.
class Listener
{
public:
	explicit Listener(std::uint16_t port)
	{
		m_socket.bind(Poco::Net::SocketAddress("127.0.0.1", port), true, true);
		m_socket.listen();
	}

	/// @return the next connection, which must be there or on its way
	Socket accept()
	{
		if (pollFor(m_socket, POLLIN, 10s) == 0)
		{
			throw std::runtime_error("nobody has connected");
		}
		return m_socket.acceptConnection();
	}
	/// Accepts the next connection and reads it to its end.
	std::string message() { return accept().receiveAll(); }
	/// @return whether a connection waits now
	bool isAsked() const { return pollFor(m_socket, POLLIN, 0s) != 0; }

private:
	Poco::Net::ServerSocket m_socket;
};

} // namespace peer
