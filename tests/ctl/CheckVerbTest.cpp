// The verb check: its texts, its JSON, its exit codes.

#include <nlohmann/json.hpp>

#include "CheckTest.h"
#include "PlainUser.h"

namespace fs = std::filesystem;

namespace
{

class CheckVerb : public CheckTest
{
protected:
	CheckVerb() { put(); }

	void put() const { write("/usr/velarix/bin/ini/config.ini", joined(lines)); }

	/// One fault of each kind of place: a line, a file, another file, the partner's.
	void breakNode()
	{
		setKey(lines, "HEART_BEAT_INTERVAL", "0");
		setKey(lines, "PURGEAGE", "none");
		dropKey(lines, "GATEWAY_IP");
		put();
		fs::remove(below("/usr/velarix/pid"));
		std::vector<std::string> partner = soundLines();
		setKey(partner, "THIS_SERVER_IP", "192.0.2.2");
		setKey(partner, "PARTNER_IP", "192.0.2.9");
		write("/partner.ini", joined(partner));
	}
};

} // namespace

TEST_F(CheckVerb, ASoundNodeIsCleanAndSaysWhatItDidNotLookAt)
{
	const Outcome outcome = runBelow({"check"});
	EXPECT_EQ(outcome.code, 0);
	EXPECT_EQ(outcome.out,
	          "not checked: interfaces, addresses, ports, pings, processes and what the commands do (another "
	          "root)\n"
	          "0 errors, 0 warnings\n");
	EXPECT_EQ(outcome.err, "");
}

TEST_F(CheckVerb, FindingsAreTextAndJson)
{
	const Outcome sound = runBelow({"check", "--json"});
	EXPECT_EQ(sound.code, 0);
	expectGolden("check-clean.json", anonymous(sound.out));
	breakNode();
	const std::string partner = below("/partner.ini").string();
	const Outcome text = runBelow({"check", "--partner", partner});
	const Outcome json = runBelow({"check", "--json", "--partner", partner});
	expectGolden("check.txt", anonymous(text.out));
	expectGolden("check.json", anonymous(json.out));
	EXPECT_EQ(nlohmann::json::parse(json.out)["errors"], 5);
	for (const Outcome& outcome : {text, json})
	{
		EXPECT_EQ(outcome.code, 78);
		EXPECT_EQ(outcome.err, "");
	}
}

TEST_F(CheckVerb, AValueThatIsNoTextStaysReadableJson)
{
	setKey(lines, "GATEWAY_IP", "\xff\xfe");
	put();
	const Outcome outcome = runBelow({"check", "--json"});
	EXPECT_TRUE(nlohmann::json::accept(outcome.out));
	EXPECT_THAT(outcome.out, HasSubstr("not-an-address"));
}

TEST_F(CheckVerb, WhatATerminalWouldObeyIsShownAsText)
{
	lines.emplace_back("KEY\x1b[2J\x9b = 1");
	put();
	const Outcome outcome = runBelow({"check"});
	EXPECT_THAT(outcome.out, HasSubstr("KEY\\x1b[2J\\x9b"));
	EXPECT_THAT(outcome.out, Not(HasSubstr("\x1b")));
}

TEST_F(CheckVerb, SeveritiesAreColouredOnATerminal)
{
	breakNode();
	colour = true;
	const std::string coloured = runBelow({"check"}).out;
	EXPECT_THAT(coloured, HasSubstr(": \033[1;31merror\033[0m: "));
	EXPECT_THAT(coloured, HasSubstr(": \033[1;33mwarning\033[0m: "));
	EXPECT_THAT(runBelow({"check", "--json"}).out, Not(HasSubstr("\033")));
	colour = false;
	EXPECT_THAT(runBelow({"check"}).out, Not(HasSubstr("\033")));
}

TEST_F(CheckVerb, WarningsAloneAreFineUnlessStrict)
{
	setKey(lines, "PURGEAGE", "none");
	put();
	EXPECT_EQ(runBelow({"check"}).code, 0);
	EXPECT_EQ(runBelow({"check", "--strict"}).code, 78);
	setKey(lines, "PURGEAGE", "30 days");
	put();
	EXPECT_EQ(runBelow({"check", "--strict"}).code, 0);
}

TEST_F(CheckVerb, WhatTheOperatorHasAcceptedDoesNotCount)
{
	setKey(lines, "PURGEAGE", "none");
	setKey(lines, "HEART_BEAT_INTERVAL", "0");
	put();
	EXPECT_EQ(runBelow({"check", "--ignore", "zero-time"}).code, 0);
	EXPECT_EQ(runBelow({"check", "--strict", "--ignore", "zero-time"}).code, 78);
	write("/usr/velarix/bin/ini/acknowledged.txt", "# by us\n  logs-kept-for-ever\tcollected elsewhere\r\n");
	const Outcome outcome = runBelow({"check", "--strict", "--ignore=zero-time", "--ignore", "disk-full"});
	EXPECT_EQ(outcome.code, 0);
	EXPECT_THAT(outcome.out, testing::StartsWith("acknowledged: AGENT.HEART_BEAT_INTERVAL is 0 [zero-time]\n"
	                                             "acknowledged: LOG.PURGEAGE is none [logs-kept-for-ever]\n"));
	const auto json = nlohmann::json::parse(runBelow({"check", "--json", "--ignore", "zero-time"}).out);
	EXPECT_EQ(json["acknowledged"].size(), 2U);
	EXPECT_EQ(json["errors"], 0);
}

