/// The short form of the fault matrix: each of its cells once, on a pair of its
/// own, against what was written down before.

#include <cctype>
#include <filesystem>

#include <unistd.h>

#include <gtest/gtest.h>

#include "PairTest.h"
#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/matrix/Matrix.h"
#include "lab/core/Basics.h"
#include "lab/core/Command.h"
#include "lab/core/Lab.h"
#include "lab/tables/Expectations.h"

namespace velarix::lab::matrix
{

/// A cell and its settings.
class ShortMatrix : public testing::TestWithParam<std::tuple<std::string, Profile>>
{
};

TEST_P(ShortMatrix, EndsAsWrittenDown)
{
	SKIP_WITHOUT_NAMESPACES();
	requireLab();
	Results results;
	const auto& [cell, profile] = GetParam();
	results.expectations = readExpectations("", profile);
	results.cells = filtered(results.expectations.cells, {cell});
	results.times.pair.profile = profile;
	ASSERT_EQ(results.cells.size(), 1U);
	// Less than a countdown: one too many has to be noticed, on a loaded machine as well.
	results.times.slack = Millis(4000);
	results.times.noOutage = Millis(2500);
	const RunRecord record = runPlan(CellPlan{results.cells.front(), results.expectations.paths, results.times});
	results.records.push_back(record);
	EXPECT_TRUE(differencesOf(record).empty()) << toText(results) << record.timeline;
}

namespace
{

/// @param words  command and options, without the table
CommandResult tableCommand(const std::string& table, const std::vector<std::string>& words)
{
	const std::filesystem::path file =
	    std::filesystem::temp_directory_path() / ("velarix-table-" + std::to_string(::getpid()));
	writeFile(file, table);
	std::vector<std::string> all{VELARIX_LAB_PROGRAM};
	all.insert(all.end(), words.begin(), words.end());
	all.insert(all.end(), {"--expectations", file});
	const CommandResult result = run({all, {}, {}, Millis(250000)});
	std::filesystem::remove(file);
	return result;
}

CommandResult matrixWith(const std::string& table, std::vector<std::string> words)
{
	words.insert(words.begin(), "matrix");
	return tableCommand(table, words);
}

/// A table with one cell whose fault ends the standby's agent.
std::string tableWith(const std::string& master, const std::string& during, const std::string& fault = "agent-kill:b")
{
	return "paths = []\ncells = [ { name = \"wrong/a\", master = \"" + master + "\", inject = [\"" + fault +
	       "\"], during = " + during + " } ]\nchaos = [\"reboot\"]\nshort = [\"wrong/a\"]\n";
}

} // namespace

/// The matrix has to be able to fail.
TEST(MatrixProgram, EndsWithOneWhereTheTableIsWrong)
{
	SKIP_WITHOUT_NAMESPACES();
	const CommandResult result = matrixWith(tableWith("a", "{ owner = \"b\", moves_max = 1 }"), {});
	EXPECT_EQ(result.status, 1) << result.output;
	EXPECT_NE(result.output.find("wrong/a, run 1: fault: owner a, expected b\n"), std::string::npos) << result.output;
	EXPECT_NE(result.output.find("wrong/a, run 1: fault: programs on a, expected b\n"), std::string::npos);
}

TEST(MatrixProgram, TellsInPlainWordsWhatIsWrong)
{
	const std::string good = tableWith("a", "{ owner = \"a\" }");
	const auto outputOf = [&](const std::vector<std::string>& words)
	{
		const CommandResult result = matrixWith(good, words);
		EXPECT_EQ(result.status, 2) << result.output;
		return result.output;
	};
	EXPECT_NE(outputOf({"--only", "earthquake"}).find("earthquake"), std::string::npos);
	EXPECT_NE(outputOf({"--runs", "0"}).find("--runs"), std::string::npos);
	EXPECT_NE(outputOf({"--format", "xml"}).find("--format"), std::string::npos);
	const CommandResult broken = matrixWith(tableWith("c", "{ owner = \"a\" }"), {"--list"});
	EXPECT_EQ(broken.status, 2);
	EXPECT_NE(broken.output.find("line 2 of the table: \"c\" is no \"master\""), std::string::npos) << broken.output;
	const CommandResult list = matrixWith(good, {"--list"});
	EXPECT_TRUE(list.ok()) << list.output;
	EXPECT_EQ(list.output, "wrong/a\n");
}

/// One worker, one step: the whole way from the schedule to the report.
TEST(ChaosProgram, RunsAStepAndTellsIt)
{
	SKIP_WITHOUT_NAMESPACES();
	// A take-over on silence may leave the program on both nodes where a loaded machine
	// starts it slowly, so the fault is one that ends well on any machine.
	const CommandResult result =
	    tableCommand(tableWith("a", "{ owner = \"a\" }", "reboot:a"), {"chaos", "--seed", "3", "--steps", "1"});
	EXPECT_EQ(result.status, 0) << result.output;
	EXPECT_NE(result.output.find("worker 0, step 1: "), std::string::npos) << result.output;
	EXPECT_NE(result.output.find("1 steps of faults and repairs, "), std::string::npos) << result.output;
	EXPECT_NE(result.output.find("the invariants held after every step\n"), std::string::npos) << result.output;
}

INSTANTIATE_TEST_SUITE_P(Cells, ShortMatrix,
                         testing::Combine(testing::ValuesIn(readExpectations("").shortForm),
                                          testing::Values(Profile::keeper, Profile::plain)),
                         [](const testing::TestParamInfo<ShortMatrix::ParamType>& cell)
                         {
	                         std::string name;
	                         for (const char letter : std::get<0>(cell.param))
	                         {
		                         name += std::isalnum(static_cast<unsigned char>(letter)) != 0 ? letter : '_';
	                         }
	                         return name + '_' + nameOf(std::get<1>(cell.param));
                         });

} // namespace velarix::lab::matrix
