/// What the measurement of idle nodes makes of the kernel's texts, and one short run.

#include <algorithm>
#include <csignal>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "ToolThreads.h"
#include "evidence/idle/Figures.h"
#include "evidence/idle/Monit.h"
#include "evidence/idle/ProcessFigures.h"
#include "evidence/idle/Run.h"
#include "lab/core/Lab.h"

namespace velarix::evidence::idle
{

namespace
{

constexpr const char* smaps = "00400000-00420000 r-xp 00000000 08:01 17 /usr/velarix/bin/VelarixHA\n"
                              "Size:                128 kB\nRss:                  80 kB\nPss:                  40 "
                              "kB\nPss_Dirty:             0 kB\n"
                              "Private_Clean:         8 kB\nPrivate_Dirty:         0 kB\nVmFlags: rd ex\n"
                              "00420000-00430000 rw-p 00020000 08:01 17 /usr/velarix/bin/VelarixHA\n"
                              "Size:                 64 kB\nRss:                  12 kB\nPss:                  12 kB\n"
                              "Private_Clean:         0 kB\nPrivate_Dirty:        12 kB\nVmFlags: rd wr\n"
                              "7f0000000000-7f0000021000 rw-p 00000000 00:00 0 \n"
                              "Rss:                 100 kB\nPss:                 100 kB\nPrivate_Clean:         0 "
                              "kB\nPrivate_Dirty:       100 kB\n"
                              "7f0000100000-7f0000121000 rw-p 00000000 00:00 0 [anon: glibc]\n"
                              "Rss:                   4 kB\nPss:                   4 kB\nPrivate_Clean:         0 "
                              "kB\nPrivate_Dirty:         4 kB\n"
                              "7ffc00000000-7ffc00021000 rw-p 00000000 00:00 0 [stack]\n"
                              "Rss:                  16 kB\nPss:                  16 kB\nPrivate_Clean:         0 "
                              "kB\nPrivate_Dirty:        16 kB\n";

NodeLook firstLook()
{
	NodeLook look;
	look.guard = {1.5, 0.5, 100, 10, 4, 1};
	look.announcer = {0.1, 0.2, 5, 0, 1, 1};
	look.lastProcess = 1000;
	look.cards = {CardTotals{10, 1000, 20, 2000}, CardTotals{0, 0, 0, 0}};
	look.logBytes = 1000;
	look.consoleBytes = 50;
	return look;
}

/// Ten seconds later.
NodeLook secondLook()
{
	NodeLook look = firstLook();
	look.guard = {1.6, 0.7, 350, 15, 4, 1};
	look.announcer = {0.1, 0.3, 9, 0, 1, 1};
	look.lastProcess = 1045;
	look.cards = {CardTotals{30, 3000, 21, 2100}, CardTotals{5, 500, 0, 0}};
	look.logBytes = 2000;
	look.consoleBytes = 60;
	return look;
}

} // namespace

TEST(ProcessTotals, AreOfTheProcessAndOfItsChildren)
{
	ProcessTotals totals;
	addStat("7 (a ) b) S 1 7 7 0 -1 4194624 500 0 0 0 150 50 30 20 20 0 4 0 100 1 2", 100, totals);
	EXPECT_DOUBLE_EQ(totals.ownSeconds, 2.0);
	EXPECT_DOUBLE_EQ(totals.childrenSeconds, 0.5);
	EXPECT_EQ(totals.processes, 1);
	for (const char* wrong : {"", "7 (a) S 1 7 7", "no process"})
	{
		EXPECT_THROW(addStat(wrong, 100, totals), LabError) << wrong;
	}
}

TEST(ProcessTotals, CountTheSwitchesOfEachThread)
{
	ProcessTotals totals;
	addThread("Name:\tx\nvoluntary_ctxt_switches:\t40\nnonvoluntary_ctxt_switches:\t3\n", totals);
	addThread("Name:\tx\nvoluntary_ctxt_switches:\t2\nnonvoluntary_ctxt_switches:\t1\n", totals);
	EXPECT_EQ(totals.wakeUps, 42U);
	EXPECT_EQ(totals.switches, 4U);
	EXPECT_EQ(totals.threads, 2);
	EXPECT_THROW(addThread("Name:\tx\n", totals), LabError);
}

TEST(ProcessMemory, IsAddedUpByWhatIsMapped)
{
	const MemoryByMapping memory = memoryIn(smaps);
	ASSERT_EQ(memory.size(), 3U);
	EXPECT_EQ(memory.at("VelarixHA").resident, 92);
	EXPECT_EQ(memory.at("VelarixHA").proportional, 52);
	EXPECT_EQ(memory.at("VelarixHA").ownPages, 20);
	EXPECT_EQ(memory.at("[memory]").resident, 104);
	EXPECT_EQ(memory.at("[stack]").ownPages, 16);
	EXPECT_EQ(sumOf(memory).resident, 212);
	EXPECT_EQ(sumOf(memory).proportional, 172);
	EXPECT_EQ(sumOf(memory).ownPages, 140);
	EXPECT_THROW(memoryIn("Rss: 12 kB\n"), LabError);
}

TEST(ProcessMemory, OfThisProgramIsThere)
{
	const MemoryFigures memory = sumOf(memoryOf(::getpid()));
	EXPECT_GT(memory.resident, 1000);
	EXPECT_GE(memory.resident, memory.proportional);
	EXPECT_GE(memory.proportional, memory.ownPages);
	EXPECT_GE(totalsOf(::getpid()).threads, 1);
}

TEST(CardTotals, AreOfTheNamedCard)
{
	const std::string text = "Inter-|   Receive  |  Transmit\n face |bytes packets errs\n"
	                         "    lo:     1    2 0 0 0 0 0 0    3    4 0 0 0 0 0 0\n"
	                         "  eth1:  1000   10 0 0 0 0 0 0 2000   20 0 0 0 0 0 0\n";
	const CardTotals card = cardIn(text, "eth1");
	EXPECT_EQ(card.receivedBytes, 1000U);
	EXPECT_EQ(card.receivedPackets, 10U);
	EXPECT_EQ(card.sentBytes, 2000U);
	EXPECT_EQ(card.sentPackets, 20U);
	EXPECT_THROW(cardIn(text, "eth0"), LabError);
	EXPECT_THROW(cardIn(text, "eth"), LabError);
}

TEST(LastProcess, IsTheFifthWord)
{
	EXPECT_EQ(lastProcessIn("0.10 0.20 0.30 2/345 6789\n"), 6789);
	EXPECT_THROW(lastProcessIn("0.10 0.20"), LabError);
}

TEST(IdleFigures, AreWhatTwoLooksDifferIn)
{
	Figures figures;
	compare(firstLook(), secondLook(), 10, figures);
	EXPECT_NEAR(figures.ownCpuPerHour, 36, 1e-9);
	EXPECT_NEAR(figures.childrenCpuPerHour, 72, 1e-9);
	EXPECT_NEAR(figures.announcerCpuPerHour, 36, 1e-9);
	EXPECT_NEAR(figures.cpuPercent(), 3, 1e-9);
	EXPECT_NEAR(figures.ownCpuPercent(), 1, 1e-9);
	EXPECT_NEAR(figures.wakeUps, 25, 1e-9);
	EXPECT_NEAR(figures.switches, 0.5, 1e-9);
	EXPECT_NEAR(figures.newProcesses, 4.5, 1e-9);
	EXPECT_EQ(figures.threads, 4);
	EXPECT_NEAR(figures.cards[0].received, 2, 1e-9);
	EXPECT_NEAR(figures.cards[0].sent, 0.1, 1e-9);
	EXPECT_NEAR(figures.cards[0].bytes, 210, 1e-9);
	EXPECT_NEAR(figures.cards[1].received, 0.5, 1e-9);
	EXPECT_NEAR(figures.logPerDay, 8640000, 1e-3);
	EXPECT_NEAR(figures.consolePerDay, 86400, 1e-3);
	EXPECT_THROW(compare(firstLook(), secondLook(), 0, figures), LabError);
}

TEST(IdleFigures, AreMediansOfWindows)
{
	std::vector<Figures> windows(4);
	const double cpu[] = {36, 3600, 72, 108};
	for (std::size_t i = 0; i < windows.size(); ++i)
	{
		windows[i].ownCpuPerHour = cpu[i];
		windows[i].cards[1].sent = cpu[i];
		windows[i].memory.resident = static_cast<std::int64_t>(cpu[i]);
		windows[i].threads = 4;
	}
	const Figures middle = medianOf(windows);
	EXPECT_EQ(middle.windows, 4);
	EXPECT_NEAR(middle.ownCpuPerHour, 90, 1e-9);
	EXPECT_NEAR(middle.cards[1].sent, 90, 1e-9);
	EXPECT_EQ(middle.memory.resident, 90);
	EXPECT_EQ(middle.threads, 4);
	EXPECT_NEAR(middle.leastCpu, 1, 1e-9);
	EXPECT_NEAR(middle.mostCpu, 100, 1e-9);
	EXPECT_THROW(medianOf({}), LabError);
}

TEST(ProcessMemory, KnowsWhoSharesAProgram)
{
	const pid_t child = ::fork();
	ASSERT_NE(child, -1);
	if (child == 0)
	{
		::pause();
		::_exit(0);
	}
	const auto isThis = [](const std::string& sharer)
	{ return sharer.ends_with(" (" + std::to_string(::getpid()) + ")"); };
	const std::vector<std::string> others = sharersOf({child});
	EXPECT_TRUE(std::any_of(others.begin(), others.end(), isThis));
	const std::vector<std::string> rest = sharersOf({::getpid(), child});
	EXPECT_FALSE(std::any_of(rest.begin(), rest.end(), isThis));
	::kill(child, SIGKILL);
	::waitpid(child, nullptr, 0);
}

TEST(IdleFigures, SurviveTheirJourney)
{
	Figures figures;
	figures.guard = "monit";
	figures.node = "b";
	figures.role = "watches";
	compare(firstLook(), secondLook(), 10, figures);
	figures.mappings = memoryIn(smaps);
	figures.memory = sumOf(figures.mappings);
	figures.memoryAlone = MemoryFigures{1, 2, 3};
	const std::string json = jsonText(std::vector<Figures>{figures, Figures{}});
	const auto copy = recordIn<std::vector<Figures>>(json);
	EXPECT_EQ(jsonText(copy), json);
	EXPECT_FALSE(copy[1].memoryAlone);
	EXPECT_THROW(recordIn<std::vector<Figures>>("[{}]"), LabError);
}

TEST(IdleReport, HasEachNodeAndWhatWasNotMeasured)
{
	Results results;
	Figures figures;
	figures.guard = "VelarixHA";
	figures.node = "a";
	figures.role = "master";
	compare(firstLook(), secondLook(), 10, figures);
	figures.memory = {7168, 2048, 1024};
	results.nodes = {figures};
	results.problems = {"monit: it did not start"};
	EXPECT_EQ(toText(results), "\n\nVelarixHA, node a (master): 3.000 % of a processor, 7.3 MB resident, 2.1 MB "
	                           "proportional\nnot measured: monit: it did not start\n");
	EXPECT_EQ(jsonOf(results).at("goals").at("resident"), 12000000);
}

TEST(Monit, IsToldToLookAtWhatTheAgentLooksAt)
{
	const std::string settings = monitSettings(120);
	for (const char* part : {"set daemon 120\n", "matching \"labhttpd\"", "address 198.51.100.1\n", "interface eth0\n",
	                         "interface eth1\n"})
	{
		EXPECT_NE(settings.find(part), std::string::npos) << part;
	}
	for (const char* part : {"httpd port", "mailserver", "exec", "start program", "/var/"})
	{
		EXPECT_EQ(settings.find(part), std::string::npos) << part;
	}
}

TEST(IdleRun, MeasuresBothNodesOfAPair)
{
	Plan plan;
	plan.guard = "VelarixHA";
	plan.settle = Millis(1000);
	plan.length = Millis(2000);
	plan.windows = 2;
	const std::vector<Figures> figures = measureIdle(plan);
	ASSERT_EQ(figures.size(), 2U);
	EXPECT_EQ(figures[0].role, "master");
	EXPECT_EQ(figures[1].role, "standby");
	for (const Figures& node : figures)
	{
		EXPECT_EQ(node.threads, 4 + kToolThreads) << node.node;
		EXPECT_EQ(node.processes, 1) << node.node;
		EXPECT_GT(node.wakeUps, 1) << node.node;
		EXPECT_GT(node.cards[1].sent, 1) << node.node;
		EXPECT_GT(node.logPerDay, 1e6) << node.node;
		EXPECT_GT(node.memory.resident, node.memory.proportional) << node.node;
		EXPECT_TRUE(node.mappings.contains("VelarixHA")) << node.node;
	}
}

} // namespace velarix::evidence::idle
