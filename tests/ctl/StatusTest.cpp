// What `status` says of sound and of broken nodes, and its exit status.

#include <Poco/DateTime.h>
#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeFormatter.h>
#include <sys/stat.h>

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
		EXPECT_THAT(runHere(words).out, HasSubstr("\"192.0.2.\\ufffd\"")) << words.front();
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
	          "partner      192.0.2.2 not known: no heartbeat for 5.3 s; told last: standby, its "
	          "programs do not run  [5.3 s]");
	EXPECT_EQ(outcome.code, 0);
}

TEST_F(Status, OfAMasterThatHearsNoPartnerAsksWhoElseHasTheAddress)
{
	soundMaster();
	fakeHost().holders = {{"198.51.100.10", "52:54:00:00:00:02"}};
	EXPECT_THAT(runHere({"status"}).out, Not(HasSubstr("split-brain")));
	writeLog(emptyLog().start(198s).takeService(190s).masterFor(183300ms, 5300ms).masterFor(4300ms, 300ms, ""));
	EXPECT_THAT(runHere({"status"}).out, HasSubstr("critical: split-brain: the host 52:54:00:00:00:02 has the"));
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
	EXPECT_THAT(row(runHere({"status"}), "partner"), StartsWith("partner      192.0.2.2 standby"));
	writeReceiverSilentFor(11100ms);
	EXPECT_THAT(row(runHere({"status"}), "partner"), StartsWith("partner      192.0.2.2 not known: no heartbeat for"));
}

TEST_F(Status, FindsTheLastChangeFarBackInTheLog)
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
	EXPECT_THAT(row(outcome, "role"), StartsWith("role         standby, for 1 min"));
	EXPECT_THAT(row(outcome, "last change"), HasSubstr("2026-03-01 11:51:50 master -> standby"));
}

TEST_F(Status, TakesNoUsersProcessForTheAgent)
{
	soundMaster();
	fakeHost().processes.push_back({.pid = 6000, .statusLine = "Name:\tVelarixHA", .name = "VelarixHA", .user = 1000});
	fakeHost().processes.push_back(
	    {.pid = 6001, .statusLine = "Name:\tVelarixHA", .name = "VelarixHA", .executable = "/home/eve/VelarixHA"});
	const Outcome sound = runHere({"status"});
	EXPECT_THAT(sound.out, Not(HasSubstr("an agent runs as process")));
	EXPECT_EQ(sound.code, 0);

	write(kPid, "6000");
	const Outcome named = runHere({"status"});
	EXPECT_EQ(row(named, "agent"), "agent        DEAD: process 6000 of the pid file is another program now "
	                               "(VelarixHA, not the agent of root)");
	EXPECT_EQ(named.code, 1);
}

TEST_F(Status, NamesAnAgentWhoseOutputSomebodyHasToRead)
{
	struct Row
	{
		const char* output;
		const char* told;
	};
	for (const Row& each : {Row{"pipe:[4711]", "a pipe"},
	                        {"/dev/pts/3", "the terminal /dev/pts/3"},
	                        {"/dev/tty1", "the terminal /dev/tty1"},
	                        {"/dev/console", "the terminal /dev/console"}})
	{
		soundMaster();
		fakeMachine().outputs[kAgent] = each.output;
		EXPECT_THAT(runHere({"status"}).out,
		            HasSubstr(std::string("warning: the agent echoes its log to ") + each.told + ": when nobody"));
		freshHost();
	}
	for (const char* output : {"/dev/null", "/var/log/velarix.out", "socket:[4711]", ""})
	{
		soundMaster();
		fakeMachine().outputs[kAgent] = output;
		EXPECT_THAT(runHere({"status"}).out, Not(HasSubstr("echoes"))) << output;
		freshHost();
	}
}

TEST_F(Status, NamesALogThatWasBegunWhileTheClockWasAhead)
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

