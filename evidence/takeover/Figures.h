/// How long a take-over lasts beyond the waits that the agent prescribes, on every
/// path along which the service comes back.
///
/// A path has a cell or two of the matrix that stand for it. Many runs of these are
/// watched only until the service is back, so that a whole campaign takes a quarter
/// of an hour.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "evidence/Lab.h"
#include "evidence/takeover/PingFloor.h"
#include "lab/campaigns/Record.h"
#include "lab/tables/Expectations.h"

namespace velarix::evidence::takeover
{

/// A path, and the cells in one of whose phases the service comes back along it.
struct PathCells
{
	Path path;
	std::vector<Cell> cells;
};

/// Every path whose overhead can be told, in the order of their names, with the cells
/// that stand for it.
/// @param only  names of paths; empty: all
/// @throws LabError when there is no such path, or a path has no cell
std::vector<PathCells> pathsFor(const Expectations& expectations, const std::vector<std::string>& only);

/// One measured take-over.
struct Sample
{
	std::string cell;
	int run = 0;
	Millis outage{0};
	Millis noticed{0};
	Millis overhead{0}; ///< beyond the prescribed waits, a silent probe being one of a second
	Millis pings{0};    ///< part of it: silent probes beyond a second each

	/// What is neither a prescribed wait nor the library's wait for answers.
	Millis own() const { return overhead - pings; }
};

/// @return the take-over that the run went through; empty when it took another path
std::optional<Sample> sampleOf(const RunRecord& record);

/// What a campaign found.
struct Results
{
	std::vector<Path> paths;                            ///< in the order of the tables
	std::map<std::string, std::vector<Sample>> samples; ///< of each path
	std::vector<std::string> missed;                    ///< runs without a sample, and why
	std::vector<PingFloor> floors;
	PairSettings times{};
	int runs = 0; ///< samples that were wanted of each path
	std::uint64_t seed = 0;
	int jobs = 0;
	std::string machine;

	/// @return true when every path has as many samples as were wanted
	bool complete() const;
};

/// The goal for the median of a path.
inline constexpr Millis goal{100};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Sample, cell, run, outage, noticed, overhead, pings)

/// How many samples each path has, and the runs without one.
std::string toText(const Results& results);
/// The settings, the machine, and for each path its waits and samples. Times are milliseconds.
nlohmann::json jsonOf(const Results& results);

} // namespace velarix::evidence::takeover
