// What is found on the disk: directories, rights, programs, tools, the run-info record.

#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeFormatter.h>
#include <sys/stat.h>

#include "CheckTest.h"
#include "ctl/check/Checks.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
using host::FileKind;
using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;

namespace
{

class InstallationCheck : public CheckTest
{
protected:
	void rights(const std::string& absolute, unsigned mode) const
	{
		fs::permissions(below(absolute), static_cast<fs::perms>(mode));
	}

	void record(const std::string& text) const { write("/usr/velarix/bin/log/runinfo.txt", text); }
};

} // namespace

TEST_F(InstallationCheck, ASoundNodeHasNoFinding)
{
	EXPECT_THAT(found(), IsEmpty());
}

// ---- the settings file as a whole

TEST_F(InstallationCheck, AMissingSettingsFileIsFound)
{
	fs::remove(settings());
	EXPECT_THAT(found({.file = settings(), .partner = {}, .filesOnly = false}),
	            ElementsAre("error settings-missing /usr/velarix/bin/ini/config.ini"));
}

TEST_F(InstallationCheck, AnEmptySettingsFileIsFound)
{
	EXPECT_THAT(found({.file = settings(), .partner = {}, .filesOnly = false}),
	            ElementsAre("error settings-empty /usr/velarix/bin/ini/config.ini"));
}

TEST_F(InstallationCheck, AFileOfAnotherEncodingIsOneFinding)
{
	std::string wide = "\xFF\xFE";
	for (const char letter : joined(lines))
	{
		wide += letter;
		wide += '\0';
	}
	write("/usr/velarix/bin/ini/config.ini", wide);
	EXPECT_THAT(found({.file = settings(), .partner = {}, .filesOnly = false}),
	            ElementsAre("error settings-encoding /usr/velarix/bin/ini/config.ini"));
}

TEST_F(InstallationCheck, AFaultOfTheWholeFileIsOneFinding)
{
	const std::vector<std::string> sound = lines;
	lines[0] = "[AGNET]";
	EXPECT_THAT(found(), ElementsAre("error missing-section /usr/velarix/bin/ini/config.ini"));
	lines[0] = "";
	EXPECT_THAT(found(), ElementsAre("error missing-section /usr/velarix/bin/ini/config.ini"));
	for (std::string& line : lines)
	{
		std::ranges::replace(line, '=', ':');
	}
	EXPECT_THAT(found(), ElementsAre("error no-assignment /usr/velarix/bin/ini/config.ini"));
	lines = sound;
	for (std::string& line : lines)
	{
		line.insert(0, "\xC2\xA0");
	}
	EXPECT_THAT(found(), ElementsAre("error pasted-characters /usr/velarix/bin/ini/config.ini"));
}

TEST_F(InstallationCheck, AFileOfCommentsIsEmpty)
{
	lines = {"; nothing", "[AGENT]", "; MODE = 1"};
	EXPECT_THAT(found(), ElementsAre("error settings-empty /usr/velarix/bin/ini/config.ini"));
}

TEST_F(InstallationCheck, ADirectoryInPlaceOfTheSettingsIsFound)
{
	fs::remove(settings());
	fs::create_directory(settings());
	EXPECT_THAT(found({.file = settings(), .partner = {}, .filesOnly = false}),
	            ElementsAre("error settings-is-a-directory /usr/velarix/bin/ini/config.ini"));
}

TEST_F(InstallationCheck, SettingsThatOthersMayWriteAreFound)
{
	rights("/usr/velarix/bin/ini/config.ini", 0664);
	EXPECT_THAT(found(), ElementsAre("error settings-writable /usr/velarix/bin/ini/config.ini"));
}

TEST_F(InstallationCheck, WhoMayWriteTheSettingsIsFoundByAnotherNameOfThem)
{
	write("/usr/velarix/bin/ini/config.ini", joined(lines));
	fs::create_symlink(settings(), root() / "config.ini");
	rights("/usr/velarix/bin/ini/config.ini", 0664);
	EXPECT_THAT(found({.file = root() / "config.ini", .partner = {}, .filesOnly = false}),
	            ElementsAre("error settings-writable /usr/velarix/bin/ini/config.ini"));
}

