// Services on a real host: started with the address, ended with it, whatever they are; also a unit
// of systemd, with a systemctl of the test's own.
#include <csignal>
#include <thread>

#include <gtest/gtest.h>

#include "Hosts.h"

namespace
{

using namespace keepertest;

TEST_F(ServiceTest, RunsWhereTheAddressIsAndNowhereElse)
{
	configure("exec sleep 1000");
	m_host.startProgram("ha-web");
	ASSERT_TRUE(reaches("waiting"));
	EXPECT_TRUE(m_host.processes("sleep").empty());
	m_host.startProgram("ha-address");
	EXPECT_TRUE(comes("sleep"));
	EXPECT_EQ(m_host.processes("ha-web").size(), 1U);
	m_host.keeper({"drop"});
	EXPECT_TRUE(ends("sleep"));
	EXPECT_TRUE(reaches("waiting"));
	m_host.startProgram("ha-address");
	EXPECT_TRUE(comes("sleep"));
	EXPECT_EQ(m_host.keeper({"stop", "ha-web"}).output, "");
	EXPECT_TRUE(m_host.processes("sleep").empty());
	EXPECT_TRUE(m_host.processes("ha-web").empty());
	EXPECT_EQ(m_host.processes("keeper").size(), 1U) << "the address's";
	EXPECT_TRUE(m_host.hasAddress());
}

TEST_F(ServiceTest, EndsWhenTheHolderIsKilled)
{
	configure("exec sleep 1000");
	start();
	::kill(m_host.worker("ha-address"), SIGKILL);
	EXPECT_TRUE(ends("sleep"));
	EXPECT_TRUE(reaches("waiting"));
}

TEST_F(ServiceTest, HasItsArgumentsUserDirectoryAndEnvironmentAndNothingOfOurs)
{
	// There is no redirection: a service's words are its arguments. Two signals of the C
	// library's own are ignored by whatever its popen() starts.
	m_host.write(
	    "/usr/velarix/tell",
	    "#!/bin/sh\nexec >/dev/shm/reported 2>&1\nid -un; id -gn; pwd; echo \"$A\"; echo "
	    "\"$1\"; ls /proc/self/fd | tr '\\n' ' '; "
	    "grep -E 'SigBlk|SigIgn|CapEff' /proc/self/status | sed s/180000000/000000000/; echo done; exec sleep 1000\n");
	m_host.run({"chmod", "755", "/usr/velarix/tell", "/usr/velarix"});
	m_host.run({"mount", "-t", "tmpfs", "-o", "mode=1777", "tmpfs", "/dev/shm"});
	m_host.configure(true, "[service web]\ncommand = /usr/velarix/tell \"a b\"\nuser = nobody\ndirectory = "
	                       "/tmp\nenvironment = \"A=two words\"\n");
	start();
	ASSERT_TRUE(
	    happens([&] { return m_host.read("/dev/shm/reported").find("done") != std::string::npos; }, "its words"));
	EXPECT_EQ(m_host.read("/dev/shm/reported"),
	          "nobody\nnogroup\n/tmp\ntwo words\na b\n0 1 2 3 "
	          "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\nCapEff:\t0000000000000000\ndone\n");
}

TEST_F(ServiceTest, OneThatRunsAsRootIsAsTheKernelMakesIt)
{
	configure("grep CapEff /proc/self/status > /run/reported; exec sleep 1000");
	start();
	ASSERT_TRUE(happens([&] { return !m_host.read("/run/reported").empty(); }, "its words"));
	EXPECT_EQ(m_host.read("/run/reported"), shell("grep CapEff /proc/self/status"));
	const std::string status = shell("grep CapEff /proc/" + m_host.state("ha-web", "pid") + "/status");
	// CAP_KILL, CAP_SETGID, CAP_SETUID, CAP_NET_ADMIN.
	EXPECT_EQ(status, "CapEff:\t00000000000010e0\n");
}

TEST_F(ServiceTest, ACrashIsRestartedHere)
{
	configure("exec sleep 1000");
	const pid_t before = startSleep();
	::kill(before, SIGKILL);
	const milliseconds took = timeUntil(
	    [&]
	    {
		    const std::vector<pid_t> now = m_host.processes("sleep");
		    return now.size() == 1 && now.front() != before;
	    },
	    kSoon, "new one");
	std::printf("crash to started again: %lld ms\n", static_cast<long long>(took.count()));
	EXPECT_LE(took, 3s);
	EXPECT_TRUE(reaches("1", "restarts"));
	EXPECT_EQ(m_host.processes("ha-web").size(), 1U);
	EXPECT_TRUE(reported("died: ended with signal 9; is started again here"));
}

TEST_F(ServiceTest, OneThatDiesTooOftenIsGivenToTheOtherNode)
{
	configure("exit 3", "restarts = 2 in 60\n");
	m_host.startProgram("ha-address");
	m_host.startProgram("ha-web");
	EXPECT_TRUE(tells("this node gives it up"));
	EXPECT_TRUE(ends("ha-web"));
	EXPECT_EQ(m_host.state("ha-web"), "failed");
	EXPECT_TRUE(reported("failed: ended with status 3; died more often than 2 in 60 s"));
	EXPECT_TRUE(m_host.keeper({"status"}).output.find("ha-web: failed; last death: ended with status 3") !=
	            std::string::npos);
	EXPECT_EQ(m_host.keeper({"stop", "ha-web"}).status, 0);
}

TEST_F(ServiceTest, AHangIsFoundByItsCheck)
{
	configure("touch /run/well; while [ -e /run/well ] || true; do sleep 1000; done",
	          "check = test -e /run/well\ncheck_interval = 1\ncheck_failures = 2\n");
	start();
	ASSERT_TRUE(reaches("ok", "check"));
	const std::string main = m_host.state("ha-web", "main");
	m_host.run({"rm", "/run/well"});
	const milliseconds took = timeUntil([&] { return m_host.state("ha-web", "restarts") == "1"; }, kSoon, "restart");
	std::printf("ill to started again: %lld ms\n", static_cast<long long>(took.count()));
	EXPECT_LE(took, 2500ms + 3s);
	EXPECT_NE(m_host.state("ha-web", "main"), main);
	EXPECT_TRUE(reported("check-failed: check ended with status 1 (2 of 2)"));
}

TEST_F(ServiceTest, ACheckThatHangsHasFailedAndLeavesNothing)
{
	configure("exec sleep 1000",
	          "check = sh -c 'sleep 2000'\ncheck_interval = 1\ncheck_failures = 2\nrestarts = 0 in 60\n");
	start();
	EXPECT_TRUE(ends("ha-web"));
	EXPECT_TRUE(reported("check-failed: check ended with signal 9 (2 of 2)"));
	EXPECT_TRUE(ends("sleep"));
}

TEST_F(ServiceTest, OneThatIsStoppedIsEndedAnyway)
{
	configure("exec sleep 1000", "check = false\ncheck_interval = 1\ncheck_failures = 1\nstop_timeout = 1\n");
	const pid_t before = startSleep();
	::kill(before, SIGSTOP);
	EXPECT_TRUE(ends(before));
	EXPECT_TRUE(happens([&] { return m_host.state("ha-web", "restarts") != "0"; }, "restart"));
}

TEST_F(ServiceTest, StopIsTermAndAfterItsTimeoutKill)
{
	configure("trap 'echo asked > /run/asked' TERM; while :; do sleep 0.1; done", "stop_timeout = 1\n");
	start();
	ASSERT_TRUE(comes("serve"));
	const auto begin = std::chrono::steady_clock::now();
	EXPECT_EQ(m_host.keeper({"stop", "ha-web"}).status, 0);
	const auto took = std::chrono::steady_clock::now() - begin;
	EXPECT_EQ(m_host.read("/run/asked"), "asked\n");
	EXPECT_TRUE(m_host.processes("serve").empty());
	EXPECT_GE(took, 900ms);
	EXPECT_LE(took, 5s);
}

TEST_F(ServiceTest, StopEndsOnlyItsOwnAndIsQuickWithNothingToDo)
{
	configure("exec sleep 1000");
	const pid_t foreign = startSleep();
	EXPECT_EQ(m_host.keeper({"stop", "ha-db"}).status, 0);
	EXPECT_EQ(m_host.keeper({"stop", "sleep"}).status, 64);
	EXPECT_EQ(m_host.keeper({"stop", "web"}).output, "web is called ha-web: keeper stop ha-web\n");
	EXPECT_EQ(m_host.keeper({"stop", "ha-../web"}).status, 64);
	EXPECT_EQ(::kill(foreign, 0), 0);
	EXPECT_TRUE(m_host.waitsForNothing({"stop", "ha-db"}));
}

TEST_F(ServiceTest, ADaemonThatForksTwiceIsItsServiceToo)
{
	configure("(setsid sh -c 'setsid sleep 1000 & setsid sleep 2000 & exit 0' &) ; sleep 0.2; exit 0",
	          "stop_timeout = 2\n");
	start();
	ASSERT_TRUE(comes("sleep", 2));
	EXPECT_TRUE(tells("running: in the background"));
	EXPECT_EQ(m_host.state("ha-web", "restarts"), "0");
	// One of them ends: the other one is the service still. Then both.
	::kill(m_host.processes("sleep").front(), SIGKILL);
	ASSERT_TRUE(comes("sleep", 1));
	EXPECT_EQ(m_host.keeper({"stop", "ha-web"}).status, 0);
	EXPECT_TRUE(m_host.processes("sleep").empty());
}

TEST_F(ServiceTest, TheLastOfADaemonsProcessesIsItsDeath)
{
	configure("sleep 1000 & exit 0");
	const pid_t before = startSleep();
	::kill(before, SIGKILL);
	EXPECT_TRUE(reaches("1", "restarts"));
}

TEST_F(ServiceTest, NoZombieIsLeft)
{
	configure("i=0; while [ $i -lt 20 ]; do (setsid true &); i=$((i+1)); done; exec sleep 1000");
	start();
	ASSERT_TRUE(comes("sleep"));
	const auto zombies = [&] { return m_host.sh("cat /proc/[0-9]*/stat | grep -c ') Z '").output; };
	EXPECT_TRUE(happens([&] { return zombies() == "0\n"; }, "end of all zombies"));
}

TEST_F(ServiceTest, AKilledKeeperTakesItsServiceAlongAndCanBeStartedAgain)
{
	configure("setsid sleep 1000 & sleep 2000 & wait");
	for (const bool worker : {true, false})
	{
		start();
		ASSERT_TRUE(comes("sleep", 2));
		worker ? killWorker() : killGuard();
		EXPECT_TRUE(ends("sleep"));
		EXPECT_TRUE(ends("ha-web"));
		EXPECT_TRUE(happens([&] { return m_host.processes("keeper").size() == 1; }, "end of the worker"));
	}
	EXPECT_TRUE(reported("killed: the worker ended by signal 9"));
}

TEST_F(ServiceTest, WhatIsLeftWhenBothAreKilledIsEndedByStopByDropAndByTheNextStart)
{
	configure("setsid sleep 1000 & wait", "stop_timeout = 1\n");
	const std::vector<std::vector<std::string>> enders{{"stop", "ha-web"}, {"drop"}, {}};
	for (const std::vector<std::string>& ender : enders)
	{
		const pid_t left = startSleep();
		m_host.killBoth("ha-web");
		ASSERT_TRUE(ends("ha-web"));
		ASSERT_EQ(::kill(left, 0), 0);
		if (ender.empty())
		{
			m_host.startProgram("ha-web");
		}
		else
		{
			EXPECT_EQ(m_host.keeper(ender).output, "");
		}
		// Its number is there until the first process has taken note of it.
		EXPECT_TRUE(ends(left));
	}
	EXPECT_TRUE(comes("sleep"));
}

TEST_F(ServiceTest, AnAddressThatBothProcessesOfItsHolderHaveLeftIsRemoved)
{
	configure("sleep 1000");
	startSleep();
	m_host.killBoth("ha-address");
	EXPECT_TRUE(ends("sleep"));
	ASSERT_TRUE(m_host.hasAddress());
	EXPECT_TRUE(happens([&] { return !m_host.hasAddress(); }, "end of the address"));
	EXPECT_TRUE(tells("left behind by a killed program"));
	// What an administrator raises stays.
	m_host.run({"ip", "addr", "add", "192.0.2.100/32", "dev", "eth0"});
	ASSERT_TRUE(m_host.hasAddress());
	EXPECT_FALSE(happens([&] { return !m_host.hasAddress(); }, "nothing", 11s));
}

TEST_F(ServiceTest, AFrozenSupervisorIsEnded)
{
	configure("exec sleep 1000", "stop_timeout = 1\n");
	start();
	::kill(m_host.processes("ha-web").front(), SIGSTOP);
	::kill(m_host.worker("ha-web"), SIGSTOP);
	EXPECT_EQ(m_host.keeper({"stop", "ha-web"}).status, 0);
	EXPECT_TRUE(m_host.processes("ha-web").empty());
	EXPECT_TRUE(m_host.processes("sleep").empty());
}

TEST_F(ServiceTest, DropWakesAFrozenSupervisorSoThatTheServiceGoesWithTheAddress)
{
	configure("exec sleep 1000", "stop_timeout = 1\n");
	start();
	::kill(m_host.worker("ha-web"), SIGSTOP);
	EXPECT_EQ(m_host.keeper({"drop"}).status, 0);
	EXPECT_TRUE(ends("sleep"));
}

TEST_F(ServiceTest, WhatCannotRunIsRefusedWithAStatusOfItsOwn)
{
	const auto refusal = [&] { return m_host.sh("/usr/velarix/run/ha-web 2>&1"); };
	m_host.configure(true, "[service web]\ncommand = /nonexistent/program\n");
	EXPECT_EQ(refusal().status, 69);
	EXPECT_EQ(refusal().output, "ha-web: keeper.ini line 6: command: /nonexistent/program is no program here; "
	                            "install it, or correct its path\n");
	m_host.configure(true, "[service web]\ncommand = sleep 1\nuser = nosuchuser\n");
	EXPECT_EQ(refusal().status, 67);
	m_host.configure(true);
	EXPECT_EQ(refusal().status, 78);
	EXPECT_TRUE(reported("failed: keeper.ini line 6: command: /nonexistent/program is no program here"));
}

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
	// This systemctl does not wait for the end.
	EXPECT_TRUE(happens([&] { return m_host.processes("sleep").empty(); }, "end of the unit"));
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
