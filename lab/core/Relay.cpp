#include "lab/core/Relay.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <vector>

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

using Time = LineModel::Time;

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

struct Waiting
{
	Time due;
	std::vector<std::uint8_t> bytes;
};

/// One direction.
struct Line
{
	Direction direction = Direction::fromHost;
	int from = -1;
	int to = -1;
	LineModel model;
	bool impaired = false;
	std::deque<Waiting> waiting{};
	std::atomic<std::uint64_t> passed{0};
	std::atomic<std::uint64_t> lost{0};
	std::atomic<std::uint64_t> refused{0};

	Line(Direction which, const Impairment& impairment) : direction(which), model(modelFor(which, impairment)) {}

	static LineModel modelFor(Direction which, const Impairment& impairment)
	{
		return {impairment, which == Direction::fromHost ? 1U : 2U};
	}

	void change(const Impairment& impairment)
	{
		model = modelFor(direction, impairment);
		impaired = impairment.direction == Direction::both || impairment.direction == direction;
	}

	void send(std::span<const std::uint8_t> bytes)
	{
		const bool sent = ::send(to, bytes.data(), bytes.size(), MSG_DONTWAIT) >= 0;
		++(sent ? passed : refused);
	}

	void sendDue(Time now)
	{
		while (!waiting.empty() && waiting.front().due <= now)
		{
			send(waiting.front().bytes);
			waiting.pop_front();
		}
	}
};

std::span<const std::uint8_t> frameIn(std::span<const std::uint8_t> bytes)
{
	return bytes.subspan(std::min(bytes.size(), offloadData));
}

} // namespace

struct Relay::Lines
{
	explicit Lines(const RelayPlan& plan)
	    : hostSide(openOn(plan.hostSide)), bridgeSide(openOn(plan.bridgeSide)),
	      fromHost(Direction::fromHost, plan.impairment), toHost(Direction::toHost, plan.impairment)
	{
		fromHost.from = toHost.to = hostSide.get();
		fromHost.to = toHost.from = bridgeSide.get();
		change(plan.impairment, plan.peer);
	}

	void change(const Impairment& impairment, const InterfaceAddress& address)
	{
		const std::lock_guard lock(mutex);
		onlyPeer = impairment.peer.has_value();
		peer = address;
		fromHost.change(impairment);
		toHost.change(impairment);
	}

	bool concerned(const Line& line, std::span<const std::uint8_t> frame) const
	{
		if (!line.impaired || !onlyPeer)
		{
			return line.impaired;
		}
		return line.direction == Direction::fromHost ? goesTo(frame, peer) : comesFrom(frame, peer);
	}

	void accept(Line& line, std::span<const std::uint8_t> bytes, Time now)
	{
		std::optional<Time> due = now;
		if (concerned(line, frameIn(bytes)))
		{
			due = line.model.next(now);
		}
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
			insert(line, {*due, {bytes.begin(), bytes.end()}});
		}
	}

	/// Only after a change of the impairment a frame can be due before others.
	static void insert(Line& line, Waiting frame)
	{
		const auto later = [](Time due, const Waiting& other) { return due < other.due; };
		const auto place = std::upper_bound(line.waiting.begin(), line.waiting.end(), frame.due, later);
		line.waiting.insert(place, std::move(frame));
	}

	void receive(Line& line)
	{
		for (int count = 0; count < burst; ++count)
		{
			const ssize_t size = ::recv(line.from, buffer.data(), buffer.size(), MSG_DONTWAIT);
			if (size < 0)
			{
				return;
			}
			accept(line, {buffer.data(), static_cast<std::size_t>(size)}, std::chrono::steady_clock::now());
		}
	}

	/// @return until when nothing is to be sent; empty: for ever
	std::optional<Time> nextDue() const
	{
		std::optional<Time> first;
		for (const Line* line : {&fromHost, &toHost})
		{
			if (!line->waiting.empty())
			{
				first = std::min(first.value_or(line->waiting.front().due), line->waiting.front().due);
			}
		}
		return first;
	}

	std::optional<Time> work()
	{
		const std::lock_guard lock(mutex);
		receive(fromHost);
		receive(toHost);
		const Time now = std::chrono::steady_clock::now();
		fromHost.sendDue(now);
		toHost.sendDue(now);
		return nextDue();
	}

	Descriptor hostSide;
	Descriptor bridgeSide;
	Line fromHost;
	Line toHost;
	std::mutex mutex;
	InterfaceAddress peer{};
	bool onlyPeer = false;
	std::array<std::uint8_t, longestFrame> buffer{};
};

Relay::Relay(const Host& rootHost, const RelayPlan& plan) : m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
	if (!m_wake)
	{
		throwErrno("cannot make an event descriptor");
	}
	inNetworkOf(rootHost, [&] { m_lines = std::make_unique<Lines>(plan); });
	m_thread = std::thread([this] { loop(); });
}

Relay::~Relay()
{
	m_stop = true;
	::eventfd_write(m_wake.get(), 1);
	m_thread.join();
}

void Relay::change(const Impairment& impairment, const InterfaceAddress& peer)
{
	m_lines->change(impairment, peer);
}

RelayCounts Relay::counts() const
{
	const Line& from = m_lines->fromHost;
	const Line& to = m_lines->toHost;
	return {from.passed, to.passed, from.lost, to.lost, from.refused + to.refused};
}

void Relay::loop()
{
	// Of this thread only; a refusal costs some delay and nothing else.
	::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), relayNiceness);
	std::optional<Time> due;
	while (!m_stop)
	{
		pollfd watched[3] = {
		    {m_lines->hostSide.get(), POLLIN, 0}, {m_lines->bridgeSide.get(), POLLIN, 0}, {m_wake.get(), POLLIN, 0}};
		timespec pause{};
		if (due)
		{
			const auto left = std::max(*due - std::chrono::steady_clock::now(), Time::duration(0));
			const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
			pause = {seconds.count(), (left - seconds).count()};
		}
		::ppoll(watched, 3, due ? &pause : nullptr, nullptr);
		due = m_lines->work();
	}
}

} // namespace velarix::lab
