/// Both nodes for people and for programs.
#pragma once

#include <string>
#include <vector>

#include "ctl/pair/PairJudgement.h"

namespace velarix::ctl
{

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
