#include "lab/campaigns/hostile/Sockets.h"

#include <algorithm>
#include <cerrno>
#include <thread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

namespace velarix::lab::hostile
{

namespace
{

/// What a client that "stays when left" may keep open at most.
constexpr std::size_t mostHalfClosed = 400;

constexpr Millis nextTry{20};

struct Client
{
	Descriptor socket{};
	bool open = false; ///< the handshake is done
	std::chrono::steady_clock::time_point next{};
};

Descriptor beginConnect(const sockaddr_in& to, const std::string& from)
{
	Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
	if (!from.empty())
	{
		const sockaddr_in own = socketAddress(from, 0);
		if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0)
		{
			throwErrno("an attacker cannot speak from " + from);
		}
	}
	if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0 && errno != EINPROGRESS)
	{
		socket.reset();
	}
	return socket;
}

bool isConnected(const Descriptor& socket)
{
	int problem = 0;
	socklen_t size = sizeof problem;
	return ::getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &problem, &size) == 0 && problem == 0;
}

/// One look at all clients.
class ClientPoolRun
{
public:
	ClientPoolRun(const ClientPool& clientPool, const sockaddr_in& target, AttackTally& tally)
	    : m_pool(clientPool), m_port(target), m_tally(tally), m_clients(static_cast<std::size_t>(clientPool.size))
	{
	}

	void step()
	{
		std::vector<pollfd> watched;
		for (const Client& client : m_clients)
		{
			const short wanted = client.open ? POLLIN : POLLOUT;
			watched.push_back({client.socket.get(), static_cast<short>(wanted | POLLRDHUP), 0});
		}
		::poll(watched.data(), watched.size(), static_cast<int>(nextTry.count()));
		for (std::size_t index = 0; index < m_clients.size(); ++index)
		{
			serve(m_clients[index], watched[index].revents);
		}
		count();
	}

private:
	const ClientPool& m_pool;
	const sockaddr_in& m_port;
	AttackTally& m_tally;
	std::vector<Client> m_clients;
	std::vector<Descriptor> m_halfClosed;

	void count()
	{
		const auto those = [&](auto which)
		{ return static_cast<long>(std::count_if(m_clients.begin(), m_clients.end(), which)); };
		const auto raise = [](std::atomic<long>& most, long now) { most = std::max(most.load(), now); };
		raise(m_tally.mostAtOnce, those([](const Client& client) { return static_cast<bool>(client.socket); }));
		raise(m_tally.mostOpen, those([](const Client& client) { return client.open; }));
	}

	void serve(Client& client, short events)
	{
		if (!client.socket)
		{
			reconnect(client);
			return;
		}
		if (!client.open && events != 0 && isConnected(client.socket))
		{
			onConnected(client);
		}
		else if ((events & (POLLERR | POLLHUP | POLLRDHUP)) != 0 || (!client.open && events != 0))
		{
			disconnect(client);
			return;
		}
		if (client.open && !m_pool.payload.empty() && client.next <= std::chrono::steady_clock::now())
		{
			client.next = std::chrono::steady_clock::now() + m_pool.period;
			sendPayload(client.socket, m_pool.payload, m_tally);
		}
	}

	void reconnect(Client& client)
	{
		++m_tally.tries;
		client.open = false;
		client.socket = beginConnect(m_port, {});
	}

	void onConnected(Client& client)
	{
		++m_tally.connections;
		client.open = true;
		if (!m_pool.firstPayload.empty())
		{
			sendPayload(client.socket, m_pool.firstPayload, m_tally);
		}
	}

	void disconnect(Client& client)
	{
		if (client.open && m_pool.staysHalfClosed && m_halfClosed.size() < mostHalfClosed)
		{
			m_halfClosed.push_back(std::move(client.socket));
		}
		client.socket.reset();
		client.open = false;
		std::this_thread::sleep_for(Millis(1));
	}
};

} // namespace

sockaddr_in socketAddress(const std::string& address, int port)
{
	sockaddr_in made{};
	made.sin_family = AF_INET;
	made.sin_port = htons(static_cast<std::uint16_t>(port));
	if (::inet_pton(AF_INET, address.c_str(), &made.sin_addr) != 1)
	{
		throw LabError("no address: " + address);
	}
	return made;
}

Descriptor connectTo(const sockaddr_in& to, Millis limit, AttackTally& tally, const std::string& from)
{
	++tally.tries;
	Descriptor socket = beginConnect(to, from);
	pollfd watched{socket.get(), POLLOUT, 0};
	if (!socket || ::poll(&watched, 1, static_cast<int>(limit.count())) != 1 || !isConnected(socket))
	{
		return Descriptor();
	}
	++tally.connections;
	return socket;
}

bool sendPayload(const Descriptor& connection, std::string_view payload, AttackTally& tally)
{
	const ssize_t taken = ::send(connection.get(), payload.data(), payload.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
	if (taken > 0)
	{
		tally.bytes += taken;
	}
	const bool whole = taken >= 0 && static_cast<std::size_t>(taken) == payload.size();
	tally.messages += whole && !payload.empty() ? 1 : 0;
	return whole;
}

void resetConnection(Descriptor& connection)
{
	const linger atOnce{1, 0};
	::setsockopt(connection.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
	connection.reset();
}

void ClientPool::keepConnected(const sockaddr_in& target, AttackTally& tally, const std::atomic<bool>& stop) const
{
	ClientPoolRun poolRun(*this, target, tally);
	while (!stop)
	{
		poolRun.step();
	}
}

} // namespace velarix::lab::hostile
