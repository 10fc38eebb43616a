// What init does with what is there already, and who may read what it writes.

#include "InitTest.h"
#include "inspect/SettingsKeys.h"

using namespace velarix::inspect;

namespace fs = std::filesystem;

TEST_F(Init, AnExistingFileIsNeverOverwritten)
{
	write("/pair/b/config.ini", "mine");
	const Outcome outcome = run(arguments());
	EXPECT_EQ(outcome.code, 73);
	EXPECT_EQ(outcome.out, "");
	EXPECT_EQ(anonymous(outcome.err), "velarixctl: /pair/b/config.ini is there already; nothing was written (--force "
	                                  "replaces it and keeps a copy)\n");
	EXPECT_EQ(readFile(file("b/config.ini")), "mine");
	EXPECT_FALSE(fs::exists(file("a/config.ini")));
}

TEST_F(Init, ALinkToNowhereIsSomethingThatIsThere)
{
	fs::create_directories(file("a"));
	fs::create_symlink("/nowhere", file("a/config.ini"));
	EXPECT_EQ(run(arguments()).code, 73);
	EXPECT_TRUE(fs::is_symlink(file("a/config.ini")));
}

TEST_F(Init, ADryRunWritesNothing)
{
	EXPECT_THAT(run(arguments({"--dry-run"})).out, HasSubstr("would be written: "));
	EXPECT_FALSE(fs::exists(output()));
}

TEST_F(Init, ForcedItKeepsACopyOfWhatItReplaces)
{
	write("/pair/a/config.ini", "mine");
	write("/pair/a/runinfo.txt", "my record");
	Outcome outcome = run(arguments({"--force"}));
	EXPECT_EQ(outcome.code, 0);
	outcome.out.resize(outcome.out.find("next, "));
	EXPECT_EQ(anonymous(outcome.out), "copy: /pair/a/config.ini.20260301T120000Z\n"
	                                  "written: /pair/a/config.ini\n"
	                                  "written: /pair/a/keeper.ini\n"
	                                  "written: /pair/a/firewall.nft\n"
	                                  "copy: /pair/a/runinfo.txt.20260301T120000Z\n"
	                                  "written: /pair/a/runinfo.txt\n"
	                                  "written: /pair/b/config.ini\n"
	                                  "written: /pair/b/keeper.ini\n"
	                                  "written: /pair/b/firewall.nft\n"
	                                  "written: /pair/b/runinfo.txt\n");
	EXPECT_EQ(readFile(file("a/config.ini.20260301T120000Z")), "mine");
	EXPECT_EQ(readFile(file("a/runinfo.txt.20260301T120000Z")), "my record");
}

TEST_F(Init, ACopyIsNotOverwrittenEither)
{
	write("/pair/a/config.ini", "mine");
	write("/pair/a/config.ini.20260301T120000Z", "older");
	const Outcome outcome = run(arguments({"--force"}));
	EXPECT_EQ(outcome.code, 73);
	EXPECT_THAT(outcome.err, HasSubstr("File exists"));
	EXPECT_EQ(readFile(file("a/config.ini")), "mine");
	EXPECT_EQ(readFile(file("a/config.ini.20260301T120000Z")), "older");
}

TEST_F(Init, InPlaceTheRecordOfStartsIsKept)
{
	fs::remove(settings());
	write("/usr/velarix/bin/log/runinfo.txt", "[TRACE]\nLAST_RUN_TIME = 20260228000000\n");
	Outcome outcome = runBelow(arguments({"--this=b", "--force"}));
	EXPECT_EQ(outcome.code, 0);
	outcome.out.resize(outcome.out.find("next, "));
	EXPECT_EQ(anonymous(outcome.out), "written: /pair/a/config.ini\n"
	                                  "written: /pair/a/keeper.ini\n"
	                                  "written: /pair/a/firewall.nft\n"
	                                  "written: /pair/a/runinfo.txt\n"
	                                  "written: /usr/velarix/bin/ini/config.ini\n"
	                                  "written: /usr/velarix/bin/ini/keeper.ini\n"
	                                  "written: /usr/velarix/bin/ini/firewall.nft\n"
	                                  "kept: /usr/velarix/bin/log/runinfo.txt\n");
	EXPECT_EQ(SettingsFile::load(settings()).integer(key::kMode), 2);
	EXPECT_THAT(readFile(below("/usr/velarix/bin/log/runinfo.txt")), HasSubstr("20260228000000"));
	EXPECT_FALSE(fs::exists(file("b")));
}

TEST_F(Init, InPlaceTheOperatorsSettingsAreNotOverwritten)
{
	write("/usr/velarix/bin/ini/config.ini", "mine");
	EXPECT_EQ(runBelow(arguments({"--this=a"})).code, 73);
	EXPECT_EQ(readFile(settings()), "mine");
	EXPECT_FALSE(fs::exists(file("b/config.ini")));
}

TEST_F(Init, WhatCannotBeMadeIsAnError)
{
	fs::remove_all(below("/usr/velarix"));
	const Outcome nowhere = runBelow(arguments({"--this=a"}));
	EXPECT_EQ(nowhere.code, 73);
	EXPECT_THAT(nowhere.err, HasSubstr("No such file or directory"));
	fs::remove_all(output());
	write("/pair", "");
	const Outcome taken = run(arguments());
	EXPECT_EQ(taken.code, 73);
	EXPECT_THAT(taken.err, HasSubstr("cannot make"));
}

TEST_F(Init, TheFilesAreWritableByTheOwnerAloneWhateverTheMask)
{
	const mode_t mask = ::umask(0);
	run(arguments());
	::umask(mask);
	EXPECT_EQ(rightsOf(file("a/config.ini")), 0600U);
	EXPECT_EQ(rightsOf(file("b/runinfo.txt")), 0600U);
	EXPECT_EQ(rightsOf(output()), 0700U);
	EXPECT_EQ(rightsOf(file("a")), 0700U);
}

TEST_F(Init, KeepsModeAndOwnerOfWhatItReplaces)
{
	ASSERT_EQ(run(arguments()).code, 0);
	fs::permissions(file("a/config.ini"), fs::perms(0640));
	fs::permissions(output(), fs::perms(0755));
	const bool root = ::geteuid() == 0;
	if (root)
	{
		ASSERT_EQ(::chown(file("a/config.ini").c_str(), 0, 4242), 0);
	}
	const Outcome outcome = run(arguments({"--force", "--port=7001"}));
	ASSERT_EQ(outcome.code, 0) << outcome.err;
	std::vector<fs::path> both{file("a/config.ini")};
	for (const fs::directory_entry& entry : fs::directory_iterator(file("a")))
	{
		if (entry.path().filename().string().starts_with("config.ini."))
		{
			both.push_back(entry.path());
		}
	}
	ASSERT_EQ(both.size(), 2U) << "the file and its copy";
	for (const fs::path& path : both)
	{
		EXPECT_EQ(rightsOf(path), 0640U) << path;
		struct stat status = {};
		ASSERT_EQ(::stat(path.c_str(), &status), 0);
		EXPECT_EQ(status.st_gid, root ? 4242U : ::getegid()) << path;
	}
	EXPECT_EQ(rightsOf(output()), 0755U) << "a directory that is there stays as it is";
	EXPECT_EQ(rightsOf(file("b/config.ini")), 0600U);
}
