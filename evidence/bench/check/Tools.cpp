#include "Tools.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

int require(int result, const char* what)
{
	if (result == -1)
	{
		throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
	}
	return result;
}

int openNamespace(const std::string& process, const char* name)
{
	return require(::open(("/proc/" + process + "/ns/" + name).c_str(), O_RDONLY | O_CLOEXEC), name);
}

std::vector<char*> argumentsOf(const std::vector<std::string>& words)
{
	std::vector<char*> arguments;
	arguments.reserve(words.size() + 1);
	for (const std::string& word : words)
	{
		arguments.push_back(const_cast<char*>(word.c_str()));
	}
	arguments.push_back(nullptr);
	return arguments;
}

/// Process 1 of the empty place: tells that /proc is there, and sleeps.
[[noreturn]] void liveAlone(int ready)
{
	::prctl(PR_SET_PDEATHSIG, SIGKILL);
	const bool good = ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
	                  ::mount("proc", "/proc", "proc", 0, nullptr) == 0;
	if (!good || ::write(ready, "!", 1) != 1)
	{
		::_exit(1);
	}
	for (;;)
	{
		::pause();
	}
}

[[noreturn]] void makeEmptyPlace(int ready)
{
	::prctl(PR_SET_PDEATHSIG, SIGKILL);
	if (::unshare(CLONE_NEWPID | CLONE_NEWNS) == -1)
	{
		::_exit(1);
	}
	const pid_t alone = ::fork();
	if (alone == 0)
	{
		liveAlone(ready);
	}
	::close(ready);
	::waitpid(alone, nullptr, 0);
	::_exit(1);
}

/// Waits for the first byte of a pipe and closes both ends.
void waitUntilReady(const int (&ends)[2], const char* what)
{
	::close(ends[1]);
	char byte = 0;
	const ssize_t size = ::read(ends[0], &byte, 1);
	::close(ends[0]);
	if (size != 1)
	{
		throw std::runtime_error(std::string(what) + " did not come up");
	}
}

} // namespace

Place thisPlace()
{
	return {openNamespace("self", "pid"), openNamespace("self", "mnt")};
}

Place emptyPlace()
{
	int ends[2];
	require(::pipe2(ends, O_CLOEXEC), "pipe");
	const pid_t maker = require(::fork(), "fork");
	if (maker == 0)
	{
		makeEmptyPlace(ends[1]);
	}
	waitUntilReady(ends, "the empty place");
	const std::string process = std::to_string(maker);
	return {openNamespace(process, "pid_for_children"), openNamespace(process, "mnt")};
}

namespace
{

int nowhere()
{
	static const int descriptor = require(::open("/dev/null", O_WRONLY | O_CLOEXEC), "/dev/null");
	return descriptor;
}

bool runInto(int output, const Place& place, const std::vector<std::string>& words)
{
	const std::vector<char*> arguments = argumentsOf(words);
	const int errors = nowhere();
	require(::setns(place.processes, CLONE_NEWPID), "setns");
	// A fork would copy this program's page tables, which is none of the tool's cost.
	// The child has descriptors and mounts of its own; nothing else is touched.
	// NOLINTBEGIN(clang-analyzer-security.insecureAPI.vfork, clang-analyzer-unix.Vfork)
	const pid_t child = require(::vfork(), "vfork");
	if (child == 0)
	{
		if (::setns(place.mounts, CLONE_NEWNS) == 0 && ::dup2(output, STDOUT_FILENO) != -1 &&
		    ::dup2(errors, STDERR_FILENO) != -1)
		{
			::execv(arguments.front(), arguments.data());
		}
		::_exit(127);
	}
	// NOLINTEND(clang-analyzer-security.insecureAPI.vfork, clang-analyzer-unix.Vfork)
	int status = 0;
	require(::waitpid(child, &status, 0), "waitpid");
	if (!WIFEXITED(status) || WEXITSTATUS(status) > 1)
	{
		throw std::runtime_error(words.front() + " ended with status " + std::to_string(status));
	}
	return WEXITSTATUS(status) == 0;
}

} // namespace

bool runTool(const Place& place, const std::vector<std::string>& words)
{
	return runInto(nowhere(), place, words);
}

std::string outputOf(const Place& place, const std::vector<std::string>& words)
{
	int ends[2] = {-1, -1};
	require(::pipe2(ends, O_CLOEXEC), "pipe");
	// Less than what a pipe holds: nobody reads before the program has ended.
	std::string text(4096, '\0');
	runInto(ends[1], place, words);
	::close(ends[1]);
	const ssize_t size = ::read(ends[0], text.data(), text.size());
	::close(ends[0]);
	text.resize(static_cast<std::size_t>(require(static_cast<int>(size), "read")));
	return text;
}

void startCrowd(long number, const std::vector<std::string>& names)
{
	std::vector<std::string> words = {VELARIX_CROWD, std::to_string(number)};
	words.insert(words.end(), names.begin(), names.end());
	const std::vector<char*> arguments = argumentsOf(words);
	int ends[2];
	require(::pipe2(ends, O_CLOEXEC), "pipe");
	if (require(::fork(), "fork") == 0)
	{
		::dup2(ends[1], STDOUT_FILENO);
		::execv(arguments.front(), arguments.data());
		::_exit(127);
	}
	waitUntilReady(ends, "the crowd");
}
