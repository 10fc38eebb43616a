/// A node's state for people, for programs, for a monitoring plug-in and as metrics.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "ctl/status/Counters.h"
#include "ctl/status/Judgement.h"
#include "ctl/status/NodeState.h"

namespace velarix::ctl
{

/// One row for each figure, its age in brackets behind it, and what is wrong.
std::string statusText(const NodeState& state, const Judgement& judgement, bool colour);

/// The names are listed in velarixctl(1) and do not change.
/// Each figure is an object: "value" (null when it is not known), "age_seconds",
/// "why" when it is not known, "reported" for what was reported last then, "since" where
/// it is known.
nlohmann::ordered_json statusJson(const NodeState& state, const Judgement& judgement);

/// @param indent blanks a level; negative: one line
/// @return the text in ASCII; bytes of the settings that are no UTF-8 become U+FFFD
std::string jsonText(const nlohmann::ordered_json& json, int indent = -1);

/// What of a state is compared to see a change: everything but times.
nlohmann::ordered_json withoutTimes(nlohmann::ordered_json status);

enum class NagiosStatus : int
{
	ok = 0,
	warning = 1,
	critical = 2,
	unknown = 3
};

/// @return "OK", "WARNING", ...
const char* wordOf(NagiosStatus status);
/// How bad: unknown is worse than a warning and hidden by an alarm.
int rankOf(NagiosStatus status);

/// Ages of the partner's last heartbeat from which the line warns and alarms.
struct NagiosLimits
{
	double warning = 15;
	double critical = 60;
};

struct NagiosLine
{
	NagiosStatus status = NagiosStatus::unknown;
	/// "VELARIX OK - ...|heartbeat_age=0.4s;15;60;0 ...", without a line feed.
	std::string text;
};

NagiosLine nagiosLine(const NodeState& state, const Judgement& judgement, const NagiosLimits& limits);

/// As Prometheus reads them. What is not known is left out, but for the role, whose samples are all
/// zero then.
/// @param counters without a moment are left out
std::string metricsText(const NodeState& state, const Judgement& judgement, const Counters& counters);

} // namespace velarix::ctl
