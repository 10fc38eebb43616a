// Every fault of the three commands, and what is found; commands without a fault, of
// which nothing is found. Each is tried for real, in namespaces: the sound file of
// SoundSettings.cpp gets one key set to another value. SCRIPT stands for a script of
// the test's own, whose text the row gives.

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "SoundSettings.h"
#include "ctl/check/Checks.h"
#include "inspect/HostProcesses.h"
#include "inspect/HostTrial.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace
{

constexpr char kStart[] = "VIRTUAL_IP_START_COMMAND";
constexpr char kStop[] = "VIRTUAL_IP_STOP_COMMAND";
constexpr char kKill[] = "PROCESS_KILL_COMMAND";

// What sound commands are made of.
#define ADD "ip addr add 198.51.100.10/24 dev eth0 label eth0:ha"
#define DEL "ip addr del 198.51.100.10/24 dev eth0"
#define ARP "arping -q -A -c 1 -w 1 -I eth0 198.51.100.10"

struct Row
{
	const char* name;
	const char* key;
	std::string value;
	/// Text of SCRIPT
	const char* script;
	/// "SEVERITY ID LINE"
	std::vector<std::string> expected;
};

void PrintTo(const Row& row, std::ostream* out)
{
	*out << row.name;
}

// clang-format off
const Row kRows[] = {
// ---- the start command
{"StartEmpty",                 kStart, "",                                                         "", {"error empty-command 12"}},
{"StartOnlyAComment",          kStart, "# none",                                                   "", {"error broken-command 12"}},
{"StartNotClosed",             kStart, "(ip addr add 198.51.100.10/24 dev eth0",                   "", {"error broken-command 12"}},
{"StartQuoteNotClosed",        kStart, "sh -c 'ip addr add 198.51.100.10/24 dev eth0",             "", {"error broken-command 12"}},
{"StartPrints",                kStart, ADD "; arping -A -c 1 -w 1 -I eth0 198.51.100.10",          "", {"error start-command-prints 12"}},
{"StartEchoes",                kStart, ADD "; " ARP " ; echo up",                                  "", {"error start-command-prints 12"}},
{"StartPrintsInAScript",       kStart, "SCRIPT",                                                   ADD "; echo up", {"error start-command-prints 12"}},
{"StartPrintsForEver",         kStart, ADD "; " ARP "; yes",                                       "", {"error endless-command 12"}},
{"StartWithoutARP",            kStart, ADD,                                                        "", {"warning no-gratuitous-arp 12"}},
{"StartAsksByARP",             kStart, ADD "; arping -q -c 1 -w 1 -I eth0 198.51.100.10",          "", {"warning no-gratuitous-arp 12"}},
{"StartAnnouncesAnother",      kStart, ADD "; arping -q -A -c 1 -w 1 -I eth0 198.51.100.11",       "", {"warning announced-elsewhere 12"}},
{"StartAnnouncesElsewhere",    kStart, ADD "; arping -q -A -c 1 -w 1 -I eth1 198.51.100.10",       "", {"warning announced-elsewhere 12"}},
{"StartWithAnotherPrefix",     kStart, "ip addr add 198.51.100.10/16 dev eth0 label eth0:ha; " ARP, "", {"error another-prefix-dropped 13", "warning prefix-of-no-network 12"}},
{"StartWithoutLabel",          kStart, "ip addr add 198.51.100.10/24 dev eth0; " ARP,              "", {"warning address-without-label 12"}},
{"LabelOfAnotherInterface",         kStart, "ip addr add 198.51.100.10/24 dev eth0 label ha; " ARP,     "", {"error label-of-another-interface 12"}},
{"LabelTooLong",               kStart, "ip addr add 198.51.100.10/24 dev eth0 label eth0:serviceaddr; " ARP, "", {"error raises-nothing 12"}},
{"StartRaisesAnother",         kStart, "ip addr add 198.51.100.11/24 dev eth0 label eth0:ha; arping -q -A -c 1 -w 1 -I eth0 198.51.100.11", "", {"error another-address-raised 12"}},
{"ScriptRaisesAnother",        kStart, "SCRIPT",                                                   "VIP=198.51.100.11; ip addr add $VIP/24 dev eth0 label eth0:ha", {"error another-address-raised 12"}},
{"StartOnNoInterface",              kStart, "ip addr add 198.51.100.10/24 dev bond0 label bond0:ha; " ARP, "", {"error raises-nothing 12"}},
{"StartOnAnotherInterface",         kStart, "ip addr add 198.51.100.10/24 dev eth1 label eth1:ha; " ARP, "", {"warning another-interface 12", "error drops-nothing 13", "warning kill-keeps-address 22"}},
{"StartRaisesNothing",         kStart, "true",                                                     "", {"warning no-gratuitous-arp 12", "error raises-nothing 12"}},
{"StartNeverEnds",             kStart, ADD "; arping -q -A -I eth0 198.51.100.10",                 "", {"error endless-command 12"}},
{"StartLoopsForEver",          kStart, ADD "; while true; do " ARP "; sleep 4; done",              "", {"error endless-command 12"}},
{"StartHoldsItsOutput",        kStart, ADD "; (while true; do " ARP "; sleep 4; done) &",          "", {"error held-output 12"}},
{"StartHoldsItsOutputShortly", kStart, ADD "; (" ARP "; sleep 1) &",                               "", {"warning held-output 12"}},
{"StartForAnotherShell",       kStart, ADD " &>/dev/null; " ARP,                                   "", {"warning shell-of-its-own 12"}},
{"StartWithPastedQuotes",      kStart, "sh -c \xE2\x80\x9C" ADD "; " ARP "\xE2\x80\x9D",           "", {"error pasted-characters 12"}},
{"StartVerySlow",              kStart, "sleep 60; " ADD "; " ARP,                                  "", {"warning slow-command 12"}},
// ---- start commands without a fault
{"Sound",                      nullptr, "",                                                        "", {}},
{"OwnScript",                  kStart, "SCRIPT",                                                   ADD, {}},
{"OwnScriptSilenced",          kStart, "SCRIPT >/dev/null 2>&1",                                   ADD "; echo up", {}},
{"ErrorsAreNoOutput",          kStart, ADD "; " ARP "; echo up >&2",                               "", {}},
{"AShellOfItsOwn",             kStart, "sh -c '" ADD "; " ARP " >/dev/null'",                      "", {}},
{"Ifconfig",                   kStart, "ifconfig eth0:ha 198.51.100.10 netmask 255.255.255.0 up; arping -q -U -c 1 -w 1 -I eth0 198.51.100.10", "", {}},
{"TwoAddresses",               kStart, ADD "; ip addr add 198.51.100.11/24 dev eth0 label eth0:hb; " ARP, "", {}},
{"TheOtherAddressFirst",       kStart, "ip addr add 198.51.100.11/24 dev eth0 label eth0:hb; " ADD "; " ARP, "", {}},
{"EachAddressAnnounced",       kStart, ADD "; for a in 198.51.100.10 198.51.100.11; do arping -q -A -c 1 -w 1 -I eth0 $a; done", "", {}},
{"AnIPv6AddressBeside",        kStart, ADD "; ip -6 addr add 2001:db8::10/64 dev eth0 nodad 2>/dev/null; " ARP, "", {}},
{"FencingFirst",               kStart, "SCRIPT && (" ADD "; " ARP ") >/dev/null 2>&1",             "echo cannot reach the partner; exit 1", {}},
{"Slow",                       kStart, "sleep 1; " ADD "; " ARP,                                   "", {}},
{"Wrapped",                    kStart, "nice -n 5 env LC_ALL=C timeout 5 " ADD "; " ARP,           "", {}},
{"AddressInAVariable",         kStart, "VIP=198.51.100.10; ip addr add $VIP/24 dev eth0 label eth0:ha && arping -q -A -c 1 -w 1 -I eth0 ${VIP}", "", {}},
{"LogsToAFile",                kStart, "(" ADD "; " ARP ") >>/var/log/velarix-trial.log 2>&1",     "", {}},
{"TurnsAKernelSwitch",         kStart, "echo 1 >/proc/sys/net/ipv4/ip_nonlocal_bind && " ADD "; " ARP, "", {}},
{"LocksInRun",                 kStart, "exec 9>/run/lock/ha-vip; flock 9; " ADD "; " ARP,              "", {}},
{"RaisedInTheBackground",      kStart, "(sleep 1; " ADD "; " ARP ") >/dev/null 2>&1 &",            "", {}},
// ---- the stop command
{"StopEmpty",                  kStop, "",                                                          "", {"error empty-command 13"}},
{"StopBroken",                 kStop, "ip addr del |",                                             "", {"error broken-command 13"}},
{"StopMayPrint",               kStop, DEL "; echo down",                                           "", {}},
{"StopDropsAnother",           kStop, "ip addr del 198.51.100.11/24 dev eth0",                     "", {"error another-address-dropped 13"}},
{"StopDropsAnotherPrefix",     kStop, "ip addr del 198.51.100.10/32 dev eth0",                     "", {"error another-prefix-dropped 13"}},
{"StopDropsOnAnotherInterface",     kStop, "ip addr del 198.51.100.10/24 dev eth1",                     "", {"error drops-nothing 13"}},
{"StopDropsNothing",           kStop, "true",                                                      "", {"error drops-nothing 13"}},
{"StopNeverEnds",              kStop, DEL "; tail -f /dev/null",                                   "", {"error endless-command 13"}},
{"StopFlushes",                kStop, "ip addr flush label eth0:ha",                               "", {}},
{"StopByLabel",                kStop, "ifconfig eth0:ha down",                                     "", {}},
// ---- the kill command
{"KillEmpty",                  kKill, "",                                                          "", {"error empty-command 22"}},
{"KillLosesTheName",           kKill, DEL "; killall -q -9 server #",                              "", {"error program-name-lost 22"}},
{"KillRunsTheName",            kKill, DEL "; killall -q -9 server;",                               "", {"error program-name-lost 22"}},
{"KillInBrackets",             kKill, "(" DEL "; killall -q -9)",                                  "", {"error program-name-lost 22"}},
{"KillIntoAFile",              kKill, DEL "; killall -q -9 server 2>/dev/null >&2 >",              "", {"error broken-command 22"}},
{"KillByNumber",               kKill, DEL "; kill -9",                                             "", {"error kill-by-name 22"}},
{"KillByParts",                kKill, DEL "; pkill -9",                                            "", {"warning kills-parts-of-names 22"}},
{"KillByCommandLine",          kKill, DEL "; pkill -9 -f",                                         "", {"warning kills-by-command-line 22"}},
{"KillIsNoKiller",             kKill, DEL "; echo",                                                "", {"warning kill-command-prints 22", "error kills-nothing 22"}},
{"KillHasAWrongOption",        kKill, DEL "; killall --bogus",                                     "", {"error kills-nothing 22"}},
{"KillKillsAnother",           kKill, "SCRIPT",                                                    DEL "; killall -q -9 other", {"error kills-nothing 22"}},
{"KillPrints",                 kKill, "echo killing; " DEL "; killall -q -9",                      "", {"warning kill-command-prints 22"}},
{"KillNeverEnds",              kKill, DEL "; sleep 1000; killall -q -9",                           "", {"warning slow-command 22"}},
{"KillKeepsTheAddress",        kKill, "killall -q -9",                                             "", {"warning kill-keeps-address 22"}},
{"KillDropsAnother",           kKill, "ip addr del 198.51.100.10/16 dev eth0; killall -q -9",      "", {"error another-prefix-dropped 22"}},
{"KillExactly",                kKill, DEL " 2>/dev/null; pkill -9 -x",                             "", {}},
{"KillByAFunction",            kKill, DEL "; f() { pidof \"$1\" | xargs -r kill -9; }; f",         "", {}},
{"KillByAScript",              kKill, "SCRIPT",                                                    DEL "; exec killall -q -9 \"$1\"", {}},
{"KillByAScriptsVerb",         kKill, "SCRIPT kill",                                               DEL "; exec killall -q -9 \"$2\"", {}},
// ---- an address of which the check of the addresses speaks
{"CommentInTheVirtualIP",      "VIRTUAL_IP", "198.51.100.10 ; shared",                             "", {}},
};
// clang-format on

/// A test in a directory of its own, with namespaces.
class Trials : public testing::Test
{
protected:
	void SetUp() override
	{
		std::string name = (fs::temp_directory_path() / "velarixctl-XXXXXX").string();
		ASSERT_NE(::mkdtemp(name.data()), nullptr);
		m_directory = name;
		if (::geteuid() != 0)
		{
			GTEST_SKIP() << "only root may try commands";
		}
	}
	void TearDown() override { fs::remove_all(m_directory); }

	fs::path in(const std::string& name) const { return m_directory / name; }

	/// @return what the texts and the trial of the commands tell
	CheckReport reportOf(std::vector<std::string> lines) const
	{
		const std::vector<host::Address> addresses{{"eth0", "eth0", "198.51.100.1", 24, true},
		                                           {"eth1", "eth1", "192.0.2.1", 24, true}};
		setKey(lines, "PROCESS_PATH1", in("server").string());
		CheckReport report;
		const SettingsFile file = SettingsFile::parse("config.ini", joined(lines));
		Findings findings(file, report);
		checks::commands(findings);
		checks::trial(findings, addresses, {.limit = 5s, .patience = 8s});
		return report;
	}

	static std::vector<std::string> shortForms(const CheckReport& report)
	{
		std::vector<std::string> result;
		for (const Finding& finding : report.findings)
		{
			EXPECT_FALSE(finding.what.empty() || finding.effect.empty() || finding.remedy.empty()) << finding.id;
			result.push_back((finding.severity == Severity::error ? "error " : "warning ") + finding.id + " " +
			                 std::to_string(finding.line));
		}
		return result;
	}

	/// Sound settings with one command.
	static std::vector<std::string> with(const std::string& key, const std::string& command)
	{
		std::vector<std::string> lines = soundLines();
		setKey(lines, key, command);
		return lines;
	}

private:
	fs::path m_directory;
};

class TrialTable : public Trials, public testing::WithParamInterface<Row>
{
};

TEST_P(TrialTable, IsFoundAtItsLine)
{
	const Row& row = GetParam();
	const std::string script = in("script").string();
	std::ofstream(script) << "#!/bin/sh\n" << row.script << "\n";
	fs::permissions(script, fs::perms{0755});
	std::string value = row.value;
	if (value.starts_with("SCRIPT"))
	{
		value.replace(0, 6, script);
	}
	const CheckReport report = reportOf(row.key == nullptr ? soundLines() : with(row.key, value));
	EXPECT_EQ(shortForms(report), row.expected)
	    << testing::PrintToString(report.findings.empty() ? "" : report.findings.front().what);
}

INSTANTIATE_TEST_SUITE_P(Commands, TrialTable, testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<Row>& rowInfo) { return std::string(rowInfo.param.name); });

