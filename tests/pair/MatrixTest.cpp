/// The short form of the fault matrix: each of its cells once, on a pair of its
/// own, against what was written down before.

#include <cctype>

#include <gtest/gtest.h>

#include "CellRun.h"
#include "Expectations.h"
#include "Lab.h"
#include "Report.h"

namespace velarix::lab
{

class ShortMatrix : public testing::TestWithParam<std::string>
{
};

TEST_P(ShortMatrix, EndsAsWrittenDown)
{
	if (const std::optional<std::string> problem = namespaceProblem())
	{
		GTEST_SKIP() << *problem;
	}
	requireLab();
	MatrixResults results;
	results.expectations = readExpectations("");
	results.cells = chosenCells(results.expectations, {GetParam()});
	ASSERT_EQ(results.cells.size(), 1U);
	// Generous, as every limit of a test: a loaded machine needs several times what the pair takes.
	results.times.slack = Millis(10000);
	results.times.noOutage = Millis(2500);
	const RunRecord record = runCell({results.cells.front(), results.expectations.paths, results.times});
	results.records.push_back(record);
	EXPECT_TRUE(record.asExpected()) << toText(results) << record.timeline;
}

INSTANTIATE_TEST_SUITE_P(Cells, ShortMatrix, testing::ValuesIn(readExpectations("").shortForm),
                         [](const testing::TestParamInfo<std::string>& cell)
                         {
	                         std::string name;
	                         for (const char letter : cell.param)
	                         {
		                         name += std::isalnum(static_cast<unsigned char>(letter)) != 0 ? letter : '_';
	                         }
	                         return name;
                         });

} // namespace velarix::lab
