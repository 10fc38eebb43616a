#include "inspect/HostTrial.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <set>
#include <system_error>

#include <fcntl.h>
#include <linux/capability.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sched.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "inspect/Descriptor.h"
#include "inspect/HostProcesses.h"
#include "inspect/Names.h"
#include "inspect/TrialRoot.h"

namespace velarix::inspect::host
{

// The trial's process reports to the caller in JSON.
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Address, interface, label, address, prefix, listed)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CommandRun, end, output, errors, shellEnded, heldMilliseconds, remaining, addresses,
                                   programStarted, programEnded)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Trial, whyNot, start, stop, kill)

namespace
{

using Clock = std::chrono::steady_clock;
using Json = nlohmann::json;
using std::chrono::milliseconds;

/// For what the commands leave to the background, and to set all up.
constexpr milliseconds kOverhead{40000};

std::string lastError(const char* what)
{
	return std::string(what) + ": " + std::generic_category().message(errno);
}

/// ---- one command ---------------------------------------------------------------------------

/// Kept of what a command prints.
constexpr std::size_t kKept = 4096;
/// More than this is printed by nothing that ends.
constexpr std::size_t kFlood = 1024UL * 1024;
/// Time for what a command left to the background: raise the address, end the program.
constexpr milliseconds kAfterwards{3000};
/// Between two looks at a command.
constexpr int kTurn = 20;

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
	/// @param program a process that is no part of the command; 0 for none
	explicit Runner(const TrialPlan& plan, pid_t program = 0) : m_plan(plan), m_program(program) {}

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
		for (const Clock::time_point end = Clock::now() + kAfterwards; !done() && Clock::now() < end;)
		{
			::poll(nullptr, 0, kTurn);
		}
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

/// ---- the whole, in the trial's own process -----------------------------------------------

bool isHeld(const std::string& address)
{
	const std::vector<Address> all = addresses();
	return std::ranges::find(all, address, &Address::address) != all.end();
}

bool quietly(const std::string& command)
{
	return std::system(("(" + command + ") >/dev/null 2>&1").c_str()) == 0;
}

void addAddress(const Address& address)
{
	const std::string label = address.label == address.interface ? "" : " label " + address.label;
	quietly("ip addr add " + address.address + "/" + std::to_string(address.prefix) + " dev " + address.interface +
	        label);
}

/// Joined to its peer, so that both have carrier.
void addInterface(const std::string& name, const std::string& peer)
{
	quietly("ip link add " + name + " type veth peer name " + peer + " && ip link set " + name + " up && ip link set " +
	        peer + " up");
}

bool makeInterfaces(const std::vector<Address>& wanted)
{
	if (!quietly("ip link set lo up && ip link add eth0 type veth peer name eth1 && ip link set eth0 up && ip link "
	             "set eth1 up"))
	{
		return false;
	}
	std::set<std::string> made{"lo", kServiceInterface, kCommunicationInterface};
	for (const Address& address : wanted)
	{
		if (made.insert(address.interface).second)
		{
			addInterface(address.interface, "peer" + std::to_string(made.size()));
		}
		addAddress(address);
	}
	return true;
}

/// What no rehearsal may do, root or not: to the clock, to the kernel's modules, to
/// the host's power and devices.
void dropCapabilities()
{
	for (const int capability : {CAP_SYS_BOOT, CAP_SYS_MODULE, CAP_SYS_TIME, CAP_SYS_RAWIO, CAP_MKNOD})
	{
		::prctl(PR_CAPBSET_DROP, capability, 0, 0, 0);
	}
}

/// Starts a program that waits, under the path of the configured one, so that it is
/// found by each of its names: the short one, the command line and the file.
/// @return its process; 0 without one
pid_t startProgram(const std::string& path)
{
	if (path.empty() || !replaceFile("/bin/sleep", path))
	{
		return 0;
	}
	pid_t program = 0;
	std::array<std::string, 2> words{path, "100000"};
	const std::array<char*, 3> arguments{words[0].data(), words[1].data(), nullptr};
	const int error = ::posix_spawn(&program, path.c_str(), nullptr, nullptr, arguments.data(), environ);
	return error == 0 ? program : 0;
}

CommandRun tryKill(const TrialPlan& plan, const std::vector<Address>& raised)
{
	for (const Address& address : raised)
	{
		if (!isHeld(address.address))
		{
			addAddress(address);
		}
	}
	const pid_t program = startProgram(plan.program);
	bool ended = program == 0;
	const auto done = [&]
	{
		ended = ended || ::waitpid(program, nullptr, WNOHANG) == program;
		return ended;
	};
	CommandRun run = Runner(plan, program).run(plan.kill, done);
	run.programStarted = program != 0;
	run.programEnded = program != 0 && done();
	return run;
}

Trial perform(const TrialPlan& plan)
{
	Trial trial;
	trial.whyNot = enterTrialRoot();
	if (!trial.whyNot.empty())
	{
		return trial;
	}
	dropCapabilities();
	if (!makeInterfaces(plan.addresses))
	{
		trial.whyNot = "no interfaces for it (ip link add type veth)";
		return trial;
	}
	for (const std::string& stub : plan.stubs)
	{
		replaceFile("/bin/true", stub);
	}
	trial.start = Runner(plan).run(plan.start, [&] { return isHeld(plan.virtualIP); });
	if (trial.start.end != RunEnd::ended)
	{
		::kill(-1, SIGKILL);
	}
	trial.stop = Runner(plan).run(plan.stop, [&] { return !isHeld(plan.virtualIP); });
	::kill(-1, SIGKILL);
	trial.kill = plan.kill.empty() ? CommandRun{} : tryKill(plan, trial.start.addresses);
	return trial;
}

/// ---- its processes ---------------------------------------------------------------------------

/// In a process of its own, whose child is the first of the trial's process namespace: with its
/// end everything ends that the commands have left behind.
/// @param report gets the trial
[[noreturn]] void enterNamespaces(const TrialPlan& plan, int report)
{
	const auto write = [&](const Trial& trial)
	{
		const std::string text = Json(trial).dump(-1, ' ', false, Json::error_handler_t::replace);
		[[maybe_unused]] const ssize_t written = ::write(report, text.data(), text.size());
		::_exit(0);
	};
	::prctl(PR_SET_PDEATHSIG, SIGKILL);
	if (::unshare(CLONE_NEWNET | CLONE_NEWPID | CLONE_NEWNS | CLONE_NEWIPC | CLONE_NEWUTS) != 0)
	{
		write({lastError("no namespaces of its own"), {}, {}, {}});
	}
	const pid_t first = ::fork();
	if (first == 0)
	{
		::prctl(PR_SET_PDEATHSIG, SIGKILL);
		write(perform(plan));
	}
	::waitpid(first, nullptr, 0);
	::_exit(0);
}

} // namespace

Trial tryCommands(const TrialPlan& plan)
{
	Trial failed;
	const Descriptor report(::memfd_create("trial", MFD_CLOEXEC));
	if (!report)
	{
		failed.whyNot = lastError("no file for its report");
		return failed;
	}
	const pid_t child = ::fork();
	if (child == 0)
	{
		enterNamespaces(plan, report.get());
	}
	failed.whyNot = "no process for it";
	if (child < 0)
	{
		return failed;
	}
	const Descriptor end(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
	pollfd wanted{end.get(), POLLIN, 0};
	::poll(&wanted, 1, static_cast<int>((3 * plan.patience + kOverhead).count()));
	// A process that hangs in the kernel is not waited for.
	::kill(child, SIGKILL);
	::waitpid(child, nullptr, 0);
	std::ifstream file("/proc/self/fd/" + std::to_string(report.get()));
	const Json record = Json::parse(file, nullptr, false);
	failed.whyNot = "it did not come to its end";
	return record.is_discarded() ? failed : record.get<Trial>();
}

} // namespace velarix::inspect::host
