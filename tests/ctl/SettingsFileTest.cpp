// The reader of the settings: the library's values, our lines.

#include <Poco/Exception.h>

#include "CtlTest.h"
#include "inspect/ExitCode.h"
#include "inspect/InputFile.h"
#include "inspect/SettingsFile.h"
#include "inspect/SettingsKeys.h"

using namespace velarix::inspect;

namespace
{

SettingsFile parse(const std::string& text)
{
	return SettingsFile::parse("config.ini", text);
}

/// @return "LINE KEY=VALUE", with "?" in place of "=" where the line has none
std::vector<std::string> split(const std::string& text)
{
	std::vector<std::string> result;
	for (const SettingLine& line : splitSettings(text).keys)
	{
		result.push_back(std::to_string(line.line) + " " + line.key + (line.assigned ? "=" : "?") + line.value);
	}
	return result;
}

/// @return the exit status and the text of the failure
std::pair<ExitCode, std::string> failureOf(const std::filesystem::path& path)
{
	try
	{
		readInputFile(path);
	}
	catch (const Failure& failure)
	{
		return {failure.code(), failure.what()};
	}
	return {ExitCode::fine, ""};
}

using InputFiles = CtlTest;

} // namespace

TEST(SettingsFile, TellsValueAndLineOfAKey)
{
	const SettingsFile file = parse("; a pair\n\n[AGENT]\nMODE = 1\n  VIRTUAL_IP=192.0.2.9  \r\n");
	EXPECT_EQ(file.integer("AGENT.MODE"), 1);
	EXPECT_EQ(file.lineOf("AGENT.MODE"), 4);
	EXPECT_EQ(file.text("AGENT.VIRTUAL_IP"), "192.0.2.9");
	EXPECT_EQ(file.lineOf("AGENT.VIRTUAL_IP"), 5);
	EXPECT_EQ(file.lineOf("AGENT.GATEWAY_IP"), 0);
	EXPECT_EQ(file.lineOfSection("agent"), 3);
	EXPECT_EQ(file.lineOfSection("LOG"), 0);
}

TEST(SettingsFile, TheLastOfTwoLinesCountsInAnyLetterCase)
{
	const SettingsFile file = parse("[A]\nK=1\n[a]\nk=2\n");
	EXPECT_EQ(file.integer("A.K"), 2);
	EXPECT_EQ(file.lineOf("A.K"), 4);
	EXPECT_EQ(file.lineOfSection("A"), 1);
}

TEST(SettingsFile, MissingAndUnreadableValuesAreNothing)
{
	const SettingsFile file = parse("[A]\nTEXT=x\nEMPTY=\nLOOP=${A.LOOP}\n");
	EXPECT_EQ(file.integer("A.TEXT"), std::nullopt);
	EXPECT_EQ(file.integer("A.EMPTY"), std::nullopt);
	EXPECT_EQ(file.integer("A.NONE"), std::nullopt);
	EXPECT_EQ(file.text("A.NONE"), std::nullopt);
	EXPECT_EQ(file.text("A.LOOP"), std::nullopt);
	EXPECT_EQ(file.text("A.EMPTY"), "");
	EXPECT_THROW(static_cast<void>(file.textOrThrow("A.NONE")), Poco::NotFoundException);
	EXPECT_THROW(static_cast<void>(file.integerOrThrow("A.TEXT")), Poco::SyntaxException);
}

TEST(SettingsFile, ProgramsAreReadUpToTheFirstThatIsMissing)
{
	EXPECT_THAT(
	    parse("[PROCESS_CHECK]\nPROCESS_NUM=3\nPROCESS_PATH1=/a\nPROCESS_PATH2=/b\nPROCESS_PATH4=/d\n").programs(),
	    ElementsAre("/a", "/b"));
	EXPECT_THAT(parse("[PROCESS_CHECK]\nPROCESS_NUM=1\nPROCESS_PATH1=/a\nPROCESS_PATH2=/b\n").programs(),
	            ElementsAre("/a"));
	EXPECT_THAT(parse("[PROCESS_CHECK]\nPROCESS_NUM=-1\nPROCESS_PATH1=/a\n").programs(), testing::IsEmpty());
}

