/// The partner's side of a heartbeat connection, on plain sockets of the C
/// library. Failures of the helper itself throw std::runtime_error.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace peer
{

/// A socket that closes itself.
class Socket
{
public:
	explicit Socket(int descriptor = -1) : m_descriptor(descriptor) {}
	~Socket();
	Socket(Socket&& other) noexcept;
	Socket& operator=(Socket&& other) noexcept;

	void send(const std::string& bytes) const;
	/// @return everything up to the other side's end of file
	std::string receiveAll() const;
	/// @return whether the other side's end of file or reset comes within `limit`;
	///         nothing else may be there to be received
	bool isAtEnd(std::chrono::milliseconds limit) const;
	/// @return whether the other side answers with a reset within `limit`
	bool isReset(std::chrono::milliseconds limit = std::chrono::seconds(10)) const;
	/// Ends the sending side only.
	void shutdownSend() const;
	void close();
	/// Closes with a reset instead of an orderly end.
	void reset();

	int descriptor() const { return m_descriptor; }

private:
	int m_descriptor;
};

/// @return a connection to the address
Socket connectTo(std::uint16_t port, const std::string& address = "127.0.0.1");
/// @return whether somebody listens there
bool somebodyListensOn(std::uint16_t port, const std::string& address = "127.0.0.1");

/// Listens like the partner's receiver, but accepts only when reported to.
class Listener
{
public:
	explicit Listener(std::uint16_t port, const std::string& address = "127.0.0.1", bool reusePort = false);

	/// @return the next connection, which must be there or on its way
	Socket accept() const;
	/// Accepts the next connection and reads it to its end.
	std::string message() const { return accept().receiveAll(); }
	/// @return whether a connection waits now
	bool isAsked() const;

private:
	Socket m_socket;
};

} // namespace peer
