#include "ctl/status/KeeperState.h"

#include <algorithm>
#include <cstdlib>

#include "ctl/Keeper.h"
#include "inspect/Host.h"
#include "inspect/HostProcesses.h"
#include "inspect/SettingsKeys.h"
#include "keeper/Settings.h"

namespace velarix::ctl
{

namespace
{

/// What the process that writes a state is called; the one that has the program's name only
/// guards it.
constexpr std::string_view kWorker = "keeper";

using Time = std::chrono::system_clock::time_point;

std::optional<Time> timeOf(const std::string& seconds)
{
	const long long number = std::strtoll(seconds.c_str(), nullptr, 10);
	return number > 0 ? std::optional(Time(std::chrono::seconds(number))) : std::nullopt;
}

KeeperProgram programOf(const std::string& name, const Paths& paths)
{
	const keeper::Fields fields = keeper::readState(name, paths.keeperStates.string());
	const auto field = [&](const char* key) { return keeper::valueOf(fields, key); };
	KeeperProgram program;
	program.name = name;
	const std::optional<host::Process> process = host::process(std::atoi(field("pid").c_str()));
	program.runs = process && process->name == kWorker && process->state != 'Z';
	program.state = field("state");
	if (!program.runs)
	{
		program.state = program.state == "failed" ? "failed" : "stopped";
		program.reason = field("reason");
		return program;
	}
	// In maintenance on purpose; else it neither watches nor ends its service.
	program.state = process->state == 'T' ? "frozen" : program.state;
	program.since = timeOf(field("since"));
	program.holder = field("holder");
	program.conflicts = std::atoi(field("conflicts").c_str());
	program.lastConflict = timeOf(field("last_conflict"));
	program.restarts = std::atoi(field("restarts").c_str());
	program.check = field("check");
	program.reason = field("reason");
	return program;
}

KeeperReach reachOf(const Paths& paths)
{
	KeeperReach reach{programOf(keeper::kReachProgram, paths), {}, {}};
	if (reach.program.runs)
	{
		const keeper::Fields fields = keeper::readState(keeper::kReachProgram, paths.keeperStates.string());
		reach.partner = keeper::valueOf(fields, "partner");
		reach.targets = keeper::targetsOf(fields);
	}
	return reach;
}

} // namespace

std::string KeeperReach::lost() const
{
	std::string all;
	for (const keeper::TargetState& target : targets)
	{
		all += target.state == "lost" ? (all.empty() ? "" : ", ") + target.address : "";
	}
	return all;
}

std::optional<KeeperState> lookForKeeper(const SettingsFile& settings, const Paths& paths)
{
	if (!usesKeeper(settings))
	{
		return std::nullopt;
	}
	KeeperState state;
	state.address = programOf(keeper::kAddressProgram, paths);
	for (const std::string& path : settings.programs())
	{
		if (isKeepers(path) && programName(path) != keeper::kAddressProgram)
		{
			state.services.push_back(programOf(programName(path), paths));
		}
	}
	if (keeper::readSettings(paths.keeperSettings.c_str()).settings.reach.line != 0)
	{
		state.reach = reachOf(paths);
	}
	state.marked = host::hasMarker(settings.text(key::kVirtualIP).value_or(""));
	return state;
}

std::string addressSentence(const KeeperProgram& address)
{
	if (address.waits())
	{
		return (address.state == "yielded" ? "gave the address up to " : "waits for the address, held by ") +
		       address.holder;
	}
	if (address.state == "rechecking")
	{
		return "holds the address, asks whether another host holds it as well";
	}
	if (address.state == "holding" || address.state == "announcing")
	{
		return "holds the address";
	}
	return address.state == "stopped" ? "does not hold the address" : "does not hold the address: " + address.state;
}

} // namespace velarix::ctl
