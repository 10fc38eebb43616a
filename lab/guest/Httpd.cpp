/// labhttpd: the service that the pair in the lab guards. It answers every HTTP
/// request on port 8080 of all addresses with the name of its host, one line.
/// It takes no arguments: the agent would take them for a part of its name.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace
{

constexpr std::uint16_t port = 8080;

/// A client that has not sent its request by then is dropped.
constexpr timeval patience{5, 0};

int listeningSocket()
{
	const int listening = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
	const int on = 1;
	::setsockopt(listening, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
	sockaddr_in address{};
	address.sin_family = AF_INET;
	address.sin_port = htons(port);
	address.sin_addr.s_addr = htonl(INADDR_ANY);
	if (::bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
	    ::listen(listening, 256) != 0)
	{
		std::perror("labhttpd");
		_exit(1);
	}
	return listening;
}

/// Answers as soon as a request has begun to come in; every request fits one segment.
void serve(int connection, const std::string& response)
{
	::setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
	char request[1024];
	if (::recv(connection, request, sizeof request, 0) > 0)
	{
		::send(connection, response.data(), response.size(), MSG_NOSIGNAL);
	}
	::close(connection);
}

} // namespace

int main()
{
	char name[64] = "";
	::gethostname(name, sizeof name - 1);
	const std::string body = std::string(name) + "\n";
	const std::string response =
	    "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
	    body;
	const int listening = listeningSocket();
	for (;;)
	{
		// Clients on bad wires are slow, so nobody waits for another one.
		const int connection = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
		if (connection >= 0)
		{
			std::thread(serve, connection, std::cref(response)).detach();
		}
	}
}
