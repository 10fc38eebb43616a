// What `status` says of sound and of broken nodes, and its exit status.

#include "PlainUser.h"
#include "StateTest.h"

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace fs = std::filesystem;

class Status : public StateTest
{
protected:
	/// @return the row of the output that begins with the label
	static std::string row(const Outcome& outcome, const std::string& label)
	{
		const std::size_t at = ("\n" + outcome.out).find("\n" + label + " ");
		return at == std::string::npos ? "no row " + label : outcome.out.substr(at, outcome.out.find('\n', at) - at);
	}
};

TEST_F(Status, OfAMasterHasEveryFigureWithItsAge)
{
	soundMaster();
	const Outcome outcome = runHere({"status"});
	expectGolden("status-master.txt", outcome.out);
	EXPECT_EQ(outcome.err, "");
	EXPECT_EQ(outcome.code, 0);
}

TEST_F(Status, OfAMasterAsJson)
{
	soundMaster();
	const Outcome outcome = runHere({"status", "--json"});
	expectGolden("status-master.json", outcome.out);
	EXPECT_EQ(outcome.code, 0);
}

TEST_F(Status, AsJsonIsUtf8WhateverTheSettingsHold)
{
	soundMaster();
	writeSettings(1, {{"PARTNER_IP", "192.0.2.\xff"}});
	for (const std::vector<std::string>& words :
	     {std::vector<std::string>{"status", "--json"}, {"watch", "--json", "--count", "1"}})
	{
		EXPECT_THAT(runHere(words).out, HasSubstr("\"192.0.2.\uFFFD\"")) << words.front();
	}
}

TEST_F(Status, OfASlaveThatNeverChangedItsRole)
{
	soundSlave();
	const Outcome outcome = runHere({"status"});
	expectGolden("status-slave.txt", outcome.out);
	EXPECT_EQ(outcome.code, 0);
}

TEST_F(Status, HasColoursWhenTheTerminalWantsThem)
{
	soundMaster();
	colour = true;
	EXPECT_THAT(row(runHere({"status"}), "role"), HasSubstr("\033[32mmaster"));
	endProcess(kAgent);
	EXPECT_THAT(row(runHere({"status"}), "agent"), HasSubstr("\033[31mDEAD"));
	colour = false;
	EXPECT_THAT(runHere({"status"}).out, Not(HasSubstr("\033")));
}

TEST_F(Status, OfADeadAgentSaysSoAndTellsNoRole)
{
	soundMaster();
	endProcess(kAgent);
	const Outcome text = runHere({"status"});
	expectGolden("status-dead.txt", text.out);
	EXPECT_EQ(text.code, 1);
	const Outcome json = runHere({"status", "--json"});
	expectGolden("status-dead.json", json.out);
	EXPECT_EQ(json.code, 1);
}

TEST_F(Status, OfAPidThatBelongsToAnotherProgramNow)
{
	soundMaster();
	endProcess(kAgent);
	addProcess(kAgent, "cron");
	const Outcome outcome = runHere({"status"});
	EXPECT_EQ(row(outcome, "agent"), "agent        DEAD: process 4711 of the pid file is another program now (cron)");
	EXPECT_THAT(row(outcome, "role"), StartsWith("role         not known: process 4711"));
	EXPECT_EQ(outcome.code, 1);
}

TEST_F(Status, OfAnAgentThatEndedAndWasNotAwaited)
{
	soundMaster();
	endProcess(kAgent);
	addProcess(kAgent, "VelarixHA", 'Z');
	const Outcome outcome = runHere({"status"});
	EXPECT_EQ(row(outcome, "agent"), "agent        DEAD: process 4711 of the pid file has ended");
	EXPECT_EQ(outcome.code, 1);
}

TEST_F(Status, WithoutAPidFileIsNotRunning)
{
	soundMaster();
	endProcess(kAgent);
	fs::remove(below(kPid));
	const Outcome outcome = runHere({"status"});
	EXPECT_EQ(row(outcome, "agent"), "agent        DOES NOT RUN: there is no pid file /usr/velarix/pid/VelarixHA.pid");
	EXPECT_EQ(outcome.code, 3);
}

