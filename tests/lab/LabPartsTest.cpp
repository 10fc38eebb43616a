/// Parts of the lab that need no namespaces; of random schedules drawing, judging, telling, and the
/// processes that runs have of their own.

#include <algorithm>
#include <cctype>
#include <csignal>
#include <map>
#include <set>

#include <gtest/gtest.h>
#include <unistd.h>

#include "inspect/Catalogue.h"
#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/chaos/Chaos.h"
#include "lab/core/Basics.h"
#include "lab/core/Fault.h"
#include "lab/core/Host.h"
#include "lab/core/LogWatch.h"
#include "lab/core/NodeSettings.h"
#include "lab/core/Programs.h"
#include "lab/core/Timeline.h"

namespace velarix::lab
{

/// What the lab makes of a number would be nonsense if the message meant something else.
TEST(LabLogMeaning, EveryNumberIsOneOfTheCatalogue)
{
	const std::map<LogMark, std::string> words{{LogMark::workBegins, "stop virtual ip, process"},
	                                           {LogMark::passBegins, "reciver while start"},
	                                           {LogMark::probeAnswered, "true"},
	                                           {LogMark::probeSilent, "false"}};
	std::size_t marked = 0;
	for (const inspect::CatalogueRow& row : inspect::catalogue())
	{
		inspect::LogLine line;
		line.label = row.label;
		line.number = row.number;
		const LogMeaning* meaning = meaningOf(line);
		const auto expected = meaning == nullptr ? words.end() : words.find(meaning->mark);
		if (expected != words.end())
		{
			std::string text(row.text);
			std::transform(text.begin(), text.end(), text.begin(),
			               [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
			EXPECT_NE(text.find(expected->second), std::string::npos) << row.place() << ": " << row.text;
			++marked;
		}
	}
	EXPECT_EQ(marked, 8U);
}

TEST(LabSettings, WriteEveryKeyOnceInItsSection)
{
	NodeSettings settings = NodeSettings::standard(HostId::b);
	settings.set("AGENT.MODE", 1).set("NEW.KEY", "value").remove("LOG.PURGEAGE");
	const std::string ini = settings.ini();
	EXPECT_NE(ini.find("[AGENT]\nMODE = 1\n"), std::string::npos) << ini;
	EXPECT_NE(ini.find("[NEW]\nKEY = value\n"), std::string::npos) << ini;
	EXPECT_EQ(ini.find("PURGEAGE"), std::string::npos) << ini;
	EXPECT_EQ(ini.find("MODE", ini.find("MODE") + 1), ini.find("OBSERVATION_MODE") + 12) << ini;
}

TEST(LabTimeline, KeepsTheOrderOfTimesAndOfChanges)
{
	Timeline timeline;
	timeline.change(serviceTrack, Millis(0), "none");
	timeline.change(serviceTrack, Millis(500), "a");
	timeline.change(serviceTrack, Millis(600), "a");
	timeline.add({Millis(300), EventKind::fault, HostId::a, "host powered off"});
	timeline.change(serviceTrack, Millis(800), "none");
	EXPECT_EQ(timeline.current(serviceTrack), "none");
	EXPECT_EQ(timeline.current(addressTrack), "");
	ASSERT_EQ(timeline.events().size(), 4U);
	EXPECT_EQ(timeline.events()[1].kind, EventKind::fault);

	const std::vector<Interval> intervals = timeline.intervals(serviceTrack, Millis(1000));
	ASSERT_EQ(intervals.size(), 3U);
	EXPECT_EQ(intervals[1].from, Millis(500));
	EXPECT_EQ(intervals[1].to, Millis(800));
	EXPECT_EQ(timeWith(intervals, "none", Millis(100), Millis(1000)), Millis(600));
	EXPECT_EQ(longestWith(intervals, "none", Millis(100), Millis(1000)), Millis(400));
}

TEST(LabFaults, HaveNamesOfTheirOwnAndRepairsThatAreTold)
{
	std::set<std::string> names;
	for (const FaultInfo& info : allFaults())
	{
		EXPECT_TRUE(names.insert(info.name).second) << info.name;
		EXPECT_EQ(info.repair == nullptr, info.repaired == nullptr) << info.name;
	}
	EXPECT_THROW(infoOf("earthquake"), LabError);
}

TEST(LabHosts, BeginTheirProcessNumbersApart)
{
	std::set<int> seen;
	for (const std::uint64_t seed : {0U, 1U, 2U, 4000000000U})
	{
		for (std::size_t index = 0; index < allHosts.size(); ++index)
		{
			const int first = firstProcessOf(allHosts[index], seed);
			EXPECT_GE(first, 1000);
			EXPECT_LT(first, 30000) << "below the least number of processes a kernel allows";
			EXPECT_EQ(first, firstProcessOf(allHosts[0], seed) + 7000 * static_cast<int>(index));
			seen.insert(first);
		}
	}
	EXPECT_EQ(seen.size(), 16U);
}

} // namespace velarix::lab

namespace velarix::lab::chaos
{

TEST(MatrixChildren, HandBackTextsAndProblems)
{
	std::vector<std::string> seen(7);
	const Work work = [](std::size_t index, const HandOver&) -> std::string
	{
		switch (index)
		{
		case 1:
			throw LabError("no luck");
		case 2:
			_exit(3);
		case 3:
			for (;;)
			{
				::pause();
			}
		case 4:
			throw LabError("");
		case 5:
			::raise(SIGKILL);
			return "";
		case 6:
			_exit(0);
		default:
			return std::string(100000, 'x');
		}
	};
	runInWorkers(7, 2, Millis(2000), work,
	             [&](const WorkerResult& result) {
		             seen[result.index] = result.problem.empty() ? std::to_string(result.text.size()) : result.problem;
	             });
	EXPECT_EQ(seen, (std::vector<std::string>{"100000", "no luck", "it ended with status 3", "it did not end in time",
	                                          "it failed and did not say why", "it was killed by signal 9",
	                                          "it ended before it had said everything"}));
}

TEST(MatrixChildren, KeepTheirPartsWhenTheirTimeIsOver)
{
	WorkerResult seen;
	const Work work = [](std::size_t, const HandOver& handOver) -> std::string
	{
		handOver("first");
		handOver("");
		handOver("third");
		for (;;)
		{
			::pause();
		}
	};
	runInWorkers(1, 1, Millis(500), work, [&](const WorkerResult& result) { seen = result; });
	EXPECT_EQ(seen.problem, "it did not end in time");
	EXPECT_EQ(seen.parts, (std::vector<std::string>{"first", "", "third"}));
}

TEST(Chaos, AScheduleFollowsFromItsSeed)
{
	const std::vector<std::string> kinds{"power-off", "gateway", "reboot"};
	const auto drawn = [&](std::uint64_t seed, int worker)
	{
		Schedule schedule(seed, worker, kinds);
		std::string text;
		for (int step = 0; step < 50; ++step)
		{
			const Step next = schedule.next();
			EXPECT_GE(next.faults.size(), 1U);
			EXPECT_LE(next.faults.size(), 2U);
			text += toText(next) + std::to_string(next.stands.count()) + "\n";
		}
		return text;
	};
	EXPECT_EQ(drawn(7, 0), drawn(7, 0));
	EXPECT_NE(drawn(7, 0), drawn(8, 0));
	EXPECT_NE(drawn(7, 0), drawn(7, 1));
	EXPECT_NE(drawn(7, 0).find("power-off of the master, "), std::string::npos);
	EXPECT_NE(drawn(7, 0).find("power-off of the other one"), std::string::npos);
	EXPECT_THROW(Schedule(1, 0, {}), LabError);
}

TEST(Chaos, TheReportNamesTheCommandThatRepeatsWhatWentWrong)
{
	Results results;
	EXPECT_FALSE(results.good());
	StepRecord record;
	record.worker = 2;
	record.step = 9;
	record.faults = "reboot of the master";
	record.injected = {"reboot:a"};
	results.seed = 5;
	results.records = {record};
	EXPECT_TRUE(results.good());
	results.records[0].violations = {"owner of the address: a+b"};
	EXPECT_FALSE(results.good());
	const std::string text = toText(results);
	EXPECT_NE(text.find("velarix-lab chaos --settings plain --seed 5 --worker 2 --steps 9"), std::string::npos) << text;
	EXPECT_NE(text.find("worker 2, step 9 (reboot of the master): owner of the address: a+b"), std::string::npos);
	results.records[0].violations.clear();
	results.problems = {{1, 4, "it did not end in time"}};
	EXPECT_FALSE(results.good());
	EXPECT_NE(
	    toText(results).find("worker 1 did not get to its end, step 4: it did not end in time\n  again: velarix-lab "
	                         "chaos --settings plain --seed 5 --worker 1 --steps 4"),
	    std::string::npos)
	    << toText(results);
}

TEST(Chaos, APairThatIsWellHasNoViolation)
{
	PhaseRecord after;
	after.steady = true;
	after.owner = after.answer = after.programs = "b";
	EXPECT_TRUE(violationsOf(after, "", "a+b").empty());
	EXPECT_EQ(violationsOf(after, "a", "b"),
	          (std::vector<std::string>{"an agent has ended by itself on: a", "no agent on node a"}));
	PhaseRecord split = after;
	split.owner = "a+b";
	EXPECT_EQ(violationsOf(split, "", "a+b"),
	          (std::vector<std::string>{"owner of the address: a+b", "the client is answered by: b",
	                                    "the managed program runs on: b"}));
	PhaseRecord silent = after;
	silent.answer = "none";
	silent.disagreements = {"x"};
	EXPECT_EQ(violationsOf(silent, "", "a+b"),
	          (std::vector<std::string>{"the client is answered by: none", "log and observation: x"}));
	PhaseRecord restless = after;
	restless.steady = false;
	restless.programs = "a";
	EXPECT_EQ(violationsOf(restless, "", "none"),
	          (std::vector<std::string>{"the pair does not come to rest", "the managed program runs on: a",
	                                    "no agent on node a", "no agent on node b"}));
}

TEST(Chaos, AWorkerWithoutAPairTellsWhy)
{
	Options options;
	options.kinds = {"reboot"};
	options.installRoot = "/no/such/tree";
	try
	{
		runWorker(options, [](const StepRecord&) { FAIL() << "no step can be run"; });
		FAIL() << "there is no such tree";
	}
	catch (const LabError& error)
	{
		EXPECT_NE(std::string(error.what()).find("/no/such/tree"), std::string::npos) << error.what();
	}
}

} // namespace velarix::lab::chaos
