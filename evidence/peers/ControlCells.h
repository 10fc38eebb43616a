/// The cells of the matrix that apply to the controls. A cell has the name it has
/// in the matrix of the agents, so that the rows can be laid side by side.
///
/// Where a fault strikes the way on which the heartbeats go (deaf, mute), it
/// strikes the service network here, since that is where these programs speak.
/// "service-cut" has no counterpart: the agents speak on the communication network.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "evidence/peers/ControlPair.h"

namespace velarix::lab
{

struct ControlFault
{
	const char* name;   ///< as in the matrix
	bool onNode;        ///< it strikes one node
	bool onStandby;     ///< there is a cell for the standby too
	const char* what;   ///< in the timeline
	const char* healed; ///< null when it heals by itself
	void (*inject)(ControlPair& pair, HostId node, std::uint64_t seed);
	void (*heal)(ControlPair& pair, HostId node);
	bool stepsClock = false; ///< the controls are started with a clock that can be stepped
};

const std::vector<ControlFault>& controlFaults();

struct ControlCell
{
	std::string name; ///< "power-off/a/master", "power-off/a/standby"
	const ControlFault* fault = nullptr;
	HostId node = HostId::a;   ///< struck
	HostId master = HostId::a; ///< serves at the time
};

/// All cells, both nodes and roles, or those that `only` asks for by name, see wished().
std::vector<ControlCell> controlCells(const std::vector<std::string>& only = {});

} // namespace velarix::lab