TEST_F(Trials, TellWhatTheCommandItselfSays)
{
	const CheckReport report = reportOf(with(kStart, "ip addr add 198.51.100.10/24 dev bond0; " ARP));
	ASSERT_EQ(report.findings.size(), 1U);
	EXPECT_THAT(report.findings[0].what, testing::HasSubstr("(it says: Cannot find device \"bond0\")"));
}

TEST_F(Trials, LeaveFilesKernelAndProcessesOfTheMachineAsTheyAre)
{
	std::ofstream(in("kept")) << "kept";
	const std::string directory = in("").string();
	reportOf(with(kStart, ADD "; " ARP "; rm -r " + directory +
	                          "; touch /etc/velarix-trial /run/velarix-trial; hostname "
	                          "velarix-trial; setsid sleep 4711.5 >/dev/null 2>&1 & kill -9 " +
	                          std::to_string(::getpid())));
	EXPECT_TRUE(fs::exists(in("kept")));
	EXPECT_FALSE(fs::exists("/etc/velarix-trial"));
	EXPECT_FALSE(fs::exists("/run/velarix-trial"));
	std::array<char, 64> name{};
	EXPECT_EQ(::gethostname(name.data(), name.size() - 1), 0);
	EXPECT_STRNE(name.data(), "velarix-trial");
	for (const host::Process& process : host::processes().value())
	{
		std::string line;
		std::getline(std::ifstream("/proc/" + std::to_string(process.pid) + "/cmdline"), line);
		EXPECT_THAT(line, testing::Not(testing::HasSubstr("4711.5")));
	}
}

