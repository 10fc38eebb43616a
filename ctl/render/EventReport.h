/// Events as people and programs read them.
#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "ctl/history/Events.h"
#include "ctl/history/KeeperLog.h"

namespace velarix::ctl
{

/// One line with aligned columns: local time, the event's word, how long it took
/// or lasted, what happened, the place in the log. No line feed.
std::string textLine(const Event& event, bool colour);
/// The same of the keeper's; the word is "keeper".
std::string textLine(const KeeperEvent& event, bool colour);

/// As that of an event of the agent (Events.h).
std::string_view severityOf(const KeeperEvent& event);

/// The header of these columns.
std::string textHeader();

/// One object; members without a value are left out. Times are UTC.
nlohmann::ordered_json eventJson(const Event& event);
nlohmann::ordered_json eventJson(const KeeperEvent& event);

} // namespace velarix::ctl