// Without the refusal this test does not end.
TEST_F(Status, ReadsNoPipeAndNoDevice)
{
	for (const char* file : {kSettings, kPid, kLog})
	{
		soundMaster();
		fs::remove(below(file));
		ASSERT_EQ(::mkfifo(below(file).c_str(), 0600), 0);
		EXPECT_EQ(runHere({"status"}).code, 4) << file;
		fs::remove(below(file));
		fs::create_symlink("/dev/zero", below(file));
		EXPECT_EQ(runHere({"status"}).code, 4) << file;
		fs::remove(below(file));
		freshHost();
	}
}

TEST_F(Status, HasNothingForATerminalToObey)
{
	soundMaster();
	endProcess(kAgent);
	addProcess(kAgent, "\033[2J\xc2\x9b"
	                   "2J");
	writeSettings(1, {{"PARTNER_IP", "\033]0;x\007"},
	                  {"GATEWAY_IP", "\033[31m"},
	                  {"VIRTUAL_IP", "\xc2\x9b"
	                                 "7m"}});
	for (const std::vector<std::string>& words :
	     {std::vector<std::string>{"status"}, {"status", "--json"}, {"nagios"}, {"switchover"}, {"metrics"}})
	{
		const Outcome outcome = runHere(words);
		for (const char* escape : {"\033", "\007", "\xc2\x9b"})
		{
			EXPECT_THAT(outcome.out + outcome.err, Not(HasSubstr(escape))) << words.back();
		}
	}
	EXPECT_THAT(row(runHere({"status"}), "agent"), HasSubstr("(\\x1b[2J\\xc2\\x9b2J)"));
}

TEST_F(Status, TellsALogOfAnotherTimeZoneFromASilentOne)
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

TEST_F(Status, OfALogWithoutALineFeedEndsSoon)
{
	soundMaster();
	fs::resize_file(below(kLog), 3UL * 1024 * 1024 * 1024);
	const auto begin = std::chrono::steady_clock::now();
	EXPECT_EQ(runHere({"status"}).code, 4);
	EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
}

TEST_F(Status, NamesAServiceThatComesAndGoes)
{
	soundMaster();
	NodeLog log = emptyLog().start(298s);
	for (const std::chrono::seconds before : {250s, 190s})
	{
		log.takeService(before).masterFor(before - 7s, before - 20s).giveUp(before - 21s);
		log.slaveFor(before - 22s, before - 50s);
	}
	writeLog(log.slaveFor(139s, 300ms));
	EXPECT_THAT(runHere({"status"}).out, HasSubstr("critical: the service comes and goes: the role changed 4 times in "
	                                               "five minutes"));
	EXPECT_EQ(runHere({"nagios"}).code, 2);
}

TEST_F(Status, CountsRefusalsInARow)
{
	soundMaster();
	const auto refusing = [this](int times)
	{
		NodeLog log = emptyLog().start(198s).takeService(190s).masterFor(183300ms, 10300ms);
		for (int count = times; count > 0; --count)
		{
			log.line(count * 1000ms, 4, "CHeartSender:79", "Sender Connection refused(CODE: 111)[noName]", 'E');
		}
		writeLog(log.line(300ms, 1, "ProcessChecker:103", "ProcessRuning[noName][MODE:M]: 1"));
	};
	refusing(2);
	EXPECT_THAT(runHere({"status"}).out, Not(HasSubstr("does not accept")));
	refusing(3);
	EXPECT_THAT(runHere({"status"}).out, HasSubstr("warning: the partner does not accept this node's heartbeats"));
}

TEST_F(Status, NamesAStartCommandThatFailsAgainAndAgain)
{
	soundMaster();
	NodeLog log = emptyLog().start(198s).takeService(30s);
	writeLog(log);
	std::string text = readFile(below(kLog));
	// Cut off before the address is there.
	text.resize(text.find("set virtual ip..."));
	text.resize(text.rfind('\n') + 1);
	NodeLog failing = emptyLog();
	for (const auto before : {10s, 5s})
	{
		failing.line(before, 2, "Utill:432", "can't start virtual ip: RTNETLINK answers: File exists", 'E');
	}
	write(kLog, text + failing.line(300ms, 1, "ProcessChecker:103", "ProcessRuning[noName][MODE:M]: 0").text());
	EXPECT_THAT(runHere({"status"}).out, HasSubstr("critical: the virtual address cannot be raised: its start has "
	                                               "failed 2 times in a row"));
}
