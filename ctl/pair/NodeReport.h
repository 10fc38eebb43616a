/// What one node tells of itself for a view of both: its status as JSON with a member
/// "pair" of what only the two together show. The partner's comes from there, so nothing
/// in it is taken for granted.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

#include "ctl/status/NodeState.h"

namespace velarix::ctl
{

using Json = nlohmann::ordered_json;

/// How far back the events of a report go.
inline constexpr std::chrono::hours kReportedEvents{24};

/// @return the members of "pair": `version`, `time_ms` (since 1970), `settings` (a digest of
///         each value that both nodes must share, by its key, so that no command or password
///         leaves the node) and `events` (the last 200 that concern the service)
Json pairJson(const NodeState& state, const Paths& paths);

/// What a report tells at a place ("/role/value"), whatever else stands there.
std::string textAt(const Json& report, const char* place);
std::int64_t numberAt(const Json& report, const char* place);
/// @return an empty array when there is none
const Json& listAt(const Json& report, const char* place);
bool isTrueAt(const Json& report, const char* place);
bool isFalseAt(const Json& report, const char* place);

/// Of a name of the keeper's or of a node's host: "node-a (192.0.2.1)".
std::string nameOf(const Json& report);

/// The role as it is, or as it was reported last before the agent was stopped: "master",
/// "slave", or empty.
std::string lastRoleOf(const Json& report);

} // namespace velarix::ctl
