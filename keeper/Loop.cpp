#include "Loop.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <string>

#include <sys/signalfd.h>
#include <sys/timerfd.h>

namespace velarix::keeper
{

namespace
{

void require(bool holds, const char* what)
{
	if (!holds)
	{
		throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
	}
}

} // namespace

Millis now()
{
	timespec time{};
	::clock_gettime(CLOCK_BOOTTIME, &time);
	return static_cast<Millis>(time.tv_sec) * 1000 + time.tv_nsec / 1'000'000;
}

Loop::Loop()
    : m_epoll(::epoll_create1(EPOLL_CLOEXEC)), m_timer(::timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK))
{
	require(static_cast<bool>(m_epoll) && static_cast<bool>(m_timer), "epoll or timerfd");
	watch(m_timer.get(), [] {});
}

void Loop::watch(int descriptor, std::function<void()> handler)
{
	epoll_event event{};
	event.events = EPOLLIN;
	event.data.fd = descriptor;
	require(::epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, descriptor, &event) == 0, "epoll_ctl");
	m_handlers[descriptor] = std::move(handler);
}

void Loop::forget(int descriptor)
{
	::epoll_ctl(m_epoll.get(), EPOLL_CTL_DEL, descriptor, nullptr);
	m_handlers.erase(descriptor);
}

void Loop::wait(Millis deadline)
{
	itimerspec when{};
	if (deadline != kNever)
	{
		// A time in the past is one nanosecond after the boot: at once.
		const Millis at = std::max<Millis>(deadline, 0);
		when.it_value.tv_sec = at / 1000;
		when.it_value.tv_nsec = at % 1000 * 1'000'000 + (at == 0 ? 1 : 0);
	}
	::timerfd_settime(m_timer.get(), TFD_TIMER_ABSTIME, &when, nullptr);
	m_ready = ::epoll_wait(m_epoll.get(), m_events.data(), static_cast<int>(m_events.size()), -1);
	require(m_ready >= 0 || errno == EINTR, "epoll_wait");
}

void Loop::dispatch()
{
	for (int i = 0; i < m_ready; ++i)
	{
		// A handler may have forgotten this one meanwhile.
		const auto found = m_handlers.find(m_events[static_cast<std::size_t>(i)].data.fd);
		if (found != m_handlers.end())
		{
			const std::function<void()> handler = found->second;
			handler();
		}
	}
	m_ready = 0;
}

Descriptor takeSignals()
{
	sigset_t signals;
	sigemptyset(&signals);
	for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD})
	{
		sigaddset(&signals, signal);
	}
	// The agent's threads block SIGTERM, and their children inherit that.
	::sigprocmask(SIG_SETMASK, &signals, nullptr);
	std::signal(SIGPIPE, SIG_IGN);
	Descriptor descriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
	require(static_cast<bool>(descriptor), "signalfd");
	return descriptor;
}

std::vector<int> readSignals(int descriptor)
{
	std::vector<int> signals;
	signalfd_siginfo info{};
	while (::read(descriptor, &info, sizeof info) == sizeof info)
	{
		signals.push_back(static_cast<int>(info.ssi_signo));
	}
	return signals;
}

} // namespace velarix::keeper
