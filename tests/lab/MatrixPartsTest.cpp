/// What the fault matrix is told: sums of waits, and the table of what is expected.

#include <algorithm>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include "SmallTable.h"
#include "lab/campaigns/matrix/Waits.h"
#include "lab/tables/Expectations.h"

namespace velarix::lab
{

namespace
{

std::string problemOfTable(const std::string& text)
{
	try
	{
		parseExpectations(text);
		return "";
	}
	catch (const LabError& error)
	{
		return error.what();
	}
}

/// "a master", "b standby": whom a fault strikes in the cells of the table.
std::map<FaultKind, std::set<std::string>> struckIn(const Expectations& table)
{
	std::map<FaultKind, std::set<std::string>> struck;
	for (const Cell& cell : table.cells)
	{
		for (const Fault& fault : cell.inject)
		{
			struck[fault.kind].insert(nameOf(fault.node) +
			                          std::string(fault.node == cell.master ? " master" : " standby"));
		}
	}
	return struck;
}

} // namespace

TEST(MatrixWaits, FollowTheSettings)
{
	EXPECT_EQ(sumOf("silence+2*ping+count+wait", {1, 2, 0}), Millis(10000));
	EXPECT_EQ(sumOf("silence+2*ping+count+wait", {1, 3, 1}), Millis(12000));
	EXPECT_EQ(sumOf("beat", {2, 4, 0}), Millis(2500));
	EXPECT_EQ(sumOf("0", {}), Millis(0));
	EXPECT_EQ(explained("2*beat+count", {1, 2, 0}), "2 * beat 1.5 s + count 5 s");
	for (const char* wrong : {"", "silence+", "x*ping", "2*", "nap", "*ping"})
	{
		EXPECT_THROW(sumOf(wrong, {}), LabError) << wrong;
	}
}

TEST(MatrixTable, IsReadRowByRow)
{
	const Expectations table = parseExpectations(smallTable);
	ASSERT_EQ(table.cells.size(), 2U);
	const Cell& kill = table.cells[0];
	EXPECT_EQ(kill.inject.size(), 1U);
	EXPECT_EQ(toName(kill.inject[0]), "program-kill:a");
	EXPECT_TRUE(kill.heal.empty());
	EXPECT_EQ(kill.note, "a note");
	EXPECT_EQ(outageBound(kill.stands, table.paths, {1, 2, 1}, Millis(7), Millis(10)), Millis(14010));
	const Cell& cut = table.cells[1];
	EXPECT_FALSE(cut.stands.moves);
	EXPECT_FALSE(cut.stands.twice);
	EXPECT_TRUE(cut.stands.logDiffers);
	EXPECT_FALSE(outageBound(cut.stands, table.paths, {}, Millis(7), Millis(10)));
	EXPECT_EQ(outageBound(cut.healed, table.paths, {}, Millis(7), Millis(10)), Millis(7));
	EXPECT_EQ(table.forChaos.size(), 2U);
	EXPECT_EQ(chosenCells(table, {}).size(), 2U);
	EXPECT_EQ(chosenCells(table, {"kill"}).size(), 1U);
	EXPECT_THROW(chosenCells(table, {"kil"}), LabError);
	const std::vector<Cell> both = chosenCells(table, {"cut", "kill", "kill/a"});
	ASSERT_EQ(both.size(), 2U) << "in the order of the table, each once";
	EXPECT_EQ(both[0].name, "kill/a");
}

TEST(MatrixTable, TellsTheLineAndWhatIsWrong)
{
	const std::string path = "path | p | beat | count | line | -\n";
	const std::string good = "a a a 0 0 p";
	EXPECT_EQ(problemOfTable(path + "c | a | reboot:a | " + good + " | - | -\n"), "");
	const std::vector<std::pair<std::string, std::string>> wrong{
	    {"c | c | reboot:a | " + good + " | - | -", "\"c\" is no node"},
	    {"c | a | quake:a | " + good + " | - | -", "there is no fault \"quake\""},
	    {"c | a | reboot | " + good + " | - | -", "reboot needs a node"},
	    {"c | a | gateway:a | " + good + " | - | -", "strikes no single node"},
	    {"c | a | reboot:x | " + good + " | - | -", "names no node"},
	    {"c | a | reboot:a | a a a 0 | - | -", "an outcome is"},
	    {"c | a | reboot:a | q a a 0 0 p | - | -", "\"q\" is no owner"},
	    {"c | a | reboot:a | a a a -1 0 p | - | -", "\"-1\" is no number of moves"},
	    {"c | a | reboot:a | a a a 0 nap p | - | -", "\"nap\" is no prescribed wait"},
	    {"c | a | reboot:a | a a a 0 0 p loud | - | -", "\"loud\" is no remark"},
	    {"c | a | reboot:a | " + good + " | reboot:a | " + good, "nothing to heal after reboot:a"},
	    {"c | a | - | " + good + " | - | -", "without a name or a fault"},
	    {"c | a | reboot:a | " + good, "six or seven columns"},
	    {"path | p | beat | count | line | -", "there twice"},
	    {"path | r | beat | count | side | -", "\"side\" is no kind of anchor"},
	    {"c | a | reboot:a - | " + good + " | - | -", "there is no fault \"-\""},
	    {"c | a | reboot:a | " + good + " | | " + good, "there are no faults in a column"},
	    {"c | a | reboot:a | " + good + " | - | " + good, "where nothing is healed"},
	    {"c | a | reboot:a | a a a 0 0 q | - | -", "path that is not there: q"},
	    {"short | c", "there is no cell \"c\""},
	    {"short", "a row of short has two columns"},
	    {"short | | c", "a row of short has two columns"},
	    {"chaos |", "a row of chaos has two columns"},
	    {"chaos | reboot | gateway", "a row of chaos has two columns"},
	    {"chaos | quake", "there is no fault \"quake\""}};
	for (const auto& [row, problem] : wrong)
	{
		const std::string told = problemOfTable(path + row + "\n");
		EXPECT_TRUE(told.starts_with("line 2 of the expectations: ")) << row << ": " << told;
		EXPECT_NE(told.find(problem), std::string::npos) << row << ": " << told;
	}
	EXPECT_NE(problemOfTable("c | a | reboot:a | " + good + " | - | -\n").find("path that is not there: p"),
	          std::string::npos);
	EXPECT_THROW(readExpectations("/no/such/file"), LabError);
}

TEST(MatrixTable, OfThisBuildStrikesEachNodeInEachRole)
{
	using enum FaultKind;
	const std::set<std::string> all{"a master", "a standby", "b master", "b standby"};
	const std::set<std::string> masters{"a master", "b master"};
	const std::set<std::string> standbys{"a standby", "b standby"};
	// A standby has no program, no address and nothing to stop.
	std::map<FaultKind, std::set<std::string>> elsewhere;
	for (const FaultKind kind : {programKilled, programCrashes, programZombie, addressRemoved, stopFails, killFails})
	{
		elsewhere[kind] = masters;
	}
	// A start command is run by the one that takes over.
	for (const FaultKind kind : {startHangs, startFails, startPrints})
	{
		elsewhere[kind] = standbys;
	}
	// A deaf standby is the partner of a mute master, and the other way round.
	elsewhere[communicationDeaf] = elsewhere[communicationMute] = masters;
	// Both hosts are off, so it does not matter who served.
	elsewhere[coldStartAlone] = {"a master", "b standby"};
	const auto struck = struckIn(readExpectations(""));
	for (const FaultInfo& info : allFaults())
	{
		if (info.onNode)
		{
			const auto other = elsewhere.find(info.kind);
			const std::set<std::string>& wanted = other == elsewhere.end() ? all : other->second;
			const std::set<std::string>& seen = struck.at(info.kind);
			EXPECT_TRUE(std::includes(seen.begin(), seen.end(), wanted.begin(), wanted.end()))
			    << info.name << " strikes " << testing::PrintToString(seen);
		}
	}
}

TEST(MatrixTable, OfThisBuildCoversEveryFault)
{
	const Expectations table = readExpectations("");
	std::set<FaultKind> struck;
	for (const Cell& cell : table.cells)
	{
		for (const Fault& fault : cell.inject)
		{
			struck.insert(fault.kind);
		}
	}
	for (const FaultInfo& info : allFaults())
	{
		EXPECT_TRUE(struck.contains(info.kind)) << info.name;
	}
	EXPECT_GE(table.shortForm.size(), 10U);
	EXPECT_GE(table.forChaos.size(), 10U);
}

} // namespace velarix::lab
