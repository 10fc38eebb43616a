/// A soak of half a minute on a real pair: what an hour shows is told by the command.

#include <algorithm>

#include "PairTest.h"
#include "SoakRun.h"

namespace velarix::lab
{

namespace
{

/// The series has samples, some of them neighbours at rest, and figures that can be true.
void expectSeen(const SoakSeries& series)
{
	SCOPED_TRACE(nodeText(series.node));
	EXPECT_EQ(series.ended, "");
	EXPECT_GE(series.samples.size(), 10U);
	const auto kept = std::count_if(series.samples.begin(), series.samples.end(),
	                                [](const SoakSample& sample) { return sample.kept.has_value(); });
	EXPECT_GE(kept, 2);
	ASSERT_FALSE(series.samples.empty());
	EXPECT_GT(series.samples.back().ownKib, 500);
	EXPECT_GT(series.samples.back().rssKib, series.samples.back().ownKib);
	EXPECT_GT(series.samples.back().logged, series.samples.front().logged);
}

} // namespace

TEST(Soak, HalfAMinuteWithADeadProgramLeavesNothingBehind)
{
	if (const std::optional<std::string> problem = namespaceProblem())
	{
		GTEST_SKIP() << *problem;
	}
	SoakOptions options;
	options.kinds = {FaultKind::programKilled};
	options.seed = 3;
	options.duration = Millis(30000);
	options.period = Millis(12000);
	options.betweenSamples = Millis(2000);
	options.bounds.warmUp = Millis(10000);
	// Whatever a path of the code touches for the first time lies behind the warm-up here.
	options.bounds.ownKibPerHour = 1024;
	options.bounds.rssKibPerHour = 4096;
	std::vector<std::string> told;
	const SoakResults results = runSoak(options, [&](const std::string& line) { told.push_back(line); });
	EXPECT_EQ(crossingsOf(results), std::vector<std::string>{}) << toText(results);
	ASSERT_EQ(results.series.size(), 2U) << toText(results);
	expectSeen(results.series[0]);
	expectSeen(results.series[1]);
	ASSERT_FALSE(results.faults.empty()) << testing::PrintToString(told);
	EXPECT_EQ(toName(results.faults.front().fault).substr(0, 12), "program-kill");
	EXPECT_EQ(told.front(), toText(options.bounds));
}

} // namespace velarix::lab
