#include "SocketCalls.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <mutex>
#include <vector>

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

using Hooks = std::map<std::string, std::function<void()>>;

struct Script
{
	std::vector<std::string> recorded;
	Hooks before;
	Hooks after;
	std::map<std::string, Fault> faults;
	std::function<bool()> pollWithoutWaiting;
};

/// Held while a hook runs, which may change the script.
std::recursive_mutex g_mutex;
Script g_script;

template <typename Value> auto findByPrefix(std::map<std::string, Value>& byPrefix, const std::string& call)
{
	return std::find_if(byPrefix.begin(), byPrefix.end(),
	                    [&](const auto& entry) { return call.starts_with(entry.first); });
}

void runHook(Hooks& hooks, const std::string& call)
{
	if (const auto it = findByPrefix(hooks, call); it != hooks.end())
	{
		const std::function<void()> hook = it->second;
		hook();
	}
}

/// @return the errno of a scripted fault, 0 for none
int beforeCall(const std::string& call)
{
	const std::lock_guard lock(g_mutex);
	if (std::any_of(g_script.recorded.begin(), g_script.recorded.end(),
	                [&](const std::string& begin) { return call.starts_with(begin); }))
	{
		events::add(call);
	}
	runHook(g_script.before, call);
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
	const std::lock_guard lock(g_mutex);
	return g_script.pollWithoutWaiting && g_script.pollWithoutWaiting();
}

/// Record, hook, fault, the real call, hook.
template <typename Real> auto answer(const std::string& call, Real real) -> decltype(real())
{
	if (const int error = beforeCall(call); error != 0)
	{
		errno = error;
		return -1;
	}
	const auto result = real();
	if (result >= 0)
	{
		const int error = errno;
		const std::lock_guard lock(g_mutex);
		runHook(g_script.after, call);
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
	g_script.recorded.push_back(call);
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

void fail(const std::string& call, int error, bool once)
{
	const std::lock_guard lock(g_mutex);
	g_script.faults[call] = {error, once};
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
