// What the kernel and the keeper's programs tell of this node.

#include <cstdlib>

#include "ctl/Keeper.h"
#include "ctl/status/NodeState.h"
#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/HostProcesses.h"
#include "inspect/Names.h"

namespace velarix::ctl
{

namespace
{

constexpr int kPings = 3;

/// @return whether the file of a configured program may be executed. What stands
///         behind the path (arguments) makes it another file, as for the agent
std::optional<bool> executable(const Paths& paths, const std::string& program)
{
	const host::FileFacts facts = host::fileFacts(paths.belowIfAny(program));
	if (facts.kind == host::FileKind::notKnown)
	{
		return std::nullopt;
	}
	return facts.kind == host::FileKind::regular && (facts.mode & 0111U) != 0;
}

Figure<Programs> programsOf(const NodeState& state, const Paths& paths)
{
	const std::optional<std::vector<host::Process>> processes = host::processes();
	if (!processes)
	{
		return notKnown<Programs>("/proc cannot be read");
	}
	Programs programs;
	for (const std::string& path : state.settings->programs())
	{
		ProgramCount program{path, programName(path), 0, executable(paths, path)};
		for (const host::Process& process : *processes)
		{
			program.processes += matches(process.statusLine, {program.name});
		}
		programs.processes += program.processes;
		programs.each.push_back(std::move(program));
	}
	programs.run = programs.processes >= static_cast<int>(programs.each.size());
	return seen(std::move(programs), state.now);
}

Figure<HeldAddress> addressOf(const NodeState& state)
{
	const std::string wanted = state.setting(key::kVirtualIP);
	HeldAddress held;
	for (const host::Address& address : host::addresses())
	{
		if (address.address == wanted)
		{
			held = {address, true};
		}
	}
	return seen(held, state.now);
}

Figure<bool> carrierOf(const NodeState& state, const char* name)
{
	const host::Interface interface = host::interface(name);
	if (!interface.present)
	{
		return notKnown<bool>("there is no interface " + std::string(name));
	}
	return interface.carrier ? seen(*interface.carrier, state.now) : notKnown<bool>("the interface is down");
}

bool answers(const std::string& address)
{
	return host::answersPing(address, kPings).value_or(false);
}

/// @return nothing for a node without a tunnel
std::optional<TunnelState> tunnelOf(const NodeState& state)
{
	TunnelState tunnel;
	try
	{
		const std::optional<TunnelSettings> settings = readTunnel(state.settings->path());
		if (!settings)
		{
			return std::nullopt;
		}
		tunnel.settings = *settings;
	}
	catch (const Failure& failure)
	{
		tunnel.why = failure.what();
		return tunnel;
	}
	tunnel.present = host::interface(kTunnelInterface).present;
	tunnel.session = tunnel.present ? host::tunnelSession() : std::nullopt;
	if (!tunnel.session)
	{
		tunnel.why = tunnel.present ? "wg show tells this user nothing" : "there is no interface wg-ha";
	}
	tunnel.down = tunnel.present && !state.partnerRole.known() && answers(tunnel.settings.endpoint) &&
	              !answers(tunnel.settings.partner);
	return tunnel;
}

KeeperProgram programOf(const std::string& name, const Paths& paths)
{
	const keeper::Fields fields = keeper::readState(name, paths.keeperStates.string());
	const auto field = [&](const char* key) { return keeper::valueOf(fields, key); };
	const auto number = [&](const char* key) { return std::atoi(field(key).c_str()); };
	const auto time = [&](const char* key)
	{
		const long long seconds = std::atoll(field(key).c_str());
		return seconds > 0 ? std::optional(Instant(std::chrono::seconds(seconds))) : std::nullopt;
	};
	KeeperProgram program;
	program.name = name;
	const std::optional<host::Process> process = host::process(number("pid"));
	program.runs = process && process->name == kKeeperWorker && process->state != 'Z';
	program.state = field("state");
	program.reason = field("reason");
	if (!program.runs)
	{
		program.state = program.state == "failed" ? "failed" : "stopped";
		return program;
	}
	// In maintenance on purpose; else it neither watches nor ends its service.
	program.state = process->state == 'T' ? "frozen" : program.state;
	program.since = time("since");
	program.holder = field("holder");
	program.conflicts = number("conflicts");
	program.lastConflict = time("last_conflict");
	program.restarts = number("restarts");
	program.check = field("check");
	program.partner = field("partner");
	program.targets = keeper::targetsOf(fields);
	return program;
}

/// @return nothing when the settings do without the keeper
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
		state.reach = programOf(keeper::kReachProgram, paths);
	}
	state.marked = host::hasMarker(settings.text(key::kVirtualIP).value_or(""));
	return state;
}

} // namespace

std::vector<std::string> programNames(const SettingsFile& settings)
{
	std::vector<std::string> names;
	for (const std::string& path : settings.programs())
	{
		names.push_back(programName(path));
	}
	return names;
}

int matches(const std::string& statusLine, const std::vector<std::string>& names)
{
	return static_cast<int>(std::ranges::count_if(names, [&](const std::string& name)
	                                              { return statusLine.find(name) != std::string::npos; }));
}

void askKernel(NodeState& state, const Paths& paths)
{
	const std::string why = state.elsewhere ? "another root" : "the settings cannot be read";
	state.serviceInterface = state.elsewhere ? notKnown<bool>(why) : carrierOf(state, kServiceInterface);
	state.communicationInterface = state.elsewhere ? notKnown<bool>(why) : carrierOf(state, kCommunicationInterface);
	if (state.elsewhere || !state.settings)
	{
		state.programs = notKnown<Programs>(why);
		state.address = notKnown<HeldAddress>(why);
		state.gatewayAnswers = notKnown<bool>(why);
		state.logSpace = notKnown<std::uintmax_t>(why);
		return;
	}
	state.programs = programsOf(state, paths);
	state.address = addressOf(state);
	state.keeper = lookForKeeper(*state.settings, paths);
	state.tunnel = tunnelOf(state);
	const std::optional<bool> gateway = host::answersPing(state.setting(key::kGatewayIP), kPings);
	state.gatewayAnswers = gateway ? seen(*gateway, state.now) : notKnown<bool>("this user may not send pings");
	const std::optional<std::uintmax_t> space =
	    state.log.empty() ? std::nullopt : host::freeSpace(state.log.parent_path());
	state.logSpace = space ? seen(*space, state.now) : notKnown<std::uintmax_t>("the log's disk cannot be asked");
	if (state.role.is(Role::master) && !state.partnerRole.known() && state.address.known() &&
	    state.address.reported->held)
	{
		state.otherHolder = host::holderOf(state.setting(key::kVirtualIP), kServiceInterface).value_or("");
	}
}

} // namespace velarix::ctl
