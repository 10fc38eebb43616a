#include "inspect/Host.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <fstream>
#include <system_error>
#include <thread>

#include <arpa/inet.h>
#include <linux/magic.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "inspect/Descriptor.h"
#include "inspect/HostProcesses.h"
#include "inspect/HostProgram.h"
#include "inspect/Pattern.h"

namespace velarix::inspect::host
{

FileFacts fileFacts(const std::filesystem::path& path)
{
	FileFacts facts;
	struct stat status = {};
	if (::stat(path.c_str(), &status) != 0)
	{
		facts.kind = errno == EACCES ? FileKind::notKnown : FileKind::missing;
		return facts;
	}
	facts.kind = S_ISREG(status.st_mode)   ? FileKind::regular
	             : S_ISDIR(status.st_mode) ? FileKind::directory
	                                       : FileKind::other;
	facts.mode = status.st_mode & 07777U;
	facts.owner = status.st_uid;
	facts.group = status.st_gid;
	struct statfs system = {};
	if (::statfs(path.c_str(), &system) == 0)
	{
		facts.noExec = (system.f_flags & ST_NOEXEC) != 0;
		facts.readOnly = (system.f_flags & ST_RDONLY) != 0;
		facts.inMemory = system.f_type == TMPFS_MAGIC || system.f_type == RAMFS_MAGIC;
	}
	return facts;
}

std::optional<std::chrono::system_clock::time_point> changedAt(const std::filesystem::path& path)
{
	struct stat status = {};
	if (::stat(path.c_str(), &status) != 0)
	{
		return std::nullopt;
	}
	return std::chrono::system_clock::from_time_t(status.st_mtim.tv_sec) +
	       std::chrono::nanoseconds(status.st_mtim.tv_nsec);
}

uid_t user()
{
	return ::geteuid();
}

std::string name()
{
	std::array<char, HOST_NAME_MAX + 1> text{};
	return ::gethostname(text.data(), text.size() - 1) == 0 ? text.data() : std::string();
}

bool isPortTaken(const std::string& address, int port)
{
	sockaddr_in internet{};
	internet.sin_family = AF_INET;
	internet.sin_port = htons(static_cast<std::uint16_t>(port));
	if (::inet_pton(AF_INET, address.c_str(), &internet.sin_addr) != 1)
	{
		return false;
	}
	const Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
	const int on = 1;
	::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
	const bool bound = ::bind(listener.get(), reinterpret_cast<const sockaddr*>(&internet), sizeof internet) == 0;
	return (!bound || ::listen(listener.get(), 1) != 0) && errno == EADDRINUSE;
}

std::optional<bool> isOutgoingPort(int port)
{
	int first = 0;
	int last = 0;
	if (std::ifstream range("/proc/sys/net/ipv4/ip_local_port_range"); !(range >> first >> last))
	{
		return std::nullopt;
	}
	// "7000,8000-8010"
	std::string reserved;
	std::getline(std::ifstream("/proc/sys/net/ipv4/ip_local_reserved_ports"), reserved);
	const auto names = [port](const Pattern::Groups& range)
	{
		const int from = std::stoi(range[1]);
		return from <= port && port <= (range[2].empty() ? from : std::stoi(range[2]));
	};
	return first <= port && port <= last && std::ranges::none_of(Pattern("(\\d+)(?:-(\\d+))?").all(reserved), names);
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

CommandEnd runWithoutNetwork(const std::string& command, std::chrono::milliseconds limit)
{
	if (const ProgramEnd probe = runProgram({.arguments = {"unshare", "-n", "true"}}); !probe.fine())
	{
		return probe.status == ProgramEnd::kNotStarted ? CommandEnd::notStarted : CommandEnd::noNamespace;
	}
	const ProgramEnd end =
	    runProgram({.arguments = {"unshare", "-n", "/bin/sh", "-c", command}, .limit = limit, .shown = true});
	return end.inTime ? CommandEnd::ended : CommandEnd::tooLong;
}

bool signalProcess(pid_t pid, const std::string& name, int signal)
{
	// The descriptor is opened before the name is read: it stays that process.
	const Descriptor target(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
	const std::optional<Process> found = process(pid);
	return target.get() >= 0 && found && found->name == name &&
	       ::syscall(SYS_pidfd_send_signal, target.get(), signal, nullptr, 0) == 0;
}

void pause(std::chrono::milliseconds time)
{
	std::this_thread::sleep_for(time);
}

std::size_t windowLines()
{
	winsize window{};
	return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 ? window.ws_row : 0;
}

std::chrono::milliseconds elapsed()
{
	return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch());
}

} // namespace velarix::inspect::host
