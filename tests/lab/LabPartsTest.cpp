/// Parts of the lab that need no namespaces.

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include "inspect/Catalogue.h"
#include "lab/core/Fault.h"
#include "lab/core/Host.h"
#include "lab/core/LogMeaning.h"
#include "lab/core/NodeSettings.h"
#include "lab/core/Owners.h"
#include "lab/core/Programs.h"
#include "lab/core/Timeline.h"
#include "lab/core/Wait.h"
#include "lab/demo/Demo.h"

namespace velarix::lab
{

TEST(LabLogMeaning, IsFoundByLabelAndNumber)
{
	inspect::LogLine line;
	line.label = "CHeartReciver";
	line.number = 414;
	ASSERT_NE(meaningOf(line), nullptr);
	EXPECT_STREQ(meaningOf(line)->role, "master");
	line.number = 543;
	EXPECT_STREQ(meaningOf(line)->role, "slave");
	line.label = "Utill";
	EXPECT_EQ(meaningOf(line), nullptr);
}

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
	EXPECT_EQ(timeWith(intervals, {"none"}, Millis(100), Millis(1000)), Millis(600));
	EXPECT_EQ(longestWith(intervals, {"none"}, Millis(100), Millis(1000)), Millis(400));
	EXPECT_EQ(longestWith(intervals, {"none", "a"}, Millis(0), Millis(1000)), Millis(1000));
}

TEST(LabFaults, TheTableIsWholeAndInOrder)
{
	for (std::size_t index = 0; index < allFaults().size(); ++index)
	{
		const FaultInfo& info = allFaults()[index];
		EXPECT_EQ(static_cast<std::size_t>(info.kind), index) << info.name;
		EXPECT_EQ(faultNamed(info.name), info.kind);
		EXPECT_EQ(info.repair == nullptr, info.repaired == nullptr) << info.name;
	}
	EXPECT_FALSE(faultNamed("earthquake"));
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

TEST(LabTools, AreAllReportedWhenTheyAreMissing)
{
	const std::vector<std::string> missing = missingTools({"/no/such/directory"});
	EXPECT_EQ(missing.front(), "ip (Debian package iproute2)");
	EXPECT_EQ(missing.back(), "sh (Debian package dash)");
	for (const char* tool : {"bash (Debian package bash)", "mount (Debian package mount)",
	                         "umount (Debian package mount)", "env (Debian package coreutils)"})
	{
		EXPECT_NE(std::find(missing.begin(), missing.end(), tool), missing.end()) << tool;
	}
}

TEST(LabOwners, AreASetOfNodes)
{
	EXPECT_EQ(ownersText(false, false), "none");
	EXPECT_EQ(ownersText(true, false), "a");
	EXPECT_EQ(ownersText(false, true), "b");
	EXPECT_EQ(ownersText(true, true), "a+b");
	EXPECT_TRUE(holds("a", HostId::a));
	EXPECT_TRUE(holds("a+b", HostId::b));
	EXPECT_FALSE(holds("a", HostId::b));
	EXPECT_FALSE(holds("none", HostId::a));
	EXPECT_FALSE(holds("", HostId::a));
	EXPECT_TRUE(isSingle("a"));
	EXPECT_TRUE(isSingle("b"));
	for (const char* other : {"", "none", "a+b"})
	{
		EXPECT_FALSE(isSingle(other)) << other;
	}
	EXPECT_EQ(nodeText(HostId::b), "node b");
}

TEST(LabDemo, ATableRowTellsWhatWasNotAsExpected)
{
	using namespace demo;
	PhaseResult good;
	good.title = "start";
	good.expected = good.ownersAfter = "a";
	good.asExpected = true;
	PhaseResult bad = good;
	bad.title = "cut";
	bad.ownersAfter = "a+b";
	bad.asExpected = false;
	bad.splitBrain = Millis(1234);
	EXPECT_TRUE(allAsExpected({good}));
	EXPECT_FALSE(allAsExpected({good, bad}));
	EXPECT_FALSE(allAsExpected({}));
	const std::string table = toTable({good, bad});
	EXPECT_NE(table.find("NOT AS EXPECTED"), std::string::npos) << table;
	EXPECT_NE(table.find("1.234 s"), std::string::npos) << table;
}

TEST(LabWait, TellsWhatItLastSaw)
{
	testing::internal::CaptureStderr();
	EXPECT_FALSE(waitFor([] { return false; }, Millis(30), "the impossible", [] { return std::string("nothing"); }));
	EXPECT_EQ(testing::internal::GetCapturedStderr(),
	          "gave up waiting for the impossible after 0.030 s; last seen: nothing\n");
	EXPECT_TRUE(waitFor([] { return true; }, Millis(0), "the present"));
}

} // namespace velarix::lab
