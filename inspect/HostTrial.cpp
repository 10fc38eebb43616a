#include "inspect/HostTrial.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <set>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <linux/capability.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "inspect/Descriptor.h"
#include "inspect/Names.h"
#include "inspect/TrialRun.h"

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

void writeAll(int descriptor, std::string_view text)
{
	while (!text.empty())
	{
		const ssize_t written = ::write(descriptor, text.data(), text.size());
		if (written < 0 && errno != EINTR)
		{
			return;
		}
		text.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
	}
}

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

/// Pairs joined by a wire, so that each has carrier.
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
			const std::string peer = "peer" + std::to_string(made.size());
			quietly("ip link add " + address.interface + " type veth peer name " + peer + " && ip link set " +
			        address.interface + " up && ip link set " + peer + " up");
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
	std::array<int, 2> ends{};
	if (path.empty() || !replaceFile("/bin/sleep", path) || ::pipe2(ends.data(), O_CLOEXEC) != 0)
	{
		return 0;
	}
	const Descriptor started(ends[0]);
	Descriptor programs(ends[1]);
	const pid_t program = ::fork();
	if (program == 0)
	{
		::execl(path.c_str(), path.c_str(), "100000", nullptr);
		writeAll(programs.get(), "!");
		::_exit(127);
	}
	programs.close();
	char failed = 0;
	if (::read(started.get(), &failed, 1) == 1)
	{
		::waitpid(program, nullptr, 0);
		return 0;
	}
	return program;
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
	CommandRun run = runInTrial(plan, plan.kill, done, program);
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
	trial.start = runInTrial(plan, plan.start, [&] { return isHeld(plan.virtualIP); });
	if (trial.start.end != RunEnd::ended)
	{
		::kill(-1, SIGKILL);
	}
	trial.stop = runInTrial(plan, plan.stop, [&] { return !isHeld(plan.virtualIP); });
	::kill(-1, SIGKILL);
	trial.kill = plan.kill.empty() ? CommandRun{} : tryKill(plan, trial.start.addresses);
	return trial;
}

/// ---- its processes ---------------------------------------------------------------------------

/// Becomes the first process of the trial's process namespace, with whose end
/// everything ends that the commands have left behind.
[[noreturn]] void trialProcess(const TrialPlan& plan, int report)
{
	::prctl(PR_SET_PDEATHSIG, SIGKILL);
	writeAll(report, Json(perform(plan)).dump(-1, ' ', false, Json::error_handler_t::replace));
	::_exit(0);
}

[[noreturn]] void enterNamespaces(const TrialPlan& plan, int report)
{
	::prctl(PR_SET_PDEATHSIG, SIGKILL);
	Trial trial;
	if (::unshare(CLONE_NEWNET | CLONE_NEWPID | CLONE_NEWNS | CLONE_NEWIPC | CLONE_NEWUTS) != 0)
	{
		trial.whyNot = lastError("no namespaces of its own");
		writeAll(report, Json(trial).dump());
		::_exit(0);
	}
	const pid_t first = ::fork();
	if (first == 0)
	{
		trialProcess(plan, report);
	}
	::waitpid(first, nullptr, 0);
	::_exit(0);
}

/// @return all that is written there until it is closed, or until the time is over
std::string readReport(int descriptor, milliseconds limit)
{
	std::string text;
	const Clock::time_point deadline = Clock::now() + limit;
	for (milliseconds left = limit; left.count() > 0;
	     left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()))
	{
		pollfd wanted{descriptor, POLLIN, 0};
		std::array<char, 4096> piece{};
		const int ready = ::poll(&wanted, 1, static_cast<int>(left.count()));
		const ssize_t got = ready > 0 ? ::read(descriptor, piece.data(), piece.size()) : -1;
		if (got == 0)
		{
			break;
		}
		text.append(piece.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
	}
	return text;
}

} // namespace

Trial tryCommands(const TrialPlan& plan)
{
	Trial failed;
	std::array<int, 2> ends{};
	if (::pipe2(ends.data(), O_CLOEXEC) != 0)
	{
		failed.whyNot = lastError("no pipe");
		return failed;
	}
	const Descriptor report(ends[0]);
	Descriptor trialsReport(ends[1]);
	const pid_t child = ::fork();
	if (child == 0)
	{
		enterNamespaces(plan, trialsReport.get());
	}
	trialsReport.close();
	failed.whyNot = "no process for it";
	if (child < 0)
	{
		return failed;
	}
	const std::string text = readReport(report.get(), 3 * plan.patience + kOverhead);
	// A process that hangs in the kernel is not waited for.
	::kill(child, SIGKILL);
	::waitpid(child, nullptr, 0);
	const Json record = Json::parse(text, nullptr, false);
	failed.whyNot = "it did not come to its end";
	return record.is_discarded() ? failed : record.get<Trial>();
}

} // namespace velarix::inspect::host
