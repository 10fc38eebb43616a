#include "SocketCalls.h"

#include <algorithm>
#include <cerrno>
#include <mutex>

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include "Events.h"

namespace
{

std::mutex g_mutex;
std::vector<std::string> g_recorded;

const bool g_isReset = events::resetForEachTest([] { g_recorded.clear(); });

bool isRecorded(const std::string& call)
{
	const std::lock_guard lock(g_mutex);
	return std::any_of(g_recorded.begin(), g_recorded.end(),
	                   [&](const std::string& begin) { return call.starts_with(begin); });
}

/// @param real makes the call; a poll whose argument is true does not wait
template <typename Real> auto answer(const std::string& call, Real real) -> decltype(real(false))
{
	if (events::isActing())
	{
		return real(false);
	}
	bool atOnce = false;
	try
	{
		isRecorded(call) ? events::add(call) : events::announce(call);
	}
	catch (const socketcalls::Fault& fault)
	{
		errno = fault.error;
		return -1;
	}
	catch (const socketcalls::AtOnce&)
	{
		atOnce = true;
	}
	const auto result = real(atOnce);
	if (result >= 0)
	{
		const int error = errno;
		events::announce("after " + call);
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

} // namespace

void socketcalls::record(const std::string& call)
{
	const std::lock_guard lock(g_mutex);
	g_recorded.push_back(call);
}

// The program's own symbols come before the C library's for the shared library
// too. Each passes the call on.
extern "C"
{
	int setsockopt(int socket, int level, int name, const void* value, socklen_t size) noexcept
	{
		static auto* const real = next<decltype(setsockopt)>("setsockopt");
		return answer(optionText(level, name, value, size),
		              [&](bool) { return real(socket, level, name, value, size); });
	}

	int bind(int socket, const sockaddr* address, socklen_t size) noexcept
	{
		static auto* const real = next<decltype(bind)>("bind");
		return answer("bind " + addressText(address), [&](bool) { return real(socket, address, size); });
	}

	int listen(int socket, int backlog) noexcept
	{
		static auto* const real = next<decltype(listen)>("listen");
		return answer("listen " + std::to_string(backlog), [&](bool) { return real(socket, backlog); });
	}

	int accept(int socket, sockaddr* address, socklen_t* size)
	{
		static auto* const real = next<decltype(accept)>("accept");
		return answer("accept", [&](bool) { return real(socket, address, size); });
	}

	int epoll_wait(int epoll, epoll_event* events, int count, int milliseconds)
	{
		static auto* const real = next<decltype(epoll_wait)>("epoll_wait");
		return answer("poll " + std::to_string(milliseconds),
		              [&](bool atOnce) { return real(epoll, events, count, atOnce ? 0 : milliseconds); });
	}

	ssize_t recv(int socket, void* buffer, std::size_t size, int flags)
	{
		static auto* const real = next<decltype(recv)>("recv");
		return answer("receive " + std::to_string(size), [&](bool) { return real(socket, buffer, size, flags); });
	}

	int connect(int socket, const sockaddr* address, socklen_t size)
	{
		static auto* const real = next<decltype(connect)>("connect");
		return answer("connect " + addressText(address), [&](bool) { return real(socket, address, size); });
	}

	ssize_t send(int socket, const void* buffer, std::size_t size, int flags)
	{
		static auto* const real = next<decltype(send)>("send");
		return answer("send " + std::to_string(size), [&](bool) { return real(socket, buffer, size, flags); });
	}

	int shutdown(int socket, int how) noexcept
	{
		static auto* const real = next<decltype(shutdown)>("shutdown");
		return answer("shutdown " + std::to_string(how), [&](bool) { return real(socket, how); });
	}
}
