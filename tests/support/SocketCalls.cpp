#include "SocketCalls.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <mutex>

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include "Events.h"

namespace
{

struct Fault
{
	int error = 0;
	bool once = false;
};

using Hook = std::function<void()>;

struct Script
{
	std::map<std::string, bool> recorded;
	std::map<std::string, Hook> before;
	std::map<std::string, Hook> after;
	std::map<std::string, Fault> faults;
	std::function<bool()> pollWithoutWaiting;
};

std::mutex g_mutex;
Script g_script;

template <typename Value> auto findByPrefix(std::map<std::string, Value>& byPrefix, const std::string& call)
{
	return std::find_if(byPrefix.begin(), byPrefix.end(),
	                    [&](const auto& entry) { return call.starts_with(entry.first); });
}

void runHook(std::map<std::string, Hook> Script::*hooks, const std::string& call)
{
	Hook hook;
	{
		const std::lock_guard lock(g_mutex);
		if (const auto it = findByPrefix(g_script.*hooks, call); it != (g_script.*hooks).end())
		{
			hook = it->second;
		}
	}
	if (hook)
	{
		hook();
	}
}

/// @return the errno of a scripted fault, 0 for none
int takeFault(const std::string& call)
{
	const std::lock_guard lock(g_mutex);
	const auto it = findByPrefix(g_script.faults, call);
	if (it == g_script.faults.end())
	{
		return 0;
	}
	const Fault fault = it->second;
	if (fault.once)
	{
		g_script.faults.erase(it);
	}
	return fault.error;
}

bool pollsWithoutWaiting()
{
	std::function<bool()> when;
	{
		const std::lock_guard lock(g_mutex);
		when = g_script.pollWithoutWaiting;
	}
	return when && when();
}

/// Record, hook, fault, the real call, hook.
template <typename Real> auto answer(const std::string& call, Real real) -> decltype(real())
{
	bool recorded = false;
	{
		const std::lock_guard lock(g_mutex);
		recorded = findByPrefix(g_script.recorded, call) != g_script.recorded.end();
	}
	if (recorded)
	{
		events::add(call);
	}
	runHook(&Script::before, call);
	if (const int error = takeFault(call); error != 0)
	{
		errno = error;
		return -1;
	}
	const auto result = real();
	if (result >= 0)
	{
		const int error = errno;
		runHook(&Script::after, call);
		errno = error;
	}
	return result;
}

template <typename Function> Function* next(const char* name)
{
	return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

std::string optionText(int level, int name, const void* value, socklen_t size)
{
	if (level == SOL_SOCKET && name == SO_RCVTIMEO && size == sizeof(timeval))
	{
		const auto* time = static_cast<const timeval*>(value);
		return "option SO_RCVTIMEO " + std::to_string(time->tv_sec) + "s " + std::to_string(time->tv_usec) + "us";
	}
	std::string text = std::to_string(level) + ":" + std::to_string(name);
	if (level == SOL_SOCKET)
	{
		text = name == SO_KEEPALIVE   ? "SO_KEEPALIVE"
		       : name == SO_REUSEADDR ? "SO_REUSEADDR"
		       : name == SO_REUSEPORT ? "SO_REUSEPORT"
		                              : text;
	}
	return "option " + text + " " +
	       (size == sizeof(int) ? std::to_string(*static_cast<const int*>(value)) : std::string("?"));
}

std::string addressText(const sockaddr* address)
{
	sockaddr_in inet{};
	std::copy_n(reinterpret_cast<const char*>(address), sizeof inet, reinterpret_cast<char*>(&inet));
	char text[INET_ADDRSTRLEN] = "";
	::inet_ntop(AF_INET, &inet.sin_addr, text, sizeof text);
	return std::string(text) + ":" + std::to_string(ntohs(inet.sin_port));
}

void reset()
{
	const std::lock_guard lock(g_mutex);
	g_script = Script();
}

const bool g_isReset = events::resetForEachTest(reset);

} // namespace

namespace socketcalls
{

void record(const std::string& call)
{
	const std::lock_guard lock(g_mutex);
	g_script.recorded[call] = true;
}

void before(const std::string& call, std::function<void()> hook)
{
	const std::lock_guard lock(g_mutex);
	g_script.before[call] = std::move(hook);
}

void after(const std::string& call, std::function<void()> hook)
{
	const std::lock_guard lock(g_mutex);
	g_script.after[call] = std::move(hook);
}

void failNext(const std::string& call, int error)
{
	const std::lock_guard lock(g_mutex);
	g_script.faults[call] = {error, true};
}

void failAlways(const std::string& call, int error)
{
	const std::lock_guard lock(g_mutex);
	g_script.faults[call] = {error, false};
}

void pollWithoutWaiting(std::function<bool()> when)
{
	const std::lock_guard lock(g_mutex);
	g_script.pollWithoutWaiting = std::move(when);
}

} // namespace socketcalls

// The program's own symbols come before the C library's for the shared library
// too. Each passes the call on.
extern "C"
{
	int setsockopt(int socket, int level, int name, const void* value, socklen_t size) noexcept
	{
		static auto* const real = next<decltype(setsockopt)>("setsockopt");
		return answer(optionText(level, name, value, size), [&] { return real(socket, level, name, value, size); });
	}

	int bind(int socket, const sockaddr* address, socklen_t size) noexcept
	{
		static auto* const real = next<decltype(bind)>("bind");
		return answer("bind " + addressText(address), [&] { return real(socket, address, size); });
	}

	int listen(int socket, int backlog) noexcept
	{
		static auto* const real = next<decltype(listen)>("listen");
		return answer("listen " + std::to_string(backlog), [&] { return real(socket, backlog); });
	}

	int accept(int socket, sockaddr* address, socklen_t* size)
	{
		static auto* const real = next<decltype(accept)>("accept");
		return answer("accept", [&] { return real(socket, address, size); });
	}

	int epoll_wait(int epoll, epoll_event* events, int count, int milliseconds)
	{
		static auto* const real = next<decltype(epoll_wait)>("epoll_wait");
		return answer("poll " + std::to_string(milliseconds),
		              [&] { return real(epoll, events, count, pollsWithoutWaiting() ? 0 : milliseconds); });
	}

	ssize_t recv(int socket, void* buffer, std::size_t size, int flags)
	{
		static auto* const real = next<decltype(recv)>("recv");
		return answer("receive " + std::to_string(size), [&] { return real(socket, buffer, size, flags); });
	}

	int connect(int socket, const sockaddr* address, socklen_t size)
	{
		static auto* const real = next<decltype(connect)>("connect");
		return answer("connect " + addressText(address), [&] { return real(socket, address, size); });
	}

	ssize_t send(int socket, const void* buffer, std::size_t size, int flags)
	{
		static auto* const real = next<decltype(send)>("send");
		return answer("send " + std::to_string(size), [&] { return real(socket, buffer, size, flags); });
	}

	int shutdown(int socket, int how) noexcept
	{
		static auto* const real = next<decltype(shutdown)>("shutdown");
		return answer("shutdown " + std::to_string(how), [&] { return real(socket, how); });
	}
}
