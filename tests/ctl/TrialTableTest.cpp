// Every fault of the three commands, and commands without one: the cases of trials.txt. Each is tried for real,
// in namespaces.

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <Poco/String.h>
#include <Poco/TemporaryFile.h>

#include "RowName.h"
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

// What sound commands are made of.
#define ADD "ip addr add 198.51.100.10/24 dev eth0 label eth0:ha"
#define DEL "ip addr del 198.51.100.10/24 dev eth0"
#define ARP "arping -q -A -c 1 -w 1 -I eth0 198.51.100.10"

/// A test in a directory of its own, with namespaces.
class Trials : public testing::Test
{
protected:
	void SetUp() override
	{
		m_directory.createDirectory();
		if (::geteuid() != 0)
		{
			GTEST_SKIP() << "only root may try commands";
		}
	}

	fs::path in(const std::string& name) const { return fs::path(m_directory.path()) / name; }

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
		return ::shortForms(report, [](const Finding& finding) { return std::to_string(finding.line); });
	}

	/// Sound settings with one command.
	static std::vector<std::string> with(const std::string& key, const std::string& command)
	{
		std::vector<std::string> lines = soundLines();
		setKey(lines, key, command);
		return lines;
	}

private:
	/// Removed with this.
	Poco::TemporaryFile m_directory;
};

class TrialTable : public Trials, public testing::WithParamInterface<SettingsCase>
{
};

TEST_P(TrialTable, IsFoundAtItsLine)
{
	const std::string script = in("script").string();
	std::vector<std::string> lines = soundLines();
	for (std::string line : GetParam().lines)
	{
		for (const auto& [name, text] :
		     {std::pair("{ADD}", ADD), {"{DEL}", DEL}, {"{ARP}", ARP}, {"{SCRIPT}", script.c_str()}})
		{
			Poco::replaceInPlace(line, std::string(name), std::string(text));
		}
		if (line.starts_with("script "))
		{
			std::ofstream(script) << "#!/bin/sh\n" << line.substr(7) << "\n";
			fs::permissions(script, fs::perms{0755});
		}
		else
		{
			change(lines, line);
		}
	}
	const CheckReport report = reportOf(lines);
	EXPECT_EQ(shortForms(report), GetParam().expected)
	    << testing::PrintToString(report.findings.empty() ? "" : report.findings.front().what);
}

INSTANTIATE_TEST_SUITE_P(Commands, TrialTable, testing::ValuesIn(casesOf(VELARIX_CTL_TABLES "/trials.txt")),
                         rowName<SettingsCase>);

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
	const std::vector<host::Process> processes = host::processes().value();
	for (const host::Process& process : processes)
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