TEST_F(Trials, SeeNeitherDevicesNorServicesNorTheSwitchesOfTheKernel)
{
	const CheckReport report = reportOf(
	    with(kStart,
	         ADD "; " ARP "; ls /run | grep -vx lock; ls -A /dev | grep -Ev '^(null|zero|full|random|urandom|fd|stdout|"
	             "stderr)$'; (echo 1 >/proc/sys/kernel/sysrq) 2>/dev/null && echo turned; ip -br link "
	             "show up | grep -Ev '^(lo|eth0|eth1)'; ps -e | grep -w VelarixHA"));
	EXPECT_THAT(shortForms(report), testing::IsEmpty()) << report.findings.front().what;
}

TEST_F(Trials, KeepLittleOfEndlessOutput)
{
	const auto began = std::chrono::steady_clock::now();
	const host::Trial trial = host::tryCommands({.start = "yes",
	                                             .stop = "",
	                                             .kill = "",
	                                             .virtualIP = "198.51.100.10",
	                                             .program = "",
	                                             .stubs = {},
	                                             .addresses = {},
	                                             .limit = 60s,
	                                             .patience = 60s});
	EXPECT_EQ(trial.whyNot, "");
	EXPECT_EQ(trial.start.end, host::RunEnd::flood);
	EXPECT_LE(trial.start.output.size(), 4096U);
	EXPECT_EQ(trial.stop.end, host::RunEnd::notRun);
	EXPECT_LT(std::chrono::steady_clock::now() - began, 40s);
}

} // namespace
