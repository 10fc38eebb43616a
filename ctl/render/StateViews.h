/// A node's state for people, for programs, for a monitoring plug-in and as metrics.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "ctl/history/KeeperLog.h"
#include "ctl/status/Judgement.h"

namespace velarix::ctl
{

using Json = nlohmann::ordered_json;

/// One row for each figure, its age in brackets behind it, and what is wrong.
std::string statusText(const NodeState& state, const Judgement& judgement, bool colour);

/// The names are listed in velarixctl(1) and do not change.
/// Each figure is an object: "value" (null when it is not known), "age_seconds",
/// "why" when it is not known, "reported" for what was reported last then, "since" where
/// it is known.
Json statusJson(const NodeState& state, const Judgement& judgement);

/// @param indent blanks a level; negative: one line
/// @return the text in ASCII; bytes of the settings that are no UTF-8 become U+FFFD
std::string jsonText(const Json& json, int indent = -1);

/// What of a state is compared to see a change: everything but times.
Json withoutTimes(Json status);

/// Ages of the partner's last heartbeat from which the line warns and alarms.
struct NagiosLimits
{
	double warning = 15;
	double critical = 60;
};

/// @return the grade's word as a plug-in writes it: "OK", "WARNING", ...
std::string pluginWordOf(Grade grade);

/// @return "VELARIX OK - TEXT; TEXT"; no byte of the texts ends the line or begins its figures
std::string pluginLine(Grade grade, const std::vector<std::string>& texts);

struct NagiosLine
{
	Grade status = Grade::unknown;
	/// "VELARIX OK - ...|heartbeat_age=0.4s;15;60;0 ...", without a line feed.
	std::string text;
};

NagiosLine nagiosLine(const NodeState& state, const Judgement& judgement, const NagiosLimits& limits);

/// As Prometheus reads them. What is not known is left out, but for the role, whose samples are all
/// zero then.
/// @param counters without a moment are left out
std::string metricsText(const NodeState& state, const Judgement& judgement, const Counters& counters);

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
Json eventJson(const Event& event);
Json eventJson(const KeeperEvent& event);

} // namespace velarix::ctl
