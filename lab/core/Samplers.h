/// Two observers that do not rely on the agents: who holds the virtual address,
/// and who answers the client. Both sample every `samplingPeriod` on a thread of their own.
#pragma once

#include <array>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "lab/core/Basics.h"
#include "lab/core/Host.h"
#include "lab/core/Timeline.h"

namespace velarix::lab
{

inline constexpr Millis samplingPeriod{20};

/// Asks the kernel, through a socket opened inside each node's network
/// namespace, whether an interface of the node holds the virtual address.
class AddressSampler
{
public:
	/// `timeline` and `clock` must outlive the sampler.
	AddressSampler(Timeline& timeline, const LabClock& clock);

	void attach(HostId node, const Host& host);
	/// The node is switched off: it holds nothing from now on. Its namespace is
	/// let go.
	void detach(HostId node);

private:
	Timeline& m_timeline;
	const LabClock& m_clock;
	std::mutex m_mutex;
	std::array<Descriptor, 2> m_sockets;
	std::jthread m_thread; ///< ends before what it uses

	void sampleLocked();
};

/// Fetches http://VIRTUAL-ADDRESS:8080/ from the client and takes the node's name
/// from the answer. Every 20 ms there is a request of its own, up to 2 s long, that
/// does not wait for the one before. An outage begins with the last answer before a
/// gap of more than 100 ms and ends with the next answer. The time in which the observer's own
/// thread did not run does not count.
class ServiceSampler
{
public:
	/// All three must outlive the sampler.
	ServiceSampler(Timeline& timeline, const LabClock& clock, const Host& client);
	ServiceSampler(const ServiceSampler&) = delete;

private:
	/// One HTTP request on its own connection.
	struct Request
	{
		Descriptor connection;
		Millis begun{0};
		bool sent = false;
	};

	Timeline& m_timeline;
	const LabClock& m_clock;
	std::vector<Request> m_open;
	Millis m_lastAnswer{0}; ///< when it came in
	Millis m_lastLook{0};
	Millis m_stood{0};     ///< how long the thread did not run since the last answer
	std::jthread m_thread; ///< ends before what it uses

	void loop(const std::stop_token& stop);
	void serve(Millis until);
	bool advance(Request& request, short events);
	void noteSilence(Millis now);
};

} // namespace velarix::lab
