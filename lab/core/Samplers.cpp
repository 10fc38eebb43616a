#include "lab/core/Samplers.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

/// For setns, which moves the calling thread alone.
Descriptor networkOf(const Host& host)
{
	const std::string path = "/proc/" + std::to_string(host.pid()) + "/ns/net";
	Descriptor network(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
	if (!network)
	{
		throwErrno("cannot open " + path);
	}
	return network;
}

/// A socket stays in the network namespace it was opened in.
Descriptor socketInside(const Host& host)
{
	const Descriptor network = networkOf(host);
	Descriptor opened;
	int problem = 0;
	std::thread(
	    [&]
	    {
		    if (::setns(network.get(), CLONE_NEWNET) == 0)
		    {
			    opened.reset(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
		    }
		    problem = errno;
	    })
	    .join();
	if (!opened)
	{
		errno = problem;
		throwErrno("cannot open a socket inside a node");
	}
	return opened;
}

/// All IPv4 addresses of the namespace, secondary ones included.
bool holdsVirtualAddress(int socket)
{
	std::array<ifreq, 64> requests{};
	ifconf list{};
	list.ifc_len = static_cast<int>(sizeof requests);
	list.ifc_req = requests.data();
	if (socket < 0 || ::ioctl(socket, SIOCGIFCONF, &list) != 0)
	{
		return false;
	}
	const in_addr_t wanted = ::inet_addr(plan::virtualAddress);
	const std::size_t count = static_cast<std::size_t>(list.ifc_len) / sizeof(ifreq);
	for (std::size_t index = 0; index < count; ++index)
	{
		const sockaddr* address = &requests[index].ifr_addr;
		if (reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr == wanted)
		{
			return true;
		}
	}
	return false;
}

} // namespace

AddressSampler::AddressSampler(Timeline& timeline, const LabClock& clock) : m_timeline(timeline), m_clock(clock)
{
	m_thread = std::jthread(
	    [this](const std::stop_token& stop)
	    {
		    while (!stop.stop_requested())
		    {
			    {
				    const std::lock_guard lock(m_mutex);
				    sampleLocked();
			    }
			    std::this_thread::sleep_for(samplingPeriod);
		    }
	    });
}

void AddressSampler::attach(HostId node, const Host& host)
{
	Descriptor opened = socketInside(host);
	const std::lock_guard lock(m_mutex);
	m_sockets[indexOf(node)] = std::move(opened);
}

void AddressSampler::detach(HostId node)
{
	const std::lock_guard lock(m_mutex);
	m_sockets[indexOf(node)].reset();
	sampleLocked();
}

void AddressSampler::sampleLocked()
{
	const bool a = holdsVirtualAddress(m_sockets[0].get());
	const bool b = holdsVirtualAddress(m_sockets[1].get());
	m_timeline.change(addressTrack, m_clock.now(), ownersText(a, b));
}

namespace
{

/// Enough for a lost frame to be sent again, or for a slow wire: such a client is
/// served, if late.
constexpr Millis patience{2000};

/// Longer than this without an answer is an outage.
constexpr Millis longestGap{100};

sockaddr_in serviceAddress()
{
	sockaddr_in address{};
	address.sin_family = AF_INET;
	address.sin_port = htons(static_cast<std::uint16_t>(plan::servicePort));
	address.sin_addr.s_addr = ::inet_addr(plan::virtualAddress);
	return address;
}

Descriptor beginConnection()
{
	Descriptor connection(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
	// Closing resets the connection: thousands of them would else wait in TIME_WAIT.
	const linger hard{1, 0};
	::setsockopt(connection.get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
	const sockaddr_in address = serviceAddress();
	const int result = ::connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
	if (result != 0 && errno != EINPROGRESS)
	{
		connection.reset();
	}
	return connection;
}

/// The node's name from an answer, "a" or "b", which fits one segment; empty when it is none.
std::string nodeIn(const std::string& answer)
{
	const std::size_t body = answer.find("\r\n\r\nnode-");
	return body == std::string::npos || !answer.ends_with('\n') ? std::string() : answer.substr(body + 9, 1);
}

} // namespace

ServiceSampler::ServiceSampler(Timeline& timeline, const LabClock& clock, const Host& client)
    : m_timeline(timeline), m_clock(clock)
{
	m_timeline.change(serviceTrack, m_clock.now(), "none");
	m_thread = std::jthread([this, network = networkOf(client)](const std::stop_token& stop)
	                        { ::setns(network.get(), CLONE_NEWNET) == 0 ? loop(stop) : void(); });
}

void ServiceSampler::loop(const std::stop_token& stop)
{
	for (Millis next = m_clock.now(); !stop.stop_requested();)
	{
		m_open.push_back({beginConnection(), m_clock.now()});
		next = std::max(next + samplingPeriod, m_clock.now());
		serve(next);
	}
}

/// Serves the open requests until then.
void ServiceSampler::serve(Millis until)
{
	for (Millis now = m_clock.now(); now < until; now = m_clock.now())
	{
		std::vector<pollfd> watched;
		for (const Request& request : m_open)
		{
			const int events = request.sent ? POLLIN : POLLOUT;
			watched.push_back({request.connection.get(), static_cast<short>(events), 0});
		}
		::poll(watched.data(), watched.size(), static_cast<int>((until - now).count()));
		std::vector<Request> stillOpen;
		for (std::size_t index = 0; index < watched.size(); ++index)
		{
			Request& request = m_open[index];
			if (advance(request, watched[index].revents) && m_clock.now() - request.begun <= patience)
			{
				stillOpen.push_back(std::move(request));
			}
		}
		m_open = std::move(stillOpen);
		noteSilence(m_clock.now());
	}
}

/// @return whether it goes on
bool ServiceSampler::advance(Request& request, short events)
{
	if (!request.connection || events == 0)
	{
		return static_cast<bool>(request.connection);
	}
	if (!request.sent)
	{
		static constexpr char text[] = "GET / HTTP/1.0\r\n\r\n";
		request.sent = ::send(request.connection.get(), text, sizeof text - 1, MSG_NOSIGNAL) > 0;
		return request.sent;
	}
	char buffer[512];
	const ssize_t count = ::recv(request.connection.get(), buffer, sizeof buffer, 0);
	if (count < 0 && errno == EAGAIN)
	{
		return true;
	}
	if (const std::string node = nodeIn({buffer, static_cast<std::size_t>(std::max<ssize_t>(count, 0))}); !node.empty())
	{
		const Millis now = m_clock.now();
		noteSilence(now);
		m_timeline.change(serviceTrack, now, node);
		m_lastAnswer = now;
		m_stood = Millis(0);
	}
	return false;
}

/// The outage began with the last answer and ends with the next one. While this thread was
/// kept from running, nobody looked: that alone is no outage.
void ServiceSampler::noteSilence(Millis now)
{
	m_stood += std::max(now - m_lastLook - 2 * samplingPeriod, Millis(0));
	m_lastLook = now;
	if (now - m_lastAnswer - m_stood > longestGap)
	{
		m_timeline.change(serviceTrack, m_lastAnswer, "none");
	}
}

} // namespace velarix::lab
