/// What two nodes' reports show together, and no node alone.
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

} // namespace velarix::ctl
