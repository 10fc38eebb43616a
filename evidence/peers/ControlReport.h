/// The results of the controls: one table for each program and its settings, with
/// the measured columns of the matrix.
#pragma once

#include <string>
#include <vector>

#include "evidence/peers/ControlRun.h"
#include "lab/campaigns/matrix/Machine.h"

namespace velarix::lab
{

struct ControlTable
{
	ControlSettings settings;
	std::vector<RunRecord> records;
};

struct ControlResults
{
	std::vector<ControlCell> cells; ///< those that were run
	std::vector<ControlTable> tables;
	std::uint64_t seed = 1;
	int runs = 1;
	int jobs = 1;
	std::string machine = machineText();

	/// @return true when every run of every cell got to its end
	bool complete() const;
};

std::string toText(const ControlResults& results);
std::string toMarkdown(const ControlResults& results);
/// {"seed", "runs", "jobs", "machine", "complete", "controls": [{"program", "settings", "records": [...]}, ...]};
/// the records are those of the matrix, without their timelines.
std::string toJson(const ControlResults& results);
/// Reads what toJson wrote.
/// @throws LabError when the text is no such report
ControlResults controlsFrom(const std::string& json);

} // namespace velarix::lab
