/// What the fault matrix is reported: sums of waits, and the table of what is expected.

#include <algorithm>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include "SmallTable.h"
#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/Times.h"
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
std::map<std::string, std::set<std::string>> struckIn(const Expectations& table)
{
	std::map<std::string, std::set<std::string>> struck;
	for (const Cell& cell : table.cells)
	{
		for (const Fault& fault : cell.inject)
		{
			struck[fault.name].insert(nameOf(fault.node) +
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
	EXPECT_TRUE(kill.repair.empty());
	EXPECT_EQ(kill.note, "a note");
	EXPECT_EQ(outageBound(kill.stands, table.paths, {1, 2, 1}, Millis(7), Millis(10)), Millis(14010));
	const Cell& cut = table.cells[1];
	EXPECT_FALSE(cut.stands.moves);
	EXPECT_FALSE(cut.stands.twice);
	EXPECT_TRUE(cut.stands.logDiffers);
	EXPECT_FALSE(outageBound(cut.stands, table.paths, {}, Millis(7), Millis(10)));
	EXPECT_EQ(outageBound(cut.repaired, table.paths, {}, Millis(7), Millis(10)), Millis(7));
	EXPECT_EQ(table.forChaos.size(), 2U);
	EXPECT_EQ(filtered(table.cells, {}).size(), 2U);
	EXPECT_EQ(filtered(table.cells, {"kill"}).size(), 1U);
	EXPECT_THROW(filtered(table.cells, {"kil"}), LabError);
	const std::vector<Cell> both = filtered(table.cells, {"cut", "kill", "kill/a"});
	ASSERT_EQ(both.size(), 2U) << "in the order of the table, each once";
	EXPECT_EQ(both[0].name, "kill/a");
}

TEST(MatrixTable, AWrongRowIsRefusedWithItsLine)
{
	const std::string path = "{ name = \"p\", before = \"beat\", after = \"count\" }";
	const std::string good = "{ owner = \"a\", via = \"p\" }";
	const auto table = [&](const std::string& paths, const std::string& cells)
	{ return "paths = [ " + paths + " ]\ncells = [ " + cells + " ]\nchaos = []\nshort = []\n"; };
	const auto cell = [&](const std::string& fault, const std::string& during, const std::string& more = "")
	{ return R"({ name = "c", master = "a", inject = [")" + fault + "\"], during = " + during + more + " }"; };
	EXPECT_EQ(problemOfTable(table(path, cell("reboot:a", good))), "");
	const std::vector<std::pair<std::string, std::string>> wrong{
	    {cell("quake:a", good), "there is no fault \"quake\""},
	    {cell("reboot", good), "reboot needs a node"},
	    {cell("gateway:a", good), "is on no single node"},
	    {cell("reboot:x", good), "names no node"},
	    {cell("reboot:a", "{ via = \"p\" }"), "there is no \"owner\""},
	    {cell("reboot:a", "{ owner = \"q\" }"), "\"q\" is no \"owner\""},
	    {cell("reboot:a", "{ owner = 1 }"), "\"owner\" is no text"},
	    {cell("reboot:a", "{ owner = \"a\", moves_max = -1 }"), "\"moves_max\" is no whole number"},
	    {cell("reboot:a", "{ owner = \"a\", moves_max = \"many\" }"), "\"moves_max\" is no number"},
	    {cell("reboot:a", "{ owner = \"a\", split_brain_max = \"nap\" }"), "\"nap\" is no fixed wait"},
	    {cell("reboot:a", "{ owner = \"a\", loud = true }"), "\"loud\" means nothing here"},
	    {cell("reboot:a", "{ owner = \"a\", via = \"q\" }"), "there is no path \"q\""},
	    {cell("reboot:a", good, ", repaired = " + good), "nothing to repair after reboot:a"},
	    {cell("power-off:a", good, ", repair = [\"power-off:a\"]"), "an outcome after a repair"},
	    {cell("reboot:a", good) + ", " + cell("reboot:a", good), "the cell c is there twice"},
	    {"{ name = \"c\", master = \"c\", inject = [], during = " + good + " }", "\"c\" is no \"master\""}};
	for (const auto& [cells, problem] : wrong)
	{
		const std::string found = problemOfTable(table(path, cells));
		EXPECT_TRUE(found.starts_with("line 2 of the table: ")) << cells << ": " << found;
		EXPECT_NE(found.find(problem), std::string::npos) << cells << ": " << found;
	}
	EXPECT_NE(problemOfTable(table(path + ", " + path, "")).find("the path p is there twice"), std::string::npos);
}

TEST(MatrixTable, WhatIsNoTableIsRefused)
{
	EXPECT_TRUE(problemOfTable("paths = [\ncells |").starts_with("line 2 of the table: "));
	const std::string none = "paths = []\ncells = []\n";
	EXPECT_NE(problemOfTable(none + "chaos = [\"quake\"]\nshort = []").find("no fault \"quake\""), std::string::npos);
	EXPECT_NE(problemOfTable(none + "chaos = []\nshort = [\"c\"]").find("there is no cell \"c\""), std::string::npos);
	EXPECT_NE(problemOfTable(none + "chaos = []").find("there is no \"short\""), std::string::npos);
	EXPECT_NE(problemOfTable(none + "chaos = [1]\nshort = []").find("no list of texts"), std::string::npos);
	EXPECT_THROW(readExpectations("/no/such/file"), LabError);
}

TEST(MatrixTable, TheKeepersRowsReplaceWhatTheyTellAndAddTheirOwn)
{
	const std::string text = R"(paths = []
cells = [ { name = "c", master = "a", inject = ["power-off:a"], during = { owner = "b" }, repaired = { owner = "b" } } ]
keeper = [ { name = "c", during = { owner = "a" } },
           { name = "own", master = "b", inject = ["reboot:b"], during = { owner = "a" } } ]
chaos = []
short = []
)";
	EXPECT_EQ(parseExpectations(text).cells.size(), 1U);
	EXPECT_EQ(parseExpectations(text).cells.front().stands.owner, "b");
	const Expectations keeper = parseExpectations(text, Profile::keeper);
	ASSERT_EQ(keeper.cells.size(), 2U);
	EXPECT_EQ(keeper.cells[0].stands.owner, "a");
	EXPECT_EQ(keeper.cells[0].repaired.owner, "b");
	EXPECT_EQ(keeper.cells[1].name, "own");
	const std::string stray = "paths = []\ncells = []\nkeeper = [\n{ name = \"c\" } ]\nchaos = []\nshort = []\n";
	try
	{
		parseExpectations(stray, Profile::keeper);
		FAIL() << "a row of no cell is taken";
	}
	catch (const LabError& error)
	{
		EXPECT_STREQ(error.what(), "line 4 of the table: there is no cell c");
	}
}

TEST(MatrixTable, OfThisBuildStrikesEachNodeInEachRole)
{
	const std::set<std::string> all{"a master", "a standby", "b master", "b standby"};
	const std::set<std::string> masters{"a master", "b master"};
	const std::set<std::string> standbys{"a standby", "b standby"};
	// A standby has no program, no address and nothing to stop.
	std::map<std::string, std::set<std::string>> elsewhere;
	for (const char* name : {"program-kill", "program-crash", "program-zombie", "address-removed", "stop-fails",
	                         "kill-fails", "program-hang", "keeper-kill-address", "keeper-kill-service"})
	{
		elsewhere[name] = masters;
	}
	// A start command is run by the one that takes over.
	for (const char* name : {"start-hangs", "start-fails", "start-prints"})
	{
		elsewhere[name] = standbys;
	}
	// A deaf standby is the partner of a mute master, and the other way round.
	elsewhere["deaf"] = elsewhere["mute"] = masters;
	// Both hosts are off, so it does not matter who served.
	elsewhere["cold-start-alone"] = {"a master", "b standby"};
	const auto struck = struckIn(readExpectations("", Profile::keeper));
	for (const FaultInfo& info : allFaults())
	{
		EXPECT_TRUE(struck.contains(info.name)) << info.name;
		if (info.onNode)
		{
			const auto other = elsewhere.find(info.name);
			const std::set<std::string>& wanted = other == elsewhere.end() ? all : other->second;
			const std::set<std::string>& seen = struck.at(info.name);
			EXPECT_TRUE(std::includes(seen.begin(), seen.end(), wanted.begin(), wanted.end()))
			    << info.name << " strikes " << testing::PrintToString(seen);
		}
	}
}

} // namespace velarix::lab
