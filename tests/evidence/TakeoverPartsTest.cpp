/// What a campaign of take-overs is made of: which cells stand for which path, what
/// counts as a sample, and the pings that are measured alone.

#include <set>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "evidence/takeover/Figures.h"
#include "evidence/takeover/PingFloor.h"
#include "lab/campaigns/matrix/CellRun.h"

namespace velarix::evidence::takeover
{

namespace
{

RunRecord recordWith(std::optional<Millis> overhead, std::optional<Millis> pings)
{
	RunRecord record;
	record.cell = "kill/a";
	record.run = 3;
	PhaseRecord phase;
	phase.outage = Millis(12000);
	phase.noticed = Millis(1500);
	phase.overhead = overhead;
	phase.pings = pings;
	record.phases = {PhaseRecord{}, phase};
	return record;
}

Results twoRuns()
{
	Results results;
	results.paths = {{"alone", "two", "2*ping+count+wait", true, "words"}};
	results.samples["alone"] = {{"cold/a", 1, Millis(9500), Millis(2000), Millis(500), Millis(450)},
	                            {"cold/a", 2, Millis(9100), Millis(2000), Millis(150), Millis(120)}};
	results.floors = {{"alone", 1, {Millis(1040), Millis(1400)}, ""}, {"alone", 2, {}, "no lab"}};
	results.runs = 2;
	return results;
}

} // namespace

TEST(TakeoverPaths, EveryPathWithAnOverheadHasCells)
{
	const Expectations table = readExpectations({});
	std::set<std::string> covered;
	std::set<std::string> cells;
	for (const PathCells& path : pathsFor(table, {}))
	{
		covered.insert(path.path.name);
		for (const Cell& cell : path.cells)
		{
			EXPECT_TRUE(cells.insert(cell.name).second) << cell.name;
		}
	}
	for (const auto& [name, path] : table.paths)
	{
		EXPECT_EQ(covered.contains(name), !path.anchor.empty()) << name;
	}
	EXPECT_EQ(cells.size(), 26U);
}

TEST(TakeoverPaths, AreChosenByName)
{
	const Expectations table = readExpectations({});
	const auto chosen = pathsFor(table, {"alone"});
	ASSERT_EQ(chosen.size(), 1U);
	ASSERT_EQ(chosen.front().cells.size(), 2U);
	EXPECT_EQ(chosen.front().cells[0].name, "cold-start-alone/a");
	EXPECT_EQ(chosen.front().cells[1].name, "cold-start-alone/b");
	EXPECT_THROW(pathsFor(table, {"nowhere"}), LabError);
	EXPECT_THROW(pathsFor(table, {"settle"}), LabError);
}

TEST(TakeoverSamples, AreOfTheLastLegAndOfWholeRunsOnly)
{
	const auto sample = sampleOf(recordWith(Millis(480), Millis(430)));
	ASSERT_TRUE(sample);
	EXPECT_EQ(sample->cell, "kill/a");
	EXPECT_EQ(sample->run, 3);
	EXPECT_EQ(sample->outage, Millis(12000));
	EXPECT_EQ(sample->noticed, Millis(1500));
	EXPECT_EQ(sample->overhead, Millis(480));
	EXPECT_EQ(sample->own(), Millis(50));
	EXPECT_FALSE(sampleOf(recordWith(std::nullopt, std::nullopt)));
	RunRecord broken = recordWith(Millis(480), Millis(430));
	broken.differences = {"the run did not get to its end"};
	EXPECT_FALSE(sampleOf(broken));
	EXPECT_FALSE(sampleOf(RunRecord{}));
}

TEST(TakeoverReport, HasEachSampleAndItsWaits)
{
	Results results = twoRuns();
	EXPECT_TRUE(results.complete());
	const nlohmann::json report = jsonOf(results);
	const auto& path = report.at("paths").at(0);
	EXPECT_EQ(path.at("longestBefore"), 2000);
	EXPECT_EQ(path.at("samples").at(0).at("overhead"), 500);
	EXPECT_EQ(report.at("pingFloors").at(0).at("probes").at(1), 1400);
	EXPECT_NE(toText(results).find("alone: 2 of 2 samples\n"), std::string::npos);
	results.runs = 3;
	EXPECT_FALSE(results.complete());
	results.runs = 2;
	results.samples.clear();
	EXPECT_FALSE(results.complete());
}

TEST(PingFloors, AreReadFromWhatThePingerPrints)
{
	EXPECT_EQ(silentProbesIn("1040499 0\n1900500 0\n"), (std::vector<Millis>{Millis(1040), Millis(1901)}));
	for (const char* wrong : {"", "labping: I/O error\n", "1040000 3\n", "1040000 0\nx\n", "1040000\n"})
	{
		EXPECT_THROW(silentProbesIn(wrong), LabError) << wrong;
	}
	const PingFloor floor{"alone", 7, {Millis(1040), Millis(1800)}, ""};
	const PingFloor again = recordIn<PingFloor>(jsonText(floor));
	EXPECT_EQ(again.path, "alone");
	EXPECT_EQ(again.run, 7);
	EXPECT_EQ(again.probes, floor.probes);
	EXPECT_THROW(recordIn<PingFloor>("{}"), LabError);
}

// Ten pings, each waited for a tenth of a second at least: shorter is another library.
TEST(PingFloors, AreTenTenthsOfASecondAtLeast)
{
	const PingFloor floor = measurePingFloor({"alone", 1, 1, {}, {}});
	EXPECT_EQ(floor.problem, "");
	ASSERT_EQ(floor.probes.size(), 2U);
	for (const Millis probe : floor.probes)
	{
		EXPECT_GE(probe, Millis(1000));
	}
}

TEST(TakeoverRuns, EndAsSoonAsTheServiceIsBack)
{
	const std::vector<PathCells> paths = pathsFor(readExpectations({}), {"reboot"});
	matrix::CellPlan plan;
	plan.cell = paths.front().cells.front();
	plan.paths = {{"reboot", paths.front().path}};
	plan.untilBack = true;
	const RunRecord record = matrix::runCell(plan);
	EXPECT_TRUE(record.differences.empty()) << (record.differences.empty() ? "" : record.differences.front());
	const auto sample = sampleOf(record);
	ASSERT_TRUE(sample) << record.timeline;
	EXPECT_GE(sample->outage, Millis(7000)); // the agent's two seconds and the countdown
	EXPECT_TRUE(record.phases.back().steady);
	EXPECT_FALSE(record.phases.back().outageOpen);
}

} // namespace velarix::evidence::takeover
