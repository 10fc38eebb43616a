// What `status` makes of the log: which it trusts, what it finds in it.

#include <Poco/DateTime.h>
#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeFormatter.h>

#include "StateTest.h"

using namespace std::chrono_literals;

namespace fs = std::filesystem;

using StatusLog = StateTest;

TEST_F(StatusLog, OfALivingAgentWithASilentLogTellsNoRole)
{
	soundMaster();
	now += 6s;
	const Outcome outcome = runHere({"status"});
	expectGolden("status-stale.txt", outcome.out);
	EXPECT_EQ(outcome.code, 4);
}

TEST_F(StatusLog, TrustsALogUpToTheLongestPauseOfASoundAgent)
{
	soundMaster();
	// One second between two looks of the checker, five more for a loaded machine.
	now += 5700ms;
	EXPECT_EQ(runHere({"status"}).code, 0);
	now += 100ms;
	EXPECT_EQ(runHere({"status"}).code, 4);
}

TEST_F(StatusLog, OfALogFromTheFutureTellsNoRole)
{
	soundMaster();
	now -= 3600s;
	fakeMachine().starts[kAgent] = now - 200s;
	const Outcome outcome = runHere({"status"});
	EXPECT_THAT(row(outcome, "role"), HasSubstr("in the future: clock or time zone are not those of the agent"));
	EXPECT_EQ(outcome.code, 4);
}

TEST_F(StatusLog, OfALogThatAnotherAgentWroteTellsNoRole)
{
	soundMaster();
	writeLog(emptyLog().agent(4000).start(198s).masterFor(190s, 300ms));
	const Outcome outcome = runHere({"status"});
	EXPECT_THAT(
	    row(outcome, "role"),
	    StartsWith("role         not known: the log's last lines are of process 4000, not of the agent (4711)"));
	EXPECT_THAT(outcome.out, HasSubstr("critical: the log's last lines are of process 4000"));
	EXPECT_EQ(outcome.code, 4);
}

TEST_F(StatusLog, OfAnAgentThatWasJustStartedWaitsForItsFirstWord)
{
	soundMaster();
	writeLog(emptyLog().agent(4000).start(198s).masterFor(190s, 20s));
	fakeMachine().starts[kAgent] = now - 3s;
	const Outcome outcome = runHere({"status"});
	EXPECT_THAT(outcome.out, HasSubstr("warning: the agent was started just now and has not reported its role"));
	EXPECT_THAT(outcome.out, Not(HasSubstr("critical")));
	EXPECT_EQ(outcome.code, 4);
}

TEST_F(StatusLog, NamesWhatIsWrongWithTheLog)
{
	struct Row
	{
		const char* name;
		std::function<void()> breakIt;
		const char* text;
	};
	const std::vector<Row> rows{
	    {"missing", [&] { fs::remove(below(kLog)); },
	     "cannot read the log /usr/velarix/log/velarix.log: No such file or directory"},
	    {"empty", [&] { write(kLog, ""); }, "the log /usr/velarix/log/velarix.log holds no message of an agent"},
	    {"foreign", [&] { write(kLog, "to be or not to be\n"); },
	     "the log /usr/velarix/log/velarix.log holds no message of an agent"},
	    {"relative",
	     [&] {
		     writeSettings(1, {{"PATH", "velarix.log"}});
	     },
	     "LOG.PATH is relative (velarix.log): where it is depends on where the agent was started"},
	    {"unnamed",
	     [&] {
		     writeSettings(1, {{"PATH", ""}});
	     },
	     "the settings name no log file"},
	};
	for (const Row& each : rows)
	{
		soundMaster();
		each.breakIt();
		const Outcome outcome = runHere({"status"});
		EXPECT_EQ(row(outcome, "log"), std::string("log          ") + each.text) << each.name;
		EXPECT_THAT(row(outcome, "role"), StartsWith("role         not known: ")) << each.name;
		EXPECT_EQ(outcome.code, 4) << each.name;
		freshHost();
	}
}

TEST_F(StatusLog, TellsThatTheLastChangeWasPlanned)
{
	soundSlave();
	writeLog(emptyLog().start(198s).takeService(90s).masterFor(80s, 20s).giveUp(19s).slaveFor(17s, 300ms));
	write("/usr/velarix/log/keeper.log",
	      "2026-03-01T11:59:40.500+0000 velarixctl[9] switchover: to 192.0.2.2, by root\n");
	EXPECT_THAT(row(runHere({"status"}), "last change"),
	            HasSubstr("master -> standby: a planned move (velarixctl switchover)"));
}

TEST_F(StatusLog, TellsNoRoleOfAPartnerAfterOneSilentPass)
{
	soundMaster();
	writeLog(emptyLog().start(198s).takeService(190s).masterFor(183300ms, 5300ms).masterFor(4300ms, 300ms, ""));
	const Outcome outcome = runHere({"status"});
	EXPECT_EQ(row(outcome, "partner"),
	          "partner      192.0.2.2 not known: no heartbeat for 5.3 s; reported last: standby, its "
	          "programs are stopped, as they should be  [5.3 s]");
	EXPECT_EQ(outcome.code, 0);
}