TEST(SettingsFile, TheProgramsNameIsWhatStandsBehindTheLastSlash)
{
	EXPECT_EQ(programName("/usr/bin/mysqld"), "mysqld");
	EXPECT_EQ(programName("worker"), "worker");
	EXPECT_EQ(programName("/opt/app/server -c /etc/app.conf"), "app.conf");
	EXPECT_EQ(programName("/opt/app/"), "");
}

TEST(SettingsLines, FollowTheLibrarysRules)
{
	// clang-format off
	EXPECT_THAT(split(""),                                ElementsAre());
	EXPECT_THAT(split("[S]\nA = 1\nB=2"),                 ElementsAre("2 S.A=1", "3 S.B=2"));
	EXPECT_THAT(split("A=1\n[S]\n"),                      ElementsAre("1 A=1"));
	EXPECT_THAT(split("[S] A=1\n"),                       ElementsAre("1 S.A=1"));
	EXPECT_THAT(split("[S] ; A=1\nB=2\n"),                ElementsAre("2 S.B=2"));
	EXPECT_THAT(split("[S\nB=2\n"),                       ElementsAre("2 S.B=2"));
	EXPECT_THAT(split("[ S ]\nB=2\n"),                    ElementsAre("2 S.B=2"));
	EXPECT_THAT(split("[S]\n  ; A=1\n;\nB=2;3\n"),        ElementsAre("4 S.B=2;3"));
	EXPECT_THAT(split("[S]\n# A=1\n"),                    ElementsAre("2 S.# A=1"));
	EXPECT_THAT(split("[S]\nB\nC\n\n\nD=\n"),             ElementsAre("2 S.B?", "3 S.C?", "6 S.D="));
	EXPECT_THAT(split("[S]\r\nB = 2\r\nC=3\r\n"),         ElementsAre("2 S.B=2", "3 S.C=3"));
	EXPECT_THAT(split("[S]\nB = x = y\n"),                ElementsAre("2 S.B=x = y"));
	EXPECT_THAT(split("[]\nB=2\n"),                       ElementsAre("2 B=2"));
	EXPECT_THAT(split("[S]\n=2\n"),                       ElementsAre("2 S.=2"));
	// clang-format on
}

TEST_F(InputFiles, AFileIsReadByteForByte)
{
	const std::string text("a\0b\r\n\xff", 6);
	EXPECT_EQ(readInputFile(write("/file", text)), text);
	EXPECT_EQ(readInputFile(write("/empty", "")), "");
}

// A pipe would be waited for and a device read for ever: the test would not end.
TEST_F(InputFiles, WhatIsNoRegularFileOfAMegabyteIsRefused)
{
	EXPECT_EQ(failureOf(root() / "none").first, ExitCode::noInput);
	EXPECT_EQ(failureOf(root()).first, ExitCode::noInput);
	const std::string pipe = below("/pipe").string();
	ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
	for (const std::string& path : {pipe, std::string("/dev/zero"), std::string("/dev/null")})
	{
		EXPECT_EQ(failureOf(path), std::pair(ExitCode::noInput, "cannot read " + path + ": it is not a regular file"));
	}
	EXPECT_EQ(readInputFile(write("/file", std::string(kLargestInput, 'x'))).size(), kLargestInput);
	EXPECT_THAT(failureOf(write("/file", std::string(kLargestInput + 1, 'x'))).second,
	            EndsWith("it is larger than 1 MB"));
}

class PathsBelowARoot : public CtlTest
{
protected:
	Paths elsewhere() const { return Paths(root()); }

	void link(const std::string& target, const std::string& absolute) const
	{
		std::filesystem::create_directories(below(absolute).parent_path());
		std::filesystem::create_symlink(target, below(absolute));
	}
};

