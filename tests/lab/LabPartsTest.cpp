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
#include "lab/core/Programs.h"
#include "lab/core/Timeline.h"
#include "lab/core/Wait.h"

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
	EXPECT_EQ(timeWith(intervals, {"none"}, Millis(100), Millis(1000)), Millis(600));
	EXPECT_EQ(longestWith(intervals, {"none"}, Millis(100), Millis(1000)), Millis(400));
	EXPECT_EQ(longestWith(intervals, {"none", "a"}, Millis(0), Millis(1000)), Millis(1000));
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
