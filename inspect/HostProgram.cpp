#include "inspect/HostProgram.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "inspect/Descriptor.h"

namespace velarix::inspect::host
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostOutput = 16UL * 1024UL * 1024UL;
constexpr std::size_t kMostErrors = 4096;
constexpr int kSignalled = 128;

/// The process group that is running; for the signal handler.
pid_t runningGroup = 0;

void endBoth(int number)
{
	if (runningGroup > 0)
	{
		::kill(-runningGroup, SIGKILL);
	}
	::_exit(kSignalled + number);
}

/// Keeps what comes through a pipe.
class Catcher
{
public:
	Catcher(std::string& text, std::size_t most) : m_text(text), m_most(most)
	{
		std::array<int, 2> ends{-1, -1};
		if (::pipe2(ends.data(), O_CLOEXEC) == 0)
		{
			m_read.reset(ends[0]);
			m_write.reset(ends[1]);
			::fcntl(ends[0], F_SETFL, O_NONBLOCK);
		}
	}

	int descriptor() const { return m_read.get(); }
	int childsEnd() const { return m_write.get(); }
	void started() { m_write.close(); }

	/// Takes as much as a pipe holds; what is too much is thrown away, so that the program goes on.
	void take()
	{
		std::array<char, 65536> bytes{};
		const ssize_t size = ::read(m_read.get(), bytes.data(), bytes.size());
		if (size == 0)
		{
			m_read.close();
		}
		const std::size_t room = m_most - std::min(m_most, m_text.size());
		m_text.append(bytes.data(), size > 0 ? std::min(static_cast<std::size_t>(size), room) : 0);
	}

private:
	std::string& m_text;
	std::size_t m_most;
	Descriptor m_read;
	Descriptor m_write;
};

/// A file that no file system has: whoever does not read it holds nobody up.
Descriptor inputFile(std::string_view text)
{
	Descriptor file(::memfd_create("input", MFD_CLOEXEC));
	if (file && ::write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
	{
		return Descriptor();
	}
	::lseek(file.get(), 0, SEEK_SET);
	return file;
}

std::vector<char*> pointers(std::vector<std::string>& words)
{
	std::vector<char*> result;
	std::ranges::transform(words, std::back_inserter(result), [](std::string& word) { return word.data(); });
	result.push_back(nullptr);
	return result;
}

std::vector<std::string> environmentWith(const std::vector<std::string>& more)
{
	std::vector<std::string> all = more;
	for (char** own = environ; *own != nullptr; ++own)
	{
		const std::string_view name = std::string_view(*own).substr(0, std::string_view(*own).find('=') + 1);
		if (std::ranges::none_of(more, [&](const std::string& one) { return one.starts_with(name); }))
		{
			all.emplace_back(*own);
		}
	}
	return all;
}

/// @return 0, or why there is no process
int start(const ProgramCall& call, int input, int output, int errors, pid_t& child)
{
	posix_spawn_file_actions_t files{};
	posix_spawnattr_t attributes{};
	sigset_t none;
	sigset_t all;
	::sigemptyset(&none);
	::sigfillset(&all);
	::posix_spawn_file_actions_init(&files);
	::posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
	::posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
	::posix_spawn_file_actions_adddup2(&files, errors, STDERR_FILENO);
	::posix_spawnattr_init(&attributes);
	::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
	::posix_spawnattr_setsigmask(&attributes, &none);
	::posix_spawnattr_setsigdefault(&attributes, &all);
	std::vector<std::string> arguments = call.arguments;
	std::vector<std::string> environment = environmentWith(call.environment);
	const int error = ::posix_spawnp(&child, arguments.front().c_str(), &files, &attributes, pointers(arguments).data(),
	                                 pointers(environment).data());
	::posix_spawn_file_actions_destroy(&files);
	::posix_spawnattr_destroy(&attributes);
	return error;
}

/// @return whether the program ended before the time did
bool follow(pid_t child, std::chrono::milliseconds limit, std::array<Catcher*, 2> catchers)
{
	const Descriptor end(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
	const Clock::time_point until = Clock::now() + limit;
	for (;;)
	{
		std::array<pollfd, 3> wanted{pollfd{end.get(), POLLIN, 0}, pollfd{catchers[0]->descriptor(), POLLIN, 0},
		                             pollfd{catchers[1]->descriptor(), POLLIN, 0}};
		const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
		::poll(wanted.data(), wanted.size(), static_cast<int>(std::max<long>(left, 0)));
		std::ranges::for_each(catchers, &Catcher::take);
		if (wanted[0].revents != 0 || left <= 0)
		{
			return wanted[0].revents != 0;
		}
	}
}

} // namespace

std::string ProgramEnd::reason() const
{
	const std::size_t end = errors.find_last_not_of(" \r\n");
	const std::string_view text = std::string_view(errors).substr(0, end == std::string::npos ? 0 : end + 1);
	const std::size_t feed = text.rfind('\n');
	const std::string last(text.substr(feed == std::string_view::npos ? 0 : feed + 1));
	return (inTime ? "ended with " + std::to_string(status) : "did not end in time") +
	       (last.empty() ? "" : ": " + last);
}

ProgramEnd runProgram(const ProgramCall& call)
{
	ProgramEnd result;
	Catcher output(result.output, kMostOutput);
	Catcher errors(result.errors, kMostErrors);
	const Descriptor input = inputFile(call.input);
	// posix_spawn sets it with all signals blocked, so no signal comes between.
	const int error = input ? start(call, input.get(), call.shown ? STDERR_FILENO : output.childsEnd(),
	                                call.shown ? STDERR_FILENO : errors.childsEnd(), runningGroup)
	                        : errno;
	const pid_t child = runningGroup;
	output.started();
	errors.started();
	if (error != 0)
	{
		result.status = ProgramEnd::kNotStarted;
		result.errors = call.arguments.front() + ": " + std::strerror(error);
		return result;
	}
	result.inTime = follow(child, call.limit, {&output, &errors});
	if (!result.inTime)
	{
		// The leader is not awaited yet, so that the group is still its own.
		::kill(-child, SIGKILL);
	}
	runningGroup = 0;
	int status = 0;
	::waitpid(child, &status, 0);
	result.status = WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
	return result;
}

std::string outputOf(const std::vector<std::string>& arguments, const std::string& input)
{
	const ProgramEnd end = runProgram({.arguments = arguments, .input = input});
	return end.fine() ? end.output : "";
}

void endWithProgram()
{
	std::signal(SIGTERM, endBoth);
}

} // namespace velarix::inspect::host
