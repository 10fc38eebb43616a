// The status again and again: frames, a terminal, a line for each change.

#include <nlohmann/json.hpp>

#include "StateTest.h"

using namespace std::chrono_literals;

class Watch : public StateTest
{
protected:
	/// @return the lines of the output, parsed
	static std::vector<nlohmann::json> parsed(const std::string& text)
	{
		std::vector<nlohmann::json> lines;
		std::istringstream stream(text);
		for (std::string line; std::getline(stream, line);)
		{
			lines.push_back(nlohmann::json::parse(line));
		}
		return lines;
	}

	static std::size_t count(const std::string& text, const std::string& part)
	{
		std::size_t found = 0;
		for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
		{
			++found;
		}
		return found;
	}
};

TEST_F(Watch, PrintsFrameAfterFrame)
{
	soundMaster();
	fakeMachine().onPause = [this](auto time) { now += time; };
	const Outcome outcome = runHere({"watch", "--count", "3", "--interval", "0.5"});
	EXPECT_THAT(outcome.out, StartsWith("2026-03-01 12:00:00\nnode         node-a, 192.0.2.1\nrole         master"));
	EXPECT_THAT(outcome.out,
	            HasSubstr("failover     would work now, as far as the partner's heartbeats tell\n\n2026-03-01 "
	                      "12:00:00\nnode         node-a, 192.0.2.1\nrole         master"));
	EXPECT_THAT(outcome.out,
	            HasSubstr("failover     would work now, as far as the partner's heartbeats tell\n\n2026-03-01 "
	                      "12:00:01\nnode         node-a, 192.0.2.1\nrole         master"));
	EXPECT_EQ(count(outcome.out, "role         master"), 3);
	EXPECT_THAT(outcome.out, Not(HasSubstr("\033")));
	EXPECT_EQ(outcome.code, 0);
}

TEST_F(Watch, WaitsASecondBetweenLooksUnlessAskedOtherwise)
{
	soundMaster();
	EXPECT_EQ(runHere({"watch", "--count", "4"}).code, 0);
	EXPECT_EQ(fakeMachine().elapsed, 3s);
	EXPECT_EQ(runHere({"watch", "--count", "3", "-n", "2.5"}).code, 0);
	EXPECT_EQ(fakeMachine().elapsed, 8s);
}

TEST_F(Watch, RedrawsInPlaceOnATerminalAndLeavesTheLastStateBehind)
{
	soundMaster();
	terminal = true;
	const Outcome outcome = runHere({"watch", "--count", "2"});
	EXPECT_THAT(outcome.out,
	            StartsWith("\033[?1049h\033[?7l\033[H\033[K2026-03-01 12:00:00\n\033[Knode         node-a, "
	                       "192.0.2.1\n\033[Krole         master"));
	EXPECT_EQ(count(outcome.out, "\033[H"), 2);
	EXPECT_EQ(count(outcome.out, "\033[J"), 2);
	EXPECT_THAT(outcome.out, HasSubstr("heartbeats tell\033[?7h\033[?1049l2026-03-01 12:00:00\nnode "));
	EXPECT_THAT(outcome.out, Not(HasSubstr("\033[3")));
	EXPECT_THAT(runHere({"watch", "--json", "--count", "1"}).out, Not(HasSubstr("\033")));
}

TEST_F(Watch, KeepsToTheWindow)
{
	soundMaster();
	terminal = true;
	for (const std::size_t lines : {1U, 2U, 5U, 10U, 14U})
	{
		fakeMachine().windowLines = lines;
		const std::string out = runHere({"watch", "--count", "1"}).out;
		const std::string frame = out.substr(0, out.find("\033[?7h"));
		EXPECT_EQ(count(frame, "\n"), lines - 1);
		EXPECT_EQ(count(frame, "failover     would work"), lines > 2 ? 1 : 0) << frame;
		EXPECT_EQ(count(frame, "role         master"), lines >= 6 ? 1 : 0) << frame;
	}
}

TEST_F(Watch, FollowsWhatHappens)
{
	soundMaster();
	fakeMachine().onPause = [this](auto) { endProcess(kAgent); };
	const Outcome outcome = runHere({"watch", "--count", "2"});
	EXPECT_EQ(count(outcome.out, "runs as process 4711"), 1);
	EXPECT_EQ(count(outcome.out, "DEAD: process 4711"), 1);
	EXPECT_EQ(outcome.code, 0);
}

TEST_F(Watch, AsJsonPrintsALineAtTheBeginAndForEachChange)
{
	soundMaster();
	int pauses = 0;
	fakeMachine().onPause = [&](auto time)
	{
		now += time;
		++pauses;
		if (pauses == 3)
		{
			dropAddress();
		}
		if (pauses == 5)
		{
			endProcess(kServer);
		}
	};
	const Outcome outcome = runHere({"watch", "--json", "--count", "8", "--interval", "0.5"});
	const std::vector<nlohmann::json> lines = parsed(outcome.out);
	ASSERT_EQ(lines.size(), 3);
	EXPECT_EQ(lines[0]["time"], "2026-03-01T12:00:00.000Z");
	EXPECT_EQ(lines[0]["virtual_ip"]["value"]["held"], true);
	EXPECT_EQ(lines[1]["time"], "2026-03-01T12:00:01.500Z");
	EXPECT_EQ(lines[1]["virtual_ip"]["value"]["held"], false);
	EXPECT_EQ(lines[1]["programs"]["value"]["run"], true);
	EXPECT_EQ(lines[2]["time"], "2026-03-01T12:00:02.500Z");
	EXPECT_EQ(lines[2]["programs"]["value"]["run"], false);
	EXPECT_EQ(outcome.code, 0);
}

TEST_F(Watch, AsJsonTellsAChangeThereAndBackBetweenTwoLooks)
{
	soundMaster();
	fakeMachine().onPause = [this](auto)
	{
		now += 60s;
		writeLog(emptyLog()
		             .start(258s)
		             .slaveFor(258s, 251s)
		             .takeService(250s)
		             .masterFor(243300ms, 50s)
		             .giveUp(49s)
		             .slaveFor(48s, 41s)
		             .takeService(40s)
		             .masterFor(33300ms, 300ms));
	};
	const std::vector<nlohmann::json> lines = parsed(runHere({"watch", "--json", "--count", "2"}).out);
	ASSERT_EQ(lines.size(), 2);
	EXPECT_EQ(lines[0]["last_change"]["time"], "2026-03-01T11:56:50.000Z");
	EXPECT_EQ(lines[1]["last_change"]["time"], "2026-03-01T12:00:20.000Z");
}

TEST_F(Watch, RefusesAnIntervalOrCountThatMakesNoSense)
{
	for (const char* option :
	     {"--interval=0", "--interval=-1", "--interval=x", "--interval=nan", "--count=0", "--count=-2"})
	{
		EXPECT_EQ(runHere({"watch", option}).code, 2) << option;
	}
}
