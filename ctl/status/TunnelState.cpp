#include "ctl/status/NodeState.h"
#include "inspect/ExitCode.h"
#include "inspect/Host.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

constexpr int kPings = 3;

bool answers(const std::string& address)
{
	return host::answersPing(address, kPings).value_or(false);
}

} // namespace

std::optional<TunnelState> lookForTunnel(const NodeState& state)
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

} // namespace velarix::ctl
