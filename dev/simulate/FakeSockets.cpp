/// The library's sockets, in the world's network: what sender and receiver make with
/// StreamSocket() and ServerSocket() ends here.

#include <algorithm>

#include <Poco/Exception.h>
#include <Poco/Net/NetException.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/ServerSocketImpl.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Net/StreamSocketImpl.h>

#include "dev/simulate/World.h"

namespace velarix::simulate
{

namespace
{

constexpr Micros kFirstRetransmit = 200 * kMilli;
constexpr int kRetransmits = 8;

bool roundTrip(Host from, Host to)
{
	return world().delivers(communicationNetwork, from, to) && world().delivers(communicationNetwork, to, from);
}

class Stream : public Poco::Net::StreamSocketImpl
{
public:
	Stream() : m_connection(std::make_shared<Connection>()) {}
	explicit Stream(std::shared_ptr<Connection> connection) : m_connection(std::move(connection)) {}

	/// SYN at once, and again after one second and two more.
	void connect(const Poco::Net::SocketAddress& address, const Poco::Timespan& timeout) override
	{
		const Micros end = world().now() + timeout.totalMicroseconds();
		Node& partner = world().other(self());
		const Host from = self().id;
		for (Micros wait = kSecond; world().now() < end; wait *= 2)
		{
			if (roundTrip(from, partner.id))
			{
				world().sleepFor(world().latency(communicationNetwork, from, partner.id) +
				                 world().latency(communicationNetwork, partner.id, from));
				if (partner.listener == nullptr)
				{
					throw Poco::Net::ConnectionRefusedException(address.toString(), 111);
				}
				partner.listener->waiting.push_back(m_connection);
				wakeAgent(partner);
				return;
			}
			world().sleepUntil(std::min(end, world().now() + wait));
		}
		throw Poco::TimeoutException("connect timed out", address.toString());
	}

	int sendBytes(const void* buffer, int length, int /*flags*/) override
	{
		m_connection->data.assign(static_cast<const char*>(buffer), static_cast<std::size_t>(length));
		deliver(m_connection, self().id, world().other(self()), kFirstRetransmit, kRetransmits);
		return length;
	}

	int receiveBytes(void* buffer, int length, int /*flags*/) override
	{
		if (!waitUntil([this] { return m_connection->arrived; }, world().now() + m_timeout.totalMicroseconds()))
		{
			throw Poco::TimeoutException("Timeout", 11);
		}
		const std::size_t size = m_connection->data.copy(static_cast<char*>(buffer), static_cast<std::size_t>(length));
		m_connection->data.erase(0, size);
		return static_cast<int>(size);
	}

	void setReceiveTimeout(const Poco::Timespan& timeout) override { m_timeout = timeout; }
	void shutdownSend() override {}
	void close() override {}

private:
	static void wakeAgent(Node& node)
	{
		if (Process* agent = world().find(node, kAgent))
		{
			world().wake(*agent);
		}
	}

	static void deliver(const std::shared_ptr<Connection>& connection, Host from, Node& to, Micros again, int tries)
	{
		if (world().delivers(communicationNetwork, from, to.id))
		{
			world().scheduler.at(world().now() + world().latency(communicationNetwork, from, to.id),
			                     [connection, &to]
			                     {
				                     connection->arrived = true;
				                     wakeAgent(to);
			                     });
		}
		else if (tries > 0)
		{
			world().scheduler.at(world().now() + again, [connection, from, &to, again, tries]
			                     { deliver(connection, from, to, again * 2, tries - 1); });
		}
	}

	std::shared_ptr<Connection> m_connection;
	Poco::Timespan m_timeout;
};

class Server : public Poco::Net::ServerSocketImpl
{
public:
	Server() : m_pNode(&self()) {}
	~Server() override { m_pNode->listener = m_pNode->listener == &m_listener ? nullptr : m_pNode->listener; }
	Server(const Server&) = delete;
	Server& operator=(const Server&) = delete;

	void bind(const Poco::Net::SocketAddress& /*address*/, bool /*reuseAddress*/, bool /*reusePort*/) override {}
	void listen(int /*backlog*/) override { m_pNode->listener = &m_listener; }
	void setReceiveTimeout(const Poco::Timespan& /*timeout*/) override {}
	void setRawOption(int /*level*/, int /*option*/, const void* /*value*/, poco_socklen_t /*size*/) override {}

	bool poll(const Poco::Timespan& timeout, int /*mode*/) override
	{
		return waitUntil([this] { return !m_listener.waiting.empty(); }, world().now() + timeout.totalMicroseconds());
	}

	Poco::Net::SocketImpl* acceptConnection(Poco::Net::SocketAddress& /*client*/) override
	{
		const std::shared_ptr<Connection> connection = m_listener.waiting.front();
		m_listener.waiting.pop_front();
		return new Stream(connection);
	}

private:
	Node* m_pNode;
	Listener m_listener;
};

/// Made in the place of the library's own objects: same size, and destroyed as what they are.
struct SimulatedStream : Poco::Net::StreamSocket
{
	SimulatedStream() : Poco::Net::StreamSocket(new Stream) {}
};

struct SimulatedServer : Poco::Net::ServerSocket
{
	SimulatedServer() : Poco::Net::ServerSocket(new Server, true) {}
};

static_assert(sizeof(SimulatedStream) == sizeof(Poco::Net::StreamSocket));
static_assert(sizeof(SimulatedServer) == sizeof(Poco::Net::ServerSocket));

} // namespace

} // namespace velarix::simulate

extern "C"
{
	void __wrap__ZN4Poco3Net12StreamSocketC1Ev(void* place)
	{
		new (place) velarix::simulate::SimulatedStream;
	}

	void __wrap__ZN4Poco3Net12ServerSocketC1Ev(void* place)
	{
		new (place) velarix::simulate::SimulatedServer;
	}
}