TEST_F(InstallationCheck, AByteOrderMarkIsFound)
{
	lines[0].insert(0, "\xEF\xBB\xBF");
	EXPECT_THAT(found(), ElementsAre("error byte-order-mark /usr/velarix/bin/ini/config.ini:1"));

	lines[0] = "\xEF\xBB\xBF; a comment";
	lines.insert(lines.begin() + 1, "[AGENT]");
	EXPECT_THAT(found(), ElementsAre("warning byte-order-mark /usr/velarix/bin/ini/config.ini:1"));
}

TEST_F(InstallationCheck, SettingsThatOthersMayReadAreFine)
{
	rights("/usr/velarix/bin/ini/config.ini", 0644);
	EXPECT_THAT(found(), IsEmpty());
}

TEST_F(InstallationCheck, WhatAnotherUserOwnsIsFoundOnTheRunningSystemAlone)
{
	write("/usr/velarix/bin/ini/config.ini", joined(lines));
	fakeHost().files[settings().string()] = {FileKind::regular, 0644, 1000, 0};
	fakeHost().files[below("/usr/velarix/pid").string()] = {FileKind::directory, 0755, 1000, 0};
	EXPECT_THAT(found(), IsEmpty());

	Paths running(root());
	running.root = "/";
	CheckReport report;
	const SettingsFile file = SettingsFile::load(settings());
	Findings findings(file, report);
	checks::installation(findings, running);
	checks::trust(findings, running);
	EXPECT_THAT(shortForms(report), testing::IsSupersetOf({"error settings-owner /usr/velarix/bin/ini/config.ini",
	                                                       "warning directory-owner /usr/velarix/pid"}));
}

// ---- directories

TEST_F(InstallationCheck, AMissingPidDirectoryIsFound)
{
	fs::remove(below("/usr/velarix/pid"));
	EXPECT_THAT(found(), ElementsAre("error missing-directory /usr/velarix/pid"));
}

TEST_F(InstallationCheck, AFileInPlaceOfThePidDirectoryIsFound)
{
	fs::remove(below("/usr/velarix/pid"));
	write("/usr/velarix/pid", "");
	EXPECT_THAT(found(), ElementsAre("error no-directory /usr/velarix/pid"));
}

TEST_F(InstallationCheck, AMissingLogDirectoryIsToldAtItsSetting)
{
	fs::remove(below("/usr/velarix/log"));
	EXPECT_THAT(found(), ElementsAre("error missing-directory /usr/velarix/bin/ini/config.ini:25"));
}

TEST_F(InstallationCheck, ADirectoryInPlaceOfTheLogIsFound)
{
	setKey(lines, "PATH", "/usr/velarix/log");
	EXPECT_THAT(found(), ElementsAre("error log-is-a-directory /usr/velarix/bin/ini/config.ini:25"));
}

TEST_F(InstallationCheck, ALogThatIsAFileOfTheAgentsOwnIsFound)
{
	for (const char* path : {"/usr/velarix/bin/ini/config.ini", "/usr/velarix/bin/log/../log/runinfo.txt",
	                         "/usr/velarix/bin/ini/processList.sh", "/usr/velarix/pid/VelarixHA.pid"})
	{
		setKey(lines, "PATH", path);
		EXPECT_THAT(found(), ElementsAre("error log-into-own-file /usr/velarix/bin/ini/config.ini:25")) << path;
	}
	setKey(lines, "PATH", "/usr/velarix/bin/log/velarix.log");
	EXPECT_THAT(found(), IsEmpty());
}

TEST_F(InstallationCheck, ADirectoryOfTheRunScriptThatOthersMayWriteIsAnError)
{
	rights("/usr/velarix/bin/ini", 0777);
	EXPECT_THAT(found(), ElementsAre("error writable-directory /usr/velarix/bin/ini"));
	fakeHost().files[below("/usr/velarix/bin/ini").string()] = {FileKind::directory, 0775, 0, 4};
	EXPECT_THAT(found(), ElementsAre("error writable-directory /usr/velarix/bin/ini"));
}

