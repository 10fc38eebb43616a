#include "ctl/status/NodeState.h"

#include <algorithm>

#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/HostProcesses.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"

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
		programs.each.push_back(std::move(program));
	}
	programs.run = programs.processes() >= static_cast<int>(programs.each.size());
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
			held = {true, address.interface, address.label, address.prefix, address.listed};
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

Figure<bool> gatewayOf(const NodeState& state)
{
	const std::optional<bool> answers = host::answersPing(state.setting(key::kGatewayIP), kPings);
	return answers ? seen(*answers, state.now) : notKnown<bool>("this user may not send pings");
}

Figure<std::uintmax_t> logSpaceOf(const NodeState& state)
{
	const std::optional<std::uintmax_t> space =
	    state.log.empty() ? std::nullopt : host::freeSpace(state.log.parent_path());
	return space ? seen(*space, state.now) : notKnown<std::uintmax_t>("the log's disk cannot be asked");
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
	state.gatewayAnswers = gatewayOf(state);
	state.logSpace = logSpaceOf(state);
	if (state.role.is(Role::master) && !state.partnerRole.known() && state.address.known() &&
	    state.address.reported->held)
	{
		state.otherHolder = host::holderOf(state.setting(key::kVirtualIP), kServiceInterface).value_or("");
	}
}

} // namespace velarix::ctl
