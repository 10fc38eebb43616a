/// The floor of a probe that nobody answers: ten pings made by a program that does
/// nothing else, in the same situation as on a path of the agents.
///
/// No agent runs. The pings are waited for 100 ms each, but an error that the kernel
/// makes up once it has found that nobody answers for an address wakes the library,
/// which then waits for another 100 ms.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "evidence/Lab.h"
#include "lab/campaigns/Json.h"
#include "lab/core/Basics.h"
#include "lab/core/NodeSettings.h"

namespace velarix::evidence::takeover
{

/// Ten pings to the partner, then to the virtual address.
struct PingFloor
{
	std::string path; ///< in the situation of this path
	int run = 0;
	std::vector<Millis> probes{}; ///< how long each lasted
	std::string problem{};        ///< why there are none; empty when there are
};

struct PingFloorPlan
{
	std::string path; ///< one of pingFloorPaths()
	int run = 1;
	std::uint64_t seed = 1;
	PairSettings times{};
	std::filesystem::path installRoot{};
};

/// The paths on which silent probes come after the decision to look: alone, isolated,
/// silent-partner.
const std::vector<std::string>& pingFloorPaths();

/// @return times, or the problem
/// @throws LabError when no lab can be made
PingFloor measurePingFloor(const PingFloorPlan& plan);

/// What labping printed.
/// @throws LabError when it is something else, or somebody answered
std::vector<Millis> silentProbesIn(const std::string& output);

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(PingFloor, path, run, probes, problem)

} // namespace velarix::evidence::takeover
