/// What the fault matrix makes of a timeline: measuring, judging, reporting.

#include <gtest/gtest.h>

#include "SmallTable.h"
#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/Measure.h"
#include "lab/campaigns/matrix/Matrix.h"

namespace velarix::lab::matrix
{

namespace
{

/// The program of node a dies at 1 s, node b decides at 3 s and serves at 13.2 s.
struct AskedTakeOver
{
	Timeline timeline;
	PhaseRecord phase;

	AskedTakeOver()
	{
		for (const HostId node : nodes)
		{
			timeline.change(roleTrack(node), Millis(0), node == HostId::a ? "master" : "slave");
		}
		timeline.change(addressTrack, Millis(0), "a");
		timeline.change(serviceTrack, Millis(0), "a");
		timeline.change(serviceTrack, Millis(1000), "none");
		timeline.change(roleTrack(HostId::a), Millis(2000), "slave");
		timeline.change(addressTrack, Millis(2050), "none");
		timeline.add({Millis(3000), EventKind::action, HostId::b, "takes over: the partner asks"});
		timeline.change(roleTrack(HostId::b), Millis(3000), "master");
		timeline.change(addressTrack, Millis(13100), "b");
		timeline.change(serviceTrack, Millis(13200), "b");
		phase.from = Millis(1000);
		phase.to = Millis(30000);
		phase.steady = true;
		measure(timeline, phase);
	}
};

/// What the log of node b tells beside the timeline.
Observed onNodeB(const std::vector<Millis>& passes, const std::vector<ProbeInterval>& probes = {},
                 const std::vector<Millis>& starts = {})
{
	return {LogSeen{}, LogSeen{passes, probes, starts}};
}

CellPlan planOf(const std::string& cell)
{
	const Expectations table = parseExpectations(smallTable);
	return {filtered(table.cells, {cell}).front(), table.paths};
}

} // namespace

TEST(MatrixMeasure, TellsOutageOwnersAndMoves)
{
	const AskedTakeOver seen;
	EXPECT_EQ(seen.phase.outage, Millis(12200));
	EXPECT_FALSE(seen.phase.outageOpen);
	EXPECT_EQ(seen.phase.noOwner, Millis(11050));
	EXPECT_EQ(seen.phase.splitBrain, Millis(0));
	EXPECT_EQ(seen.phase.moves, 1);
	EXPECT_EQ(seen.phase.owner, "b");
	EXPECT_EQ(seen.phase.answer, "b");
	EXPECT_TRUE(seen.phase.disagreements.empty());
	EXPECT_EQ(lastChange(seen.timeline, Millis(1000), Millis(30000)), Millis(13100));
}

TEST(MatrixMeasure, CountsMovesFromTheLastOwnerBeforeTheLeg)
{
	Timeline timeline;
	for (const auto& [at, owners] : std::vector<std::pair<int, const char*>>{
	         {0, "a"}, {1000, "none"}, {3000, "b"}, {4000, "a+b"}, {4300, "b"}, {5000, "a+b"}, {5900, "a"}})
	{
		timeline.change(addressTrack, Millis(at), owners);
	}
	const auto measured = [&](int from, int to)
	{
		PhaseRecord phase;
		phase.from = Millis(from);
		phase.to = Millis(to);
		measure(timeline, phase);
		return phase;
	};
	EXPECT_EQ(measured(2000, 3500).moves, 1);
	EXPECT_EQ(measured(2000, 3500).firstChange, Millis(1000));
	EXPECT_EQ(measured(3200, 3900).moves, 0);
	EXPECT_FALSE(measured(3200, 3900).firstChange);
	EXPECT_EQ(measured(0, 7000).moves, 2);
	EXPECT_EQ(measured(0, 7000).splitBrain, Millis(1200));
	EXPECT_EQ(measured(0, 7000).splitBrainLongest, Millis(900));
}

TEST(MatrixMeasure, OverheadIsWhatTheWaitsDoNotExplain)
{
	AskedTakeOver seen;
	const auto overhead = [&](const Path& path, const std::vector<Millis>& passes)
	{
		seen.phase.noticed.reset();
		seen.phase.overhead.reset();
		measureOverhead(seen.timeline, onNodeB(passes), path, {}, seen.phase);
		return seen.phase.overhead;
	};
	const std::string words = "takes over: the partner asks";
	EXPECT_EQ(overhead({"asked", "2*beat", "2*count", false, words}, {}), Millis(200));
	EXPECT_EQ(seen.phase.noticed, Millis(2000));
	EXPECT_EQ(overhead({"asked", "second", "2*count", false, words}, {}), Millis(1200));
	const Path pass{"asked", "silence", "2*count", true, words};
	EXPECT_EQ(overhead(pass, {Millis(100), Millis(2900), Millis(3100)}), Millis(300));
	EXPECT_EQ(seen.phase.noticed, Millis(1900));
	// The pass before the deciding one lasted half a second longer than its waits.
	EXPECT_EQ(overhead(pass, {Millis(-600), Millis(2900)}), Millis(800));
	EXPECT_FALSE(overhead({"other", "0", "0", false, "third silence in a row"}, {}));
	EXPECT_FALSE(seen.phase.noticed);
	// The pass had begun before the phase did.
	EXPECT_FALSE(overhead(pass, {Millis(-600), Millis(100)}));
	seen.phase.took = Millis(700);
	EXPECT_EQ(overhead({"asked", "second", "2*count", false, words}, {}), Millis(500));
	seen.phase.outageOpen = true;
	EXPECT_FALSE(overhead({"asked", "second", "2*count", false, words}, {}));
}

TEST(MatrixMeasure, LeavesThePassesOfAnEarlierAgentAside)
{
	AskedTakeOver seen;
	const Path pass{"asked", "second", "2*count", true, "takes over: the partner asks"};
	const auto overhead = [&](const std::vector<Millis>& starts)
	{
		measureOverhead(seen.timeline, onNodeB({Millis(-600), Millis(2900)}, {}, starts), pass, {}, seen.phase);
		return seen.phase.overhead;
	};
	EXPECT_EQ(overhead({}), Millis(2800)); // a pass of 3.5 s where one second is fixed
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
		seen.phase.pings.reset();
		measureOverhead(seen.timeline, observed, late, {}, seen.phase);
		return seen.phase.pings;
	};
	const std::vector<Millis> inTime{Millis(100), Millis(2900)};
	const std::vector<Millis> tooLate{Millis(-600), Millis(2900)}; // half a second longer than its waits
	// One before the deciding pass, two within it, one once the service is back.
	const std::vector<ProbeInterval> probes{{Millis(1000), Millis(2900)},
	                                        {Millis(2900), Millis(3950)},
	                                        {Millis(3960), Millis(5000)},
	                                        {Millis(13300), Millis(15200)}};
	EXPECT_EQ(pings(onNodeB(inTime, probes)), Millis(90));
	EXPECT_EQ(pings(onNodeB(tooLate, probes)), Millis(590));
	Observed ofTheOther = onNodeB(tooLate);
	ofTheOther[0].silentProbes = probes;
	EXPECT_EQ(pings(ofTheOther), Millis(0));
	// Shorter than a second is no gain: it was not the whole probe that was seen.
	EXPECT_EQ(pings(onNodeB(inTime, {{Millis(2900), Millis(3800)}})), Millis(0));
	seen.phase.outageOpen = true;
	EXPECT_FALSE(pings(onNodeB(inTime, probes)));
}

