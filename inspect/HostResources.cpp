#include "inspect/Host.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <system_error>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "inspect/Pattern.h"

namespace velarix::inspect::host
{

bool isPortTaken(const std::string& address, int port)
{
	sockaddr_in internet{};
	internet.sin_family = AF_INET;
	internet.sin_port = htons(static_cast<std::uint16_t>(port));
	if (::inet_pton(AF_INET, address.c_str(), &internet.sin_addr) != 1)
	{
		return false;
	}
	const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
	if (listener < 0)
	{
		return false;
	}
	const int on = 1;
	::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
	const bool bound = ::bind(listener, reinterpret_cast<const sockaddr*>(&internet), sizeof internet) == 0;
	const bool taken = (!bound || ::listen(listener, 1) != 0) && errno == EADDRINUSE;
	::close(listener);
	return taken;
}

namespace
{

/// @return whether a list like "7000,8000-8010" names the port
bool names(const std::string& list, int port)
{
	const std::vector<Pattern::Groups> ranges = Pattern("(\\d+)(?:-(\\d+))?").all(list);
	return std::ranges::any_of(ranges,
	                           [&](const Pattern::Groups& range)
	                           {
		                           const int first = std::stoi(range[1]);
		                           return first <= port && port <= (range[2].empty() ? first : std::stoi(range[2]));
	                           });
}

} // namespace

std::optional<bool> isOutgoingPort(int port)
{
	int first = 0;
	int last = 0;
	if (std::ifstream range("/proc/sys/net/ipv4/ip_local_port_range"); !(range >> first >> last))
	{
		return std::nullopt;
	}
	std::string reserved;
	std::getline(std::ifstream("/proc/sys/net/ipv4/ip_local_reserved_ports"), reserved);
	return first <= port && port <= last && !names(reserved, port);
}

std::optional<std::uintmax_t> freeSpace(const std::filesystem::path& directory)
{
	std::error_code error;
	const std::filesystem::space_info space = std::filesystem::space(directory, error);
	return error ? std::nullopt : std::optional<std::uintmax_t>(space.free);
}

std::optional<std::uintmax_t> freeFiles(const std::filesystem::path& directory)
{
	struct statvfs system = {};
	const bool limited = ::statvfs(directory.c_str(), &system) == 0 && system.f_files != 0;
	return limited ? std::optional<std::uintmax_t>(system.f_ffree) : std::nullopt;
}

} // namespace velarix::inspect::host