TEST_F(Status, OfAPidFileWithoutANumberCannotBeTold)
{
	soundMaster();
	for (const char* content : {"", "abc", "-5", "0", "4711x", "99999999999999999999"})
	{
		write(kPid, content);
		const Outcome outcome = runHere({"status"});
		EXPECT_EQ(row(outcome, "agent"),
		          "agent        not known: the pid file /usr/velarix/pid/VelarixHA.pid holds no process id")
		    << content;
		EXPECT_EQ(outcome.code, 4) << content;
	}
}

TEST_F(Status, TakesAPidFileWithALineFeed)
{
	soundMaster();
	write(kPid, "4711\n");
	EXPECT_EQ(runHere({"status"}).code, 0);
}

TEST_F(Status, SaysWhichFilesItMayNotRead)
{
	soundMaster();
	const PlainUser plain;
	for (const char* file : {kPid, kLog, kSettings})
	{
		fs::permissions(below(file), fs::perms::none);
		const Outcome outcome = runHere({"status"});
		EXPECT_THAT(outcome.out, HasSubstr(std::string(file) + ": Permission denied")) << file;
		EXPECT_THAT(row(outcome, "role"), StartsWith("role         not known: ")) << file;
		EXPECT_EQ(outcome.code, 4) << file;
		fs::permissions(below(file), fs::perms::owner_read);
	}
	EXPECT_EQ(runHere({"status"}).code, 0);
}

TEST_F(Status, OfAProcessThatIsHiddenFromThisUserCannotBeTold)
{
	soundMaster();
	endProcess(kAgent);
	fakeMachine().hidden = {kAgent};
	const Outcome outcome = runHere({"status"});
	EXPECT_EQ(row(outcome, "agent"), "agent        not known: process 4711 of the pid file is hidden from this user");
	EXPECT_EQ(outcome.code, 4);
}

TEST_F(Status, OfAFrozenAgentTellsNoRole)
{
	soundMaster();
	endProcess(kAgent);
	addProcess(kAgent, "VelarixHA", 'T', 4);
	const Outcome outcome = runHere({"status"});
	EXPECT_EQ(row(outcome, "agent"), "agent        FROZEN: process 4711 is stopped and does nothing until it is "
	                                 "continued; started 3 min 20 s ago");
	EXPECT_THAT(row(outcome, "role"), StartsWith("role         not known: process 4711 is stopped"));
	EXPECT_EQ(outcome.code, 4);
}

TEST_F(Status, OfALivingAgentWithASilentLogTellsNoRole)
{
	soundMaster();
	now += 6s;
	const Outcome outcome = runHere({"status"});
	expectGolden("status-stale.txt", outcome.out);
	EXPECT_EQ(outcome.code, 4);
}

TEST_F(Status, TrustsALogUpToTheLongestPauseOfASoundAgent)
{
	soundMaster();
	// One second between two looks of the checker, five more for a loaded machine.
	now += 5700ms;
	EXPECT_EQ(runHere({"status"}).code, 0);
	now += 100ms;
	EXPECT_EQ(runHere({"status"}).code, 4);
}

TEST_F(Status, OfALogFromTheFutureTellsNoRole)
{
	soundMaster();
	now -= 3600s;
	fakeMachine().starts[kAgent] = now - 200s;
	const Outcome outcome = runHere({"status"});
	EXPECT_THAT(row(outcome, "role"), HasSubstr("in the future: clock or time zone are not those of the agent"));
	EXPECT_EQ(outcome.code, 4);
}

TEST_F(Status, OfALogThatAnotherAgentWroteTellsNoRole)
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

TEST_F(Status, OfAnAgentThatWasJustStartedWaitsForItsFirstWord)
{
	soundMaster();
	writeLog(emptyLog().agent(4000).start(198s).masterFor(190s, 20s));
	fakeMachine().starts[kAgent] = now - 3s;
	const Outcome outcome = runHere({"status"});
	EXPECT_THAT(outcome.out, HasSubstr("warning: the agent was started just now and has not told its role"));
	EXPECT_THAT(outcome.out, Not(HasSubstr("critical")));
	EXPECT_EQ(outcome.code, 4);
}