TEST_F(InstallationCheck, OtherDirectoriesThatOthersMayWriteAreWarnedOf)
{
	rights("/usr/velarix/pid", 0777);
	rights("/usr/velarix/bin/log", 0777);
	rights("/usr/velarix/log", 0777);
	EXPECT_THAT(found(), ElementsAre("warning writable-directory /usr/velarix/bin/ini/config.ini:25",
	                                 "warning writable-directory /usr/velarix/bin/log",
	                                 "warning writable-directory /usr/velarix/pid"));
}

TEST_F(InstallationCheck, ALogDirectoryOfAGroupOrWithTheStickyBitIsFine)
{
	fakeHost().files[below("/usr/velarix/log").string()] = {FileKind::directory, 0775, 0, 4};
	EXPECT_THAT(found(), IsEmpty());
	fakeHost().files.clear();
	rights("/usr/velarix/log", 01777);
	EXPECT_THAT(found(), IsEmpty());
}

TEST_F(InstallationCheck, ADirectoryInPlaceOfTheRunScriptIsFound)
{
	fs::create_directory(below("/usr/velarix/bin/ini/processList.sh"));
	EXPECT_THAT(found(), ElementsAre("error run-script-is-a-directory /usr/velarix/bin/ini/processList.sh"));
}

TEST_F(InstallationCheck, WhatThisUserMayNotLookAtIsSaid)
{
	write("/usr/velarix/bin/ini/config.ini", soundSettings());
	fakeHost().files[below("/usr/velarix/pid").string()] = {FileKind::notKnown, 0, 0, 0};
	const CheckReport report = check({.file = settings(), .partner = {}, .filesOnly = false}, Paths(root()));
	EXPECT_THAT(report.findings, IsEmpty());
	ASSERT_FALSE(report.notChecked.empty());
	EXPECT_EQ(anonymous(report.notChecked.front().what), "/usr/velarix/pid");
	EXPECT_EQ(report.notChecked.front().why, "this user may not look there");
}

// ---- the run-info record

TEST_F(InstallationCheck, AMissingRecordIsFound)
{
	fs::remove(below("/usr/velarix/bin/log/runinfo.txt"));
	EXPECT_THAT(found(), ElementsAre("error run-info-missing /usr/velarix/bin/log/runinfo.txt"));
}

TEST_F(InstallationCheck, ADirectoryInPlaceOfTheRecordIsFound)
{
	fs::remove(below("/usr/velarix/bin/log/runinfo.txt"));
	fs::create_directory(below("/usr/velarix/bin/log/runinfo.txt"));
	EXPECT_THAT(found(), ElementsAre("error run-info-is-a-directory /usr/velarix/bin/log/runinfo.txt"));
}

TEST_F(InstallationCheck, ARecordWithoutTheKeyThatIsReadIsAnError)
{
	record("[TRACE]\nMASTER_LAST_RUN_TIME = \nSLAVE_LAST_RUN_TIME = \n");
	EXPECT_THAT(found(), ElementsAre("error run-info-key-missing /usr/velarix/bin/log/runinfo.txt:1"));
}

TEST_F(InstallationCheck, ARecordWithoutTheOtherKeysIsWarnedOf)
{
	record("[TRACE]\nLAST_RUN_TIME = \n");
	EXPECT_THAT(found(), ElementsAre("warning run-info-key-missing /usr/velarix/bin/log/runinfo.txt:1",
	                                 "warning run-info-key-missing /usr/velarix/bin/log/runinfo.txt:1"));
}

TEST_F(InstallationCheck, KeysThatTheAgentCannotEditAreFound)
{
	record("[TRACE]\n LAST_RUN_TIME = \nmaster_last_run_time = \nSLAVE_LAST_RUN_TIME\t= \n");
	EXPECT_THAT(found(), ElementsAre("warning run-info-key-not-edited /usr/velarix/bin/log/runinfo.txt:2",
	                                 "warning run-info-key-not-edited /usr/velarix/bin/log/runinfo.txt:3",
	                                 "warning run-info-key-not-edited /usr/velarix/bin/log/runinfo.txt:4"));
}

