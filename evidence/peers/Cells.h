/// The cells of the matrix that apply to the peers. A cell has the name it has
/// in the matrix of the agents, so that the rows can be laid side by side.
///
/// Where a fault strikes the way on which the heartbeats go (deaf, mute), it
/// strikes the service network here, since that is where these programs speak.
/// "service-cut" has no counterpart: the agents speak on the communication network.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "evidence/Lab.h"
#include "evidence/peers/Pair.h"

namespace velarix::evidence::peers
{

struct PeerFault
{
	const char* name;     ///< as in the matrix
	bool onNode;          ///< it strikes one node
	bool onStandby;       ///< there is a cell for the standby too
	const char* what;     ///< in the timeline
	const char* repaired; ///< null when it repairs by itself
	void (*inject)(Pair& pair, HostId node, std::uint64_t seed);
	void (*repair)(Pair& pair, HostId node);
	bool stepsClock = false; ///< the peers are started with a clock that can be stepped
};

const std::vector<PeerFault>& peerFaults();

struct Cell
{
	std::string name; ///< "power-off/a/master", "power-off/a/standby"
	const PeerFault* fault = nullptr;
	HostId node = HostId::a;   ///< struck
	HostId master = HostId::a; ///< serves at the time
};

/// All cells, both nodes and roles, or those that `only` asks for by name, see filtered().
std::vector<Cell> peerCells(const std::vector<std::string>& only = {});

} // namespace velarix::evidence::peers
