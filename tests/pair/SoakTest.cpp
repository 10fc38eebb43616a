/// A soak of half a minute on a real pair: what an hour shows is reported by the command.

#include <algorithm>

#include "PairTest.h"
#include "lab/campaigns/soak/AgentSampler.h"
#include "lab/campaigns/soak/Run.h"

namespace velarix::lab
{

namespace
{

/// The series has samples, some of them neighbours at rest, and figures that can be true.
void expectSeen(const soak::Series& series)
{
	SCOPED_TRACE(nodeText(series.node));
	EXPECT_EQ(series.ended, "");
	EXPECT_GE(series.samples.size(), 5U);
	const auto kept = std::count_if(series.samples.begin(), series.samples.end(),
	                                [](const soak::Sample& sample) { return sample.kept.has_value(); });
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
	soak::Options options;
	options.kinds = {FaultKind::programKilled};
	options.seed = 3;
	options.duration = Millis(30000);
	options.period = Millis(18000);
	options.betweenSamples = Millis(4000);
	options.bounds.warmUp = Millis(10000);
	options.bounds.settled = 3;
	// Whatever a path of the code touches for the first time lies behind the warm-up here.
	options.bounds.ownKibPerHour = 1024;
	options.bounds.rssKibPerHour = 4096;
	std::vector<std::string> reported;
	const soak::Results results = runSoak(options, [&](const std::string& line) { reported.push_back(line); });
	EXPECT_EQ(soak::crossingsOf(results), std::vector<std::string>{}) << toText(results);
	ASSERT_EQ(results.series.size(), 2U) << toText(results);
	expectSeen(results.series[0]);
	expectSeen(results.series[1]);
	ASSERT_FALSE(results.faults.empty()) << testing::PrintToString(reported);
	EXPECT_EQ(toName(results.faults.front().fault).substr(0, 12), "program-kill");
	EXPECT_EQ(reported.front(), toText(options.bounds));
}

using SoakSampler = PairTest;

TEST_F(SoakSampler, TellsWhatIsKeptAfterFiveLooksAtRest)
{
	PAIR_OR_RETURN(startPair());
	soak::AgentSampler sampler(lab());
	const auto keptAfter = [&](int looks, bool atRest)
	{
		for (int look = 0; look < looks; ++look)
		{
			sampler.look(atRest);
		}
		sampler.sample(atRest);
		return sampler.series().front().samples.back().kept;
	};
	// Each sample is a look as well.
	EXPECT_FALSE(keptAfter(9, true)) << "the first sample";
	EXPECT_FALSE(keptAfter(0, true));
	EXPECT_FALSE(keptAfter(3, true));
	EXPECT_TRUE(keptAfter(4, true));
	EXPECT_FALSE(keptAfter(9, false));
	EXPECT_FALSE(keptAfter(9, true)) << "the sample before was not at rest";
	EXPECT_TRUE(keptAfter(9, true));
}

} // namespace velarix::lab
