#include "keeper/Runtime.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <span>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include "keeper/Settings.h"

namespace velarix::keeper
{

namespace
{

std::string pathOf(const std::string& program, const char* suffix)
{
	return std::string(kRuntimeDirectory) + "/" + program + suffix;
}

struct flock lockOf(Part part)
{
	struct flock lock = {};
	lock.l_type = F_WRLCK;
	lock.l_whence = SEEK_SET;
	lock.l_start = static_cast<off_t>(part);
	lock.l_len = 1;
	return lock;
}

constexpr int kWrittenAtMost = 5;
constexpr Millis kWithin = 10'000;

timespec wallTime()
{
	timespec time{};
	::clock_gettime(CLOCK_REALTIME, &time);
	return time;
}

/// As syslog(3), which waits when its reader does not read: the address must not.
void sendToSyslog(int priority, const std::string& text)
{
	const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
	const sockaddr_un place{AF_UNIX, "/dev/log"};
	const std::string line = "<" + std::to_string(LOG_DAEMON | priority) + ">" + text;
	static_cast<void>(::sendto(socket.get(), line.data(), line.size(), MSG_NOSIGNAL,
	                           reinterpret_cast<const sockaddr*>(&place), sizeof place));
}

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

void makeRuntimeDirectory()
{
	require(::mkdir(kRuntimeDirectory, 0755) == 0 || errno == EEXIST, kRuntimeDirectory);
}

Descriptor takeLock(const std::string& program, Part part)
{
	// For root alone: whoever may read it could lock it.
	const std::string path = pathOf(program, ".lock");
	Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
	require(static_cast<bool>(file), path.c_str());
	const struct flock lock = lockOf(part);
	return ::fcntl(file.get(), F_SETLK, &lock) == 0 ? std::move(file) : Descriptor();
}

pid_t holderOf(const std::string& program, Part part)
{
	const Descriptor file(::open(pathOf(program, ".lock").c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
	struct flock lock = lockOf(part);
	const bool held = file && ::fcntl(file.get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
	return held ? lock.l_pid : 0;
}

LivingProcess::LivingProcess(const std::string& program, Part part) : m_pid(holderOf(program, part))
{
	if (m_pid > 0)
	{
		m_descriptor = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, m_pid, 0)));
	}
	// Between the two looks the number may have become another process's.
	if (m_descriptor && holderOf(program, part) != m_pid)
	{
		m_descriptor.close();
	}
}

void LivingProcess::signal(int number) const
{
	::syscall(SYS_pidfd_send_signal, m_descriptor.get(), number, nullptr, 0);
}

bool LivingProcess::waitForEnd(Millis limit) const
{
	pollfd waiting{m_descriptor.get(), POLLIN, 0};
	const Millis end = now() + limit;
	for (Millis left = limit; left >= 0; left = end - now())
	{
		if (::poll(&waiting, 1, static_cast<int>(left)) > 0)
		{
			return true;
		}
	}
	return false;
}

void writeState(const std::string& program, const Fields& fields)
{
	std::string text;
	for (const auto& [key, value] : fields)
	{
		text.append(key).append("=").append(value).append("\n");
	}
	const std::string made = pathOf(program, ".new");
	const Descriptor file(::open(made.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
	if (file && ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()))
	{
		static_cast<void>(std::rename(made.c_str(), pathOf(program, ".state").c_str()));
	}
}

Fields readState(const std::string& program, const std::string& directory)
{
	std::ifstream file(directory + "/" + program + ".state");
	Fields fields;
	for (std::string line; std::getline(file, line);)
	{
		if (const std::size_t equals = line.find('='); equals != std::string::npos)
		{
			fields.emplace_back(line.substr(0, equals), line.substr(equals + 1));
		}
	}
	return fields;
}

void removeState(const std::string& program)
{
	::unlink(pathOf(program, ".state").c_str());
}

std::string valueOf(const Fields& fields, const std::string& key)
{
	const auto found = std::ranges::find(fields, key, &Fields::value_type::first);
	return found == fields.end() ? std::string() : found->second;
}

std::vector<TargetState> targetsOf(const Fields& fields)
{
	constexpr std::string_view kTarget = "target.";
	std::vector<TargetState> targets;
	for (const auto& [key, value] : fields)
	{
		if (key.starts_with(kTarget))
		{
			const std::size_t blank = std::min(value.find(' '), value.size());
			targets.push_back(
			    {key.substr(kTarget.size()), value.substr(0, blank), std::strtoll(value.c_str() + blank, nullptr, 10)});
		}
	}
	return targets;
}

AddressWatch::AddressWatch() : m_inotify(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
{
	require(m_inotify && ::inotify_add_watch(m_inotify.get(), kRuntimeDirectory, IN_MOVED_TO | IN_DELETE) >= 0,
	        "inotify");
}

Fields AddressWatch::look()
{
	std::array<char, 4096> discarded{};
	while (::read(m_inotify.get(), discarded.data(), discarded.size()) > 0)
	{
	}
	m_holder.emplace(kAddressProgram, Part::worker);
	// What a holder has left that was killed does not count.
	Fields fields = readState(kAddressProgram);
	return *m_holder && valueOf(fields, "pid") == std::to_string(m_holder->pid()) ? std::move(fields) : Fields();
}

long long wallClock(Millis moment)
{
	const timespec time = wallTime();
	return (static_cast<long long>(time.tv_sec) * 1000 + time.tv_nsec / 1'000'000 - (now() - moment)) / 1000;
}

std::string timeText(long long seconds, int millis)
{
	const auto time = static_cast<std::time_t>(seconds);
	std::tm local{};
	::localtime_r(&time, &local);
	std::array<char, 32> date{};
	std::array<char, 8> zone{};
	std::strftime(date.data(), date.size(), "%FT%T", &local);
	std::strftime(zone.data(), zone.size(), "%z", &local);
	std::array<char, 64> text{};
	std::snprintf(text.data(), text.size(), "%s.%03d%s", date.data(), millis, zone.data());
	return text.data();
}

void Journal::event(const std::string& word, const std::string& detail)
{
	Count& count = m_counts[word];
	const Millis moment = now();
	std::string more;
	if (moment - count.since >= kWithin)
	{
		more = count.held > 0 ? " (and " + std::to_string(count.held) + " more before)" : "";
		count = {moment, 0, 0};
	}
	if (++count.written > kWrittenAtMost)
	{
		++count.held;
		return;
	}
	const std::string text = m_program + "[" + std::to_string(::getpid()) + "]";
	sendToSyslog(word == "failed" || word == "killed" || word == "conflict" ? LOG_ERR : LOG_NOTICE,
	             text + ": " + word + ": " + detail + more);
	const timespec time = wallTime();
	const std::string line = timeText(time.tv_sec, static_cast<int>(time.tv_nsec / 1'000'000)) + " " + text + " " +
	                         word + ": " + detail + more + "\n";
	const Descriptor file(::open(kEventFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0640));
	// A full disk must not keep the address from being held.
	[[maybe_unused]] const ssize_t written = ::write(file.get(), line.data(), line.size());
}

} // namespace velarix::keeper
