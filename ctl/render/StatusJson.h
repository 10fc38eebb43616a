/// A node's state for programs. The names are listed in velarixctl(1) and do not
/// change.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "ctl/status/Judgement.h"
#include "ctl/status/NodeState.h"

namespace velarix::ctl
{

/// Each figure is an object: "value" (null when it is not known), "age_seconds",
/// "why" when it is not known, "reported" for what was reported last then, "since" where
/// it is known.
nlohmann::ordered_json statusJson(const NodeState& state, const Judgement& judgement);

/// @param indent blanks a level; negative: one line
/// @return the text in ASCII; bytes of the settings that are no UTF-8 become U+FFFD
std::string jsonText(const nlohmann::ordered_json& json, int indent = -1);

/// What of a state is compared to see a change: everything but times.
nlohmann::ordered_json withoutTimes(nlohmann::ordered_json status);

} // namespace velarix::ctl