TEST_F(InstallationCheck, ATimeThatWouldShiftTheHeartbeatIsAnError)
{
	record("[TRACE]\nLAST_RUN_TIME = 2026/03/01\nMASTER_LAST_RUN_TIME = \nSLAVE_LAST_RUN_TIME = \n");
	EXPECT_THAT(found(), ElementsAre("error run-info-time-with-slash /usr/velarix/bin/log/runinfo.txt:2"));
}

TEST_F(InstallationCheck, ATimeThatIsNoneIsWarnedOf)
{
	record("[TRACE]\nLAST_RUN_TIME = yesterday\nMASTER_LAST_RUN_TIME = \nSLAVE_LAST_RUN_TIME = \n");
	EXPECT_THAT(found(), ElementsAre("warning run-info-time /usr/velarix/bin/log/runinfo.txt:2"));
}

TEST_F(InstallationCheck, ARecordWithATimeIsFine)
{
	record("[TRACE]\nLAST_RUN_TIME = 20260301120000\nMASTER_LAST_RUN_TIME=\nSLAVE_LAST_RUN_TIME =\n");
	EXPECT_THAT(found(), IsEmpty());
}

// ---- programs

TEST_F(InstallationCheck, AMissingProgramIsFound)
{
	fs::remove(below("/opt/service/bin/server"));
	EXPECT_THAT(found(), ElementsAre("error missing-program-file /usr/velarix/bin/ini/config.ini:18"));
}

TEST_F(InstallationCheck, ADirectoryIsNoProgram)
{
	setKey(lines, "PROCESS_PATH1", "/opt/service/bin");
	EXPECT_THAT(found(), ElementsAre("error not-a-program /usr/velarix/bin/ini/config.ini:18"));
}

TEST_F(InstallationCheck, AProgramThatIsNotExecutableIsFound)
{
	rights("/opt/service/bin/server", 0644);
	EXPECT_THAT(found(), ElementsAre("error program-not-executable /usr/velarix/bin/ini/config.ini:18"));
}

TEST_F(InstallationCheck, AProgramThatEverybodyMayWriteIsFound)
{
	rights("/opt/service/bin/server", 0757);
	EXPECT_THAT(found(), ElementsAre("error writable-program /usr/velarix/bin/ini/config.ini:18"));
}

TEST_F(InstallationCheck, ADirectoryAboveAProgramThatEverybodyMayWriteIsFound)
{
	rights("/opt", 0777);
	EXPECT_THAT(found(), ElementsAre("error writable-directory /usr/velarix/bin/ini/config.ini:18"));
	rights("/opt", 01777);
	EXPECT_THAT(found(), IsEmpty());
}

TEST_F(InstallationCheck, WhatALinkLeadsToIsLookedAtToo)
{
	executable("/srv/real/server");
	fs::remove(below("/opt/service/bin/server"));
	fs::create_symlink("../../../srv/real/server", below("/opt/service/bin/server"));
	EXPECT_THAT(found(), IsEmpty());
	rights("/srv", 0777);
	EXPECT_THAT(found(), ElementsAre("error writable-directory /usr/velarix/bin/ini/config.ini:18"));
}

TEST_F(InstallationCheck, LinksThatLeadInACircleComeToAnEnd)
{
	fs::create_symlink("circle", below("/opt/circle"));
	setKey(lines, "PROCESS_PATH1", "/opt/circle/server");
	EXPECT_THAT(found(), ElementsAre("error missing-program-file /usr/velarix/bin/ini/config.ini:18"));
}

