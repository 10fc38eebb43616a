/// The results of the peers: one list of records for each program and its settings.
#pragma once

#include <string>
#include <vector>

#include "evidence/Lab.h"
#include "evidence/peers/Run.h"
#include "lab/campaigns/Machine.h"

namespace velarix::evidence::peers
{

struct Table
{
	Settings settings;
	std::vector<RunRecord> records; ///< without their timelines
};

struct Results
{
	std::vector<Cell> cells; ///< those that were run
	std::vector<Table> tables;
	std::uint64_t seed = 1;
	int runs = 1;
	int jobs = 1;
	std::string machine = machineText();

	/// @return true when every run of every cell got to its end
	bool complete() const;
};

/// How many runs got to their end, and why the others did not.
std::string toText(const Results& results);
/// The records are those of the matrix.
nlohmann::json jsonOf(const Results& results);

} // namespace velarix::evidence::peers
