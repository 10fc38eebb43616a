// What is found on the disk: directories, rights, programs, tools, the run-info record.

#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeFormatter.h>

#include "CheckTest.h"
#include "ctl/check/Checks.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
using host::FileKind;

namespace fs = std::filesystem;

namespace
{

#define CONFIG "/usr/velarix/bin/ini/config.ini"
#define RECORD "/usr/velarix/bin/log/runinfo.txt"
#define SCRIPT "/usr/velarix/bin/ini/processList.sh"
#define PROGRAM "/opt/service/bin/server"
#define DEFAULTS "/etc/default/velarix-ha"
#define FIREWALL "/usr/velarix/bin/ini/firewall.nft"

/// Some of the defines of init's file.
std::string firewallOf(const std::string& address, const std::string& partner)
{
	return "define port = 7000    # heartbeats\ndefine address = " + address + " # own\ndefine partner = " + partner +
	       "\ntable inet velarix {\n}\n";
}

/// A sound node, and ways to break it.
class InstallationCheck : public CheckTest
{
public:
	void rights(const std::string& absolute, unsigned mode) const
	{
		fs::permissions(below(absolute), static_cast<fs::perms>(mode));
	}
	void facts(const std::string& absolute, const host::FileFacts& reported) const
	{
		fakeHost().files[below(absolute).string()] = reported;
	}
	void remove(const std::string& absolute) const { fs::remove(below(absolute)); }
	void directory(const std::string& absolute) const { fs::create_directories(below(absolute)); }
	void link(const std::string& target, const std::string& absolute) const
	{
		fs::create_symlink(target, below(absolute));
	}
	void program(const std::string& text, const std::string& absolute = PROGRAM) const { executable(absolute, text); }
	void linkProgram() const
	{
		program("\x7f"
		        "ELF",
		        "/srv/real/server");
		remove(PROGRAM);
		link("../../../srv/real/server", PROGRAM);
	}
	void set(const std::string& key, const std::string& value) { setKey(lines, key, value); }
	/// The library's own first line of a log.
	void logBegun(const Poco::Timespan& fromNow) const
	{
		const Poco::Timestamp begin = Poco::Timestamp() + fromNow;
		write("/usr/velarix/log/velarix.log",
		      "# Log file created/rotated " +
		          Poco::DateTimeFormatter::format(begin, Poco::DateTimeFormat::RFC1036_FORMAT) + "\n");
	}