TEST_F(CheckVerb, ANameThatNoFindingHasIsFound)
{
	write("/usr/velarix/bin/ini/acknowledged.txt", "# by us\n\ngateway-silnt\tlimits pings\n");
	EXPECT_THAT(found({.file = settings(), .partner = {}, .filesOnly = true, .ignored = {"no-such"}}),
	            testing::UnorderedElementsAre("warning unknown-finding /usr/velarix/bin/ini/acknowledged.txt:3",
	                                          "warning unknown-finding /usr/velarix/bin/ini/config.ini"));
}

TEST_F(CheckVerb, AFileThatThisUserMayNotReadIsNoFinding)
{
	fs::permissions(settings(), fs::perms::none);
	const PlainUser user;
	const Outcome outcome = runBelow({"check"});
	EXPECT_EQ(outcome.code, 77);
	EXPECT_EQ(outcome.out, "");
	EXPECT_EQ(anonymous(outcome.err), "velarixctl: cannot read /usr/velarix/bin/ini/config.ini: Permission denied\n");
}

TEST_F(CheckVerb, APartnerFileThatIsAPipeIsRefusedAndNotWaitedFor)
{
	const fs::path pipe = below("/partner.ini");
	ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
	EXPECT_EQ(runBelow({"check", "--partner", pipe.string()}).code, 66);
}

TEST_F(CheckVerb, AnotherFileIsCheckedInPlaceOfTheInstalledOne)
{
	setKey(lines, "MODE", "master");
	const std::string other = write("/other.ini", joined(lines)).string();
	const Outcome outcome = runBelow({"check", other});
	EXPECT_EQ(outcome.code, 78);
	EXPECT_THAT(outcome.out, HasSubstr("/other.ini:2: error: AGENT.MODE is \"master\", which is no whole number"));
	EXPECT_THAT(anonymous(outcome.out),
	            HasSubstr("not checked: who may write /other.ini (it is not the installed file)\n"));
}

TEST_F(CheckVerb, FilesOnlyLeavesDiskAndMachineAlone)
{
	fs::remove_all(below("/opt"));
	fs::remove_all(below("/usr/bin"));
	EXPECT_EQ(runBelow({"check"}).code, 78);
	const Outcome outcome = runBelow({"check", "--files-only"});
	EXPECT_EQ(outcome.code, 0);
	EXPECT_EQ(outcome.out, "not checked: directories, programs, tools and this machine (--files-only)\n"
	                       "0 errors, 0 warnings\n");
}

TEST_F(CheckVerb, TheMachineIsAskedOnTheRunningSystem)
{
	fakeHost().interfaces.clear();
	const Outcome outcome = run({"check", settings().string()});
	EXPECT_EQ(outcome.code, 78);
	EXPECT_THAT(outcome.out, HasSubstr("there is no interface eth0 (service) and no interface eth1 (communication); "
	                                   "there are "));
	EXPECT_THAT(outcome.out, Not(HasSubstr("another root")));
}

TEST_F(CheckVerb, CuresNameThePathsOfTheMachine)
{
	fs::permissions(below("/opt/service/bin/server"), fs::perms{0777});
	EXPECT_THAT(runBelow({"check"}).out, HasSubstr("fix: chmod go-w /opt/service/bin/server\n"));
}

TEST_F(CheckVerb, AMissingFileOfThePartnerIsSaidToBeThat)
{
	EXPECT_THAT(runBelow({"check", "--files-only", "--partner", "/nonexist"}).out,
	            HasSubstr("if left: the two nodes' files are not compared\n"
	                      "    fix: name a copy of the partner's config.ini\n"));
}

TEST_F(CheckVerb, AnUnknownOptionIsAUsageError)
{
	EXPECT_EQ(runBelow({"check", "--fix"}).code, 2);
	EXPECT_EQ(run({"check", "--partner"}).code, 2);
	EXPECT_EQ(run({"check", "one.ini", "two.ini"}).code, 2);
}

TEST_F(CheckVerb, TheSamplesAreClean)
{
	executable("/usr/libexec/velarix-ha/keeper");
	executable("/usr/sbin/nginx");
	executable("/usr/bin/curl");
	write("/usr/velarix/bin/ini/config.ini", readFile(VELARIX_PACKAGING "/config.ini.sample"));
	write("/usr/velarix/bin/ini/keeper.ini", readFile(VELARIX_PACKAGING "/keeper.ini.sample"));
	const Outcome outcome = runBelow({"check"});
	EXPECT_EQ(outcome.code, 0);
	EXPECT_THAT(outcome.out, EndsWith("0 errors, 0 warnings\n"));
}

TEST_F(CheckVerb, CommandsAreTriedOnTheRunningSystemAlone)
{
	runBelow({"check"});
	run({"check", "--files-only", settings().string()});
	EXPECT_TRUE(fakeHost().trials.empty());
	const Outcome outcome = run({"check", settings().string()});
	EXPECT_EQ(fakeHost().trials.size(), 1U);
	EXPECT_THAT(outcome.out, HasSubstr("not checked: what the commands do (not made up)\n"));
}

TEST_F(CheckVerb, NothingIsRunAndNothingIsChanged)
{
	setKey(lines, "VIRTUAL_IP_START_COMMAND", "touch " + below("/ran").string());
	setKey(lines, "VIRTUAL_IP_STOP_COMMAND", "touch " + below("/ran").string());
	setKey(lines, "PROCESS_KILL_COMMAND", "touch " + below("/ran").string());
	put();
	const std::string before = readFile(settings());
	runBelow({"check"});
	EXPECT_FALSE(fs::exists(below("/ran")));
	EXPECT_EQ(readFile(settings()), before);
}