TEST_F(PathsBelowARoot, AreNotLeftByLinksOrDots)
{
	write("/data/logs/v.log", "x");
	link("/data", "/absolute");
	link("../../../../../../../../data", "/a/b/upwards");
	link("upwards/logs", "/a/b/chain");
	link("/etc", "/out");
	struct Row
	{
		const char* asked;
		const char* got;
	};
	for (const Row& row : {Row{"/data/logs/v.log", "/data/logs/v.log"},
	                       {"/data/../data/./logs/v.log", "/data/logs/v.log"},
	                       {"/../../../../../../../../etc/passwd", "/etc/passwd"},
	                       {"/absolute/logs/v.log", "/data/logs/v.log"},
	                       {"/absolute/../x", "/x"},
	                       {"/a/b/upwards/logs/v.log", "/data/logs/v.log"},
	                       {"/a/b/chain/v.log", "/data/logs/v.log"},
	                       {"/out/passwd", "/etc/passwd"},
	                       {"/not/there/../here", "/not/here"}})
	{
		EXPECT_EQ(elsewhere().below(row.asked), below(row.got)) << row.asked;
	}
}

TEST_F(PathsBelowARoot, LeadTheFixedFilesNowhereElseAndEndWhereLinksDoNot)
{
	link("/etc/passwd", "/usr/velarix/pid/VelarixHA.pid");
	EXPECT_EQ(elsewhere().pid, below("/etc/passwd"));
	link("two", "/one");
	link("one", "/two");
	EXPECT_THROW(elsewhere().below("/one"), Failure);
	EXPECT_EQ(Paths().below("/a/../b"), "/a/../b");
}

// ---- the table of the keys

TEST(SettingsKeys, EachKeyIsFoundInAnyLetterCase)
{
	EXPECT_EQ(findKey("agent.mode")->name, "AGENT.MODE");
	EXPECT_EQ(findKey("AGENT.NONE"), nullptr);
	EXPECT_EQ(findKey("MODE"), nullptr);
}

TEST(SettingsKeys, ProgramsAreNumberedFromOne)
{
	EXPECT_EQ(findKey("PROCESS_CHECK.PROCESS_PATH1")->name, key::kProcessPath);
	EXPECT_EQ(findKey("process_check.process_path12")->name, key::kProcessPath);
	EXPECT_EQ(findKey("PROCESS_CHECK.PROCESS_PATH"), nullptr);
	EXPECT_EQ(findKey("PROCESS_CHECK.PROCESS_PATH0"), nullptr);
	EXPECT_EQ(findKey("PROCESS_CHECK.PROCESS_PATH01"), nullptr);
	EXPECT_EQ(findKey("PROCESS_CHECK.PROCESS_PATHX"), nullptr);
}

/// What the daemon's sources name is what the table has, in both directions.
TEST(SettingsKeys, TheTableHasTheKeysOfTheDaemon)
{
	std::set<std::string> sources;
	for (const auto& entry : std::filesystem::recursive_directory_iterator(VELARIX_DAEMON_SOURCES))
	{
		for (const char* section : {"AGENT.", "PROCESS_CHECK.", "ADVENCE.", "LOG."})
		{
			const bool isSource = entry.path().extension() == ".cpp";
			for (const std::string& key :
			     allBetween(isSource ? readFile(entry.path()) : "", "\"" + std::string(section), "\""))
			{
				sources.insert(section + key);
			}
		}
	}
	std::set<std::string> table;
	for (const KeyInfo& info : settingsKeys())
	{
		EXPECT_FALSE(info.meaning.empty() || info.whenRead.empty() || info.missing.empty() || info.zero.empty())
		    << info.name;
		EXPECT_TRUE(info.type != KeyType::integer || !info.negative.empty()) << info.name;
		// An example is a value that the daemon can read.
		EXPECT_TRUE(info.type != KeyType::integer || parse("[S]\nK=" + std::string(info.example)).integer("S.K"))
		    << info.name;
		table.insert(std::string(info.name));
	}
	EXPECT_EQ(table, sources);
}
