/// Which series of samples are within the bounds of a soak, and which are not.

#include <algorithm>

#include <gtest/gtest.h>

#include "lab/campaigns/soak/Run.h"

namespace velarix::lab::soak
{

namespace
{

using Texts = std::vector<std::string>;

/// An hour of a sound agent: sampled every 10 s, at rest in every second half minute,
/// memory to and fro by a page.
Series soundHour()
{
	Series series;
	series.pid = 42;
	for (int index = 0; index <= 360; ++index)
	{
		Sample sample;
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
template <typename Change> Series hourWith(Change change)
{
	Series series = soundHour();
	for (std::size_t index = 0; index < series.samples.size(); ++index)
	{
		change(series.samples[index], static_cast<long>(index));
	}
	return series;
}

/// The sound hour with a change to one sample.
template <typename Change> Series hourWithOne(std::size_t index, Change change)
{
	Series series = soundHour();
	change(series.samples.at(index));
	return series;
}

Results resultsOf(const Series& ofA, const Series& ofB)
{
	Results results;
	results.series = {ofA, ofB};
	results.series[1].node = HostId::b;
	results.duration = Millis(3600000);
	results.faults.resize(30);
	return results;
}

} // namespace

TEST(SoakSeries, ASoundHourCrossesNothing)
{
	EXPECT_EQ(crossingsOf(soundHour(), Bounds{}), Texts{});
	EXPECT_TRUE(isJudged(soundHour(), Bounds{}));
}

TEST(SoakSeries, ALineGoesThroughTheSamples)
{
	std::vector<Sample> samples(3);
	for (int index = 0; index < 3; ++index)
	{
		samples[static_cast<std::size_t>(index)].at = Millis(index * 1800000);
		samples[static_cast<std::size_t>(index)].ownKib = 100 + index * 30;
	}
	const std::optional<Line> line = lineThrough(samples, &Sample::ownKib);
	ASSERT_TRUE(line);
	EXPECT_NEAR(line->perHour, 60, 1e-9);
	EXPECT_NEAR(line->overSpan, 60, 1e-9);
	EXPECT_NEAR(line->deviation, 0, 1e-6);
	samples[1].ownKib = 160;
	EXPECT_NEAR(lineThrough(samples, &Sample::ownKib)->perHour, 60, 1e-9);
	EXPECT_NEAR(lineThrough(samples, &Sample::ownKib)->deviation, 14.142, 0.001);
	samples.pop_back();
	EXPECT_FALSE(lineThrough(samples, &Sample::ownKib));
	samples.push_back(samples.back());
	samples[1].at = samples[2].at = samples[0].at;
	EXPECT_FALSE(lineThrough(samples, &Sample::ownKib));
}

TEST(SoakSeries, MemoryThatLeaksWithEveryHeartbeatIsFound)
{
	// 100 bytes for each of 3600 heartbeats of an hour.
	const Series leaking = hourWith([](Sample& sample, long index) { sample.ownKib += index * 1000 / 1024; });
	const Texts found = crossingsOf(leaking, Bounds{});
	ASSERT_EQ(found.size(), 1U);
	EXPECT_TRUE(found[0].starts_with("memory of its own grows by 29")) << found[0];
	EXPECT_NE(found[0].find(" KiB in 3000.000 s, allowed are 6"), std::string::npos) << found[0];
}

TEST(SoakSeries, MemoryMayRiseALittle)
{
	EXPECT_EQ(crossingsOf(hourWith([](Sample& sample, long index) { sample.ownKib += index / 6; }), Bounds{}), Texts{});
	EXPECT_EQ(crossingsOf(hourWith([](Sample& sample, long index) { sample.ownKib += index / 4; }), Bounds{}).size(),
	          1U);
}

TEST(SoakSeries, AStepOfAFewPagesIsNoGrowth)
{
	const auto step = [](long kib)
	{ return hourWith([=](Sample& sample, long index) { sample.ownKib += index > 200 ? kib : 0; }); };
	EXPECT_EQ(crossingsOf(step(32), Bounds{}), Texts{});
	EXPECT_EQ(crossingsOf(step(160), Bounds{}).size(), 1U);
}

TEST(SoakSeries, GrowthInTheWarmUpDoesNotCount)
{
	const Series warming = hourWith([](Sample& sample, long index) { sample.ownKib += std::min(index, 60L) * 100; });
	EXPECT_EQ(crossingsOf(warming, Bounds{}), Texts{});
	Bounds impatient;
	impatient.warmUp = Millis(0);
	EXPECT_EQ(crossingsOf(warming, impatient).size(), 1U);
}

TEST(SoakSeries, JitterIsNoGrowth)
{
	EXPECT_EQ(crossingsOf(hourWith([](Sample& sample, long index) { sample.ownKib += (index % 5) * 200; }), Bounds{}),
	          Texts{});
}

TEST(SoakSeries, ResidentMemoryHasABoundOfItsOwn)
{
	EXPECT_EQ(crossingsOf(hourWith([](Sample& sample, long index) { sample.rssKib += 2 * index; }), Bounds{}), Texts{});
	const Texts found = crossingsOf(hourWith([](Sample& sample, long index) { sample.rssKib += 4 * index; }), Bounds{});
	ASSERT_EQ(found.size(), 1U);
	EXPECT_TRUE(found[0].starts_with("resident memory grows by 1200.")) << found[0];
}

TEST(SoakSeries, EachDescriptorThatStaysOpenIsFound)
{
	const Series leaking =
	    hourWith([](Sample& sample, long index)
	             { sample.kept = sample.kept && index > 350 ? std::optional<int>(5) : sample.kept; });
	EXPECT_EQ(crossingsOf(leaking, Bounds{}),
	          (Texts{"at 3525.000 s: 5 descriptors are kept", "at 3535.000 s: 5 descriptors are kept",
	                 "at 3585.000 s: 5 descriptors are kept", "at 3595.000 s: 5 descriptors are kept"}));
}

TEST(SoakSeries, ALostDescriptorIsFound)
{
	const Series lost = hourWithOne(4, [](Sample& sample) { sample.kept = 3; });
	EXPECT_EQ(crossingsOf(lost, Bounds{}), Texts{"at 45.000 s: 3 descriptors are kept"});
}

TEST(SoakSeries, ManyDescriptorsAtAnyTimeAreFound)
{
	const auto open = [](int count) { return hourWithOne(0, [=](Sample& sample) { sample.descriptors = count; }); };
	EXPECT_EQ(crossingsOf(open(32), Bounds{}), Texts{});
	EXPECT_EQ(crossingsOf(open(33), Bounds{}), Texts{"at 5.000 s: 33 descriptors are open"});
}

TEST(SoakSeries, AThreadThatEndedAndOneTooManyAreFoundAtRest)
{
	const auto threads = [](std::size_t at, int count)
	{ return hourWithOne(at, [=](Sample& sample) { sample.threads = count; }); };
	EXPECT_EQ(crossingsOf(threads(3, 3), Bounds{}), Texts{"at 35.000 s: 3 threads"});
	EXPECT_EQ(crossingsOf(threads(3, 5), Bounds{}), Texts{"at 35.000 s: 5 threads"});
	EXPECT_EQ(crossingsOf(threads(0, 5), Bounds{}), Texts{});
}

TEST(SoakSeries, AZombieThatIsNotFetchedIsFound)
{
	const auto zombie = [](int millis)
	{ return hourWithOne(5, [=](Sample& sample) { sample.oldestZombie = Millis(millis); }); };
	EXPECT_EQ(crossingsOf(zombie(5000), Bounds{}), Texts{});
	EXPECT_EQ(crossingsOf(zombie(5001), Bounds{}), Texts{"at 55.000 s: a zombie of 5.001 s"});
}

TEST(SoakSeries, ALogThatIsWrittenWithoutAPauseIsFound)
{
	const auto written = [](std::uint64_t perSample)
	{
		return hourWith([=](Sample& sample, long index)
		                { sample.logged = static_cast<std::uint64_t>(index) * perSample; });
	};
	EXPECT_EQ(crossingsOf(written(87000), Bounds{}), Texts{});
	EXPECT_EQ(crossingsOf(written(88000), Bounds{}), Texts{"the log grows by 515.6 KiB in a minute"});
	const Series purged =
	    hourWith([](Sample& sample, long index) { sample.logged = index < 300 ? 100000000U : 1000U; });
	EXPECT_EQ(crossingsOf(purged, Bounds{}), Texts{});
}

TEST(SoakSeries, ShortSeriesAreNotJudgedByTheirGrowth)
{
	Series brief = hourWith([](Sample& sample, long index) { sample.ownKib += index * 100; });
	// Behind the sixty of the warm-up.
	brief.samples.resize(69);
	EXPECT_EQ(crossingsOf(brief, Bounds{}), Texts{});
	EXPECT_FALSE(isJudged(brief, Bounds{}));
	Series restless = hourWith([](Sample& sample, long) { sample.kept.reset(); });
	EXPECT_FALSE(isJudged(restless, Bounds{}));
	EXPECT_EQ(crossingsOf(Series{}, Bounds{}), Texts{});
	EXPECT_FALSE(isJudged(Series{}, Bounds{}));
}

TEST(SoakResults, ANodeWithoutAJudgedSeriesCrossesABound)
{
	EXPECT_EQ(crossingsOf(resultsOf(soundHour(), soundHour())), Texts{});
	Series brief = soundHour();
	brief.samples.resize(62);
	EXPECT_EQ(crossingsOf(resultsOf(soundHour(), brief)), Texts{"node b: no series is long enough to be judged"});
	EXPECT_EQ(crossingsOf(Results{}), (Texts{"only 0 faults were injected, expected are at least 1",
	                                         "node a: no series is long enough to be judged",
	                                         "node b: no series is long enough to be judged"}));
}

TEST(SoakResults, AFaultIsInjectedInEverySecondPeriod)
{
	Results results = resultsOf(soundHour(), soundHour());
	results.faults.resize(29);
	EXPECT_EQ(crossingsOf(results), Texts{"only 29 faults were injected, expected are at least 30"});
	// What is repaired does not count.
	results.faults.resize(60);
	std::for_each(results.faults.begin(), results.faults.begin() + 31, [](FaultRecord& fault) { fault.repair = true; });
	EXPECT_EQ(crossingsOf(results), Texts{"only 29 faults were injected, expected are at least 30"});
	results.faults.front().repair = false;
	EXPECT_EQ(crossingsOf(results), Texts{});
	results.faults.clear();
	results.duration = Millis(61000);
	EXPECT_EQ(crossingsOf(results), Texts{"only 0 faults were injected, expected are at least 1"});
}

TEST(SoakSeries, TenSamplesAfterTheWarmUpAreJudged)
{
	Series leaking = hourWith([](Sample& sample, long index) { sample.ownKib += index * 100; });
	leaking.samples.resize(70);
	EXPECT_TRUE(isJudged(leaking, Bounds{}));
	EXPECT_EQ(crossingsOf(leaking, Bounds{}).size(), 1U);
	leaking.samples.resize(69);
	EXPECT_FALSE(isJudged(leaking, Bounds{}));
	EXPECT_EQ(crossingsOf(leaking, Bounds{}), Texts{});
}

TEST(SoakResults, TellWhichAgentCrossesWhatAndWhatThePairDid)
{
	Results results = resultsOf(soundHour(), hourWithOne(3, [](Sample& sample) { sample.threads = 3; }));
	results.problems = {"owner of the address: a+b"};
	EXPECT_EQ(crossingsOf(results), (Texts{"owner of the address: a+b", "node b, agent 42: at 35.000 s: 3 threads"}));
	EXPECT_NE(toText(results).find("the bounds were NOT kept\n"), std::string::npos);
}

TEST(SoakResults, TellWhereASeriesEnds)
{
	Results results = resultsOf(soundHour(), soundHour());
	Series cut = soundHour();
	cut.pid = 41;
	cut.ended = "the agent was started again";
	cut.samples.resize(30);
	results.series.insert(results.series.begin(), cut);
	const std::string text = toText(results);
	EXPECT_NE(text.find("; the agent was started again, a new series begins\n"), std::string::npos) << text;
	EXPECT_NE(text.find("nothing grew beyond the bounds\n"), std::string::npos) << text;
	EXPECT_EQ(jsonOf(results).at("series").at(0).at("ended"), "the agent was started again");
}

TEST(SoakFaults, AgentsEndOnlyWhenThatIsWanted)
{
	const std::vector<FaultKind> all{FaultKind::reboot, FaultKind::programKilled, FaultKind::coldStart,
	                                 FaultKind::agentFrozen};
	EXPECT_EQ(kindsFor(all, true), all);
	EXPECT_EQ(kindsFor(all, false), (std::vector<FaultKind>{FaultKind::programKilled, FaultKind::agentFrozen}));
}

TEST(SoakFaults, ThereHasToBeTimeBehindTheWarmUp)
{
	Options options;
	options.kinds = {FaultKind::programKilled};
	options.duration = Millis(600000);
	EXPECT_THROW(runSoak(options, [](const std::string&) {}), LabError);
}

} // namespace velarix::lab::soak
