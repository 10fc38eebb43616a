/// One turn after the other: waits for descriptors and for a point in time.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <vector>

#include <sys/epoll.h>
#include <sys/types.h>

#include "AddressMachine.h"
#include "Descriptor.h"

namespace velarix::keeper
{

Millis now();

class Loop
{
public:
	Loop();

	/// Calls `handler` in each turn in which `descriptor` can be read.
	void watch(int descriptor, std::function<void()> handler);
	/// Before a watched descriptor is closed.
	void forget(int descriptor);
	/// Sleeps until something can be read or `deadline` has come.
	void wait(Millis deadline);
	/// Calls the handlers of what wait() has found.
	void dispatch();

private:
	Descriptor m_epoll;
	Descriptor m_timer;
	std::map<int, std::function<void()>> m_handlers;
	std::array<epoll_event, 16> m_events{};
	int m_ready = 0;
};

/// Blocks the signals of the loop for this process and reads them as a descriptor.
/// @return a signalfd for SIGTERM, SIGINT, SIGHUP and SIGCHLD
Descriptor takeSignals();

/// @return the signals that wait at takeSignals()'s descriptor
std::vector<int> readSignals(int descriptor);

} // namespace velarix::keeper
