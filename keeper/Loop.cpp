#include "keeper/Loop.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <span>
#include <system_error>

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
		throw std::system_error(errno, std::generic_category(), what);
	}
}

} // namespace

Millis now()
{
	timespec time{};
	::clock_gettime(CLOCK_BOOTTIME, &time);
	return static_cast<Millis>(time.tv_sec) * 1000 + time.tv_nsec / 1'000'000;
}

sigset_t blockSignals()
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
	return signals;
}

Loop::Loop()
    : m_epoll(::epoll_create1(EPOLL_CLOEXEC)), m_timer(::timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK))
{
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

void Loop::watchSignals(std::function<void(int)> handler)
{
	const sigset_t signals = blockSignals();
	m_signals = Descriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
	watch(m_signals.get(),
	      [this, handler = std::move(handler)]
	      {
		      signalfd_siginfo info{};
		      while (::read(m_signals.get(), &info, sizeof info) == sizeof info)
		      {
			      handler(static_cast<int>(info.ssi_signo));
		      }
	      });
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
	for (const epoll_event& event : std::span(m_events).first(static_cast<std::size_t>(std::max(m_ready, 0))))
	{
		// A handler may have forgotten this one meanwhile.
		if (const auto found = m_handlers.find(event.data.fd); found != m_handlers.end())
		{
			const std::function<void()> handler = found->second;
			handler();
		}
	}
	m_ready = 0;
}

} // namespace velarix::keeper
