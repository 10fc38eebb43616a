/// What the fault matrix makes of a timeline: measuring, judging, figures, tables.

#include <array>

#include <gtest/gtest.h>

#include "SmallTable.h"
#include "lab/campaigns/matrix/CellRun.h"
#include "lab/campaigns/matrix/Judge.h"
#include "lab/campaigns/matrix/Measure.h"
#include "lab/campaigns/matrix/Report.h"
#include "lab/campaigns/matrix/Statistics.h"

namespace velarix::lab
{

namespace
{

/// The program of node a dies at 1 s, node b decides at 3 s and serves at 13.2 s.
struct AskedTakeOver
{
	Timeline timeline;
	LegRecord leg;

	AskedTakeOver()
	{
		for (const HostId node : nodes)
		{
			timeline.change(roleLane(node), Millis(0), node == HostId::a ? "master" : "slave");
		}
		timeline.change(addressLane, Millis(0), "a");
		timeline.change(serviceLane, Millis(0), "a");
		timeline.change(serviceLane, Millis(1000), "none");
		timeline.change(roleLane(HostId::a), Millis(2000), "slave");
		timeline.change(addressLane, Millis(2050), "none");
		timeline.add({Millis(3000), EventKind::action, HostId::b, "takes over: the partner asks"});
		timeline.change(roleLane(HostId::b), Millis(3000), "master");
		timeline.change(addressLane, Millis(13100), "b");
		timeline.change(serviceLane, Millis(13200), "b");
		leg.from = Millis(1000);
		leg.to = Millis(30000);
		leg.steady = true;
		measure(timeline, leg);
	}
};

/// What the log of node b tells beside the timeline.
Observed onNodeB(const std::vector<Millis>& passes, const std::vector<Stretch>& probes = {},
                 const std::vector<Millis>& starts = {})
{
	Observed observed;
	observed.passes[1] = passes;
	observed.silentProbes[1] = probes;
	observed.starts[1] = starts;
	return observed;
}

CellPlan planOf(const std::string& cell)
{
	const Expectations table = parseExpectations(smallTable);
	return {chosenCells(table, {cell}).front(), table.paths};
}

} // namespace

TEST(MatrixMeasure, TellsOutageOwnersAndMoves)
{
	const AskedTakeOver seen;
	EXPECT_EQ(seen.leg.outage, Millis(12200));
	EXPECT_FALSE(seen.leg.outageOpen);
	EXPECT_EQ(seen.leg.noOwner, Millis(11050));
	EXPECT_EQ(seen.leg.twoOwners, Millis(0));
	EXPECT_EQ(seen.leg.moves, 1);
	EXPECT_EQ(seen.leg.owner, "b");
	EXPECT_EQ(seen.leg.answer, "b");
	EXPECT_TRUE(seen.leg.disagreements.empty());
	EXPECT_EQ(lastChange(seen.timeline, Millis(1000), Millis(30000)), Millis(13100));
}

TEST(MatrixMeasure, CountsMovesFromTheLastOwnerBeforeTheLeg)
{
	Timeline timeline;
	for (const auto& [at, owners] : std::vector<std::pair<int, const char*>>{
	         {0, "a"}, {1000, "none"}, {3000, "b"}, {4000, "a+b"}, {4300, "b"}, {5000, "a+b"}, {5900, "a"}})
	{
		timeline.change(addressLane, Millis(at), owners);
	}
	const auto measured = [&](int from, int to)
	{
		LegRecord leg;
		leg.from = Millis(from);
		leg.to = Millis(to);
		measure(timeline, leg);
		return leg;
	};
	EXPECT_EQ(measured(2000, 3500).moves, 1);
	EXPECT_EQ(measured(2000, 3500).firstChange, Millis(1000));
	EXPECT_EQ(measured(3200, 3900).moves, 0);
	EXPECT_FALSE(measured(3200, 3900).firstChange);
	EXPECT_EQ(measured(0, 7000).moves, 2);
	EXPECT_EQ(measured(0, 7000).twoOwners, Millis(1200));
	EXPECT_EQ(measured(0, 7000).twoOwnersLongest, Millis(900));
}

TEST(MatrixMeasure, OverheadIsWhatTheWaitsDoNotExplain)
{
	AskedTakeOver seen;
	using Passes = std::array<std::vector<Millis>, 2>;
	const auto overhead = [&](const Path& path, const Passes& passes)
	{
		seen.leg.noticed.reset();
		seen.leg.overhead.reset();
		measureOverhead(seen.timeline, {passes, {}, {}}, path, {}, seen.leg);
		return seen.leg.overhead;
	};
	const std::string words = "takes over: the partner asks";
	EXPECT_EQ(overhead({"asked", "2*beat", "2*count", false, words}, {}), Millis(200));
	EXPECT_EQ(seen.leg.noticed, Millis(2000));
	EXPECT_EQ(overhead({"asked", "second", "2*count", false, words}, {}), Millis(1200));
	const Path pass{"asked", "silence", "2*count", true, words};
	EXPECT_EQ(overhead(pass, {{{}, {Millis(100), Millis(2900), Millis(3100)}}}), Millis(300));
	EXPECT_EQ(seen.leg.noticed, Millis(1900));
	// The pass before the deciding one lasted half a second longer than its waits.
	EXPECT_EQ(overhead(pass, {{{}, {Millis(-600), Millis(2900)}}}), Millis(800));
	EXPECT_FALSE(overhead({"other", "0", "0", false, "third silence in a row"}, {}));
	EXPECT_FALSE(seen.leg.noticed);
	// The pass had begun before the leg did.
	EXPECT_FALSE(overhead(pass, {{{}, {Millis(-600), Millis(100)}}}));
	seen.leg.took = Millis(700);
	EXPECT_EQ(overhead({"asked", "second", "2*count", false, words}, {}), Millis(500));
	seen.leg.outageOpen = true;
	EXPECT_FALSE(overhead({"asked", "second", "2*count", false, words}, {}));
}

TEST(MatrixMeasure, LeavesThePassesOfAnEarlierAgentAside)
{
	AskedTakeOver seen;
	const Path pass{"asked", "second", "2*count", true, "takes over: the partner asks"};
	const auto overhead = [&](const std::vector<Millis>& starts)
	{
		measureOverhead(seen.timeline, onNodeB({Millis(-600), Millis(2900)}, {}, starts), pass, {}, seen.leg);
		return seen.leg.overhead;
	};
	EXPECT_EQ(overhead({}), Millis(2800)); // a pass of 3.5 s where one second is prescribed
	EXPECT_EQ(overhead({Millis(-5000)}), Millis(2800));
	EXPECT_EQ(overhead({Millis(-5000), Millis(1200)}), Millis(1200)); // 1.9 s since the outage began
	EXPECT_EQ(overhead({Millis(-5000), Millis(3100)}), Millis(2800)); // the start of another one, later
}

TEST(MatrixMeasure, TellsHowMuchOfTheOverheadSilentPingsAre)
{
	AskedTakeOver seen;
	const Path late{"asked", "silence", "2*count", true, "takes over: the partner asks"};
	const auto pings = [&](const Observed& observed)
	{
		seen.leg.pings.reset();
		measureOverhead(seen.timeline, observed, late, {}, seen.leg);
		return seen.leg.pings;
	};
	const std::vector<Millis> inTime{Millis(100), Millis(2900)};
	const std::vector<Millis> tooLate{Millis(-600), Millis(2900)}; // half a second longer than its waits
	// One before the deciding pass, two within it, one once the service is back.
	const std::vector<Stretch> probes{{Millis(1000), Millis(2900)},
	                                  {Millis(2900), Millis(3950)},
	                                  {Millis(3960), Millis(5000)},
	                                  {Millis(13300), Millis(15200)}};
	EXPECT_EQ(pings(onNodeB(inTime, probes)), Millis(90));
	EXPECT_EQ(pings(onNodeB(tooLate, probes)), Millis(590));
	Observed ofTheOther = onNodeB(tooLate);
	ofTheOther.silentProbes[0] = probes;
	EXPECT_EQ(pings(ofTheOther), Millis(0));
	// Shorter than a second is no gain: it was not the whole probe that was seen.
	EXPECT_EQ(pings(onNodeB(inTime, {{Millis(2900), Millis(3800)}})), Millis(0));
	seen.leg.outageOpen = true;
	EXPECT_FALSE(pings(onNodeB(inTime, probes)));
}

TEST(MatrixMeasure, SeesWhereTheLogIsWrong)
{
	AskedTakeOver seen;
	seen.timeline.change(roleLane(HostId::b), Millis(20000), "slave");
	LegRecord leg;
	leg.from = Millis(1000);
	leg.to = Millis(30000);
	leg.steady = true;
	measure(seen.timeline, leg);
	ASSERT_EQ(leg.disagreements.size(), 1U);
	EXPECT_EQ(leg.disagreements[0], "the log of node b says slave, and it holds the address");
	Timeline other;
	other.change(roleLane(HostId::b), Millis(0), "slave");
	other.change(addressLane, Millis(0), "none");
	other.change(addressLane, Millis(5000), "b");
	leg.disagreements.clear();
	leg.steady = false;
	measure(other, leg);
	ASSERT_EQ(leg.disagreements.size(), 1U);
	EXPECT_EQ(leg.disagreements[0], "node b got the address at 5.000 s while its log says slave");
}

TEST(MatrixJudge, NamesEachDifference)
{
	AskedTakeOver seen;
	seen.leg.programs = "b";
	const CellPlan plan = planOf("kill/a");
	EXPECT_TRUE(differencesOf(seen.leg, plan.cell.stands, plan.paths, plan.times).empty());
	LegRecord bad = seen.leg;
	bad.owner = "a+b";
	bad.answer = "mixed";
	bad.programs = "a";
	bad.moves = 2;
	bad.outage = Millis(60000);
	bad.twoOwners = Millis(1);
	bad.ended = "a";
	bad.disagreements = {"x"};
	bad.noAnswer = Millis(61000);
	bad.noOwner = Millis(15001);
	EXPECT_EQ(
	    differencesOf(bad, plan.cell.stands, plan.paths, plan.times),
	    (std::vector<std::string>{
	        "owner a+b, expected b", "answer mixed, expected owner", "programs on a, expected owner",
	        "moves 2, expected at most 1", "outage 60.000 s, expected at most 15.000 s",
	        "without an answer in all 61.000 s, expected at most 15.000 s",
	        "without an owner 15.001 s, expected at most 15.000 s", "two owners for 0.001 s, expected at most 0.000 s",
	        "agents that ended by themselves: a, expected none", "log and observation: x, expected that they agree"}));
	LegRecord restless = seen.leg;
	restless.steady = false;
	EXPECT_EQ(differencesOf(restless, plan.cell.stands, plan.paths, plan.times).size(), 1U);
	Outcome unsteady = plan.cell.stands;
	unsteady.owner = "unsteady";
	EXPECT_EQ(differencesOf(seen.leg, unsteady, plan.paths, plan.times).size(), 1U);
	EXPECT_TRUE(differencesOf(restless, unsteady, plan.paths, plan.times).empty());
}

TEST(MatrixJudge, KnowsWordsForWhatTheDesignLeavesOpen)
{
	LegRecord leg;
	leg.steady = true;
	leg.owner = "a+b";
	leg.answer = "mixed";
	leg.programs = "a+b";
	leg.firstChange = Millis(5000);
	leg.twoOwners = Millis(9000);
	leg.twoOwnersLongest = Millis(1000);
	const auto told = [&](const std::string& outcome)
	{
		const Expectations table =
		    parseExpectations("x | a | power-off:a | " + outcome + " | - | -\nchaos | reboot\nshort | x\n");
		return differencesOf(leg, table.cells[0].stands, {}, {});
	};
	using Told = std::vector<std::string>;
	EXPECT_EQ(told("a+b served any * * * since=count"), Told{});
	EXPECT_EQ(told("a+b served any * * * since=count+half"),
	          Told{"the owner changed after 5.000 s, expected not before 5.500 s"});
	EXPECT_EQ(told("a+b served not-both * * *"), Told{"programs on a+b, expected not-both"});
	EXPECT_EQ(told("a+b any any * second *"), Told{"two owners for 9.000 s, expected at most 3.000 s"});
	EXPECT_EQ(told("a+b any any * * * log=differs"), Told{"log and observation agree, expected that they differ"});
	leg.steady = false;
	EXPECT_EQ(told("unsteady any any * second *"), Told{});
	leg.answer = "none";
	EXPECT_EQ(told("unsteady served any * * *"), Told{"answer none, expected served"});
}

TEST(MatrixRecord, SurvivesItsJourney)
{
	RunRecord record;
	record.cell = "kill/a";
	record.run = 3;
	record.seed = 18446744073709551615U;
	record.legs.resize(2);
	record.legs[0].outage = Millis(1234);
	record.legs[0].overhead = Millis(-5);
	record.legs[1].owner = "a+b";
	record.left = {"x"};
	record.differences = {"\"y\"\n"};
	const std::string json = toJson(record);
	const RunRecord copy = recordFrom(json);
	EXPECT_EQ(toJson(copy), json);
	EXPECT_EQ(copy.legs[0].overhead, Millis(-5));
	EXPECT_FALSE(copy.legs[1].overhead);
	EXPECT_THROW(recordFrom("{}"), LabError);
	EXPECT_THROW(recordFrom("nonsense"), LabError);
}

TEST(MatrixStatistics, AreOfTheSortedValues)
{
	EXPECT_FALSE(summaryOf({}));
	std::vector<Millis> values;
	for (int value = 100; value > 0; --value)
	{
		values.push_back(Millis(value));
	}
	const std::optional<Summary> hundred = summaryOf(values);
	EXPECT_EQ(hundred->median, Millis(50));
	EXPECT_EQ(hundred->p95, Millis(95));
	EXPECT_EQ(hundred->max, Millis(100));
	EXPECT_EQ(summaryOf({Millis(7)})->p95, Millis(7));
	EXPECT_EQ(summaryOf({Millis(9), Millis(1), Millis(2)})->median, Millis(2));
	EXPECT_EQ(toText(summaryOf({Millis(1500)})), "1.500 / 1.500 / 1.500");
	EXPECT_EQ(toText(std::optional<Summary>()), "-");
}

TEST(MatrixReport, ShowsFiguresAndDifferencesInEachForm)
{
	MatrixResults results;
	results.expectations = parseExpectations(smallTable);
	results.cells = chosenCells(results.expectations, {"kill"});
	EXPECT_FALSE(results.allAsExpected());
	RunRecord record;
	record.cell = "kill/a";
	record.run = 1;
	record.legs.push_back(AskedTakeOver().leg);
	record.legs[0].overhead = Millis(200);
	results.records.push_back(record);
	EXPECT_TRUE(results.allAsExpected());
	EXPECT_NE(toText(results).find("12.200 / 12.200 / 12.200  13.000 s"), std::string::npos) << toText(results);
	EXPECT_NE(toText(results).find("every run was as expected"), std::string::npos);
	results.records[0].differences = {"fault: owner a, expected b"};
	EXPECT_FALSE(results.allAsExpected());
	EXPECT_NE(toMarkdown(results).find("| 0 of 1 |"), std::string::npos) << toMarkdown(results);
	EXPECT_NE(toMarkdown(results).find("- kill/a, run 1: fault: owner a, expected b"), std::string::npos);
	EXPECT_NE(toMarkdown(results).find("- `kill/a`: a note"), std::string::npos);
	EXPECT_NE(toJson(results).find("\"overheadMs\": 200"), std::string::npos);
}

} // namespace velarix::lab
