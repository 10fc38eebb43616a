/// The results of a matrix: a verdict for each cell on the terminal, everything as JSON.
/// evidence/scripts/render.py makes tables and statistics of the JSON.
#pragma once

#include <string>
#include <vector>

#include "lab/campaigns/matrix/CellRun.h"

namespace velarix::lab::matrix
{

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
