#include "inspect/HostTrial.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "inspect/Descriptor.h"
#include "inspect/Names.h"

namespace velarix::inspect::host
{

namespace
{

using Clock = std::chrono::steady_clock;
using Json = nlohmann::json;

constexpr std::size_t kOutputLength = 4096;

std::string lastError(const char* what)
{
	return std::string(what) + ": " + std::generic_category().message(errno);
}

/// ---- what goes from the trial's process to the caller --------------------------

Json toJson(const CommandRun& run)
{
	Json addresses = Json::array();
	for (const Address& address : run.addresses)
	{
		addresses.push_back({address.card, address.label, address.address, address.prefix, address.listed});
	}
	return {{"output", run.output}, {"ended", run.ended}, {"addresses", addresses}};
}

CommandRun fromJson(const Json& json)
{
	CommandRun run;
	run.output = json.at("output");
	run.ended = json.at("ended");
	for (const Json& address : json.at("addresses"))
	{
		run.addresses.push_back({address.at(0), address.at(1), address.at(2), address.at(3), address.at(4)});
	}
	return run;
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

/// ---- the trial's own process ------------------------------------------------------

[[noreturn]] void becomeShell(const std::string& command, int output)
{
	const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
	::dup2(nothing, STDIN_FILENO);
	::dup2(output, STDOUT_FILENO);
	::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
	::_exit(127);
}

/// Reads until all writers have closed, as the agent does.
/// @return false when the time was over first
bool readToEnd(int descriptor, std::string& text, std::chrono::milliseconds limit)
{
	const Clock::time_point deadline = Clock::now() + limit;
	for (;;)
	{
		const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
		pollfd wanted{descriptor, POLLIN, 0};
		const int ready = ::poll(&wanted, 1, static_cast<int>(std::max<long long>(left, 0)));
		if (ready == 0)
		{
			return false;
		}
		std::array<char, 512> piece{};
		const ssize_t got = ready > 0 ? ::read(descriptor, piece.data(), piece.size()) : -1;
		if (got == 0)
		{
			return true;
		}
		if (got > 0 && text.size() < kOutputLength)
		{
			text.append(piece.data(), static_cast<std::size_t>(got));
		}
	}
}

CommandRun runCommand(const std::string& command, std::chrono::milliseconds limit)
{
	CommandRun run;
	std::array<int, 2> ends{};
	if (::pipe2(ends.data(), O_CLOEXEC) != 0)
	{
		return run;
	}
	const Descriptor output(ends[0]);
	Descriptor shellsOutput(ends[1]);
	if (const pid_t shell = ::fork(); shell == 0)
	{
		becomeShell(command, shellsOutput.get());
	}
	shellsOutput.close();
	run.ended = readToEnd(output.get(), run.output, limit);
	run.addresses = addresses();
	return run;
}

/// Two cards joined by a wire, so that both have carrier.
bool makeCards(const std::vector<Address>& wanted)
{
	std::string commands =
	    "ip link set lo up && ip link add eth0 type veth peer name eth1 && ip link set eth0 up && ip "
	    "link set eth1 up";
	for (const Address& address : wanted)
	{
		if (address.card == kServiceCard || address.card == kCommunicationCard)
		{
			commands +=
			    " && ip addr add " + address.address + "/" + std::to_string(address.prefix) + " dev " + address.card;
		}
	}
	return std::system(("(" + commands + ") >/dev/null 2>&1").c_str()) == 0;
}

/// @return the trial's report, or why there is none
Json perform(const TrialPlan& plan)
{
	if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
	    ::mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0)
	{
		return {{"why", lastError("no mounts of its own")}};
	}
	if (!makeCards(plan.addresses))
	{
		return {{"why", "no cards for it (ip link add type veth)"}};
	}
	const CommandRun start = runCommand(plan.start, plan.limit);
	const CommandRun stop = start.ended ? runCommand(plan.stop, plan.limit) : CommandRun{};
	return {{"why", ""}, {"start", toJson(start)}, {"stop", toJson(stop)}};
}

/// Becomes the first process of the trial's process namespace, with whose end
/// everything ends that the commands have left behind.
[[noreturn]] void trialProcess(const TrialPlan& plan, int report)
{
	::prctl(PR_SET_PDEATHSIG, SIGKILL);
	writeAll(report, perform(plan).dump(-1, ' ', false, Json::error_handler_t::replace));
	::_exit(0);
}

[[noreturn]] void enterNamespaces(const TrialPlan& plan, int report)
{
	if (::unshare(CLONE_NEWNET | CLONE_NEWPID | CLONE_NEWNS) != 0)
	{
		writeAll(report, Json{{"why", lastError("no namespaces of its own")}}.dump());
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

} // namespace

Trial tryCommands(const TrialPlan& plan)
{
	std::array<int, 2> ends{};
	if (::pipe2(ends.data(), O_CLOEXEC) != 0)
	{
		return {.whyNot = lastError("no pipe"), .start = {}, .stop = {}};
	}
	const Descriptor report(ends[0]);
	Descriptor trialsReport(ends[1]);
	const pid_t child = ::fork();
	if (child == 0)
	{
		enterNamespaces(plan, trialsReport.get());
	}
	trialsReport.close();
	std::string text;
	std::array<char, 512> piece{};
	for (ssize_t got = 1; child > 0 && got != 0;)
	{
		got = ::read(report.get(), piece.data(), piece.size());
		text.append(piece.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
	}
	::waitpid(child, nullptr, 0);
	const Json told = Json::parse(text, nullptr, false);
	if (told.is_discarded() || !told.value("why", "?").empty())
	{
		return {.whyNot = told.is_discarded() ? "no process for it" : told.value("why", "?"), .start = {}, .stop = {}};
	}
	return {.whyNot = {}, .start = fromJson(told.at("start")), .stop = fromJson(told.at("stop"))};
}

} // namespace velarix::inspect::host
