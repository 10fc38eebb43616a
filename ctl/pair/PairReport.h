/// What two nodes' reports show together, and no node alone; for people and for programs.
#pragma once

#include <nlohmann/json.hpp>

#include "ctl/render/StateViews.h"
#include "inspect/HostProgram.h"

namespace velarix::ctl
{

/// How far back the events of a report go.
inline constexpr std::chrono::hours kReportedEvents{24};

/// What one node tells of itself for a view of both: its status as JSON with a member
/// "pair" of what only the two together show. The partner's comes from there, so nothing
/// in it is taken for granted.
/// @return the members of "pair": `version`, `time_ms` (since 1970), `settings` (a digest of
///         each value that both nodes must share, by its key, so that no command or password
///         leaves the node) and `events` (the last 200 that concern the service)
Json pairJson(const NodeState& state, const Paths& paths);

/// What a report tells at a place ("/role/value"), whatever else stands there.
std::string textAt(const Json& report, const char* place);
std::int64_t numberAt(const Json& report, const char* place);
/// @return an empty array when there is none
const Json& listAt(const Json& report, const char* place);
bool isAt(const Json& report, const char* place, bool value);

/// Of a name of the keeper's or of a node's host: "node-a (192.0.2.1)".
std::string nameOf(const Json& report);

/// The role as it is, or as it was reported last before the agent was stopped: "master",
/// "slave", or empty.
std::string lastRoleOf(const Json& report);

/// Asking the partner by ssh.
class Partner
{
public:
	/// @param target of ssh; where it is empty, VELARIX_PARTNER_SSH of the environment or of
	///        /etc/default/velarix-ha, else the partner's address in the settings
	/// @throws Failure settings when no target is to be had, usage for one that ssh would
	///         take for an option
	Partner(const std::string& target, std::chrono::milliseconds limit, const Paths& paths);

	/// Runs velarixctl there. Nothing is asked for: without a key it fails.
	host::ProgramEnd run(const std::vector<std::string>& words) const;

	/// @param why set to the reason when it does not answer, or is not the partner of `own`
	/// @return its "status --json"; null then
	Json status(const NodeState& own, std::string& why) const;

	const std::string& target() const { return m_target; }

private:
	std::string m_target;
	std::chrono::milliseconds m_limit;
};

/// Both nodes at about one time.
struct PairReports
{
	Json own;
	/// Null when it could not be had.
	Json partner;
	/// Why not.
	std::string whyNot;
	/// How long it took to ask for it; the clocks are not compared without.
	std::optional<std::chrono::milliseconds> asked;
	std::chrono::system_clock::time_point time;
};

/// Worst first: objects of `id` (for programs; does not change), `severity`, `node` (its name; "pair"
/// for what both show together), `text` and `cure` (what to do; empty where the text says it).
using PairProblems = std::vector<Json>;

PairProblems judgePair(const PairReports& reports);

Grade severityOf(const Json& problem);

/// @return of the first problem; ok without one
Grade verdictOf(const PairProblems& problems);

/// "2026-11-21 07:59:24 UTC" of the time in a report.
std::string shortTime(const std::string& iso);

/// A row that both nodes have: "role", "master", "standby".
struct PairRow
{
	std::string label;
	std::string own;
	std::string partner;
};

std::vector<PairRow> rowsOf(const PairReports& reports);

/// One page without scripts, and without anything from elsewhere.
std::string pairPage(const PairReports& reports, const PairProblems& problems);

} // namespace velarix::ctl
