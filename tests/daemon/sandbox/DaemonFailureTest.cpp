// The real daemon when something that it needs is missing or broken.

#include <fstream>

#include <sys/mount.h>
#include <sys/resource.h>

#include <Poco/Net/NetException.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/StreamSocket.h>

#include "DaemonProcess.h"
#include "LogFile.h"

using testing::ContainsRegex;
using testing::EndsWith;
using namespace std::chrono_literals;

namespace
{

constexpr int kAborted = 128 + SIGABRT;
constexpr char kFarewell[] = "Good Bye!!! [fork parent]\r\n";
constexpr char kLogPath[] = "/usr/velarix/log/velarix.log";

using DaemonFailure = DaemonSandbox;

void markEveryCommand(Settings& settings)
{
	settings.set("AGENT.VIRTUAL_IP_STOP_COMMAND", "echo stop >> /usr/velarix/marks");
	settings.set("ADVENCE.PROCESS_KILL_COMMAND", "echo kill >> /usr/velarix/marks");
}

/// Accepts one heartbeat.
/// @return whether one came within ten seconds
bool hear(Poco::Net::ServerSocket& partner)
{
	if (!partner.poll(Poco::Timespan(10, 0), Poco::Net::Socket::SELECT_READ))
	{
		return false;
	}
	Poco::Net::StreamSocket connection = partner.acceptConnection();
	char text[256];
	return connection.receiveBytes(text, sizeof text) > 0;
}

TEST_F(DaemonFailure, AMissingRoleEndsItBeforeItTouchesTheNode)
{
	markEveryCommand(settings);
	settings.remove("AGENT.MODE");
	apply();
	DaemonProcess daemon;
	EXPECT_EQ(daemon.start(), 0);
	const std::string pid = std::to_string(daemon.pid());
	EXPECT_EQ(daemon.waitForEnd(10s), kAborted);
	EXPECT_EQ(daemon.output(), kFarewell);
	EXPECT_EQ(daemon.errors(), "**ERROR**(Configuraion:82)Not found: AGENT.MODE\n"
	                           "VelarixHA: Configuraion:83: int Configuraion::getInt(const std::string&): "
	                           "Assertion `0' failed.\n");
	EXPECT_THAT(eventsOf(readLogFile()), ElementsAre("E Configuraion:82 Not found: AGENT.MODE"));
	EXPECT_EQ(sandbox::readFile(velarix::kPidPath), pid);
	EXPECT_EQ(sandbox::readFile("/usr/velarix/marks"), "");
	EXPECT_EQ(sandbox::readFile(velarix::kRunInfoPath), kRunInfo);
}

TEST_F(DaemonFailure, ARunScriptWithoutAnInodeEndsItBeforeItTouchesTheNode)
{
	markEveryCommand(settings);
	sandbox::shell("mount -t tmpfs -o nr_inodes=2 none /usr/velarix/bin/ini");
	apply();
	DaemonProcess daemon;
	EXPECT_EQ(daemon.start(), 0);
	EXPECT_EQ(daemon.waitForEnd(10s), kAborted);
	sandbox::shell("umount -l /usr/velarix/bin/ini");
	EXPECT_THAT(daemon.errors(), HasSubstr("VelarixHA: CAgent:219: void CAgent::makeProcessRunShellScript(): "
	                                       "Assertion `0' failed.\n"));
	EXPECT_THAT(eventsOf(readLogFile()), ElementsAre(HasSubstr("E CAgent:218 ")));
	EXPECT_EQ(sandbox::readFile("/usr/velarix/marks"), "");
}

TEST_F(DaemonFailure, TwoAgentsNeverShareOneAddress)
{
	DaemonProcess first("first");
	DaemonProcess second("second");
	EXPECT_EQ(first.start(), 0);
	EXPECT_EQ(second.start(), 0);
	int statusOfFirst = -1;
	int statusOfSecond = -1;
	const auto oneEnded = [&]
	{
		statusOfFirst = first.waitForEnd(0ms);
		statusOfSecond = second.waitForEnd(0ms);
		return statusOfFirst != -1 || statusOfSecond != -1;
	};
	ASSERT_TRUE(waitFor(oneEnded, 30s, "end of one of the two"));
	DaemonProcess& loser = statusOfFirst != -1 ? first : second;
	EXPECT_EQ(std::max(statusOfFirst, statusOfSecond), kAborted);
	EXPECT_THAT(loser.errors(), HasSubstr("VelarixHA: CHeartReciver:138: virtual void CHeartReciver::run(): "
	                                      "Assertion `0' failed.\n"));
}

TEST_F(DaemonFailure, ALogThatCannotBeOpenedIsSaidAndTheDaemonGoesOn)
{
	settings.set("LOG.PATH", "/usr/velarix/noSuchDirectory/velarix.log");
	apply();
	Poco::Net::ServerSocket partner(Poco::Net::SocketAddress("127.0.0.1", 7002));
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon);
	EXPECT_THAT(daemon.output(), MatchesRegex("Good Bye!!! \\[fork parent\\]\r\n"
	                                          "initLog fail : [^\n]*/usr/velarix/noSuchDirectory/velarix.log[^\n]*\n"
	                                          "\\*\\*DEBUG\\*\\*\\(CAgent:25\\)stop virtual ip, process\n(.|\n)*"));
	EXPECT_TRUE(hear(partner));
	EXPECT_EQ(daemon.threads(), 4);
	EXPECT_NE(::access("/usr/velarix/noSuchDirectory", F_OK), 0);
}

TEST_F(DaemonFailure, AProcessTableThatIsFullIsSaidWithStatusZero)
{
	const auto allowNoFurtherProcess = []
	{
		// The limit does not bind root. Where there is no other user, in a user
		// namespace of one, it binds this one.
		[[maybe_unused]] const int result = ::setuid(61234);
		const rlimit limit{1, 1};
		// AddressSanitizer's search for leaks needs a process of its own.
		::setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
		::setrlimit(RLIMIT_NPROC, &limit);
	};
	DaemonProcess daemon;
	EXPECT_EQ(daemon.start(allowNoFurtherProcess), 0);
	EXPECT_EQ(daemon.output(), "Good Bye!!! [fork fail]\r\n");
	EXPECT_EQ(daemon.errors(), "");
	EXPECT_EQ(daemon.pid(), 0);
}

} // namespace