TEST_F(InstallationCheck, WhatACommandRunsIsLookedAtToo)
{
	executable("/srv/ha/drop", "#!/bin/sh\n");
	setKey(lines, "VIRTUAL_IP_STOP_COMMAND", "/srv/ha/drop");
	EXPECT_THAT(found(), IsEmpty());
	rights("/srv/ha", 0777);
	EXPECT_THAT(found(), ElementsAre("error writable-directory /usr/velarix/bin/ini/config.ini:13"));
}

TEST_F(InstallationCheck, DirectoriesAboveTheAgentsFilesAreLookedAt)
{
	rights("/usr/velarix/bin", 0777);
	EXPECT_THAT(found(), ElementsAre("error writable-directory /usr/velarix/bin"));
	rights("/usr/velarix/bin", 0755);
	write("/usr/velarix/bin/VelarixHA", "");
	rights("/usr/velarix/bin/VelarixHA", 0777);
	EXPECT_THAT(found(), ElementsAre("error writable-program /usr/velarix/bin/VelarixHA"));
}

TEST_F(InstallationCheck, DirectoriesAboveTheLogAreWarnedOf)
{
	fs::create_directories(below("/var/log/ha"));
	rights("/var/log", 0777);
	setKey(lines, "PATH", "/var/log/ha/velarix.log");
	EXPECT_THAT(found(), ElementsAre("warning writable-directory /usr/velarix/bin/ini/config.ini:25"));
}

TEST_F(InstallationCheck, ProgramsThatAnotherUserOwnsAreFoundOnTheRunningSystem)
{
	fakeHost().files[below("/opt/service").string()] = {FileKind::directory, 0755, 1000, 0};
	fakeHost().files[below("/opt/service/bin/server").string()] = {FileKind::regular, 0755, 1000, 0};
	EXPECT_THAT(found(), IsEmpty());
	setKey(lines, "PROCESS_PATH1", below("/opt/service/bin/server").string());
	Paths running(root());
	running.root = "/";
	CheckReport report;
	const SettingsFile file = SettingsFile::parse("config.ini", joined(lines));
	Findings findings(file, report);
	checks::trust(findings, running);
	EXPECT_THAT(shortForms(report),
	            testing::IsSupersetOf({"error directory-owner config.ini:18", "error program-owner config.ini:18"}));
}

TEST_F(InstallationCheck, AFullDiskIsFoundOnce)
{
	fakeHost().freeSpace = 100;
	EXPECT_THAT(found(), testing::Contains("error disk-full /usr/velarix/pid"));
	fakeHost().freeSpace = 100ULL * 1000 * 1000 * 1000;
	fakeHost().freeFiles = 0;
	EXPECT_THAT(found(),
	            testing::IsSupersetOf({"error disk-full /usr/velarix/pid", "error disk-full /usr/velarix/bin/ini",
	                                   "error disk-full /usr/velarix/bin/log",
	                                   "error disk-full /usr/velarix/bin/ini/config.ini:25"}));
}

TEST_F(InstallationCheck, AReadOnlyDiskAndOneInMemoryAreFound)
{
	fakeHost().files[below("/usr/velarix/pid").string()] = {FileKind::directory, 0755, 0, 0, false, true, false};
	fakeHost().files[below("/usr/velarix/log").string()] = {FileKind::directory, 0755, 0, 0, false, false, true};
	EXPECT_THAT(found(), ElementsAre("warning log-in-memory /usr/velarix/bin/ini/config.ini:25",
	                                 "error read-only-directory /usr/velarix/pid"));
}

TEST_F(InstallationCheck, OptionsOfTheServiceThatItDoesNotKnowAreWarnedOf)
{
	for (const char* good : {"VELARIX_ON_STOP=leave", "VELARIX_ON_STOP=\"handover\" # moves", "#VELARIX_ON_STOP=x",
	                         "export VELARIX_ON_STOP='release'", "VELARIX_HANDOVER_TIMEOUT=100", "OTHER=1", ""})
	{
		write("/etc/default/velarix-ha", good);
		EXPECT_THAT(found(), IsEmpty()) << good;
	}
	for (const char* bad : {"VELARIX_ON_STOP=relase", "VELARIX_ONSTOP=release",
	                        "VELARIX_ON_STOP=", "VELARIX_HANDOVER_TIMEOUT=2min", "VELARIX_HANDOVER_TIMEOUT=200"})
	{
		write("/etc/default/velarix-ha", "\n" + std::string(bad));
		EXPECT_THAT(found(), ElementsAre("warning bad-service-option /etc/default/velarix-ha:2")) << bad;
	}
}

