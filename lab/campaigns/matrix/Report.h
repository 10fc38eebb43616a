/// The results of a matrix, for a person, for a program and for a document.
#pragma once

#include <string>
#include <vector>

#include "lab/campaigns/matrix/CellRun.h"
#include "lab/campaigns/matrix/Machine.h"

namespace velarix::lab
{

struct MatrixResults
{
	Expectations expectations;
	std::vector<Cell> cells; ///< those that were run
	MatrixTimes times{};
	std::uint64_t seed = 1;
	int runs = 1;
	int jobs = 1;
	std::string machine = machineText();
	std::vector<RunRecord> records;

	/// @return true when every run of every cell is there and as expected
	bool allAsExpected() const;
};

/// A table with a line for each leg of each cell, and what was not as expected.
std::string toText(const MatrixResults& results);
/// The same as tables of a document.
std::string toMarkdown(const MatrixResults& results);
/// An object: "seed", "runs", "jobs", "intervalS", "receivingTimeS", "waitingTimeS",
/// "slackMs", "machine", "asExpected", and "records" as toJson(RunRecord) makes them.
std::string toJson(const MatrixResults& results);
/// Reads what toJson wrote; the runs are not judged again.
/// @param expectations  the table to lay beside; cells of which there is no run are left out
/// @throws LabError when the text is no such report, or tells of cells that the table does not have
MatrixResults matrixFrom(const std::string& json, const Expectations& expectations);

} // namespace velarix::lab
