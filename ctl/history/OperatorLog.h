/// What an administrator does to a node with velarixctl. The agent's log tells of its effects
/// alone, so it is put beside the keeper's events (keeper.log).
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "ctl/Context.h"
#include "ctl/history/Events.h"

namespace velarix::ctl
{

/// In the place of a program of the keeper's.
inline constexpr std::string_view kOperator = "velarixctl";
/// The words of its lines.
inline constexpr std::string_view kSwitchover = "switchover";
inline constexpr std::string_view kMaintenanceOn = "maintenance-on";
inline constexpr std::string_view kMaintenanceOff = "maintenance-off";

/// Adds a line, and who called. What cannot be written keeps nothing from being done: it is complained of.
void recordAct(const Context& context, std::string_view word, const std::string& detail);

/// What the end of the log tells of switchovers; a log that cannot be read tells of none.
LastMove movesIn(const std::filesystem::path& keeperLog);

} // namespace velarix::ctl
