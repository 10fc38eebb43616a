#include "lab/program/ControlSocket.h"

#include <cstring>

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace velarix::lab::program
{

namespace
{

sockaddr_un addressFor(const std::filesystem::path& path)
{
	sockaddr_un address{};
	address.sun_family = AF_UNIX;
	if (path.string().size() >= sizeof address.sun_path)
	{
		throw LabError("the path of the control socket is too long: " + path.string());
	}
	std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
	return address;
}

Descriptor makeSocket()
{
	Descriptor made(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
	if (!made)
	{
		throwErrno("cannot make a control socket");
	}
	return made;
}

void setReceiveLimit(int socket, Millis limit)
{
	timeval time{};
	time.tv_sec = limit.count() / 1000;
	time.tv_usec = limit.count() % 1000 * 1000;
	::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
}

/// Reads until the other side has said all.
/// @return false when it kept silent too long
bool readText(int socket, std::string& text)
{
	char buffer[4096];
	ssize_t count = 0;
	while ((count = ::recv(socket, buffer, sizeof buffer, 0)) > 0)
	{
		text.append(buffer, static_cast<std::size_t>(count));
	}
	return count == 0;
}

/// All of it, and that it was all.
void sendText(int socket, const std::string& text)
{
	for (std::size_t sent = 0; sent < text.size();)
	{
		const ssize_t count = ::send(socket, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
		if (count < 0)
		{
			return;
		}
		sent += static_cast<std::size_t>(count);
	}
	::shutdown(socket, SHUT_WR);
}

} // namespace

ControlServer::ControlServer(const std::filesystem::path& path) : m_socket(makeSocket())
{
	// Who sees the file at its place is answered.
	const std::filesystem::path made = path.string() + ".new";
	const sockaddr_un address = addressFor(made);
	const mode_t before = ::umask(0077);
	const int bound = ::bind(m_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
	::umask(before);
	if (bound != 0 || ::listen(m_socket.get(), 8) != 0)
	{
		throwErrno("cannot listen at " + path.string());
	}
	std::filesystem::rename(made, path);
}

void ControlServer::serve(int signals, const std::function<std::string(const std::string&)>& answer,
                          const std::function<bool()>& goOn)
{
	while (goOn())
	{
		pollfd watched[2] = {{m_socket.get(), POLLIN, 0}, {signals, POLLIN, 0}};
		::poll(watched, 2, -1);
		if (watched[1].revents != 0)
		{
			return;
		}
		const Descriptor connection(::accept4(m_socket.get(), nullptr, nullptr, SOCK_CLOEXEC));
		std::string request;
		setReceiveLimit(connection.get(), Millis(2000));
		if (connection && readText(connection.get(), request))
		{
			sendText(connection.get(), answer(request));
		}
	}
}

std::string ask(const std::filesystem::path& path, const std::string& request, Millis limit)
{
	const Descriptor connection = makeSocket();
	const sockaddr_un address = addressFor(path);
	if (::connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
	{
		throwErrno("no supervisor listens at " + path.string());
	}
	setReceiveLimit(connection.get(), limit);
	sendText(connection.get(), request);
	std::string answer;
	if (!readText(connection.get(), answer))
	{
		throw LabError("the supervisor does not answer");
	}
	return answer;
}

} // namespace velarix::lab::program
