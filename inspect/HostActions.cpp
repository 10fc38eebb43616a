#include "inspect/HostActions.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "inspect/Descriptor.h"
#include "inspect/HostProcesses.h"

namespace velarix::inspect::host
{

namespace
{

int processDescriptor(pid_t pid)
{
	return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
}

/// The child's side: never returns. A byte on `report` tells that there is no
/// network namespace to be had; the shell's start closes it without one.
[[noreturn]] void becomeShell(const char* command, int report)
{
	::setpgid(0, 0);
	if (::unshare(CLONE_NEWNET) != 0)
	{
		[[maybe_unused]] const auto reported = ::write(report, "n", 1);
		::_exit(127);
	}
	const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
	::dup2(nothing, STDIN_FILENO);
	::dup2(STDERR_FILENO, STDOUT_FILENO);
	::execl("/bin/sh", "sh", "-c", command, nullptr);
	::_exit(127);
}

/// @return false when the time was over first
bool awaitEnd(pid_t child, std::chrono::milliseconds limit)
{
	const Descriptor end(processDescriptor(child));
	pollfd wanted{end.get(), POLLIN, 0};
	int ready = 0;
	do
	{
		ready = ::poll(&wanted, 1, static_cast<int>(limit.count()));
	} while (ready < 0 && errno == EINTR);
	return ready > 0;
}

} // namespace

CommandEnd runWithoutNetwork(const std::string& command, std::chrono::milliseconds limit)
{
	std::array<int, 2> ends{};
	if (::pipe2(ends.data(), O_CLOEXEC) != 0)
	{
		return CommandEnd::notStarted;
	}
	const Descriptor report(ends[0]);
	Descriptor childsReport(ends[1]);
	const pid_t child = ::fork();
	if (child == 0)
	{
		becomeShell(command.c_str(), childsReport.get());
	}
	childsReport.close();
	if (child < 0)
	{
		return CommandEnd::notStarted;
	}
	char byte = 0;
	const bool refused = ::read(report.get(), &byte, 1) == 1;
	const bool inTime = awaitEnd(child, limit);
	if (!inTime)
	{
		::kill(-child, SIGKILL);
	}
	::waitpid(child, nullptr, 0);
	if (refused)
	{
		return CommandEnd::noNamespace;
	}
	return inTime ? CommandEnd::ended : CommandEnd::tooLong;
}

bool signalProcess(pid_t pid, const std::string& name, int signal)
{
	// The descriptor is opened before the name is read: it stays that process.
	const Descriptor target(processDescriptor(pid));
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
