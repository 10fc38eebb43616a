#include "Peer.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

/// System calls without the C library's symbols, which SocketCalls.h answers.
template <typename... Arguments> long call(long number, Arguments... arguments)
{
	return ::syscall(number, arguments...);
}

void require(bool ok, const std::string& what)
{
	if (!ok)
	{
		throw std::runtime_error(what + ": " + std::strerror(errno));
	}
}

sockaddr_in addressOf(std::uint16_t port, const std::string& address)
{
	sockaddr_in result{};
	result.sin_family = AF_INET;
	result.sin_port = htons(port);
	require(::inet_pton(AF_INET, address.c_str(), &result.sin_addr) == 1, address);
	return result;
}

peer::Socket newSocket()
{
	peer::Socket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
	require(socket.descriptor() >= 0, "socket");
	return socket;
}

bool tryConnect(const peer::Socket& socket, std::uint16_t port, const std::string& address)
{
	const sockaddr_in to = addressOf(port, address);
	return call(SYS_connect, socket.descriptor(), &to, sizeof to) == 0;
}

/// @return whether `socket` has something to read or to accept
bool isReadable(int socket, int milliseconds)
{
	pollfd wanted{socket, POLLIN, 0};
	return ::poll(&wanted, 1, milliseconds) > 0;
}

} // namespace

namespace peer
{

Socket::~Socket()
{
	close();
}

Socket::Socket(Socket&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1))
{
}

Socket& Socket::operator=(Socket&& other) noexcept
{
	std::swap(m_descriptor, other.m_descriptor);
	return *this;
}

void Socket::send(const std::string& bytes) const
{
	require(::write(m_descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "write");
}

std::string Socket::receiveAll() const
{
	std::string all;
	std::array<char, 4096> piece{};
	for (;;)
	{
		const ssize_t n = ::read(m_descriptor, piece.data(), piece.size());
		require(n >= 0, "read");
		if (n == 0)
		{
			return all;
		}
		all.append(piece.data(), static_cast<std::size_t>(n));
	}
}

bool Socket::isAtEnd(std::chrono::milliseconds limit) const
{
	char byte = 0;
	return isReadable(m_descriptor, static_cast<int>(limit.count())) && ::read(m_descriptor, &byte, 1) <= 0;
}

bool Socket::isReset(std::chrono::milliseconds limit) const
{
	pollfd wanted{m_descriptor, 0, 0};
	return ::poll(&wanted, 1, static_cast<int>(limit.count())) > 0 && (wanted.revents & POLLERR) != 0;
}

void Socket::shutdownSend() const
{
	require(call(SYS_shutdown, m_descriptor, SHUT_WR) == 0, "shutdown");
}

void Socket::close()
{
	if (m_descriptor != -1)
	{
		::close(std::exchange(m_descriptor, -1));
	}
}

void Socket::reset()
{
	const linger atOnce{1, 0};
	require(call(SYS_setsockopt, m_descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce) == 0, "linger");
	close();
}

Socket connectTo(std::uint16_t port, const std::string& address)
{
	Socket socket = newSocket();
	require(tryConnect(socket, port, address), "connect to " + address + ":" + std::to_string(port));
	return socket;
}

bool somebodyListensOn(std::uint16_t port, const std::string& address)
{
	return tryConnect(newSocket(), port, address);
}

Listener::Listener(std::uint16_t port, const std::string& address, bool reusePort) : m_socket(newSocket())
{
	const int on = 1;
	const sockaddr_in local = addressOf(port, address);
	for (const int option : {SO_REUSEADDR, reusePort ? SO_REUSEPORT : SO_REUSEADDR})
	{
		require(call(SYS_setsockopt, m_socket.descriptor(), SOL_SOCKET, option, &on, sizeof on) == 0, "option");
	}
	require(call(SYS_bind, m_socket.descriptor(), &local, sizeof local) == 0, "bind");
	require(call(SYS_listen, m_socket.descriptor(), 16) == 0, "listen");
}

Socket Listener::accept() const
{
	if (!isReadable(m_socket.descriptor(), 10000))
	{
		throw std::runtime_error("nobody has connected");
	}
	Socket connection(static_cast<int>(call(SYS_accept4, m_socket.descriptor(), nullptr, nullptr, SOCK_CLOEXEC)));
	require(connection.descriptor() >= 0, "accept");
	return connection;
}

bool Listener::isAsked() const
{
	return isReadable(m_socket.descriptor(), 0);
}

} // namespace peer
