#include "keeper/Guard.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <functional>
#include <stdexcept>

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

#include "keeper/Network.h"
#include "keeper/Process.h"
#include "keeper/Runtime.h"
#include "keeper/ServiceSupervisor.h"

namespace velarix::keeper
{

namespace
{

/// What a worker has left that was killed has this long between TERM and KILL.
constexpr Millis kRemainsPatience = 1'000;

constexpr int kHide = SIGUSR1;

using Work = std::function<int()>;

int reported(const std::string& program, const Work& work)
{
	try
	{
		return work();
	}
	catch (const std::exception& exc)
	{
		Journal(program).event("failed", exc.what());
		return EX_SOFTWARE;
	}
}

void waitForFormerWorker(const std::string& program)
{
	// Meanwhile it can be ended.
	sigset_t none;
	sigemptyset(&none);
	::sigprocmask(SIG_SETMASK, &none, nullptr);
	constexpr Millis kLongest = 3'600'000;
	if (const LivingProcess worker(program, Part::worker); worker)
	{
		worker.waitForEnd(kLongest);
	}
}

int beWorker(const std::string& program, const Work& work, pid_t guard)
{
	// The agent counts every process whose name contains the program's.
	setProcessName("keeper");
	::prctl(PR_SET_PDEATHSIG, SIGTERM);
	::prctl(PR_SET_CHILD_SUBREAPER, 1);
	const Descriptor lock = takeLock(program, Part::worker);
	return lock && ::getppid() == guard ? reported(program, work) : EX_TEMPFAIL;
}

/// @return its status, as of waitpid(2)
int waitForWorker(pid_t worker, const sigset_t& signals)
{
	for (;;)
	{
		int status = 0;
		for (pid_t ended = 0; (ended = ::waitpid(-1, &status, WNOHANG)) > 0;)
		{
			if (ended == worker)
			{
				return status;
			}
		}
		int signal = 0;
		::sigwait(&signals, &signal);
		if (signal == kHide)
		{
			setProcessName("keeper");
		}
		else if (signal != SIGCHLD)
		{
			::kill(worker, SIGTERM);
			::kill(worker, SIGCONT);
		}
	}
}

int beGuard(const std::string& program, const Work& work, const std::function<void()>& aftermath)
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
	const Descriptor lock = takeLock(program, Part::guard);
	if (!lock)
	{
		return EX_OK;
	}
	// Before there is a worker, which would else find them unblocked for a moment.
	sigset_t signals = blockSignals();
	sigaddset(&signals, kHide);
	::sigprocmask(SIG_BLOCK, &signals, nullptr);
	::prctl(PR_SET_CHILD_SUBREAPER, 1);
	const pid_t self = ::getpid();
	const pid_t worker = ::fork();
	if (worker == 0)
	{
		::_exit(beWorker(program, work, self));
	}
	if (worker < 0)
	{
		throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
	}
	keepCapabilities({CAP_KILL, CAP_NET_ADMIN});
	const int status = waitForWorker(worker, signals);
	if (WIFEXITED(status) && WEXITSTATUS(status) != EX_SOFTWARE)
	{
		return WEXITSTATUS(status);
	}
	Journal(program).event("killed",
	                       WIFSIGNALED(status) ? "the worker ended by " + howEnded(status) : "the worker failed");
	const auto remains = []
	{
		while (::waitpid(-1, nullptr, WNOHANG) > 0)
		{
		}
		return descendants();
	};
	endAll(remains, kRemainsPatience);
	aftermath();
	return EX_SOFTWARE;
}

} // namespace

int runAddress(const Settings& settings)
{
	beInTime();
	std::vector<std::string> services;
	for (const ServiceSettings& service : settings.services)
	{
		services.push_back(service.program);
	}
	const auto work = [&] { return holdAddress(settings.address, services); };
	const auto aftermath = [&] { removeAddress(settings.address); };
	return reported(kAddressProgram, [&] { return beGuard(kAddressProgram, work, aftermath); });
}

int runService(const AddressSettings& address, const ServiceSettings& service)
{
	const auto work = [&] { return ServiceSupervisor(address, service).run(); };
	// A unit is nobody's child here.
	const auto aftermath = [&] { endRemains(service); };
	return reported(service.program, [&] { return beGuard(service.program, work, aftermath); });
}

int runReach(const Settings& settings)
{
	beInTime();
	const auto work = [&] { return watchTargets(settings); };
	// The next one goes on with the address, or it goes by itself.
	return reported(kReachProgram, [&] { return beGuard(kReachProgram, work, [] {}); });
}

bool addressIsHidden()
{
	std::string name;
	std::ifstream("/proc/" + std::to_string(::getppid()) + "/comm") >> name;
	return name != kAddressProgram;
}

void hideAddressProgram()
{
	LivingProcess(kAddressProgram, Part::guard).signal(kHide);
}

} // namespace velarix::keeper
