/// What two nodes' reports show together, and no node alone; for people and for programs.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "ctl/pair/NodeReport.h"
#include "ctl/render/StateViews.h"

namespace velarix::ctl
{

struct PairProblem
{
	/// For programs; does not change.
	std::string id;
	NagiosStatus severity = NagiosStatus::unknown;
	/// The node's name; "pair" for what both show together.
	std::string node;
	std::string text;
	/// What to do; empty where the text says it.
	std::string cure;
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

/// @return worst first
std::vector<PairProblem> judgePair(const PairReports& reports);

/// @return of the first problem; ok without one
NagiosStatus verdictOf(const std::vector<PairProblem>& problems);

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

/// The first line is one of a monitoring plug-in; then a table of both and what to do.
std::string pairText(const PairReports& reports, const std::vector<PairProblem>& problems);

/// `schema_version`, `time`, `verdict`, `problems`, `nodes` (this one first; the reports as
/// they came).
Json pairReportJson(const PairReports& reports, const std::vector<PairProblem>& problems);

/// One page without scripts, and without anything from elsewhere.
std::string pairPage(const PairReports& reports, const std::vector<PairProblem>& problems);

} // namespace velarix::ctl
