/// Which series of samples are within the bounds of a soak, and which are not.

#include <algorithm>

#include <gtest/gtest.h>

#include "lab/campaigns/soak/SoakRun.h"

namespace velarix::lab
{

namespace
{

using Texts = std::vector<std::string>;

/// An hour of a sound agent: sampled every 10 s, at rest in every second half minute,
/// memory to and fro by a page.
SoakSeries soundHour()
{
	SoakSeries series;
	series.pid = 42;
	for (int index = 0; index <= 360; ++index)
	{
		SoakSample sample;
		sample.at = Millis(5000 + index * 10000);
		sample.atRest = index % 6 >= 3;
		sample.ownKib = 2000 + (index % 2) * 4;
		sample.rssKib = 7000 + (index % 3) * 8;
		sample.pssKib = 5000;
		sample.descriptors = 5 + index % 4;
		sample.kept = index % 6 >= 4 ? std::optional<int>(4) : std::nullopt;
		sample.threads = 4;
		sample.logged = static_cast<std::uint64_t>(index) * 15000;
		series.samples.push_back(sample);
	}
	return series;
}

/// The sound hour with a change to each sample.
template <typename Change> SoakSeries hourWith(Change change)
{
	SoakSeries series = soundHour();
	for (std::size_t index = 0; index < series.samples.size(); ++index)
	{
		change(series.samples[index], static_cast<long>(index));
	}
	return series;
}

/// The sound hour with a change to one sample.
template <typename Change> SoakSeries hourWithOne(std::size_t index, Change change)
{
	SoakSeries series = soundHour();
	change(series.samples.at(index));
	return series;
}

SoakResults resultsOf(const SoakSeries& ofA, const SoakSeries& ofB)
{
	SoakResults results;
	results.series = {ofA, ofB};
	results.series[1].node = HostId::b;
	results.duration = Millis(3600000);
	results.faults.resize(30);
	return results;
}

} // namespace

TEST(SoakSeries, ASoundHourCrossesNothing)
{
	EXPECT_EQ(crossingsOf(soundHour(), SoakBounds{}), Texts{});
	EXPECT_TRUE(isJudged(soundHour(), SoakBounds{}));
}

TEST(SoakSeries, ALineGoesThroughTheSamples)
{
	std::vector<SoakSample> samples(3);
	for (int index = 0; index < 3; ++index)
	{
		samples[static_cast<std::size_t>(index)].at = Millis(index * 1800000);
		samples[static_cast<std::size_t>(index)].ownKib = 100 + index * 30;
	}
	const std::optional<SoakLine> line = lineThrough(samples, &SoakSample::ownKib);
	ASSERT_TRUE(line);
	EXPECT_NEAR(line->perHour, 60, 1e-9);
	EXPECT_NEAR(line->overSpan, 60, 1e-9);
	EXPECT_NEAR(line->deviation, 0, 1e-6);
	samples[1].ownKib = 160;
	EXPECT_NEAR(lineThrough(samples, &SoakSample::ownKib)->perHour, 60, 1e-9);
	EXPECT_NEAR(lineThrough(samples, &SoakSample::ownKib)->deviation, 14.142, 0.001);
	samples.pop_back();
	EXPECT_FALSE(lineThrough(samples, &SoakSample::ownKib));
	samples.push_back(samples.back());
	samples[1].at = samples[2].at = samples[0].at;
	EXPECT_FALSE(lineThrough(samples, &SoakSample::ownKib));
}

TEST(SoakSeries, MemoryThatLeaksWithEveryHeartbeatIsFound)
{
	// 100 bytes for each of 3600 heartbeats of an hour.
	const SoakSeries leaking = hourWith([](SoakSample& sample, long index) { sample.ownKib += index * 1000 / 1024; });
	const Texts found = crossingsOf(leaking, SoakBounds{});
	ASSERT_EQ(found.size(), 1U);
	EXPECT_TRUE(found[0].starts_with("memory of its own grows by 29")) << found[0];
	EXPECT_NE(found[0].find(" KiB in 3000.000 s, allowed are 6"), std::string::npos) << found[0];
}

TEST(SoakSeries, MemoryMayRiseALittle)
{
	EXPECT_EQ(crossingsOf(hourWith([](SoakSample& sample, long index) { sample.ownKib += index / 6; }), SoakBounds{}),
	          Texts{});
	EXPECT_EQ(
	    crossingsOf(hourWith([](SoakSample& sample, long index) { sample.ownKib += index / 4; }), SoakBounds{}).size(),
	    1U);
}

TEST(SoakSeries, AStepOfAFewPagesIsNoGrowth)
{
	const auto step = [](long kib)
	{ return hourWith([=](SoakSample& sample, long index) { sample.ownKib += index > 200 ? kib : 0; }); };
	EXPECT_EQ(crossingsOf(step(32), SoakBounds{}), Texts{});
	EXPECT_EQ(crossingsOf(step(160), SoakBounds{}).size(), 1U);
}

TEST(SoakSeries, GrowthInTheWarmUpDoesNotCount)
{
	const SoakSeries warming =
	    hourWith([](SoakSample& sample, long index) { sample.ownKib += std::min(index, 60L) * 100; });
	EXPECT_EQ(crossingsOf(warming, SoakBounds{}), Texts{});
	SoakBounds impatient;
	impatient.warmUp = Millis(0);
	EXPECT_EQ(crossingsOf(warming, impatient).size(), 1U);
}

TEST(SoakSeries, JitterIsNoGrowth)
{
	EXPECT_EQ(
	    crossingsOf(hourWith([](SoakSample& sample, long index) { sample.ownKib += (index % 5) * 200; }), SoakBounds{}),
	    Texts{});
}

TEST(SoakSeries, ResidentMemoryHasABoundOfItsOwn)
{
	EXPECT_EQ(crossingsOf(hourWith([](SoakSample& sample, long index) { sample.rssKib += 2 * index; }), SoakBounds{}),
	          Texts{});
	const Texts found =
	    crossingsOf(hourWith([](SoakSample& sample, long index) { sample.rssKib += 4 * index; }), SoakBounds{});
	ASSERT_EQ(found.size(), 1U);
	EXPECT_TRUE(found[0].starts_with("resident memory grows by 1200.")) << found[0];
}

TEST(SoakSeries, EachDescriptorThatStaysOpenIsFound)
{
	const SoakSeries leaking =
	    hourWith([](SoakSample& sample, long index)
	             { sample.kept = sample.kept && index > 350 ? std::optional<int>(5) : sample.kept; });
	EXPECT_EQ(crossingsOf(leaking, SoakBounds{}),
	          (Texts{"at 3525.000 s: 5 descriptors are kept", "at 3535.000 s: 5 descriptors are kept",
	                 "at 3585.000 s: 5 descriptors are kept", "at 3595.000 s: 5 descriptors are kept"}));
}

TEST(SoakSeries, ALostDescriptorIsFound)
{
	const SoakSeries lost = hourWithOne(4, [](SoakSample& sample) { sample.kept = 3; });
	EXPECT_EQ(crossingsOf(lost, SoakBounds{}), Texts{"at 45.000 s: 3 descriptors are kept"});
}

TEST(SoakSeries, ManyDescriptorsAtAnyTimeAreFound)
{
	const auto open = [](int count) { return hourWithOne(0, [=](SoakSample& sample) { sample.descriptors = count; }); };
	EXPECT_EQ(crossingsOf(open(32), SoakBounds{}), Texts{});
	EXPECT_EQ(crossingsOf(open(33), SoakBounds{}), Texts{"at 5.000 s: 33 descriptors are open"});
}

TEST(SoakSeries, AThreadThatEndedAndOneTooManyAreFoundAtRest)
{
	const auto threads = [](std::size_t at, int count)
	{ return hourWithOne(at, [=](SoakSample& sample) { sample.threads = count; }); };
	EXPECT_EQ(crossingsOf(threads(3, 3), SoakBounds{}), Texts{"at 35.000 s: 3 threads"});
	EXPECT_EQ(crossingsOf(threads(3, 5), SoakBounds{}), Texts{"at 35.000 s: 5 threads"});
	EXPECT_EQ(crossingsOf(threads(0, 5), SoakBounds{}), Texts{});
}

TEST(SoakSeries, AZombieThatIsNotFetchedIsFound)
{
	const auto zombie = [](int millis)
	{ return hourWithOne(5, [=](SoakSample& sample) { sample.oldestZombie = Millis(millis); }); };
	EXPECT_EQ(crossingsOf(zombie(5000), SoakBounds{}), Texts{});
	EXPECT_EQ(crossingsOf(zombie(5001), SoakBounds{}), Texts{"at 55.000 s: a zombie of 5.001 s"});
}

TEST(SoakSeries, ALogThatIsWrittenWithoutAPauseIsFound)
{
	const auto written = [](std::uint64_t perSample)
	{
		return hourWith([=](SoakSample& sample, long index)
		                { sample.logged = static_cast<std::uint64_t>(index) * perSample; });
	};
	EXPECT_EQ(crossingsOf(written(87000), SoakBounds{}), Texts{});
	EXPECT_EQ(crossingsOf(written(88000), SoakBounds{}), Texts{"the log grows by 515.6 KiB in a minute"});
	const SoakSeries purged =
	    hourWith([](SoakSample& sample, long index) { sample.logged = index < 300 ? 100000000U : 1000U; });
	EXPECT_EQ(crossingsOf(purged, SoakBounds{}), Texts{});
}

TEST(SoakSeries, ShortSeriesAreNotJudgedByTheirGrowth)
{
	SoakSeries brief = hourWith([](SoakSample& sample, long index) { sample.ownKib += index * 100; });
	// Behind the sixty of the warm-up.
	brief.samples.resize(69);
	EXPECT_EQ(crossingsOf(brief, SoakBounds{}), Texts{});
	EXPECT_FALSE(isJudged(brief, SoakBounds{}));
	SoakSeries restless = hourWith([](SoakSample& sample, long) { sample.kept.reset(); });
	EXPECT_FALSE(isJudged(restless, SoakBounds{}));
	EXPECT_EQ(crossingsOf(SoakSeries{}, SoakBounds{}), Texts{});
	EXPECT_FALSE(isJudged(SoakSeries{}, SoakBounds{}));
}

TEST(SoakResults, ANodeWithoutAJudgedSeriesCrossesABound)
{
	EXPECT_EQ(crossingsOf(resultsOf(soundHour(), soundHour())), Texts{});
	SoakSeries brief = soundHour();
	brief.samples.resize(62);
	EXPECT_EQ(crossingsOf(resultsOf(soundHour(), brief)), Texts{"node b: no series is long enough to be judged"});
	EXPECT_EQ(crossingsOf(SoakResults{}),
	          (Texts{"only 0 faults struck, expected are at least 1", "node a: no series is long enough to be judged",
	                 "node b: no series is long enough to be judged"}));
}

TEST(SoakResults, AFaultHasToStrikeInEverySecondPeriod)
{
	SoakResults results = resultsOf(soundHour(), soundHour());
	results.faults.resize(29);
	EXPECT_EQ(crossingsOf(results), Texts{"only 29 faults struck, expected are at least 30"});
	// What is healed does not count.
	results.faults.resize(60);
	std::for_each(results.faults.begin(), results.faults.begin() + 31, [](SoakFault& fault) { fault.heal = true; });
	EXPECT_EQ(crossingsOf(results), Texts{"only 29 faults struck, expected are at least 30"});
	results.faults.front().heal = false;
	EXPECT_EQ(crossingsOf(results), Texts{});
	results.faults.clear();
	results.duration = Millis(61000);
	EXPECT_EQ(crossingsOf(results), Texts{"only 0 faults struck, expected are at least 1"});
}

TEST(SoakSeries, TenSamplesAfterTheWarmUpAreJudged)
{
	SoakSeries leaking = hourWith([](SoakSample& sample, long index) { sample.ownKib += index * 100; });
	leaking.samples.resize(70);
	EXPECT_TRUE(isJudged(leaking, SoakBounds{}));
	EXPECT_EQ(crossingsOf(leaking, SoakBounds{}).size(), 1U);
	leaking.samples.resize(69);
	EXPECT_FALSE(isJudged(leaking, SoakBounds{}));
	EXPECT_EQ(crossingsOf(leaking, SoakBounds{}), Texts{});
}

TEST(SoakResults, TellWhichAgentCrossesWhatAndWhatThePairDid)
{
	SoakResults results = resultsOf(soundHour(), hourWithOne(3, [](SoakSample& sample) { sample.threads = 3; }));
	results.problems = {"owner of the address: a+b"};
	EXPECT_EQ(crossingsOf(results), (Texts{"owner of the address: a+b", "node b, agent 42: at 35.000 s: 3 threads"}));
	EXPECT_NE(toText(results).find("the bounds were NOT kept\n"), std::string::npos);
}

TEST(SoakResults, TellWhereASeriesEnds)
{
	SoakResults results = resultsOf(soundHour(), soundHour());
	SoakSeries cut = soundHour();
	cut.pid = 41;
	cut.ended = "the agent was started again";
	cut.samples.resize(30);
	results.series.insert(results.series.begin(), cut);
	const std::string text = toText(results);
	EXPECT_NE(text.find("node a, agent 41: the agent was started again, a new series begins\n"), std::string::npos)
	    << text;
	EXPECT_NE(text.find("nothing grew beyond the bounds\n"), std::string::npos) << text;
	EXPECT_NE(toJson(results).find("\"ended\": \"the agent was started again\""), std::string::npos);
}

TEST(SoakFaults, AgentsEndOnlyWhenThatIsWanted)
{
	const std::vector<FaultKind> all{FaultKind::reboot, FaultKind::programKilled, FaultKind::coldStart,
	                                 FaultKind::agentFrozen};
	EXPECT_EQ(kindsForSoak(all, true), all);
	EXPECT_EQ(kindsForSoak(all, false), (std::vector<FaultKind>{FaultKind::programKilled, FaultKind::agentFrozen}));
}

TEST(SoakFaults, ThereHasToBeTimeBehindTheWarmUp)
{
	SoakOptions options;
	options.kinds = {FaultKind::programKilled};
	options.duration = Millis(600000);
	EXPECT_THROW(runSoak(options, [](const std::string&) {}), LabError);
}

} // namespace velarix::lab
