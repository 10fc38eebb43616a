#include "inspect/TrialRun.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <fstream>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "inspect/Descriptor.h"
#include "inspect/HostProcesses.h"

namespace velarix::inspect::host
{

namespace
{

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// Kept of what a command prints.
constexpr std::size_t kKept = 4096;
/// More than this is printed by nothing that ends.
constexpr std::size_t kFlood = 1024UL * 1024;
/// Time for what a command left to the background: raise the address, end the program.
constexpr milliseconds kAfterwards{3000};
/// Between two looks at a command.
constexpr int kTurn = 20;

/// @return whether it came true in time
bool await(const std::function<bool()>& condition, milliseconds limit)
{
	const Clock::time_point deadline = Clock::now() + limit;
	while (!condition())
	{
		if (Clock::now() >= deadline)
		{
			return false;
		}
		::poll(nullptr, 0, kTurn);
	}
	return true;
}

[[noreturn]] void becomeShell(const std::string& command, int output, int errors)
{
	::setsid();
	const Descriptor nothing(::open("/dev/null", O_RDONLY | O_CLOEXEC));
	::dup2(nothing.get(), STDIN_FILENO);
	::dup2(output, STDOUT_FILENO);
	::dup2(errors, STDERR_FILENO);
	::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
	::_exit(127);
}

/// @return the command line of the youngest process but `except`, which goes on
///         behind what has started it
std::string remainingProcess(pid_t except)
{
	std::string line;
	for (const Process& process : processes().value_or(std::vector<Process>{}))
	{
		if (process.pid != ::getpid() && process.pid != except && process.state != 'Z')
		{
			std::ifstream file("/proc/" + std::to_string(process.pid) + "/cmdline");
			std::getline(file, line);
			std::ranges::replace(line, '\0', ' ');
		}
	}
	line.resize(std::min(line.find_last_not_of(' ') + 1, std::size_t{200}));
	return line;
}

class Runner
{
public:
	Runner(const TrialPlan& plan, pid_t program) : m_plan(plan), m_program(program) {}

	/// @param done whether the command has done its work
	CommandRun run(const std::string& command, const std::function<bool()>& done)
	{
		std::array<int, 2> ends{};
		const Descriptor errors(::open("/run", O_TMPFILE | O_RDWR | O_APPEND | O_CLOEXEC, 0600));
		if (command.empty() || !errors || ::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
		{
			return {};
		}
		const Descriptor output(ends[0]);
		Descriptor shellsOutput(ends[1]);
		::fcntl(shellsOutput.get(), F_SETFL, 0);
		m_shell = ::fork();
		if (m_shell == 0)
		{
			becomeShell(command, shellsOutput.get(), errors.get());
		}
		shellsOutput.close();
		watch(output.get(), done);
		await(done, kAfterwards);
		m_run.errors.resize(kKept);
		m_run.errors.resize(
		    static_cast<std::size_t>(std::max<ssize_t>(::pread(errors.get(), m_run.errors.data(), kKept, 0), 0)));
		m_run.addresses = addresses();
		return m_run;
	}

private:
	/// As the agent does: until the shell has ended and all have closed the output.
	void watch(int output, const std::function<bool()>& done)
	{
		const Clock::time_point began = Clock::now();
		Clock::time_point ended{};
		bool held = false;
		for (bool closed = false; !closed || !m_run.shellEnded;)
		{
			// A command may close its output and go on.
			closed = closed ? ::poll(nullptr, 0, kTurn) == 0 : readPiece(output);
			if (!m_run.shellEnded && ::waitpid(m_shell, nullptr, WNOHANG) == m_shell)
			{
				m_run.shellEnded = true;
				// What the shell alone held is closed by now, however late this process looks.
				closed = closed || readPiece(output);
				held = !closed;
				ended = Clock::now();
			}
			if (const RunEnd end = givenUp(Clock::now() - began, done); end != RunEnd::notRun)
			{
				m_run.end = end;
				m_run.remaining = remainingProcess(m_program);
				return;
			}
		}
		m_run.end = RunEnd::ended;
		m_run.heldMilliseconds = held ? std::chrono::duration_cast<milliseconds>(Clock::now() - ended).count() : 0;
	}

	/// Why nobody waits any longer; `notRun` for going on.
	RunEnd givenUp(Clock::duration time, const std::function<bool()>& done) const
	{
		if (m_read > kFlood)
		{
			return RunEnd::flood;
		}
		if (time > m_plan.patience || (time > m_plan.limit && m_run.shellEnded))
		{
			return m_run.shellEnded || done() ? RunEnd::endless : RunEnd::slow;
		}
		return time > m_plan.limit && !done() ? RunEnd::slow : RunEnd::notRun;
	}

	/// @return whether the output is closed
	bool readPiece(int output)
	{
		pollfd wanted{output, POLLIN, 0};
		::poll(&wanted, 1, kTurn);
		std::array<char, 4096> piece{};
		const ssize_t got = ::read(output, piece.data(), piece.size());
		if (got > 0)
		{
			m_read += static_cast<std::size_t>(got);
			m_run.output.append(piece.data(), std::min(static_cast<std::size_t>(got), kKept - m_run.output.size()));
		}
		return got == 0;
	}

	const TrialPlan& m_plan;
	const pid_t m_program;
	pid_t m_shell = -1;
	std::size_t m_read = 0;
	CommandRun m_run;
};

} // namespace

CommandRun runInTrial(const TrialPlan& plan, const std::string& command, const std::function<bool()>& done,
                      pid_t program)
{
	return Runner(plan, program).run(command, done);
}

} // namespace velarix::inspect::host
