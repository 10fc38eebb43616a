// What `status` says of files that it may not or must not read, and of other users' processes;
// the rest is in states.txt.

#include "PlainUser.h"
#include "StateTest.h"

using namespace std::chrono_literals;

namespace fs = std::filesystem;

using Status = StateTest;

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

TEST_F(Status, OfALogWithoutALineFeedEndsSoon)
{
	soundMaster();
	fs::resize_file(below(kLog), 3UL * 1024 * 1024 * 1024);
	const auto begin = std::chrono::steady_clock::now();
	EXPECT_EQ(runHere({"status"}).code, 4);
	EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
}
