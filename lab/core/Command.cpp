#include "lab/core/Command.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace velarix::lab
{

namespace
{

int exitStatusOf(int waitStatus)
{
	return WIFSIGNALED(waitStatus) ? 128 + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

std::vector<std::string> environmentFor(bool terminal)
{
	std::vector<std::string> environment{"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
	                                     "HOME=/root", "LANG=C.UTF-8"};
	for (const char* name : {"TZ", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"})
	{
		if (const char* value = std::getenv(name))
		{
			environment.push_back(std::string(name) + "=" + value);
		}
	}
	const char* term = terminal ? std::getenv("TERM") : nullptr;
	if (term != nullptr)
	{
		environment.push_back(std::string("TERM=") + term);
	}
	return environment;
}

/// Everything the child needs, made before the fork: afterwards only calls that
/// are safe in a copy of a program with threads.
struct Prepared
{
	explicit Prepared(const SpawnPlan& spawnPlan)
	    : plan(spawnPlan), words(spawnPlan.argv), environment(environmentFor(spawnPlan.terminal)),
	      argv(pointersTo(words)), envp(pointersTo(environment))
	{
	}

	const SpawnPlan& plan;
	pid_t parent = ::getpid();
	std::vector<std::string> words;
	std::vector<std::string> environment;
	std::vector<char*> argv;
	std::vector<char*> envp;
};

void placeStreams(const SpawnPlan& plan)
{
	const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
	// Sources first moved out of the way, so that none is overwritten.
	int sources[3] = {plan.input, plan.output, plan.error};
	for (int& source : sources)
	{
		source = ::fcntl(source >= 0 ? source : null, F_DUPFD_CLOEXEC, 10);
	}
	for (int stream = 0; stream < 3; ++stream)
	{
		::dup2(sources[stream], stream);
	}
}

/// @param parent  as getppid tells it; one that ended before the call of prctl would send no signal any more
[[noreturn]] void becomeProgram(const Prepared& prepared, pid_t parent)
{
	if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != parent)
	{
		_exit(126);
	}
	if (!prepared.plan.terminal)
	{
		::setsid();
	}
	placeStreams(prepared.plan);
	::syscall(SYS_close_range, 3U, ~0U, CLOSE_RANGE_CLOEXEC);
	for (int number = 1; number < NSIG; ++number)
	{
		::signal(number, SIG_DFL);
	}
	sigset_t none;
	sigemptyset(&none);
	::sigprocmask(SIG_SETMASK, &none, nullptr);
	::execvpe(prepared.argv[0], prepared.argv.data(), prepared.envp.data());
	_exit(127);
}

[[noreturn]] void enterAndBecome(const Prepared& prepared)
{
	const Inside& inside = prepared.plan.inside;
	if (inside.pidFd >= 0 && ::setns(inside.pidFd, inside.namespaces) != 0)
	{
		_exit(126);
	}
	if ((inside.namespaces & CLONE_NEWPID) == 0)
	{
		becomeProgram(prepared, prepared.parent);
	}
	// A process namespace is entered by the children only, so one more is made
	// and this one waits for it. It holds no other descriptor meanwhile.
	const pid_t inner = ::fork();
	if (inner == 0)
	{
		becomeProgram(prepared, 0); // the parent is outside of the namespace
	}
	::syscall(SYS_close_range, 0U, ~0U, 0U);
	if (prepared.plan.terminal)
	{
		// The keyboard's signals are for the program, not for the one waiting.
		::signal(SIGINT, SIG_IGN);
		::signal(SIGQUIT, SIG_IGN);
	}
	int status = 0;
	while (inner > 0 && ::waitpid(inner, &status, 0) < 0 && errno == EINTR)
	{
	}
	_exit(inner > 0 ? exitStatusOf(status) : 126);
}

} // namespace

std::vector<char*> pointersTo(std::vector<std::string>& words)
{
	std::vector<char*> pointers;
	std::ranges::transform(words, std::back_inserter(pointers), [](std::string& word) { return word.data(); });
	pointers.push_back(nullptr);
	return pointers;
}

pid_t spawn(const SpawnPlan& plan)
{
	const Prepared prepared(plan);
	const pid_t child = ::fork();
	if (child == 0)
	{
		enterAndBecome(prepared);
	}
	if (child < 0)
	{
		throwErrno("cannot make a process for " + plan.argv.front());
	}
	return child;
}

std::optional<int> waitForChild(pid_t child, Millis limit)
{
	const Descriptor pidFd(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
	pollfd watched{pidFd.get(), POLLIN, 0};
	const LabClock clock;
	Millis left = limit;
	while (pidFd && left > Millis(0) && ::poll(&watched, 1, static_cast<int>(left.count())) < 0 && errno == EINTR)
	{
		left = limit - clock.now();
	}
	int status = 0;
	return ::waitpid(child, &status, WNOHANG) == child ? std::optional<int>(exitStatusOf(status)) : std::nullopt;
}

CommandResult run(const Command& command)
{
	const Descriptor input = fileInMemory(command.input);
	const Descriptor output = fileInMemory();
	const pid_t child = spawn({command.argv, command.inside, input.get(), output.get(), output.get()});
	CommandResult result;
	std::optional<int> status = waitForChild(child, command.limit);
	if (!status)
	{
		result.timedOut = true;
		::kill(child, SIGKILL);
		status = waitForChild(child, Millis(10000));
	}
	result.status = status.value_or(-1);
	result.output = contentOf(output);
	return result;
}

std::string runOrThrow(const Command& command)
{
	const CommandResult result = run(command);
	if (!result.ok())
	{
		std::string text;
		std::ranges::for_each(command.argv, [&](const std::string& word) { text += word + " "; });
		text += result.timedOut ? "did not end in time" : "ended with status " + std::to_string(result.status);
		throw LabError(text + ": " + result.output);
	}
	return result.output;
}

} // namespace velarix::lab
