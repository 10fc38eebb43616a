/// One turn after the other: waits for descriptors, for signals and for a point in time.
#pragma once

#include <array>
#include <functional>
#include <map>

#include <csignal>
#include <sys/epoll.h>

#include "inspect/Descriptor.h"
#include "keeper/AddressMachine.h"

namespace velarix::keeper
{

using inspect::Descriptor;

Millis now();

/// Blocks the signals of the loop for this process.
/// @return SIGTERM, SIGINT, SIGHUP and SIGCHLD
sigset_t blockSignals();

class Loop
{
public:
	Loop();

	/// Calls `handler` in each turn in which `descriptor` can be read.
	void watch(int descriptor, std::function<void()> handler);
	/// Before a watched descriptor is closed.
	void forget(int descriptor);
	/// Calls `handler` for each signal of blockSignals() that comes.
	void watchSignals(std::function<void(int)> handler);
	/// Sleeps until something can be read or `deadline` has come.
	void wait(Millis deadline);
	/// Calls the handlers of what wait() has found.
	void dispatch();

private:
	Descriptor m_epoll;
	Descriptor m_timer;
	Descriptor m_signals;
	std::map<int, std::function<void()>> m_handlers;
	std::array<epoll_event, 16> m_events{};
	int m_ready = 0;
};

} // namespace velarix::keeper
