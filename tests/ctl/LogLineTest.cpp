// One line of the log: its head, its date, what stands in its middle, and the
// heartbeats in it.

#include <chrono>

#include <gtest/gtest.h>

#include "LogTestSupport.h"
#include "inspect/LogLine.h"
#include "inspect/LogReader.h"

using namespace velarix::inspect;
using namespace std::chrono_literals;

namespace
{

constexpr char kBeat[] =
    "2026-11-21 09:07:05.3 [4711:2][CHeartSender:124] <D> beat sent[noName]:/process/1/1/20261121090601/0/";

TEST(LogLine, TheHeadIsTakenApart)
{
	const LocalZone zone("UTC0");
	LogClock clock;
	const auto line = parseHead(kBeat, clock);
	ASSERT_TRUE(line);
	EXPECT_EQ(line->time, utc(11, 21, 9h + 7min + 5300ms));
	EXPECT_EQ(line->process, 4711);
	EXPECT_EQ(line->thread, 2);
	EXPECT_EQ(line->label, "CHeartSender");
	EXPECT_EQ(line->number, 124);
	EXPECT_EQ(line->letter, 'D');
	EXPECT_EQ(line->text, "beat sent[noName]:/process/1/1/20261121090601/0/");
	EXPECT_EQ(line->place(), "CHeartSender:124");
	EXPECT_TRUE(line->is("CHeartSender", 124));
	EXPECT_FALSE(line->is("CHeartSender", 12));
	EXPECT_FALSE(line->is("CHeart", 124));
}

TEST(LogLine, EveryByteOfTheTextIsKept)
{
	LogClock clock;
	for (const std::string& text : {std::string("\0\xff \x1b[31m] <E> ] [", 16), std::string()})
	{
		const auto line = parseHead("2026-11-21 09:07:05.3 [1:3][Utill:573] <I> " + text, clock);
		ASSERT_TRUE(line);
		EXPECT_EQ(line->text, text);
	}
}

/// What is no head, one defect each.
TEST(LogLine, WhatIsNoHeadIsNotRead)
{
	LogClock clock;
	const char* const rows[] = {
	    "",
	    " ",
	    "# Log file created/rotated Saturday, 21 Nov 26 07:59:15 GMT",
	    "======================================================",
	    "2026-11-21 09:07:05.3",
	    "2026-11-21 09:07:05.3 [4711:2][CHeartSender:124] <D>",
	    "2026-11-21 09:07:05.3 [4711:2][CHeartSender:124] <d> x",
	    "2026-11-21 09:07:05.3 [4711:2][CHeartSender:124] <DD> x",
	    "2026-11-21 09:07:05.3 [4711:2][CHeartSender:124]<D> x",
	    "2026-11-21 09:07:05.3 [4711:2][CHeartSender] <D> x",
	    "2026-11-21 09:07:05.3 [4711:2][:124] <D> x",
	    "2026-11-21 09:07:05.3 [4711:2][CHeart Sender:124] <D> x",
	    "2026-11-21 09:07:05.3 [4711:2] [CHeartSender:124] <D> x",
	    "2026-11-21 09:07:05.3 [4711][CHeartSender:124] <D> x",
	    "2026-11-21 09:07:05.3 [-1:2][CHeartSender:124] <D> x",
	    "2026-11-21 09:07:05.3 [99999999999999999999:2][CHeartSender:124] <D> x",
	    "2026-11-21 09:07:05.3 [1:2][CHeartSender:99999999999] <D> x",
	    "2026-11-21 09:07:05,3 [4711:2][CHeartSender:124] <D> x",
	    "2026-11-21T09:07:05.3 [4711:2][CHeartSender:124] <D> x",
	    "2026-11-21 9:07:05.30 [4711:2][CHeartSender:124] <D> x",
	    " 2026-11-21 09:07:05.3 [4711:2][CHeartSender:124] <D> x",
	    "2026-11-21 09:07:05.3 [4711:2][AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA:1] "
	    "<D> x"};
	for (const char* const row : rows)
	{
		EXPECT_FALSE(parseHead(row, clock)) << row;
	}
}

/// A head whose date does not exist is a head without a time.
TEST(LogLine, ADateThatDoesNotExistLeavesTheTimeEmpty)
{
	LogClock clock;
	const char* const rows[] = {"2026-02-29 09:07:05.3", "2026-13-01 09:07:05.3", "2026-00-01 09:07:05.3",
	                            "2026-11-31 09:07:05.3", "2026-11-00 09:07:05.3", "2026-11-21 24:07:05.3",
	                            "2026-11-21 09:60:05.3", "2026-11-21 09:07:61.3", "2026-99-99 99:99:99.9",
	                            "9909-11-21 09:07:05.3", "2201-01-01 00:00:00.0", "1969-12-31 23:59:59.9",
	                            "0000-11-21 09:07:05.3"};
	for (const char* const row : rows)
	{
		const auto line = parseHead(std::string(row) + " [4711:2][CHeartSender:124] <D> x", clock);
		ASSERT_TRUE(line) << row;
		EXPECT_FALSE(line->time) << row;
	}
}

TEST(LogClock, DatesAreLocal)
{
	const LocalZone zone(kCentralEurope);
	LogClock clock;
	EXPECT_EQ(clock.read("2026-01-31 23:59:59.9"), utc(1, 31, 22h + 59min + 59900ms));
	EXPECT_EQ(clock.read("2026-07-01 00:00:00.0"), utc(6, 30, 22h));
}

TEST(LogClock, TheHourThatExistsTwiceGoesOnFromTheDateBefore)
{
	const LocalZone zone(kCentralEurope);
	LogClock clock;
	EXPECT_EQ(clock.read("2026-10-25 01:59:59.9"), utc(10, 24, 23h + 59min + 59900ms));
	EXPECT_EQ(clock.read("2026-10-25 02:00:00.1"), utc(10, 25, 100ms));
	EXPECT_EQ(clock.read("2026-10-25 02:59:59.9"), utc(10, 25, 59min + 59900ms));
	// Set back: the same hour again.
	EXPECT_EQ(clock.read("2026-10-25 02:00:00.1"), utc(10, 25, 1h + 100ms));
	EXPECT_EQ(clock.read("2026-10-25 02:30:00.0"), utc(10, 25, 1h + 30min));
	EXPECT_EQ(clock.read("2026-10-25 03:00:00.0"), utc(10, 25, 2h));
}

TEST(LogClock, TheFirstDateIsReadAsTheOneNearerToWhatIsKnown)
{
	const LocalZone zone(kCentralEurope);
	EXPECT_EQ(LogClock().read("2026-10-25 02:30:00.0"), utc(10, 25, 30min));
	EXPECT_EQ(LogClock(utc(10, 25, 2h)).read("2026-10-25 02:30:00.0"), utc(10, 25, 1h + 30min));
	EXPECT_EQ(LogClock(utc(10, 24, 12h)).read("2026-10-25 02:30:00.0"), utc(10, 25, 30min));
}

TEST(LogClock, AnHourThatTheClocksJumpOverIsReadAllTheSame)
{
	// The agent ran in another zone than this program.
	const LocalZone zone(kCentralEurope);
	LogClock clock;
	EXPECT_EQ(clock.read("2026-03-29 02:30:00.0"), utc(3, 29, 1h + 30min));
}

TEST(LogClock, WhatIsNoDateIsNotRead)
{
	LogClock clock;
	for (const char* text : {"", "2026", "2026-11-21 09:07:05", "2026-11-21 09:07:05.33", "2026-11-21 xx:07:05.3"})
	{
		EXPECT_FALSE(clock.read(text)) << text;
	}
}

TEST(PiecesOfALine, ALineInOrderIsOne)
{
	EXPECT_EQ(piecesOf(kBeat), (std::vector<std::string_view>{kBeat}));
	EXPECT_EQ(piecesOf(""), (std::vector<std::string_view>{""}));
}

TEST(PiecesOfALine, TheFirstMessageOfTheNextAgentStandsBehindAnUnfinishedOne)
{
	const std::string start = "2026-11-21 09:09:00.0 [4712:0][CAgent:25] <D> stop virtual ip, process";
	EXPECT_EQ(piecesOf("2026-11-21 09:07:05.3 [47" + start),
	          (std::vector<std::string_view>{"2026-11-21 09:07:05.3 [47", start}));
	const std::string half = "2026-11-21 09:07:05.3 [4711:2][CHeartSender:124] <D> beat s";
	EXPECT_EQ(piecesOf(half + start), (std::vector<std::string_view>{half, start}));
	EXPECT_EQ(piecesOf("x" + start + start), (std::vector<std::string_view>{"x", start, start}));
}

TEST(PiecesOfALine, AWorkersMessageIsNoPieceSinceItMayBeQuoted)
{
	const std::string line =
	    "2026-11-21 09:07:05.3 [4711:3][CHeartReciver:164] <D> received message: " + std::string(kBeat);
	EXPECT_EQ(piecesOf(line), (std::vector<std::string_view>{line}));
}

TEST(PiecesOfALine, ZerosThatAPowerFailureLeftArePutAside)
{
	const std::string zeros(4096, '\0');
	const std::string line = zeros + kBeat;
	EXPECT_EQ(piecesOf(line), (std::vector<std::string_view>{zeros, kBeat}));
	EXPECT_EQ(piecesOf(zeros), (std::vector<std::string_view>{zeros}));
}

TEST(ReadHeartbeat, AsTheReceiverDoes)
{
	const std::pair<const char*, Heartbeat> rows[] = {
	    {"/process/1/1/20261121090601/0/", {true, true, "20261121090601", false}},
	    {"/process/0/2/20261121090601/1/", {false, false, "20261121090601", true}},
	    {"/process/1/1//0/", {true, true, "", false}},
	    {"/processX/1/1/x/10/", {true, true, "x", true}},
	    {"/process/1/01/x/ 1", {true, false, "x", false}},
	    {"x/process/2/1/x/0/more/fields", {false, true, "x", false}}};
	for (const auto& [text, expected] : rows)
	{
		EXPECT_EQ(parseHeartbeat(text), expected) << text;
	}
}

TEST(ReadHeartbeat, WhatTheReceiverDropsIsNone)
{
	for (const char* text : {"", "/", "GET / HTTP/1.1", "/proc/1/1/x/0/", "/process/1/1/x/", "/process/1/1/x"})
	{
		EXPECT_FALSE(parseHeartbeat(text)) << text;
	}
}

} // namespace