TEST(MatrixMeasure, SeesWhereTheLogIsWrong)
{
	AskedTakeOver seen;
	seen.timeline.change(roleTrack(HostId::b), Millis(20000), "slave");
	PhaseRecord phase;
	phase.from = Millis(1000);
	phase.to = Millis(30000);
	phase.steady = true;
	measure(seen.timeline, phase);
	ASSERT_EQ(phase.disagreements.size(), 1U);
	EXPECT_EQ(phase.disagreements[0], "the log of node b says slave, and it holds the address");
	Timeline other;
	other.change(roleTrack(HostId::b), Millis(0), "slave");
	other.change(addressTrack, Millis(0), "none");
	other.change(addressTrack, Millis(5000), "b");
	phase.disagreements.clear();
	phase.steady = false;
	measure(other, phase);
	ASSERT_EQ(phase.disagreements.size(), 1U);
	EXPECT_EQ(phase.disagreements[0], "node b got the address at 5.000 s while its log says slave");
}

TEST(MatrixJudge, NamesEachDifference)
{
	AskedTakeOver seen;
	seen.phase.programs = "b";
	const CellPlan plan = planOf("kill/a");
	EXPECT_TRUE(differencesOf(seen.phase, plan.cell.stands, plan.paths, plan.times).empty());
	PhaseRecord bad = seen.phase;
	bad.owner = "a+b";
	bad.answer = "mixed";
	bad.programs = "a";
	bad.moves = 2;
	bad.outage = Millis(60000);
	bad.splitBrain = Millis(1);
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
	        "without an owner 15.001 s, expected at most 15.000 s", "split-brain for 0.001 s, expected at most 0.000 s",
	        "agents that ended by themselves: a, expected none", "log and observation: x, expected that they agree"}));
	PhaseRecord restless = seen.phase;
	restless.steady = false;
	EXPECT_EQ(differencesOf(restless, plan.cell.stands, plan.paths, plan.times).size(), 1U);
	Outcome unsteady = plan.cell.stands;
	unsteady.owner = "unsteady";
	EXPECT_EQ(differencesOf(seen.phase, unsteady, plan.paths, plan.times).size(), 1U);
	EXPECT_TRUE(differencesOf(restless, unsteady, plan.paths, plan.times).empty());
}

