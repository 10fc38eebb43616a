#include "lab/core/Relay.h"

#include <algorithm>
#include <cerrno>

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace velarix::lab
{

namespace
{

/// What the kernel puts before each frame: struct virtio_net_hdr, whose header
/// is not meant for this language.
constexpr std::size_t offloadData = 10;
/// A large segment as the interfaces of one machine hand it over.
constexpr std::size_t longestFrame = offloadData + 65536 + 64;
constexpr std::size_t mostWaiting = 4096;
constexpr int burst = 64;
constexpr int receiveBuffer = 4 << 20;
/// The relay is a wire: it must not wait for programs that want to work.
constexpr int relayNiceness = -15;

void setOption(int socket, int level, int option, int value, const char* what)
{
	if (::setsockopt(socket, level, option, &value, sizeof value) != 0)
	{
		throwErrno(std::string("cannot set up the socket of a relay: ") + what);
	}
}

/// Called in the network the interface is in. It is bound last, so that nothing
/// is received before the options hold.
Descriptor openOn(const std::string& interface)
{
	Descriptor opened(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
	if (!opened)
	{
		throwErrno("cannot open a packet socket");
	}
	setOption(opened.get(), SOL_PACKET, PACKET_VNET_HDR, 1, "offload data");
	setOption(opened.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, 1, "own frames");
	setOption(opened.get(), SOL_SOCKET, SO_RCVBUFFORCE, receiveBuffer, "buffer");
	sockaddr_ll address{};
	address.sll_family = AF_PACKET;
	address.sll_protocol = htons(ETH_P_ALL);
	address.sll_ifindex = static_cast<int>(::if_nametoindex(interface.c_str()));
	if (address.sll_ifindex == 0 ||
	    ::bind(opened.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
	{
		throwErrno("cannot listen on " + interface);
	}
	return opened;
}

std::span<const std::uint8_t> frameIn(std::span<const std::uint8_t> bytes)
{
	return bytes.subspan(std::min(bytes.size(), offloadData));
}

LineModel modelFor(Direction direction, const Impairment& impairment)
{
	return {impairment, direction == Direction::fromHost ? 1U : 2U};
}

} // namespace

Relay::Line::Line(Direction which, const Impairment& impairment) : direction(which), model(modelFor(which, impairment))
{
}

void Relay::Line::change(const Impairment& impairment)
{
	model = modelFor(direction, impairment);
	impaired = impairment.direction == Direction::both || impairment.direction == direction;
}

void Relay::Line::send(Bytes bytes)
{
	const bool sent = ::send(to, bytes.data(), bytes.size(), MSG_DONTWAIT) >= 0;
	++(sent ? passed : refused);
}

Relay::Relay(const Host& rootHost, const RelayPlan& plan)
    : m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), m_fromHost(Direction::fromHost, plan.impairment),
      m_toHost(Direction::toHost, plan.impairment), m_buffer(longestFrame)
{
	if (!m_wake)
	{
		throwErrno("cannot make an event descriptor");
	}
	inNetworkOf(rootHost,
	            [&]
	            {
		            m_hostSide = openOn(plan.hostSide);
		            m_bridgeSide = openOn(plan.bridgeSide);
	            });
	m_fromHost.from = m_toHost.to = m_hostSide.get();
	m_fromHost.to = m_toHost.from = m_bridgeSide.get();
	change(plan.impairment, plan.peer);
	m_thread = std::jthread([this](const std::stop_token& stop) { loop(stop); });
}

Relay::~Relay()
{
	m_thread.request_stop();
	::eventfd_write(m_wake.get(), 1);
}

void Relay::change(const Impairment& impairment, const InterfaceAddress& peer)
{
	const std::lock_guard lock(m_mutex);
	m_onlyPeer = impairment.peer.has_value();
	m_peer = peer;
	m_fromHost.change(impairment);
	m_toHost.change(impairment);
}

RelayCounts Relay::counts() const
{
	return {m_fromHost.passed, m_toHost.passed, m_fromHost.lost, m_toHost.lost, m_fromHost.refused + m_toHost.refused};
}

bool Relay::concerned(const Line& line, Bytes frame) const
{
	if (!line.impaired || !m_onlyPeer)
	{
		return line.impaired;
	}
	return line.direction == Direction::fromHost ? goesTo(frame, m_peer) : comesFrom(frame, m_peer);
}

void Relay::accept(Line& line, Bytes bytes, Time now)
{
	const std::optional<Time> due = concerned(line, frameIn(bytes)) ? line.model.next(now) : now;
	if (!due)
	{
		++line.lost;
	}
	else if (*due <= now)
	{
		line.send(bytes);
	}
	else if (line.waiting.size() >= mostWaiting)
	{
		++line.refused;
	}
	else
	{
		// Only after a change of the impairment a frame can be due before others.
		const auto place = std::ranges::upper_bound(line.waiting, *due, {}, &Waiting::due);
		line.waiting.insert(place, Waiting{*due, {bytes.begin(), bytes.end()}});
	}
}

void Relay::receive(Line& line)
{
	for (int count = 0; count < burst; ++count)
	{
		const ssize_t size = ::recv(line.from, m_buffer.data(), m_buffer.size(), MSG_DONTWAIT);
		if (size < 0)
		{
			return;
		}
		accept(line, {m_buffer.data(), static_cast<std::size_t>(size)}, std::chrono::steady_clock::now());
	}
}

/// @return until when nothing is to be sent; empty: for ever
std::optional<Relay::Time> Relay::work()
{
	const std::lock_guard lock(m_mutex);
	receive(m_fromHost);
	receive(m_toHost);
	const Time now = std::chrono::steady_clock::now();
	std::optional<Time> first;
	for (Line* line : {&m_fromHost, &m_toHost})
	{
		for (; !line->waiting.empty() && line->waiting.front().due <= now; line->waiting.pop_front())
		{
			line->send(line->waiting.front().bytes);
		}
		if (!line->waiting.empty())
		{
			first = std::min(first.value_or(line->waiting.front().due), line->waiting.front().due);
		}
	}
	return first;
}

void Relay::loop(const std::stop_token& stop)
{
	// Of this thread only; a refusal costs some delay and nothing else.
	::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), relayNiceness);
	std::optional<Time> due;
	while (!stop.stop_requested())
	{
		pollfd watched[3] = {{m_hostSide.get(), POLLIN, 0}, {m_bridgeSide.get(), POLLIN, 0}, {m_wake.get(), POLLIN, 0}};
		timespec pause{};
		if (due)
		{
			const auto left = std::max(*due - std::chrono::steady_clock::now(), Time::duration(0));
			const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
			pause = {seconds.count(), (left - seconds).count()};
		}
		::ppoll(watched, 3, due ? &pause : nullptr, nullptr);
		due = work();
	}
}

} // namespace velarix::lab
