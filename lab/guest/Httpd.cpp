/// labhttpd: the service that the pair in the lab guards. It answers every HTTP
/// request on port 8080 of all addresses with the name of its host, one line.
/// It takes no arguments: the agent would take them for a part of its name.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr std::uint16_t port = 8080;

int listeningSocket()
{
	const int listening = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
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

using Clock = std::chrono::steady_clock;

/// A client that has not sent its request by then is dropped.
constexpr std::chrono::seconds patience{5};

struct Connection
{
	int socket;
	Clock::time_point accepted;
};

/// Answers as soon as a request has begun to come in; every request fits one segment.
/// @return true when the connection is done with
bool served(const Connection& connection, bool readable, const std::string& response)
{
	if (!readable)
	{
		return Clock::now() - connection.accepted > patience;
	}
	char request[1024];
	if (::recv(connection.socket, request, sizeof request, 0) > 0)
	{
		::send(connection.socket, response.data(), response.size(), MSG_NOSIGNAL);
	}
	return true;
}

/// Clients on bad wires are slow, so nobody waits for another one.
class Server
{
public:
	explicit Server(std::string response) : m_listening(listeningSocket()), m_response(std::move(response)) {}

	void serve()
	{
		std::vector<pollfd> watched{{m_listening, POLLIN, 0}};
		for (const Connection& connection : m_open)
		{
			watched.push_back({connection.socket, POLLIN, 0});
		}
		::poll(watched.data(), watched.size(), 1000);
		std::vector<Connection> stillOpen;
		for (std::size_t index = 0; index < m_open.size(); ++index)
		{
			if (served(m_open[index], watched[index + 1].revents != 0, m_response))
			{
				::close(m_open[index].socket);
			}
			else
			{
				stillOpen.push_back(m_open[index]);
			}
		}
		m_open = std::move(stillOpen);
		if (watched.front().revents != 0)
		{
			accept();
		}
	}

private:
	int m_listening;
	std::string m_response;
	std::vector<Connection> m_open;

	void accept()
	{
		const int connection = ::accept4(m_listening, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
		if (connection >= 0)
		{
			m_open.push_back({connection, Clock::now()});
		}
	}
};

} // namespace

int main()
{
	char name[64] = "";
	::gethostname(name, sizeof name - 1);
	const std::string body = std::string(name) + "\n";
	const std::string response =
	    "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
	    body;
	Server server(response);
	for (;;)
	{
		server.serve();
	}
}