TEST_F(StatusLog, TellsNoRoleOfAPartnerWhenTheReceiverReadsNothing)
{
	soundMaster();
	const auto writeReceiverSilentFor = [this](std::chrono::milliseconds silence)
	{
		writeLog(emptyLog()
		             .start(198s)
		             .takeService(190s)
		             .masterFor(silence + 150s, silence)
		             .line(300ms, 1, "ProcessChecker:103", "ProcessRuning[noName][MODE:M]: 1"));
	};
	// Twice interval and receiving time, and five seconds for a loaded machine.
	writeReceiverSilentFor(11s);
	EXPECT_THAT(row(runHere({"status"}), "partner"), StartsWith("partner      192.0.2.2 standby"));
	writeReceiverSilentFor(11100ms);
	EXPECT_THAT(row(runHere({"status"}), "partner"), StartsWith("partner      192.0.2.2 not known: no heartbeat for"));
}

TEST_F(StatusLog, FindsTheLastChangeFarBackInTheLog)
{
	soundMaster();
	fakeMachine().starts[kAgent] = now - 5000s;
	writeLog(emptyLog().start(4998s).slaveFor(4998s, 4991s).takeService(4990s).masterFor(4983s, 300ms));
	const Outcome outcome = runHere({"status"});
	EXPECT_EQ(row(outcome, "last change"),
	          "last change  2026-03-01 10:36:50 standby -> master: both nodes were standby: "
	          "back to the configured role  [1 h 23 min]");
	EXPECT_THAT(row(outcome, "role"), StartsWith("role         master, for 1 h 23 min"));
}

TEST_F(StatusLog, TellsHowFarItLookedWhenTheChangeIsNotInTheLog)
{
	soundMaster();
	fakeMachine().starts[kAgent] = now - 50000s;
	writeLog(emptyLog().masterFor(300s, 300ms));
	const Outcome outcome = runHere({"status"});
	EXPECT_EQ(row(outcome, "last change"),
	          "last change  none since 2026-03-01 11:55:00, as far back as the log was read");
	EXPECT_EQ(row(outcome, "role"), "role         master  [1.0 s]");
}

TEST_F(StatusLog, CountsTheRoleFromTheAgentsStartWhenItCameLater)
{
	soundSlave();
	fakeMachine().starts[kAgent] = now - 60s;
	writeLog(emptyLog()
	             .agent(4000)
	             .start(900s)
	             .masterFor(890s, 500s)
	             .giveUp(490s)
	             .slaveFor(489s, 100s)
	             .agent(kAgent)
	             .start(58s)
	             .slaveFor(57s, 300ms));
	const Outcome outcome = runHere({"status"});
	EXPECT_THAT(row(outcome, "role"), StartsWith("role         standby, for 1 min"));
	EXPECT_THAT(row(outcome, "last change"), HasSubstr("2026-03-01 11:51:50 master -> standby"));
}

TEST_F(StatusLog, NamesALogThatWasBegunWhileTheClockWasAhead)
{
	soundMaster();
	const std::string lines = readFile(below(kLog));
	const auto remark = [](int year)
	{
		return "# Log file created/rotated " +
		       Poco::DateTimeFormatter::format(Poco::DateTime(year, 3, 1, 11), Poco::DateTimeFormat::RFC1036_FORMAT) +
		       "\n";
	};
	write(kLog, remark(2033) + lines);
	const Outcome outcome = runHere({"status"});
	EXPECT_THAT(outcome.out, HasSubstr("warning: the log was begun while the clock was ahead, at 2033-03-01 11:00:00"));
	EXPECT_EQ(outcome.code, 0);
	for (const std::string& first : {remark(2026), std::string("# Log file created/rotated some day\n"),
	                                 std::string("# Log file\n"), std::string()})
	{
		write(kLog, first + lines);
		EXPECT_THAT(runHere({"status"}).out, Not(HasSubstr("was begun"))) << first;
	}
}

TEST_F(StatusLog, TellsALogOfAnotherTimeZoneFromASilentOne)
{
	soundMaster();
	// Five and a half hours to the east, as TZ=Asia/Kolkata in the agent's environment.
	const LocalZone other("IST-5:30");
	fakeMachine().changed[below(kLog).string()] = now - 300ms;
	const Outcome outcome = runHere({"status"});
	EXPECT_THAT(outcome.out, HasSubstr("unknown: the log is written in another time zone: its last line is 5 h 30 min "
	                                   "behind its file's time"));
	EXPECT_THAT(outcome.out, Not(HasSubstr("critical")));
	EXPECT_EQ(outcome.code, 4);

	fakeMachine().changed[below(kLog).string()] = now - 300ms - 5h - 30min;
	EXPECT_THAT(runHere({"status"}).out, HasSubstr("critical: the agent lives, but nothing was logged"));
}

TEST_F(StatusLog, OfALogWithoutALineFeedEndsSoon)
{
	soundMaster();
	fs::resize_file(below(kLog), 3UL * 1024 * 1024 * 1024);
	const auto begin = std::chrono::steady_clock::now();
	EXPECT_EQ(runHere({"status"}).code, 4);
	EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
}
