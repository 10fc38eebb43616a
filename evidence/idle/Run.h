/// Measures what guards cost while nothing happens, each on a lab of its own.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "evidence/Lab.h"
#include "evidence/idle/Figures.h"
#include "lab/core/Basics.h"
#include "lab/core/NodeSettings.h"

namespace velarix::evidence::idle
{

struct Plan
{
	std::string guard; ///< one of allGuards()
	Millis settle{10000};
	Millis length{60000}; ///< of a window
	int windows = 5;
	PairSettings times{};
	std::filesystem::path installRoot{};
};

/// VelarixHA, keepalived and monit.
const std::vector<std::string>& allGuards();

/// @throws LabError when the guard is not installed, naming its package
void requireGuard(const std::string& guard);

/// Lets the guards of both nodes come to rest, looks, waits, looks again, once for each
/// window. The client is still meanwhile, so that the cards carry the guards' packets only.
/// @throws LabError when they do not come to rest
std::vector<Figures> measureIdle(const Plan& plan);

/// The memory of a guard on that node while nobody else has it: only libraries that are
/// not the agent's own are shared with what the machine runs besides. A standby's is
/// taken as soon as its partner's host is off, before it notices.
/// @throws LabError as above; when somebody else on the machine shares its pages, naming
///         them
MemoryFigures measureAlone(const Plan& plan, HostId node);

} // namespace velarix::evidence::idle