	/// @return what is found, the settings file being as it is
	std::vector<std::string> foundIn(const fs::path& file) const { return found({.file = file}); }
	using CheckTest::lines;
	using CtlTest::below;
	using CtlTest::write;
};

using Node = InstallationCheck;

using Row = FaultRow<Node>;

// clang-format off
const Row kRows[] = {
    {"SoundNode",                  {},                                                         [](Node&) {}},
    // ---- the settings file as a whole
    {"SettingsOfComments",         {"error settings-empty " CONFIG},                           [](Node& node) { node.lines = {"; nothing", "[AGENT]", "; MODE = 1"}; }},
    {"SettingsForOthersToWrite",   {"error settings-writable " CONFIG},                        [](Node& node) { node.rights(CONFIG, 0664); }},
    {"SettingsForOthersToRead",    {},                                                         [](Node& node) { node.rights(CONFIG, 0644); }},
    {"ByteOrderMark",              {"warning byte-order-mark " CONFIG ":1"},                   [](Node& node) { node.lines[0] = "\xEF\xBB\xBF; a comment"; node.lines.insert(node.lines.begin() + 1, "[AGENT]"); }},
    {"SectionMisspelled",          {"error missing-section " CONFIG},                          [](Node& node) { node.lines[0] = "[AGNET]"; }},
    {"NoSection",                  {"error missing-section " CONFIG},                          [](Node& node) { node.lines[0] = ""; }},
    {"NoEqualsSigns",              {"error no-assignment " CONFIG},                            [](Node& node) { for (std::string& line : node.lines) { std::ranges::replace(line, '=', ':'); } }},
    {"BlanksOfAWebPage",           {"error pasted-characters " CONFIG ":1"},                   [](Node& node) { for (std::string& line : node.lines) { line.insert(0, "\xC2\xA0"); } }},
    {"BlanksBehindEquals",         {"error pasted-characters " CONFIG ":2"},                   [](Node& node) { for (std::string& line : node.lines) { if (const auto at = line.find("= "); at != std::string::npos) { line.replace(at + 1, 1, "\xC2\xA0"); } } }},
    {"ABlankOfAWebPage",           {"error pasted-characters " CONFIG ":8"},                   [](Node& node) { node.lines[7].insert(0, "\xC2\xA0"); }},
    {"TypographicQuotes",          {"error pasted-characters " CONFIG ":3"},                   [](Node& node) { for (const char* key : {"THIS_SERVER_IP", "VIRTUAL_IP"}) { node.set(key, "\xE2\x80\x9C" "192.0.2.1\xE2\x80\x9D"); } }},
    {"ATypographicQuote",          {"error pasted-characters " CONFIG ":13"},                  [](Node& node) { node.set("VIRTUAL_IP_STOP_COMMAND", "\xE2\x80\x9Cip\xE2\x80\x9D addr del 198.51.100.10/24 dev eth0"); }},
    {"DashInAPath",                {},                                                         [](Node& node) { node.program("\x7f" "ELF", "/opt/a\xE2\x80\x93z/server"); node.set("PROCESS_PATH1", "/opt/a\xE2\x80\x93z/server"); }},
    {"SignsWithoutEffect",         {"warning comment-in-value " CONFIG ":10", "warning unknown-key " CONFIG ":27", "warning unknown-key " CONFIG ":28"}, [](Node& node) { node.set("GATEWAY_IP", "192.0.2.254 ; the router \xE2\x80\x93 ours"); node.lines.insert(node.lines.end(), {"\xC2\xA0PATH = /x", "[a\xC2\xA0] = 1"}); }},
    {"AllInQuotes",                {"error quoted-value " CONFIG ":2"},                        [](Node& node) { for (const char* key : {"MODE", "GATEWAY_IP", "PATH", "PROCESS_CHECK_CYCLE"}) { node.set(key, "\"1\""); } }},
    {"HiddenSection",              {"error byte-order-mark " CONFIG ":1"},                     [](Node& node) { node.lines[0].insert(0, "\xEF\xBB\xBF"); }},
    // ---- the options of the service
    {"OptionsOfTheService",        {},                                                         [](Node& node) { node.write(DEFAULTS, "VELARIX_ON_STOP=\"handover\" # moves\nexport VELARIX_ON_STOP='release'\n#VELARIX_ON_STOP=x\nVELARIX_HANDOVER_TIMEOUT=100\nOTHER=1\n"); }},
    {"StopActionMisspelled",       {"warning bad-service-option " DEFAULTS ":2"},              [](Node& node) { node.write(DEFAULTS, "\nVELARIX_ON_STOP=relase"); }},
    {"StopActionWithCrLf",         {"warning bad-service-option " DEFAULTS ":2"},              [](Node& node) { node.write(DEFAULTS, "OTHER=1\r\nVELARIX_ON_STOP=relase\r\n"); }},
    {"StopActionAsWindowsEndsIt",  {"warning bad-service-option " DEFAULTS ":1"},              [](Node& node) { node.write(DEFAULTS, "VELARIX_ON_STOP=release\r\n"); }},
    {"OptionMisspelled",           {"warning bad-service-option " DEFAULTS ":1"},              [](Node& node) { node.write(DEFAULTS, "VELARIX_ONSTOP=release"); }},
    {"StopActionEmpty",            {"warning bad-service-option " DEFAULTS ":1"},              [](Node& node) { node.write(DEFAULTS, "VELARIX_ON_STOP="); }},
    {"TimeoutIsNoNumber",          {"warning bad-service-option " DEFAULTS ":1"},              [](Node& node) { node.write(DEFAULTS, "VELARIX_HANDOVER_TIMEOUT=2min"); }},
    {"TimeoutTooLong",             {"warning bad-service-option " DEFAULTS ":1"},              [](Node& node) { node.write(DEFAULTS, "VELARIX_HANDOVER_TIMEOUT=200"); }},
    {"Notifiers",                  {},                                                         [](Node& node) { node.program("#!/bin/sh\n", "/etc/velarix-ha/notify.d/sms"); node.write("/etc/velarix-ha/notify.d/sms.dpkg-old", ""); }},
    {"NotifierWithADot",           {"warning notifier-not-run /etc/velarix-ha/notify.d/sms.sh"}, [](Node& node) { node.program("#!/bin/sh\n", "/etc/velarix-ha/notify.d/sms.sh"); }},
    {"NotifierThatMayNotRun",      {"warning notifier-not-run /etc/velarix-ha/notify.d/sms"},  [](Node& node) { node.write("/etc/velarix-ha/notify.d/sms", ""); }},
    // ---- directories
    {"ReadOnlyDirectory",          {"error read-only-directory /usr/velarix/pid"},             [](Node& node) { node.facts("/usr/velarix/pid", {FileKind::directory, 0755, 0, 0, false, true, false}); }},
    {"LogInMemory",                {"warning log-in-memory " CONFIG ":25"},                    [](Node& node) { node.facts("/usr/velarix/log", {FileKind::directory, 0755, 0, 0, false, false, true}); }},
    {"NoPidDirectory",             {"error missing-directory /usr/velarix/pid"},               [](Node& node) { node.remove("/usr/velarix/pid"); }},
    {"PidDirectoryIsAFile",        {"error no-directory /usr/velarix/pid"},                    [](Node& node) { node.remove("/usr/velarix/pid"); node.write("/usr/velarix/pid", ""); }},
    {"NoLogDirectory",             {"error missing-directory " CONFIG ":25"},                  [](Node& node) { node.remove("/usr/velarix/log"); }},
    {"LogIsADirectory",            {"error log-is-a-directory " CONFIG ":25"},                 [](Node& node) { node.set("PATH", "/usr/velarix/log"); }},
    {"LogIsAPipe",                 {"error log-is-no-file " CONFIG ":25"},                     [](Node& node) { node.set("PATH", "/opt/pipe"); }},
    {"LogIntoTheSettings",         {"error log-into-own-file " CONFIG ":25"},                  [](Node& node) { node.set("PATH", CONFIG); }},
    {"LogIntoTheRecord",           {"error log-into-own-file " CONFIG ":25"},                  [](Node& node) { node.set("PATH", "/usr/velarix/bin/log/../log/runinfo.txt"); }},
    {"LogIntoTheRunScript",        {"error log-into-own-file " CONFIG ":25"},                  [](Node& node) { node.set("PATH", SCRIPT); }},
    {"LogIntoThePidFile",          {"error log-into-own-file " CONFIG ":25"},                  [](Node& node) { node.set("PATH", "/usr/velarix/pid/VelarixHA.pid"); }},
    {"LogBesideTheRecord",         {},                                                         [](Node& node) { node.set("PATH", "/usr/velarix/bin/log/velarix.log"); }},
    {"WritableRunScript",          {"error writable-directory /usr/velarix/bin/ini"},          [](Node& node) { node.facts("/usr/velarix/bin/ini", {FileKind::directory, 0775, 0, 4}); }},
    {"WritablePidDirectory",       {"warning writable-directory /usr/velarix/pid"},            [](Node& node) { node.rights("/usr/velarix/pid", 0777); }},
    {"WritableRecordDirectory",    {"warning writable-directory /usr/velarix/bin/log"},        [](Node& node) { node.rights("/usr/velarix/bin/log", 0777); }},
    {"WritableLogDirectory",       {"warning writable-directory " CONFIG ":25"},               [](Node& node) { node.rights("/usr/velarix/log", 0777); }},
    {"LogDirectoryOfAGroup",       {},                                                         [](Node& node) { node.facts("/usr/velarix/log", {FileKind::directory, 0775, 0, 4}); }},
    {"LogDirectorySticky",         {},                                                         [](Node& node) { node.rights("/usr/velarix/log", 01777); }},
    {"WritableAboveTheLog",        {"warning writable-directory " CONFIG ":25"},               [](Node& node) { node.directory("/var/log/ha"); node.rights("/var/log", 0777); node.set("PATH", "/var/log/ha/velarix.log"); }},
    {"RunScriptIsADirectory",      {"error run-script-is-a-directory " SCRIPT},                [](Node& node) { node.directory(SCRIPT); }},
    {"WritablePidFile",            {"warning writable-pid-file /usr/velarix/pid/VelarixHA.pid"}, [](Node& node) { node.write("/usr/velarix/pid/VelarixHA.pid", "1"); node.rights("/usr/velarix/pid/VelarixHA.pid", 0666); }},
    {"LogBegunInTheFuture",        {"warning log-from-the-future " CONFIG ":25"},              [](Node& node) { node.logBegun(Poco::Timespan(3, 0, 0, 0, 0)); }},
    {"LogBegunNow",                {},                                                         [](Node& node) { node.logBegun(0); }},
    {"LogBegunSomeDay",            {},                                                         [](Node& node) { node.write("/usr/velarix/log/velarix.log", "# Log file created/rotated some day\n"); }},
    // ---- the run-info record
    {"NoRecord",                   {"error run-info-missing " RECORD},                         [](Node& node) { node.remove(RECORD); }},
    {"RecordIsADirectory",         {"error run-info-is-a-directory " RECORD},                  [](Node& node) { node.remove(RECORD); node.directory(RECORD); }},
    {"RecordWithoutTheKey",        {"error run-info-key-missing " RECORD ":1"},                [](Node& node) { node.write(RECORD, "[TRACE]\nMASTER_LAST_RUN_TIME = \nSLAVE_LAST_RUN_TIME = \n"); }},
    {"RecordWithoutOtherKeys",     {"warning run-info-key-missing " RECORD ":1", "warning run-info-key-missing " RECORD ":1"}, [](Node& node) { node.write(RECORD, "[TRACE]\nLAST_RUN_TIME = \n"); }},
    {"RecordKeysNotEdited",        {"warning run-info-key-not-edited " RECORD ":2", "warning run-info-key-not-edited " RECORD ":3", "warning run-info-key-not-edited " RECORD ":4"}, [](Node& node) { node.write(RECORD, "[TRACE]\n LAST_RUN_TIME = \nmaster_last_run_time = \nSLAVE_LAST_RUN_TIME\t= \n"); }},
    {"RecordTimeWithSlash",        {"error run-info-time-with-slash " RECORD ":2"},            [](Node& node) { node.write(RECORD, "[TRACE]\nLAST_RUN_TIME = 2026/03/01\nMASTER_LAST_RUN_TIME = \nSLAVE_LAST_RUN_TIME = \n"); }},
    {"RecordTimeIsNone",           {"warning run-info-time " RECORD ":2"},                     [](Node& node) { node.write(RECORD, "[TRACE]\nLAST_RUN_TIME = yesterday\nMASTER_LAST_RUN_TIME = \nSLAVE_LAST_RUN_TIME = \n"); }},
    {"RecordWithATime",            {},                                                         [](Node& node) { node.write(RECORD, "[TRACE]\nLAST_RUN_TIME = 20260301120000\nMASTER_LAST_RUN_TIME=\nSLAVE_LAST_RUN_TIME =\n"); }},
    // ---- programs
    {"NoProgram",                  {"error missing-program-file " CONFIG ":18"},               [](Node& node) { node.remove(PROGRAM); }},
    {"ProgramIsADirectory",        {"error not-a-program " CONFIG ":18"},                      [](Node& node) { node.set("PROCESS_PATH1", "/opt/service/bin"); }},
    {"ProgramNotExecutable",       {"error program-not-executable " CONFIG ":18"},             [](Node& node) { node.rights(PROGRAM, 0644); }},
    {"ProgramOnNoexec",            {"error program-on-noexec " CONFIG ":18"},                  [](Node& node) { node.facts(PROGRAM, {FileKind::regular, 0755, 0, 0, true}); }},
    {"WritableProgram",            {"error writable-program " CONFIG ":18"},                   [](Node& node) { node.rights(PROGRAM, 0757); }},
    {"WritableAboveAProgram",      {"error writable-directory " CONFIG ":18"},                 [](Node& node) { node.rights("/opt", 0777); }},
    {"StickyAboveAProgram",        {},                                                         [](Node& node) { node.rights("/opt", 01777); }},
    {"ProgramBehindALink",         {},                                                         [](Node& node) { node.linkProgram(); }},
    {"WritableBehindALink",        {"error writable-directory " CONFIG ":18"},                 [](Node& node) { node.linkProgram(); node.rights("/srv", 0777); }},
    {"LinksInACircle",             {"error missing-program-file " CONFIG ":18"},               [](Node& node) { node.link("circle", "/opt/circle"); node.set("PROCESS_PATH1", "/opt/circle/server"); }},
    {"WritableAboveTheAgent",      {"error writable-directory /usr/velarix/bin"},              [](Node& node) { node.rights("/usr/velarix/bin", 0777); }},
    {"WritableAgent",              {"error writable-program /usr/velarix/bin/VelarixHA"},      [](Node& node) { node.write("/usr/velarix/bin/VelarixHA", ""); node.rights("/usr/velarix/bin/VelarixHA", 0777); }},
    {"ScriptWithoutInterpreter",   {"error script-without-interpreter " CONFIG ":18"},         [](Node& node) { node.program("exec /opt/other/server -d\n"); }},
    {"ScriptIsEmpty",              {"error empty-program-file " CONFIG ":18"},                 [](Node& node) { node.program(""); }},
    {"ScriptOfAnInterpretersName", {"error missing-interpreter " CONFIG ":18"},                [](Node& node) { node.program("", "/usr/bin/python3"); node.program("#!python3\n"); }},
    {"ScriptOfNoInterpreter",      {"error missing-interpreter " CONFIG ":18"},                [](Node& node) { node.program("#!/opt/no/python\n"); }},
    {"ScriptIsBroken",             {"error broken-script " CONFIG ":18"},                      [](Node& node) { node.program("#!/bin/sh\nif true; then\n"); }},
    {"ScriptRunsNothing",          {"error missing-program-file " CONFIG ":18"},               [](Node& node) { node.program("#!/bin/sh\nexec /opt/no/server -d\n"); }},
    {"WrapperOfAnotherName",       {"warning wrapper-of-another-name " CONFIG ":18"},          [](Node& node) { node.program("#!/bin/sh\ncd /var\nexec /opt/other/daemon -d\n"); node.program("\x7f" "ELF", "/opt/other/daemon"); }},
    {"WrapperWithoutExec",         {"warning wrapper-without-exec " CONFIG ":18"},             [](Node& node) { node.program("#!/bin/sh\n/opt/other/daemon -d &\n"); }},
    {"WrapperOfTheSameName",       {},                                                         [](Node& node) { node.program("\x7f" "ELF", "/opt/other/server"); node.program("#!/bin/sh\n# exec other\nexec /opt/other/server -c /etc/server.conf\n"); }},
    {"WrapperInTheBackground",     {"warning wrapper-without-exec " CONFIG ":18"},             [](Node& node) { node.program("#!/bin/sh\nnohup /opt/other/daemon &\n"); }},
    {"WrapperOfAnInterpreter",     {"warning wrapper-without-exec " CONFIG ":18"},             [](Node& node) { node.program("#!/bin/sh\njava -jar /opt/x.jar\n"); }},
    {"ScriptLocksAnAbsentFile",    {},                                                         [](Node& node) { node.program("#!/bin/sh\nexec flock /run/lock/no.lock \\\n  /opt/service/bin/server\n"); }},
    {"ScriptOfAnotherRoot",        {},                                                         [](Node& node) { node.program("#!/bin/sh\nexec unshare --root=/jail /usr/sbin/server\n"); }},
    {"ScriptSaysExec",             {},                                                         [](Node& node) { node.program("#!/bin/sh\n/opt/service/bin/server -d\nlogger did exec /opt/no/server\n"); }},
    {"ScriptMountsTheProgram",     {"warning missing-program-file " CONFIG ":18"},             [](Node& node) { node.program("#!/bin/sh\nmount /srv && exec /srv/server\n"); }},
    {"ScriptOfUnknownPrefix",      {},                                                         [](Node& node) { node.program("", "/usr/bin/capsh"); node.program("#!/bin/sh\nexec capsh --chroot=/jail -- -c /srv/server\n"); }},
    {"ScriptRunsNothingBehind",    {"error missing-program-file " CONFIG ":18"},               [](Node& node) { node.program("#!/bin/sh\nexec nice -n 5 /opt/no/server\n"); }},
    {"ScriptRunsNoName",           {"warning missing-program-file " CONFIG ":18"},             [](Node& node) { node.program("#!/bin/sh\nexec no-server -d\n"); }},
    {"ScriptOfEnv",                {},                                                         [](Node& node) { node.program("", "/usr/bin/env"); node.program("", "/usr/bin/python3"); node.program("#!/usr/bin/env -S A=1 python3 -u\n"); }},
    {"ScriptOfEnvAndNothing",      {"warning missing-interpreter " CONFIG ":18"},              [](Node& node) { node.program("", "/usr/bin/env"); node.program("#!/usr/bin/env no-python\n"); }},
    {"ScriptOfEnvWithoutS",        {"error missing-interpreter " CONFIG ":18"},                [](Node& node) { node.program("", "/usr/bin/env"); node.program("", "/usr/bin/bash"); node.program("#!/usr/bin/env bash -e\n"); }},
    {"ScriptOfEnvAndBash",         {"error missing-program-file " CONFIG ":18"},               [](Node& node) { node.program("", "/usr/bin/env"); node.program("", "/usr/bin/bash"); node.program("#!/usr/bin/env bash\nexec /opt/no/server\n"); }},
    {"BashIsBroken",               {"error broken-script " CONFIG ":18"},                      [](Node& node) { node.program("", "/bin/bash"); node.program("#!/bin/bash\nif [[ -n $A ]]; then\n"); }},
    {"BashOfItsOwnGrammar",        {},                                                         [](Node& node) { node.program("", "/bin/bash"); node.program("#!/bin/bash\nshopt -s extglob\na=(1 2)\nrm -f !(x|y) < <(true)\nexec \"${a[@]}\"\n"); }},
    {"WrapperThatTidiesUp",        {"warning wrapper-without-exec " CONFIG ":18"},             [](Node& node) { node.program("#!/bin/sh\n/opt/other/daemon -d &\necho $! >/run/x.pid\nexit 0\n"); }},
    {"WrapperThatHandsOnTheEnd",   {"warning wrapper-without-exec " CONFIG ":18"},             [](Node& node) { node.program("#!/bin/sh\n/opt/other/daemon -f\nrc=$?; exit $rc\n"); }},
    {"WrapperOfAName",             {"warning wrapper-without-exec " CONFIG ":18"},             [](Node& node) { node.program("", "/usr/sbin/otherd"); node.program("#!/bin/sh\notherd -f\n"); }},
    {"ScriptThatIsTheService",     {},                                                         [](Node& node) { node.program("#!/bin/sh\ntrap 'exit 0' TERM\nwhile true; do\n  /opt/other/daemon -d\n  sleep 1\ndone\n"); }},
    {"ScriptThatEndsInSleep",      {},                                                         [](Node& node) { node.program("#!/bin/sh\ncd /srv\nsleep 1000\n"); }},
    {"WholeProgram",               {},                                                         [](Node& node) { node.program(readFile("/proc/self/exe")); }},
    {"HalfAProgram",               {"error truncated-program " CONFIG ":18"},                  [](Node& node) { const std::string whole = readFile("/proc/self/exe"); node.program(whole.substr(0, whole.size() / 2)); }},
    {"ScriptFromWindows",          {"error missing-interpreter " CONFIG ":18"},                [](Node& node) { node.program("#!/bin/sh\r\nexec /opt/other/server\r\n"); }},
    // ---- the packet filter
    {"FirewallOfThisNode",         {},                                                         [](Node& node) { node.write(FIREWALL, firewallOf("192.0.2.1", "192.0.2.2")); }},
    {"FirewallOfThePartner",       {"error firewall-of-other-settings " FIREWALL},             [](Node& node) { node.write(FIREWALL, firewallOf("192.0.2.2", "192.0.2.1")); }},
    {"FirewallOfAnotherPort",      {"warning firewall-of-other-settings " FIREWALL},           [](Node& node) { node.write(FIREWALL, firewallOf("192.0.2.1", "192.0.2.2")); node.set("HEART_BEAT_RECEIVE_PORT", "700"); }},
    {"FirewallOfASet",             {},                                                         [](Node& node) { node.write(FIREWALL, firewallOf("192.0.2.1", "{ 192.0.2.9, 192.0.2.2 }")); }},
    {"FirewallOfAPortInHex",       {},                                                         [](Node& node) { node.write(FIREWALL, firewallOf("192.0.2.1", "192.0.2.2")); node.set("HEART_BEAT_RECEIVE_PORT", "0x1b58"); }},
    {"FirewallOfOwnRules",         {},                                                         [](Node& node) { node.write(FIREWALL, "define address = $other\ntcp dport 22 accept\n"); }},
    {"FirewallWithoutNft",         {"warning firewall-without-nft " FIREWALL},                 [](Node& node) { node.write(FIREWALL, firewallOf("192.0.2.1", "192.0.2.2")); node.remove("/usr/bin/nft"); }},
    // ---- tools and scripts of the commands
    {"NoToolOfAllCommands",        {"error missing-tool " CONFIG ":12"},                       [](Node& node) { node.remove("/usr/bin/ip"); }},
    {"NoToolOfTheAgent",           {"error missing-tool " CONFIG},                             [](Node& node) { node.remove("/usr/bin/ifconfig"); }},
    {"ToolNotExecutable",          {"error missing-tool " CONFIG},                             [](Node& node) { node.rights("/usr/bin/chmod", 0644); }},
    {"NoToolOfACommand",           {"error missing-tool " CONFIG ":22"},                       [](Node& node) { node.remove("/usr/bin/killall"); }},
    {"NoArping",                   {"warning missing-tool " CONFIG ":12"},                     [](Node& node) { node.remove("/usr/bin/arping"); }},
    {"ToolElsewhere",              {},                                                         [](Node& node) { node.remove("/usr/bin/ip"); node.program("", "/usr/local/sbin/ip"); }},
    {"NoScriptOfACommand",         {"error missing-tool " CONFIG ":13"},                       [](Node& node) { node.set("VIRTUAL_IP_STOP_COMMAND", "/srv/ha/drop"); }},
    {"NoAssignmentBeforeACommand", {"error missing-tool " CONFIG ":13"},                       [](Node& node) { node.set("VIRTUAL_IP_STOP_COMMAND", "my-var=1 ip addr del 198.51.100.10/24 dev eth0"); }},
    {"AssignmentBeforeACommand",   {},                                                         [](Node& node) { node.set("VIRTUAL_IP_STOP_COMMAND", "my_var=1 ip addr del 198.51.100.10/24 dev eth0"); }},
    {"ScriptOfACommand",           {},                                                         [](Node& node) { node.set("VIRTUAL_IP_STOP_COMMAND", "/srv/ha/drop"); node.program("#!/bin/sh\n", "/srv/ha/drop"); }},
    {"WritableScriptOfACommand",   {"error writable-directory " CONFIG ":13"},                 [](Node& node) { node.set("VIRTUAL_IP_STOP_COMMAND", "/srv/ha/drop"); node.program("#!/bin/sh\n", "/srv/ha/drop"); node.rights("/srv/ha", 0777); }},
};
// clang-format on

class InstallationTable : public InstallationCheck, public testing::WithParamInterface<Row>
{
};

TEST_P(InstallationTable, IsFound)
{
	ASSERT_EQ(::mkfifo(below("/opt/pipe").c_str(), 0644), 0);
	GetParam().change(*this);
	EXPECT_EQ(found(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Faults, InstallationTable, testing::ValuesIn(kRows), rowName<Row>);

TEST_F(InstallationCheck, SettingsThatCannotBeReadAreOneFinding)
{
	EXPECT_THAT(foundIn(settings()), ElementsAre("error settings-empty " CONFIG));
	std::string wide = "\xFF\xFE";
	for (const char letter : joined(lines))
	{
		wide += {letter, '\0'};
	}
	write(CONFIG, wide);
	EXPECT_THAT(foundIn(settings()), ElementsAre("error settings-encoding " CONFIG));
	write(CONFIG, "[address]\naddress = 198.51.100.10\n");
	EXPECT_THAT(foundIn(settings()), ElementsAre("error settings-of-the-keeper " CONFIG));
	remove(CONFIG);
	EXPECT_THAT(foundIn(settings()), ElementsAre("error settings-missing " CONFIG));
	directory(CONFIG);
	EXPECT_THAT(foundIn(settings()), ElementsAre("error settings-is-a-directory " CONFIG));
}

TEST_F(InstallationCheck, WhoMayWriteTheSettingsIsFoundByAnotherNameOfThem)
{
	write(CONFIG, joined(lines));
	link(settings(), "/config.ini");
	rights(CONFIG, 0664);
	EXPECT_THAT(foundIn(below("/config.ini")), ElementsAre("error settings-writable " CONFIG));
}

TEST_F(InstallationCheck, WhatAnotherUserOwnsIsFoundOnTheRunningSystemAlone)
{
	write(CONFIG, joined(lines));
	for (const char* path : {"/usr/velarix/pid", "/opt/service"})
	{
		fakeHost().files[below(path).string()] = {FileKind::directory, 0755, 1000, 0};
	}
	for (const char* path : {CONFIG, PROGRAM})
	{
		fakeHost().files[below(path).string()] = {FileKind::regular, 0755, 1000, 0};
	}
	EXPECT_THAT(found(), IsEmpty());

	set("PROCESS_PATH1", below(PROGRAM).string());
	write(CONFIG, joined(lines));
	Paths running(root());
	running.root = "/";
	const auto onBoth = [&](Findings& findings)
	{
		checks::installation(findings, running);
		checks::trust(findings, running);
	};
	EXPECT_THAT(shortForms(reportOf(parsed(settings()), onBoth)),
	            testing::IsSupersetOf({"error settings-owner " CONFIG, "warning directory-owner /usr/velarix/pid",
	                                   "error directory-owner " CONFIG ":18", "error program-owner " CONFIG ":18"}));
}

TEST_F(InstallationCheck, RulesThatNftDoesNotTakeAreFound)
{
	fakeHost().rulesRefusal = "8:1-4: Error: syntax error, unexpected dorp";
	fakeHost().files["/usr/bin/nft"] = {FileKind::regular, 0755, 0, 0};
	write("/b/firewall.nft", firewallOf("192.0.2.1", "192.0.2.2"));
	const SettingsFile file = parsed(below("/b/config.ini"));
	const auto foundOn = [&](const Paths& machine)
	{ return shortForms(reportOf(file, [&](Findings& findings) { checks::firewall(findings, machine); })); };
	EXPECT_THAT(foundOn(Paths(root())), IsEmpty()) << "nft is that of another system";
	EXPECT_THAT(foundOn(Paths()), ElementsAre("warning firewall-broken /b/firewall.nft"));
}

TEST_F(InstallationCheck, WhatThisUserMayNotLookAtIsSaid)
{
	write(CONFIG, joined(lines));
	fakeHost().files[below("/usr/velarix/pid").string()] = {FileKind::notKnown, 0, 0, 0};
	const CheckReport report = check({.file = settings()}, Paths(root()));
	EXPECT_THAT(report.findings, IsEmpty());
	ASSERT_FALSE(report.notChecked.empty());
	EXPECT_EQ(anonymous(report.notChecked.front().what), "/usr/velarix/pid");
	EXPECT_EQ(report.notChecked.front().why, "this user may not look there");
}

TEST_F(InstallationCheck, AFullDiskIsFound)
{
	fakeHost().freeSpace = 100;
	EXPECT_THAT(found(), testing::Contains("error disk-full /usr/velarix/pid"));
	fakeHost().freeSpace = 100ULL * 1000 * 1000 * 1000;
	fakeHost().freeFiles = 0;
	EXPECT_THAT(found(),
	            testing::IsSupersetOf({"error disk-full /usr/velarix/pid", "error disk-full /usr/velarix/bin/ini",
	                                   "error disk-full /usr/velarix/bin/log", "error disk-full " CONFIG ":25"}));
}

TEST_F(InstallationCheck, WrappersThatChangeWhoAndHowItRunsAreFine)
{
	executable("/opt/other/server");
	for (const char* how :
	     {"setpriv --reuid=1000 --clear-groups", "env A=1", "nice -n 5", "runuser -u ha --", "taskset -c 1",
	      "chroot /srv/jail", "sudo -u ha", "ionice -c 3 nice -n 5", "flock -w 5 /run/lock/service.lock",
	      "unshare --root=/srv/jail", "timeout -k 5 1h", "setpriv --reuid 1000 env -u A B=1"})
	{
		program(std::string("#!/bin/sh\nexec ") + how + " /opt/other/server -d\n");
		EXPECT_THAT(found(), IsEmpty()) << how;
		program(std::string("#!/bin/sh\nexec ") + how + " /opt/service/daemon -d\n");
		EXPECT_EQ(found().size(), 1U) << how;
	}
}

} // namespace
