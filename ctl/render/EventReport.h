/// Events as people and programs read them.
#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "ctl/history/Events.h"
#include "ctl/history/KeeperLog.h"

namespace velarix::ctl
{

/// What happened, in words: "standby -> master: the partner gave up and asked".
std::string describe(const Event& event);

/// One line with aligned columns: local time, the event's word, how long it took
/// or lasted, what happened, the place in the log. No line feed.
std::string textLine(const Event& event, bool colour);
/// The same of the keeper's; the word is "keeper".
std::string textLine(const KeeperEvent& event, bool colour);

/// What an event means to whoever is informed: "problem", "recovery" (a problem is over),
/// "change" (the service begins or ends to move) or "detail".
std::string_view severityOf(const Event& event);
std::string_view severityOf(const KeeperEvent& event);

/// The header of these columns.
std::string textHeader();

/// One object; members without a value are left out. Times are UTC.
nlohmann::ordered_json eventJson(const Event& event);
nlohmann::ordered_json eventJson(const KeeperEvent& event);

} // namespace velarix::ctl