TEST_F(Status, NamesWhatIsWrongWithTheLog)
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

TEST_F(Status, WithoutSettingsTellsWhatTheKernelTells)
{
	soundMaster();
	fs::remove(below(kSettings));
	const Outcome outcome = runHere({"status"});
	expectGolden("status-no-settings.txt", outcome.out);
	EXPECT_EQ(outcome.code, 4);
}

TEST_F(Status, OfAnotherRootDoesNotAskTheKernel)
{
	soundMaster();
	writeSettings(1, {{"PATH", kLog}});
	const Outcome outcome = runBelow({"status"});
	expectGolden("status-elsewhere.txt", anonymous(outcome.out));
	EXPECT_EQ(outcome.code, 4);
}

TEST_F(Status, TellsThatTheSettingsWereChangedAfterTheStart)
{
	soundMaster();
	fakeMachine().changed[below(kSettings).string()] = now - 100s;
	EXPECT_THAT(runHere({"status"}).out, HasSubstr("the settings were changed after the agent's start"));
	fakeMachine().changed[below(kSettings).string()] = now - 250s;
	EXPECT_THAT(runHere({"status"}).out, Not(HasSubstr("settings")));
}

TEST_F(Status, TellsOfASecondAgent)
{
	soundMaster();
	addProcess(6000, "VelarixHA");
	EXPECT_THAT(runHere({"status"}).out, HasSubstr("warning: an agent runs as process 6000, which the pid file does "
	                                               "not name"));
}

TEST_F(Status, TellsNoRoleOfAPartnerAfterOneSilentPass)
{
	soundMaster();
	writeLog(emptyLog().start(198s).takeService(190s).masterFor(183300ms, 5300ms).masterFor(4300ms, 300ms, ""));
	const Outcome outcome = runHere({"status"});
	EXPECT_EQ(row(outcome, "partner"),
	          "partner      192.0.2.2 not known: no heartbeat for 5.3 s; told last: slave, its "
	          "programs do not run  [5.3 s]");
	EXPECT_EQ(outcome.code, 0);
}

TEST_F(Status, TellsNoRoleOfAPartnerWhenTheReceiverReadsNothing)
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
	EXPECT_THAT(row(runHere({"status"}), "partner"), StartsWith("partner      192.0.2.2 slave"));
	writeReceiverSilentFor(11100ms);
	EXPECT_THAT(row(runHere({"status"}), "partner"), StartsWith("partner      192.0.2.2 not known: no heartbeat for"));
}

TEST_F(Status, FindsTheLastChangeFarBackInTheLog)
{
	soundMaster();
	fakeMachine().starts[kAgent] = now - 5000s;
	writeLog(emptyLog().start(4998s).slaveFor(4998s, 4991s).takeService(4990s).masterFor(4983s, 300ms));
	const Outcome outcome = runHere({"status"});
	EXPECT_EQ(row(outcome, "last change"), "last change  2026-03-01 10:36:50 slave -> master: both nodes were slave: "
	                                       "back to the configured role  [1 h 23 min]");
	EXPECT_THAT(row(outcome, "role"), StartsWith("role         master, for 1 h 23 min"));
}

TEST_F(Status, TellsHowFarItLookedWhenTheChangeIsNotInTheLog)
{
	soundMaster();
	fakeMachine().starts[kAgent] = now - 50000s;
	writeLog(emptyLog().masterFor(300s, 300ms));
	const Outcome outcome = runHere({"status"});
	EXPECT_EQ(row(outcome, "last change"),
	          "last change  none since 2026-03-01 11:55:00, as far back as the log was read");
	EXPECT_EQ(row(outcome, "role"), "role         master  [1.0 s]");
}

TEST_F(Status, CountsTheRoleFromTheAgentsStartWhenItCameLater)
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
	EXPECT_THAT(row(outcome, "role"), StartsWith("role         slave, for 1 min"));
	EXPECT_THAT(row(outcome, "last change"), HasSubstr("2026-03-01 11:51:50 master -> slave"));
}
