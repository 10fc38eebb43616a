// What `status` says of sound and of broken nodes, and its exit status.

#include "PlainUser.h"
#include "StateTest.h"

using namespace std::chrono_literals;

namespace fs = std::filesystem;

using Status = StateTest;

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

TEST_F(Status, OfAnAgentThatDoesNotWorkTellsNoRole)
{
	struct Row
	{
		const char* agent;
		int code;
		std::function<void()> becomes;
	};
	const std::vector<Row> rows{
	    {"DEAD: process 4711 of the pid file is another program now (cron)", 1, [&] { addProcess(kAgent, "cron"); }},
	    {"DEAD: process 4711 of the pid file has ended", 1, [&] { addProcess(kAgent, "VelarixHA", 'Z'); }},
	    {"DOES NOT RUN: there is no pid file /usr/velarix/pid/VelarixHA.pid", 3, [&] { fs::remove(below(kPid)); }},
	    {"not known: process 4711 of the pid file is hidden from this user", 4,
	     [&] { fakeMachine().hidden = {kAgent}; }},
	    {"FROZEN: process 4711 is stopped and does nothing until it is continued; started 3 min 20 s ago", 4,
	     [&] { addProcess(kAgent, "VelarixHA", 'T', 4); }},
	};
	for (const Row& each : rows)
	{
		soundMaster();
		endProcess(kAgent);
		each.becomes();
		const Outcome outcome = runHere({"status"});
		EXPECT_EQ(row(outcome, "agent"), std::string("agent        ") + each.agent);
		EXPECT_THAT(row(outcome, "role"), StartsWith("role         not known: ")) << each.agent;
		EXPECT_EQ(outcome.code, each.code) << each.agent;
		freshHost();
	}
}

TEST_F(Status, OfAPidFileWithoutANumberIsNotKnown)
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

TEST_F(Status, OfAMasterThatHearsNoPartnerAsksWhoElseHasTheAddress)
{
	soundMaster();
	fakeHost().holders = {{"198.51.100.10", "52:54:00:00:00:02"}};
	EXPECT_THAT(runHere({"status"}).out, Not(HasSubstr("split-brain")));
	writeLog(emptyLog().start(198s).takeService(190s).masterFor(183300ms, 5300ms).masterFor(4300ms, 300ms, ""));
	EXPECT_THAT(runHere({"status"}).out, HasSubstr("critical: split-brain: the host 52:54:00:00:00:02 has the"));
}

TEST_F(Status, TellsOfASecondAgent)
{
	soundMaster();
	addProcess(6000, "VelarixHA");
	EXPECT_THAT(runHere({"status"}).out, HasSubstr("warning: an agent runs as process 6000, which the pid file does "
	                                               "not name"));
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
		const char* reported;
	};
	for (const Row& each : {Row{"pipe:[4711]", "a pipe"},
	                        {"/dev/pts/3", "the terminal /dev/pts/3"},
	                        {"/dev/tty1", "the terminal /dev/tty1"},
	                        {"/dev/console", "the terminal /dev/console"}})
	{
		soundMaster();
		fakeMachine().outputs[kAgent] = each.output;
		EXPECT_THAT(runHere({"status"}).out,
		            HasSubstr(std::string("warning: the agent echoes its log to ") + each.reported + ": when nobody"));
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
