/// The WireGuard tunnel of the heartbeats, as status sees it.
#pragma once

#include <optional>
#include <string>

#include "inspect/HostTunnel.h"
#include "inspect/Tunnel.h"

namespace velarix::ctl
{

struct NodeState;

struct TunnelState
{
	inspect::TunnelSettings settings;
	/// Why the session is not known; empty when it is.
	std::string why;
	/// There is an interface.
	bool present = false;
	std::optional<inspect::host::TunnelSession> session;
	/// The partner answers beside the tunnel and not in it. Looked for while it is not heard.
	bool down = false;
};

/// @return nothing for a node without a tunnel
std::optional<TunnelState> lookForTunnel(const NodeState& state);

} // namespace velarix::ctl