TEST(MatrixJudge, KnowsWordsForWhatTheDesignLeavesOpen)
{
	PhaseRecord phase;
	phase.steady = true;
	phase.owner = "a+b";
	phase.answer = "mixed";
	phase.programs = "a+b";
	phase.firstChange = Millis(5000);
	phase.splitBrain = Millis(9000);
	phase.splitBrainLongest = Millis(1000);
	const auto differences = [&](const std::string& outcome)
	{
		const Expectations table = parseExpectations(
		    "paths = []\nchaos = [\"reboot\"]\nshort = [\"x\"]\n[[cells]]\nname = \"x\"\nmaster = \"a\"\n"
		    "inject = [\"power-off:a\"]\n[cells.during]\nmoves_max = inf\nvia = \"unbounded\"\n" +
		    outcome);
		return differencesOf(phase, table.cells[0].stands, {}, {});
	};
	using Texts = std::vector<std::string>;
	const std::string both = "owner = \"a+b\"\n";
	const std::string forGood = both + "split_brain_max = \"for good\"\n";
	EXPECT_EQ(differences(forGood + "answer = \"served\"\nunchanged_until = \"count\""), Texts{});
	EXPECT_EQ(differences(forGood + "unchanged_until = \"count+half\""),
	          Texts{"the owner changed after 5.000 s, expected not before 5.500 s"});
	EXPECT_EQ(differences(forGood + "programs = \"not-both\""), Texts{"programs on a+b, expected not-both"});
	EXPECT_EQ(differences(both + "split_brain_max = \"second\""),
	          Texts{"split-brain for 9.000 s, expected at most 3.000 s"});
	EXPECT_EQ(differences(forGood + "log_differs = true"),
	          Texts{"log and observation agree, expected that they differ"});
	phase.steady = false;
	EXPECT_EQ(differences("owner = \"unsteady\"\nsplit_brain_max = \"second\""), Texts{});
	phase.answer = "none";
	EXPECT_EQ(differences("owner = \"unsteady\"\nanswer = \"served\"\nsplit_brain_max = \"for good\""),
	          Texts{"answer none, expected served"});
}

TEST(MatrixReport, ShowsVerdictsAndDifferences)
{
	Results results;
	results.expectations = parseExpectations(smallTable);
	results.cells = filtered(results.expectations.cells, {"kill"});
	EXPECT_FALSE(results.allAsExpected());
	RunRecord record;
	record.cell = "kill/a";
	record.run = 1;
	record.phases.push_back(AskedTakeOver().phase);
	record.phases[0].overhead = Millis(200);
	results.records.push_back(record);
	EXPECT_TRUE(results.allAsExpected());
	EXPECT_NE(toText(results).find("kill/a: 1 of 1 as expected; owner b, outage 12.200 s"), std::string::npos)
	    << toText(results);
	EXPECT_NE(toText(results).find("every run was as expected"), std::string::npos);
	results.records[0].differences = {"fault: owner a, expected b"};
	EXPECT_FALSE(results.allAsExpected());
	EXPECT_NE(toText(results).find("kill/a, run 1: fault: owner a, expected b"), std::string::npos);
	const nlohmann::json report = jsonOf(results);
	EXPECT_EQ(report.at("records").at(0).at("phases").at(0).at("overhead"), 200);
	EXPECT_EQ(report.at("cells").at(0).at("phases").at(0).at("outageBound"), 13000);
	EXPECT_EQ(report.at("cells").at(0).at("note"), "a note");
}

} // namespace velarix::lab::matrix