TEST_F(InstallationCheck, APidFileThatOthersMayWriteIsWarnedOf)
{
	write("/usr/velarix/pid/VelarixHA.pid", "1");
	rights("/usr/velarix/pid/VelarixHA.pid", 0666);
	EXPECT_THAT(found(), ElementsAre("warning writable-pid-file /usr/velarix/pid/VelarixHA.pid"));
}

TEST_F(InstallationCheck, ALogThatIsNoFileIsFound)
{
	ASSERT_EQ(::mkfifo(below("/usr/velarix/log/velarix.log").c_str(), 0644), 0);
	EXPECT_THAT(found(), ElementsAre("error log-is-no-file /usr/velarix/bin/ini/config.ini:25"));
}

TEST_F(InstallationCheck, ALogBegunInTheFutureIsWarnedOf)
{
	const auto begin = [&](const Poco::Timespan& fromNow)
	{
		// The library's own first line.
		write("/usr/velarix/log/velarix.log",
		      "# Log file created/rotated " +
		          Poco::DateTimeFormatter::format(Poco::Timestamp() + fromNow, Poco::DateTimeFormat::RFC1036_FORMAT) +
		          "\n");
	};
	begin(Poco::Timespan(3, 0, 0, 0, 0));
	EXPECT_THAT(found(), ElementsAre("warning log-from-the-future /usr/velarix/bin/ini/config.ini:25"));
	begin(Poco::Timespan(0));
	EXPECT_THAT(found(), IsEmpty());
	write("/usr/velarix/log/velarix.log", "# Log file created/rotated some day\n");
	EXPECT_THAT(found(), IsEmpty());
}

TEST_F(InstallationCheck, AScriptWithoutInterpreterIsFound)
{
	executable("/opt/service/bin/server", "exec /opt/other/server -d\n");
	EXPECT_THAT(found(), ElementsAre("error script-without-interpreter /usr/velarix/bin/ini/config.ini:18"));
}

TEST_F(InstallationCheck, AWrapperThatTurnsIntoAnotherNameIsFound)
{
	executable("/opt/service/bin/server", "#!/bin/sh\ncd /var\nexec /opt/other/daemon -d\n");
	executable("/opt/other/daemon");
	EXPECT_THAT(found(), ElementsAre("warning wrapper-of-another-name /usr/velarix/bin/ini/config.ini:18"));
}

TEST_F(InstallationCheck, AWrapperThatWaitsForAnotherNameIsFound)
{
	for (const char* last : {"/opt/other/daemon -d &", "nohup /opt/other/daemon &", "java -jar /opt/x.jar"})
	{
		executable("/opt/service/bin/server", std::string("#!/bin/sh\n") + last + "\n");
		EXPECT_THAT(found(), ElementsAre("warning wrapper-without-exec /usr/velarix/bin/ini/config.ini:18")) << last;
	}
}

TEST_F(InstallationCheck, WrappersThatChangeWhoAndHowItRunsAreFine)
{
	executable("/opt/other/server");
	for (const char* how : {"setpriv --reuid=1000 --clear-groups", "env A=1", "nice -n 5", "runuser -u ha --",
	                        "taskset -c 1", "chroot /srv/jail", "sudo -u ha", "ionice -c 3 nice -n 5"})
	{
		executable("/opt/service/bin/server", std::string("#!/bin/sh\nexec ") + how + " /opt/other/server -d\n");
		EXPECT_THAT(found(), IsEmpty()) << how;
		executable("/opt/service/bin/server", std::string("#!/bin/sh\nexec ") + how + " /opt/service/daemon -d\n");
		EXPECT_EQ(found().size(), 1U) << how;
	}
}

