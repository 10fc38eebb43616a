/// The fault matrix: runs of cells, each on a lab of its own, and their comparison with what was written
/// down. evidence/scripts/render.py makes tables and statistics of the JSON.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/Times.h"
#include "lab/core/Lab.h"
#include "lab/tables/Expectations.h"

namespace velarix::lab::matrix
{

struct CellPlan
{
	Cell cell;
	std::map<std::string, Path> paths;
	CampaignTimes times{};
	int run = 1;
	std::uint64_t seed = 1; ///< of the matrix; the moment of the fault follows from it
	std::filesystem::path installRoot{};
};

struct RunRecord
{
	std::string cell;
	int run = 0;
	std::uint64_t seed = 0;
	std::vector<PhaseRecord> phases;
	std::vector<std::string> left;        ///< what was left on the nodes in the end
	std::vector<std::string> differences; ///< of the run as a whole, beside those of its phases
	std::string timeline;                 ///< as text; of the matrix only when something differs
};

/// @return one line for each difference; "fault: " and "repaired: " name the phase
std::vector<std::string> differencesOf(const RunRecord& record);
std::string titleOf(const RunRecord& record);

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(RunRecord, cell, run, seed, phases, left, differences, timeline)

/// The record of a run that has not begun.
RunRecord recordOf(const CellPlan& plan);

/// Lets the cell's node serve, injects, watches, repairs, watches.
void runIn(Lab& lab, const CellPlan& plan, RunRecord& record);
LabOptions optionsFor(const CellPlan& plan);

/// How a phase differs from what was expected; empty: it does not.
std::vector<std::string> differencesOf(const PhaseRecord& phase, const Outcome& expected,
                                       const std::map<std::string, Path>& paths, const CampaignTimes& times);

/// Fills in the differences of the record's phases, and those of the whole run.
void judge(RunRecord& record, const Cell& cell, const std::map<std::string, Path>& paths, const CampaignTimes& times);

/// @return kernel and number of processors, for example "Linux 6.1.0, 2 processors"
std::string machineText();

struct Results
{
	Expectations expectations;
	std::vector<Cell> cells; ///< those that were run
	CampaignTimes times{};
	std::uint64_t seed = 1;
	int runs = 1;
	int jobs = 1;
	std::string machine = machineText();
	std::vector<RunRecord> records;

	/// @return true when every run of every cell is there and as expected
	bool allAsExpected() const;
};

/// A line for each cell, and what was not as expected.
std::string toText(const Results& results);
/// The settings, the cells with what is expected of them, the paths with their waits,
/// and the records. Times are milliseconds.
nlohmann::json jsonOf(const Results& results);

} // namespace velarix::lab::matrix
