#include "Guard.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

#include "Journal.h"
#include "Loop.h"
#include "Process.h"
#include "Runtime.h"

namespace velarix::keeper
{

namespace
{

/// What a worker has left that was killed has this long (ms) between TERM and KILL.
constexpr int kRemainsPatience = 1'000;

std::vector<pid_t> ownRemains(const std::string& /*program*/)
{
	while (::waitpid(-1, nullptr, WNOHANG) > 0)
	{
	}
	return descendantsOf(::getpid());
}

void waitForFormerWorker(const std::string& program)
{
	sigset_t none;
	sigemptyset(&none);
	::sigprocmask(SIG_SETMASK, &none, nullptr);
	constexpr Millis kLongest = 3'600'000;
	const LivingProcess worker(program, Part::worker);
	if (worker)
	{
		worker.waitForEnd(kLongest);
	}
}

int runWorker(const ProcessLock& lock, const std::function<int()>& worker, pid_t guardPid)
{
	// The agent counts every process whose name contains the program's.
	setProcessName("keeper");
	::prctl(PR_SET_PDEATHSIG, SIGTERM);
	::prctl(PR_SET_CHILD_SUBREAPER, 1);
	if (::getppid() != guardPid || !lock.take(Part::worker))
	{
		return EX_TEMPFAIL;
	}
	return worker();
}

int waitForWorker(pid_t worker)
{
	const Descriptor signals = takeSignals();
	Loop loop;
	int status = -1;
	loop.watch(signals.get(),
	           [&]
	           {
		           for (const int signal : readSignals(signals.get()))
		           {
			           if (signal == SIGCHLD)
			           {
				           int ended = 0;
				           for (pid_t pid = 0; (pid = ::waitpid(-1, &ended, WNOHANG)) > 0;)
				           {
					           status = pid == worker ? ended : status;
				           }
			           }
			           else
			           {
				           ::kill(worker, SIGTERM);
				           ::kill(worker, SIGCONT);
			           }
		           }
	           });
	while (status == -1)
	{
		loop.wait(kNever);
		loop.dispatch();
	}
	return status;
}

} // namespace

int guard(const std::string& program, const std::function<int()>& worker, const std::function<void()>& aftermath)
{
	setProcessName(program);
	::setsid();
	makeRuntimeDirectory();
	if (holderOf(program, Part::guard) != 0)
	{
		return EX_OK;
	}
	// The worker of a guard that was killed may still be ending its service.
	waitForFormerWorker(program);
	const ProcessLock lock(program);
	if (!lock.take(Part::guard))
	{
		return EX_OK;
	}
	// Before there is a worker, which would else find them unblocked for a moment.
	takeSignals().reset();
	::prctl(PR_SET_CHILD_SUBREAPER, 1);
	const pid_t self = ::getpid();
	const pid_t child = ::fork();
	if (child == 0)
	{
		::_exit(runWorker(lock, worker, self));
	}
	if (child < 0)
	{
		throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
	}
	keepCapabilities({CAP_KILL, CAP_NET_ADMIN});
	const int status = waitForWorker(child);
	if (WIFEXITED(status) && WEXITSTATUS(status) != EX_SOFTWARE)
	{
		return WEXITSTATUS(status);
	}
	Journal journal(program);
	journal.event("killed", WIFSIGNALED(status) ? "the worker ended by signal " + std::to_string(WTERMSIG(status))
	                                            : "the worker failed");
	endAll(ownRemains, program, kRemainsPatience);
	aftermath();
	return EX_SOFTWARE;
}

} // namespace velarix::keeper
