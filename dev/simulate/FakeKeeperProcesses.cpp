/// Processes as the keeper's programs start, find and end them.

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sys/random.h>
#include <sys/wait.h>

#include <unistd.h>

#include "dev/simulate/Programs.h"
#include "keeper/Commands.h"
#include "keeper/Process.h"
#include "keeper/Settings.h"

namespace sim = velarix::simulate;

using sim::kMilli;
using sim::processOf;
using sim::self;
using sim::selfProcess;
using sim::world;

namespace velarix::simulate
{

Process* processOf(const Node& node, int pid)
{
	const auto found = std::ranges::find_if(node.processes, [pid](const auto& process) { return process->pid == pid; });
	return found == node.processes.end() ? nullptr : found->get();
}

} // namespace velarix::simulate

namespace velarix::keeper
{

pid_t start(const ServiceSettings& service, const std::vector<std::string>& command, RunAs /*runAs*/,
            std::string& /*error*/, int /*output*/)
{
	if (command == service.command)
	{
		world().startProgram(self(), &selfProcess());
		return self().lastPid;
	}
	sim::Process& child = world().start(self(), command.front(), &selfProcess());
	if (command.size() > 1) // keeper stop PROGRAM
	{
		world().runTask(child,
		                [&child, program = command.back()]
		                {
			                world().sleepFor(world().effort(self(), 2 * kMilli));
			                commands::stop(self().keeperSettings, program);
			                world().end(child, 0);
		                });
		return child.pid;
	}
	// A check asks the address, where it is, for a page.
	const sim::Process* program = world().find(self(), sim::kService);
	const bool hangs = program != nullptr && program->stopped;
	const int status = self().address && program != nullptr ? 0 : 1 << 8U;
	hangs ? void() : world().endIn(world().effort(self(), 5 * kMilli), child, status);
	return child.pid;
}

std::string howEnded(int status)
{
	return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
	                           : "status " + std::to_string(WEXITSTATUS(status));
}

std::vector<pid_t> descendants()
{
	std::vector<pid_t> found;
	for (const auto& process : self().processes)
	{
		if (process->alive && process->parent == &selfProcess())
		{
			found.push_back(process->pid);
		}
	}
	return found;
}

void signalAll(const std::vector<pid_t>& processes, int number)
{
	for (const pid_t pid : processes)
	{
		world().signal(*processOf(self(), pid), number);
	}
}

bool endOrphans(const ServiceSettings& service)
{
	for (const auto& process : self().processes)
	{
		process->alive && process->name == sim::kService ? world().end(*process, SIGKILL) : void();
	}
	removeState(service.program);
	return true;
}

} // namespace velarix::keeper

extern "C"
{
	pid_t __wrap_waitpid(pid_t /*pid*/, int* pStatus, int /*options*/)
	{
		for (const auto& process : self().processes)
		{
			if (!process->alive && !process->reaped && process->parent == &selfProcess())
			{
				process->reaped = true;
				pStatus != nullptr ? void(*pStatus = process->status) : void();
				return process->pid;
			}
		}
		return 0;
	}

	int __wrap_kill(pid_t pid, int number)
	{
		sim::Process* process = processOf(self(), std::abs(pid));
		if (process == nullptr || !process->alive)
		{
			errno = ESRCH;
			return -1;
		}
		number != 0 ? world().signal(*process, number) : void();
		return 0;
	}

	pid_t __wrap_getpgid(pid_t pid)
	{
		return pid;
	}

	/// The counters of dev/coverage/simulated are written when no task runs any more.
	pid_t __wrap_getpid()
	{
		return sim::Scheduler::current() != nullptr ? selfProcess().pid : 1;
	}

	ssize_t __wrap_getrandom(void* buffer, std::size_t size, unsigned /*flags*/)
	{
		std::generate_n(static_cast<char*>(buffer), size, [] { return static_cast<char>(world().random.next()); });
		return static_cast<ssize_t>(size);
	}

	/// The start command's copy of itself becomes ha-address.
	pid_t __wrap_fork()
	{
		world().startManaged(self(), velarix::keeper::kAddressProgram);
		return 1;
	}

	/// What the keeper's commands print is read by the agent. It is one text and a line feed,
	/// whatever the compiler makes of the call.
	int __wrap_puts(const char* text)
	{
		self().printed += std::string(text) + "\n";
		return 0;
	}

	int __wrap___printf_chk(int /*flag*/, const char* /*format*/, const char* text)
	{
		return __wrap_puts(text);
	}
}