TEST_F(InstallationCheck, AScriptThatCannotStartIsFound)
{
	executable("/opt/service/bin/server", "");
	EXPECT_THAT(found(), ElementsAre("error empty-program-file /usr/velarix/bin/ini/config.ini:18"));
	executable("/opt/service/bin/server", "#!/opt/no/python\n");
	EXPECT_THAT(found(), ElementsAre("error missing-interpreter /usr/velarix/bin/ini/config.ini:18"));
	executable("/opt/service/bin/server", "#!/bin/sh\nif true; then\n");
	EXPECT_THAT(found(), ElementsAre("error broken-script /usr/velarix/bin/ini/config.ini:18"));
	const std::string program = readFile("/proc/self/exe");
	executable("/opt/service/bin/server", program.substr(0, program.size() / 2));
	EXPECT_THAT(found(), ElementsAre("error truncated-program /usr/velarix/bin/ini/config.ini:18"));
	executable("/opt/service/bin/server", program);
	EXPECT_THAT(found(), IsEmpty());
	executable("/opt/service/bin/server", "#!/bin/sh\nexec /opt/no/server -d\n");
	EXPECT_THAT(found(), ElementsAre("error missing-program-file /usr/velarix/bin/ini/config.ini:18"));
}

TEST_F(InstallationCheck, AProgramOnAFileSystemWithoutExecutionIsFound)
{
	fakeHost().files[below("/opt/service/bin/server").string()] = {FileKind::regular, 0755, 0, 0, true};
	EXPECT_THAT(found(), ElementsAre("error program-on-noexec /usr/velarix/bin/ini/config.ini:18"));
}

TEST_F(InstallationCheck, AWrapperOfTheSameNameIsFine)
{
	executable("/opt/other/server");
	executable("/opt/service/bin/server", "#!/bin/sh\n# exec other\nexec /opt/other/server -c /etc/server.conf\n");
	EXPECT_THAT(found(), IsEmpty());
}

// ---- tools

TEST_F(InstallationCheck, AMissingToolOfTheAgentIsFound)
{
	fs::remove(below("/usr/bin/ifconfig"));
	EXPECT_THAT(found(), ElementsAre("error missing-tool /usr/velarix/bin/ini/config.ini"));
}

TEST_F(InstallationCheck, AToolThatIsNotExecutableIsNotThere)
{
	rights("/usr/bin/chmod", 0644);
	EXPECT_THAT(found(), ElementsAre("error missing-tool /usr/velarix/bin/ini/config.ini"));
}

TEST_F(InstallationCheck, AMissingToolOfACommandIsToldAtTheCommand)
{
	fs::remove(below("/usr/bin/killall"));
	EXPECT_THAT(found(), ElementsAre("error missing-tool /usr/velarix/bin/ini/config.ini:22"));
	// One of several commands is one fault.
	executable("/usr/bin/killall");
	fs::remove(below("/usr/bin/ip"));
	EXPECT_THAT(found(), ElementsAre("error missing-tool /usr/velarix/bin/ini/config.ini:12"));
}

TEST_F(InstallationCheck, AMissingArpingCostsTheAnnouncementAlone)
{
	fs::remove(below("/usr/bin/arping"));
	EXPECT_THAT(found(), ElementsAre("warning missing-tool /usr/velarix/bin/ini/config.ini:12"));
}

TEST_F(InstallationCheck, AnOwnScriptOfACommandMustBeThere)
{
	setKey(lines, "VIRTUAL_IP_STOP_COMMAND", "/opt/ha/drop");
	EXPECT_THAT(found(), ElementsAre("error missing-tool /usr/velarix/bin/ini/config.ini:13"));
	executable("/opt/ha/drop", "#!/bin/sh\n");
	EXPECT_THAT(found(), IsEmpty());
}

TEST_F(InstallationCheck, AlternativePlacesOfToolsAreKnown)
{
	fs::remove(below("/usr/bin/ip"));
	executable("/usr/local/sbin/ip");
	EXPECT_THAT(found(), IsEmpty());
}
