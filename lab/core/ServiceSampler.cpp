#include <algorithm>
#include <cerrno>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>

#include "lab/core/Plan.h"
#include "lab/core/Samplers.h"

namespace velarix::lab
{

namespace
{

/// Enough for a lost frame to be sent again, or for a slow wire: such a client is
/// served, if late.
constexpr Millis patience{2000};

/// Longer than this without an answer is an outage.
constexpr Millis longestGap{100};

enum class Outcome
{
	pending,
	answered,
	failed
};

/// One HTTP request on its own connection.
struct Request
{
	Descriptor connection;
	Millis begun{0};
	bool sent = false;
	std::string answer{};
};

sockaddr_in serviceAddress()
{
	sockaddr_in address{};
	address.sin_family = AF_INET;
	address.sin_port = htons(static_cast<std::uint16_t>(plan::servicePort));
	address.sin_addr.s_addr = ::inet_addr(plan::virtualAddress);
	return address;
}

Request beginRequest(Millis now)
{
	Request request{Descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)), now};
	// Closing resets the connection: thousands of them would else wait in TIME_WAIT.
	const linger hard{1, 0};
	::setsockopt(request.connection.get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
	const sockaddr_in address = serviceAddress();
	const int result = ::connect(request.connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
	if (result != 0 && errno != EINPROGRESS)
	{
		request.connection.reset();
	}
	return request;
}

/// The node's name from a complete answer, "a" or "b"; empty otherwise.
std::string nodeIn(const std::string& answer)
{
	const std::size_t body = answer.find("\r\n\r\nnode-");
	return body == std::string::npos || !answer.ends_with('\n') ? std::string() : answer.substr(body + 9, 1);
}

Outcome advance(Request& request, short events)
{
	if (!request.connection)
	{
		return Outcome::failed;
	}
	if (!request.sent && (events & (POLLOUT | POLLERR | POLLHUP)) != 0)
	{
		static constexpr char text[] = "GET / HTTP/1.0\r\n\r\n";
		if (::send(request.connection.get(), text, sizeof text - 1, MSG_NOSIGNAL) < 0)
		{
			return Outcome::failed;
		}
		request.sent = true;
	}
	if (request.sent && (events & (POLLIN | POLLERR | POLLHUP)) != 0)
	{
		char buffer[512];
		const ssize_t count = ::recv(request.connection.get(), buffer, sizeof buffer, 0);
		if (count == 0 || (count < 0 && errno != EAGAIN))
		{
			return Outcome::failed;
		}
		request.answer.append(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
		return nodeIn(request.answer).empty() ? Outcome::pending : Outcome::answered;
	}
	return Outcome::pending;
}

/// The requests under way and what the last ones showed.
class Requests
{
public:
	Requests(Timeline& timeline, const LabClock& clock) : m_timeline(timeline), m_clock(clock)
	{
		m_timeline.change(serviceTrack, m_clock.now(), "none");
	}

	void begin() { m_open.push_back(beginRequest(m_clock.now())); }

	/// Serves the open requests until `until`.
	void serve(Millis until)
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
			judge(watched);
		}
	}

private:
	Timeline& m_timeline;
	const LabClock& m_clock;
	std::vector<Request> m_open;
	Millis m_lastAnswer{0}; ///< when it came in
	Millis m_lastLook{0};
	Millis m_stood{0}; ///< how long this thread did not run since the last answer

	void judge(const std::vector<pollfd>& watched)
	{
		std::vector<Request> stillOpen;
		for (std::size_t index = 0; index < watched.size(); ++index)
		{
			Request& request = m_open[index];
			const Outcome outcome = advance(request, watched[index].revents);
			if (outcome == Outcome::answered)
			{
				noteAnswer(nodeIn(request.answer));
			}
			else if (outcome == Outcome::pending && m_clock.now() - request.begun <= patience)
			{
				stillOpen.push_back(std::move(request));
			}
		}
		m_open = std::move(stillOpen);
		noteSilence(m_clock.now());
	}

	void noteAnswer(const std::string& node)
	{
		const Millis now = m_clock.now();
		noteSilence(now);
		m_timeline.change(serviceTrack, now, node);
		m_lastAnswer = now;
		m_stood = Millis(0);
	}

	/// The outage began with the last answer and ends with the next one. While this thread was
	/// kept from running, nobody looked: that alone is no outage.
	void noteSilence(Millis now)
	{
		m_stood += std::max(now - m_lastLook - 2 * samplingPeriod, Millis(0));
		m_lastLook = now;
		if (now - m_lastAnswer - m_stood > longestGap)
		{
			m_timeline.change(serviceTrack, m_lastAnswer, "none");
		}
	}
};

} // namespace

ServiceSampler::ServiceSampler(Timeline& timeline, const LabClock& clock, const Host& client)
    : m_timeline(timeline), m_clock(clock)
{
	const std::string path = "/proc/" + std::to_string(client.pid()) + "/ns/net";
	const int network = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
	if (network < 0)
	{
		throwErrno("cannot open " + path);
	}
	m_thread = std::jthread([this, network](const std::stop_token& stop) { loop(stop, network); });
}

void ServiceSampler::loop(const std::stop_token& stop, int networkNamespace)
{
	const Descriptor network(networkNamespace);
	if (::setns(network.get(), CLONE_NEWNET) != 0)
	{
		m_timeline.change(serviceTrack, m_clock.now(), "none");
		return;
	}
	Requests requests(m_timeline, m_clock);
	for (Millis next = m_clock.now(); !stop.stop_requested();)
	{
		requests.begin();
		next = std::max(next + samplingPeriod, m_clock.now());
		requests.serve(next);
	}
}

} // namespace velarix::lab
