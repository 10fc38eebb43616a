#include "inspect/HostActions.h"

#include <optional>
#include <thread>
#include <vector>

#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "inspect/Descriptor.h"
#include "inspect/HostProcesses.h"
#include "inspect/HostProgram.h"

namespace velarix::inspect::host
{

namespace
{

/// Runs a program in a network namespace of its own.
ProgramEnd runUnshared(const std::vector<std::string>& command, std::chrono::milliseconds limit, bool shown)
{
	std::vector<std::string> arguments{"unshare", "-n"};
	arguments.insert(arguments.end(), command.begin(), command.end());
	return runProgram({.arguments = arguments, .environment = {}, .input = {}, .limit = limit, .shown = shown});
}

} // namespace

CommandEnd runWithoutNetwork(const std::string& command, std::chrono::milliseconds limit)
{
	constexpr std::chrono::seconds kProbe{10};
	if (const ProgramEnd probe = runUnshared({"true"}, kProbe, false); !probe.fine())
	{
		return probe.status == ProgramEnd::kNotStarted ? CommandEnd::notStarted : CommandEnd::noNamespace;
	}
	const ProgramEnd end = runUnshared({"/bin/sh", "-c", command}, limit, true);
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
