/// The commands that run many pairs, each on pairs of its own. @return the exit status: 0 when
/// everything was as expected, else 1
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/chaos/Run.h"
#include "lab/campaigns/matrix/CellRun.h"

namespace velarix::lab::program
{

/// `velarix-lab matrix`: injects every fault into pairs and compares what happens
/// with what was written down before.
struct MatrixOptions : ReportOptions
{
	std::filesystem::path installRoot{};
	int runs = 1; ///< of each cell
	std::uint64_t seed = 1;
	int jobs = 4;                    ///< pairs side by side
	std::vector<std::string> only{}; ///< cells, or groups of them; empty: all
	std::string timelines{};         ///< directory for the timelines of runs that differ; empty: none
	bool list = false;               ///< only name the cells
	CampaignTimes times{};
	std::string expectations{}; ///< file; empty: the table of this build
	bool shortForm = false;     ///< the cells that stand for the whole
};

/// @return exit status: 0 when every run was as expected, else 1
/// @throws LabError
int runMatrix(const MatrixOptions& options);

/// `velarix-lab chaos`: random faults and repairs, repeatable from a seed.
struct ChaosCommand : ReportOptions
{
	chaos::Options options{};
	std::optional<int> steps{};   ///< of all workers together
	std::optional<int> minutes{}; ///< neither of both: ten minutes
	int jobs = 1;                 ///< workers side by side
	std::optional<int> worker{};  ///< only this one
	std::string expectations{};   ///< the file that names the faults; empty: that of this build
};

/// @return exit status: 0 when every invariant held after every step, else 1
/// @throws LabError
int runChaos(const ChaosCommand& command);

} // namespace velarix::lab::program

namespace velarix::lab::hostile
{

/// `velarix-lab hostile`: attacks on pairs from a third host, and what each mitigation
/// does about them.
struct Options
{
	std::filesystem::path installRoot{};
	PairSettings times{};
	std::vector<std::string> attacks{"all"}; ///< cases, or groups of them
	std::uint64_t seed = 1;
	long count = 10000;
	int jobs = 4;
	std::string mitigation = "none"; ///< see mitigationNamed
	bool beside = false;             ///< see AttackerPlan
	bool json = false;
	bool list = false;
	std::string output{};    ///< file for the report; empty: standard output
	std::string table{};     ///< file with the expectations; empty: that of this build
	std::string timelines{}; ///< directory for the timelines of cases that differ; empty: none
};

/// @return exit status: 0 when every case was as expected, else 1
/// @throws LabError
int runCommand(const Options& options);

} // namespace velarix::lab::hostile
