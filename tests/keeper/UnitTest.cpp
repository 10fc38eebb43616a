// A service that is a unit of systemd, with a systemctl of the test's own.
#include <csignal>

#include <gtest/gtest.h>

#include "ServiceFixture.h"

namespace
{

using namespace keepertest;
using namespace std::chrono_literals;

/// A systemctl of the test's own: units are processes, remembered by files.
class UnitTest : public ServiceTest
{
protected:
	UnitTest()
	{
		m_host.write("/usr/velarix/systemctl", R"(#!/bin/sh
echo "$*" >> /run/asked
pid=$(cat /run/unit 2>/dev/null)
case $1 in
start) [ ! -e /run/broken ] || exit 1; setsid sleep 3000 </dev/null >/dev/null 2>&1 & echo $! > /run/unit ;;
show) echo ${pid:-0} ;;
stop) [ -z "$pid" ] || kill $pid 2>/dev/null; rm -f /run/unit ;;
kill) [ -z "$pid" ] || kill -KILL $pid 2>/dev/null ;;
esac
exit 0
)");
		m_host.run({"chmod", "755", "/usr/velarix/systemctl"});
		// Both as on a machine with systemd.
		m_host.sh("mkdir -p /run/systemd/system; : > /run/systemd/system/web.service; "
		          "mount --bind /usr/velarix/systemctl $(readlink -f $(command -v systemctl))");
		m_host.configure(true, "[service web]\nunit = web.service\nstop_timeout = 1\nrestarts = 1 in 60\n");
	}

	std::string asked() const { return m_host.read("/run/asked"); }
};

TEST_F(UnitTest, IsStartedWatchedAndStopped)
{
	start();
	ASSERT_TRUE(comes("sleep"));
	ASSERT_TRUE(
	    happens([&] { return asked() == "start web.service\nshow -p MainPID --value web.service\n"; }, "question"));
	::kill(m_host.processes("sleep").front(), SIGKILL);
	EXPECT_TRUE(happens(
	    [&] { return m_host.state("ha-web", "restarts") == "1" && m_host.processes("sleep").size() == 1; }, "restart"));
	EXPECT_EQ(m_host.keeper({"stop", "ha-web"}).status, 0);
	EXPECT_TRUE(m_host.processes("sleep").empty());
	EXPECT_TRUE(asked().ends_with("stop web.service\n")) << asked();
}

TEST_F(UnitTest, WhatOfItIsMissingOrIdleIsFound)
{
	const auto found = [&](const std::string& setUp, const std::string& words)
	{
		m_host.sh("mkdir -p /run/systemd/system; rm -f /run/systemd/system/web.service; " + setUp);
		return m_host.keeper({"check"}).output.find(words) != std::string::npos;
	};
	const std::string write = "printf '[Service]\nType=oneshot\nRemainAfterExit=on\nExecStart=";
	const std::string to = "\n' >/run/systemd/system/web.service";
	EXPECT_TRUE(found("ln -s /dev/null /run/systemd/system/web.service", "web.service is masked"));
	EXPECT_TRUE(found(write + "/bin/true" + to, "web.service runs nothing itself"));
	EXPECT_FALSE(found(write + "/bin/mount /srv" + to, "web.service"));
	const std::string link = "/usr/velarix/run/ha-web";
	EXPECT_TRUE(found("ln -sfn /nowhere " + link, link + " is a link to nothing"));
	EXPECT_TRUE(found("rm " + link, "there is no " + link));
	const std::string service = "/usr/libexec/velarix-ha/service";
	EXPECT_FALSE(found(": >" + service + "; chmod 755 " + service, link)) << "the service makes it";
	m_host.sh("rm " + service);
	const std::string enable =
	    "cd /etc/systemd/system && mount -t tmpfs wants . && cd $PWD && mkdir boot.target.wants; : "
	    ">boot.target.wants/";
	EXPECT_TRUE(found(enable + "web.service; : >/run/systemd/system/web.service", "web.service is enabled"));
	m_host.configure(true, "[service web]\ncommand = /bin/sleep 3000\n");
	EXPECT_TRUE(found(enable + "sleep.service", "sleep.service is enabled"));
}

TEST_F(UnitTest, OneThatCannotBeStartedIsGivenUp)
{
	m_host.write("/run/broken", "");
	m_host.startProgram("ha-address");
	m_host.startProgram("ha-web");
	EXPECT_TRUE(tells("this node gives it up"));
	EXPECT_TRUE(ends("ha-web"));
}

TEST_F(UnitTest, AKilledWorkersUnitIsStopped)
{
	startSleep();
	killWorker();
	EXPECT_TRUE(ends("ha-web"));
	EXPECT_TRUE(ends("sleep"));
}

} // namespace
