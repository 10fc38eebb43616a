/// What a guard of a service costs while nothing happens: figures of one node, from
/// two looks at it. Nothing in here waits or needs a lab.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "evidence/Lab.h"
#include "evidence/idle/ProcessFigures.h"

namespace velarix::evidence::idle
{

/// One look at a node.
struct NodeLook
{
	ProcessTotals guard;     ///< the guarding program's processes, added up
	ProcessTotals announcer; ///< the shell that announces the address for the settings' start command
	std::int64_t lastProcess = 0;
	std::array<CardTotals, 2> cards{}; ///< eth0, eth1
	std::int64_t logBytes = 0;
	std::int64_t consoleBytes = 0;
};

/// Packets and bytes in a second.
struct CardRates
{
	double received = 0;
	double sent = 0;
	double bytes = 0; ///< both ways
};

struct Figures
{
	std::string guard;        ///< "VelarixHA", "keepalived", "monit"
	std::string settings;     ///< in words
	std::string node;         ///< a or b
	std::string role;         ///< master, standby, or both where there are no roles
	double seconds = 0;       ///< between the looks
	int windows = 1;          ///< of how many such times this is the median
	double leastCpu = 0;      ///< percent of a processor, in the quietest window
	double mostCpu = 0;       ///< the same in the busiest
	double ownCpuPerHour = 0; ///< seconds of a processor
	double childrenCpuPerHour = 0;
	double announcerCpuPerHour = 0;
	double wakeUps = 0;      ///< a second
	double switches = 0;     ///< a second
	double newProcesses = 0; ///< made on the node in a second, threads and the announcer's included
	int threads = 0;
	int processes = 0;
	std::array<CardRates, 2> cards{};
	double logPerDay = 0; ///< bytes
	double consolePerDay = 0;
	MemoryFigures memory{};
	std::optional<MemoryFigures> memoryAlone; ///< once nobody else had its program or the agent's library
	MemoryByMapping mappings;

	/// Of a processor, children included.
	double cpuPercent() const { return (ownCpuPerHour + childrenCpuPerHour) / 36.0; }
	double ownCpuPercent() const { return ownCpuPerHour / 36.0; }
};

/// Fills in everything that two looks tell.
/// @throws LabError when no time lies between them
void compare(const NodeLook& before, const NodeLook& after, double seconds, Figures& figures);

/// One node's figures of several windows in one: of each the median, alone; the mappings
/// are those of the last window.
/// @throws LabError when there is none
Figures medianOf(const std::vector<Figures>& windows);

/// What was aimed at for the agent.
namespace goal
{
inline constexpr std::int64_t resident = 12'000'000;    ///< bytes
inline constexpr std::int64_t proportional = 6'000'000; ///< bytes
inline constexpr double cpuPercent = 0.2;
} // namespace goal

struct Results
{
	std::vector<Figures> nodes;
	std::vector<std::string> problems; ///< guards that could not be measured, and why
	std::string machine;
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CardRates, received, sent, bytes)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Figures, guard, settings, node, role, seconds, windows, leastCpu, mostCpu,
                                   ownCpuPerHour, childrenCpuPerHour, announcerCpuPerHour, wakeUps, switches,
                                   newProcesses, threads, processes, cards, logPerDay, consolePerDay, memory,
                                   memoryAlone, mappings)

/// Which nodes were measured and which were not.
std::string toText(const Results& results);
/// "machine", "goals", "nodes" and "problems". Memory is in KiB.
nlohmann::json jsonOf(const Results& results);

} // namespace velarix::evidence::idle
