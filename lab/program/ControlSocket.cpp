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

/// A socket, and its connect() or bind() to the path.
/// @throws LabError beginning with `problem`
Descriptor socketAt(const std::filesystem::path& path, int (*place)(int, const sockaddr*, socklen_t),
                    const char* problem)
{
	sockaddr_un address{};
	address.sun_family = AF_UNIX;
	if (path.string().size() >= sizeof address.sun_path)
	{
		throw LabError("the path of the control socket is too long: " + path.string());
	}
	std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
	Descriptor made(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
	if (!made || place(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
	{
		throwErrno(problem + path.string());
	}
	return made;
}

/// Reads until the other side has said all.
/// @return false when it kept silent for so long
bool readText(int socket, std::string& text, std::chrono::seconds limit)
{
	const timeval time{limit.count(), 0};
	::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
	char buffer[4096];
	ssize_t count = 0;
	while ((count = ::recv(socket, buffer, sizeof buffer, 0)) > 0)
	{
		text.append(buffer, static_cast<std::size_t>(count));
	}
	return count == 0;
}

/// All of it, and that it was all. A socket that blocks takes the whole.
void sendText(int socket, const std::string& text)
{
	::send(socket, text.data(), text.size(), MSG_NOSIGNAL);
	::shutdown(socket, SHUT_WR);
}

} // namespace

void serve(const std::filesystem::path& path, int signals, const std::function<std::string(const std::string&)>& answer,
           const std::function<bool()>& goOn)
{
	// Who sees the file at its place is answered.
	const std::filesystem::path made = path.string() + ".new";
	const mode_t before = ::umask(0077);
	const Descriptor listening = socketAt(made, ::bind, "cannot listen at ");
	::umask(before);
	if (::listen(listening.get(), 8) != 0)
	{
		throwErrno("cannot listen at " + path.string());
	}
	std::filesystem::rename(made, path);
	while (goOn())
	{
		pollfd watched[2] = {{listening.get(), POLLIN, 0}, {signals, POLLIN, 0}};
		::poll(watched, 2, -1);
		if (watched[1].revents != 0)
		{
			return;
		}
		const Descriptor connection(::accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
		std::string request;
		if (connection && readText(connection.get(), request, std::chrono::seconds(2)))
		{
			sendText(connection.get(), answer(request));
		}
	}
}

std::string ask(const std::filesystem::path& path, const std::string& request)
{
	const Descriptor connection = socketAt(path, ::connect, "no supervisor at ");
	sendText(connection.get(), request);
	std::string answer;
	if (!readText(connection.get(), answer, std::chrono::seconds(60)))
	{
		throw LabError("the supervisor does not answer");
	}
	return answer;
}

} // namespace velarix::lab::program
