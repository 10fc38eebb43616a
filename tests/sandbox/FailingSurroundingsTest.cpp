// The real daemon when the system under it fails: what it says, and what it goes on
// doing. Each failure is made for the daemon alone.

#include <csignal>

#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <linux/capability.h>

#include "DaemonProcess.h"
#include "LogFile.h"
#include "Sandbox.h"
#include "WaitFor.h"
#include "velarix/paths.h"

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using namespace std::chrono_literals;

namespace
{

constexpr int kAborted = 128 + SIGABRT;
/// Nobody else's: the limit counts all processes of a user.
constexpr uid_t kOtherUser = 61235;

class FailingSurroundings : public DaemonSandbox
{
protected:
	/// Starts the daemon with a failure and waits for its workers.
	static void startWith(DaemonProcess& daemon, const std::function<void()>& failure)
	{
		ASSERT_EQ(daemon.start(failure), 0);
		ASSERT_TRUE(waitFor([&] { return daemon.threads() == 4; }, 20s, "three workers besides the main thread",
		                    [&] { return std::to_string(daemon.threads()) + " threads\n" + daemon.errors(); }));
	}

	/// Waits until the log holds each of the events.
	static void waitForEvents(const DaemonProcess& daemon, const std::vector<std::string>& wanted)
	{
		std::string missing;
		const auto allThere = [&]
		{
			const std::vector<std::string> events = eventsOf(readLogFile());
			missing.clear();
			for (const std::string& event : wanted)
			{
				const bool there = std::find(events.begin(), events.end(), event) != events.end();
				missing += there ? std::string() : event + "\n";
			}
			return missing.empty();
		};
		EXPECT_TRUE(waitFor(allThere, 40s, "lines in the log", [&] { return missing + daemon.errors(); }));
	}

	/// The node has nobody to talk to: its partner and the service are silent.
	void leaveAlone()
	{
		settings.set("AGENT.PARTNER_IP", "192.0.2.2").set("AGENT.VIRTUAL_IP", "192.0.2.100");
		apply();
	}
};

/// In a mount namespace of the daemon's own.
void mountOver(const char* source, const char* target, const char* type, unsigned long flags)
{
	if (::unshare(CLONE_NEWNS) != 0 || ::mount(source, target, type, flags, nullptr) != 0)
	{
		::_exit(126);
	}
}

void makeLogDirectoryReadOnly()
{
	mountOver("/usr/velarix/log", "/usr/velarix/log", nullptr, MS_BIND);
	if (::mount(nullptr, "/usr/velarix/log", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0)
	{
		::_exit(126);
	}
}

void dropRawSockets()
{
	if (::prctl(PR_CAPBSET_DROP, CAP_NET_RAW, 0, 0, 0) != 0)
	{
		::_exit(126);
	}
}

void hideProc()
{
	mountOver("tmpfs", "/proc", "tmpfs", 0);
}

/// Nobody may open it but those whom modes do not bind, and the daemon is none of them.
void lockProc()
{
	if (::unshare(CLONE_NEWNS) != 0 || ::mount("tmpfs", "/proc", "tmpfs", 0, "mode=0") != 0 ||
	    ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0) != 0 ||
	    ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0) != 0)
	{
		::_exit(126);
	}
}

/// The daemon finds these two and no other tool.
void leaveOnlyShellAndCat()
{
	::setenv("PATH", "/usr/velarix/tools", 1);
}

/// As a user that has the daemon's own four threads and no process besides.
void becomeUserOfFourThreads()
{
	const rlimit four{4, 4};
	if (::setuid(kOtherUser) != 0 || ::setrlimit(RLIMIT_NPROC, &four) != 0)
	{
		::_exit(126);
	}
}

TEST_F(FailingSurroundings, AReadOnlyLogDirectoryIsSaidAndTheDaemonGoesOnWithoutALog)
{
	DaemonProcess daemon;
	startWith(daemon, makeLogDirectoryReadOnly);
	EXPECT_THAT(daemon.output(), AllOf(HasSubstr("initLog fail : "), HasSubstr("/usr/velarix/log/velarix.log")));
	EXPECT_THAT(daemon.output(), HasSubstr("**DEBUG**(CHeartReciver:94)Reciver while start\n"));
	EXPECT_NE(::access("/usr/velarix/log/velarix.log", F_OK), 0);
	EXPECT_EQ(daemon.waitForEnd(0ms), -1);
}

TEST_F(FailingSurroundings, WithoutRawSocketsEveryProbeFailsAndASlaveStaysOne)
{
	leaveAlone();
	DaemonProcess daemon;
	startWith(daemon, dropRawSockets);
	waitForEvents(daemon, {"E Utill:766 partner Comunication IP Check Failed: I/O error: 1[CODE:1]",
	                       "E Utill:814 service IP Check Failed: I/O error: 1[CODE:1]",
	                       "E Utill:789 My Comunication IP Check Failed: I/O error: 1[CODE:1]",
	                       "D Utill:791 myComunicationIPcheck : FALSE", "D CHeartReciver:96 networkResult: 1"});
	EXPECT_THAT(eventsOf(readLogFile()), Not(Contains(HasSubstr("slave -> master"))));
	EXPECT_EQ(daemon.threads(), 4);
}

TEST_F(FailingSurroundings, WithoutRawSocketsTheThirdSilenceIsTakenForADeadPartner)
{
	sandbox::addCard("eth1", true);
	settings.set("AGENT.VIRTUAL_IP", "192.0.2.100").set("AGENT.VIRTUAL_IP_START_COMMAND", "true");
	apply();
	DaemonProcess daemon;
	startWith(daemon, dropRawSockets);
	// The partner's host is this one, and would answer.
	waitForEvents(daemon,
	              {"D CHeartReciver:192 Reciver : no received message",
	               "E Utill:766 partner Comunication IP Check Failed: I/O error: 1[CODE:1]",
	               "D CHeartReciver:218 try to process run", "E Utill:504 set virtual ip failed: I/O error: 1"});
	sandbox::shell("ip link del eth1");
}

TEST_F(FailingSurroundings, AHiddenProcCountsEveryProgramAsEnded)
{
	settings.set("PROCESS_CHECK.PROCESS_PATH1", "/usr/velarix/bin/VelarixHA");
	apply();
	DaemonProcess seeing("seeing");
	startWith(seeing, {});
	waitForEvents(seeing, {"D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 1"});
	sandbox::shell("rm /usr/velarix/log/velarix.log");
	settings.set("AGENT.HEART_BEAT_RECEIVE_PORT", "7003");
	apply();
	DaemonProcess blind("blind");
	startWith(blind, hideProc);
	waitForEvents(blind, {"D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 0"});
}

TEST_F(FailingSurroundings, AProcThatCannotBeOpenedIsAnErrorAtEveryCheck)
{
	DaemonProcess daemon;
	startWith(daemon, lockProc);
	waitForEvents(daemon, {"E Utill:204 NO_DIR(/proc)", "D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 0"});
	EXPECT_EQ(daemon.threads(), 4);
}

TEST_F(FailingSurroundings, WithoutTheListingToolTheAddressCountsAsNotRaised)
{
	sandbox::shell("mkdir -p /usr/velarix/tools && ln -s /bin/sh /bin/cat /bin/chmod /usr/velarix/tools");
	leaveAlone();
	settings.set("AGENT.VIRTUAL_IP_START_COMMAND", "false");
	apply();
	DaemonProcess daemon;
	startWith(daemon, leaveOnlyShellAndCat);
	// The gateway answers and nobody else does: the slave takes over.
	waitForEvents(daemon, {"D CHeartReciver:549 slave -> master  process run", "D Utill:680 myVirtualIP not working",
	                       "I Utill:573 command(false) : ", "D Utill:490 set virtual ip...", "D Utill:496 ping: 0"});
	EXPECT_THAT(daemon.errors(), HasSubstr("ifconfig: not found"));
}

TEST_F(FailingSurroundings, ALimitOfDescriptorsThatIsReachedEndsTheDaemonAtTheNextListeningSocket)
{
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon);
	waitForEvents(daemon, {"D CHeartReciver:124 new server"});
	const rlimit none{4, 4};
	ASSERT_EQ(::prlimit(daemon.pid(), RLIMIT_NOFILE, &none, nullptr), 0);
	EXPECT_EQ(daemon.waitForEnd(60s), kAborted);
	EXPECT_THAT(daemon.errors(), HasSubstr("VelarixHA: CHeartReciver:138: virtual void CHeartReciver::run(): "
	                                       "Assertion `0' failed.\n"));
	EXPECT_THAT(eventsOf(readLogFile()),
	            Contains(AllOf(StartsWith("E CHeartReciver:137 "), HasSubstr("oo many open files"))));
}

TEST_F(FailingSurroundings, ADaemonThatCannotForkSaysSoAndKeepsItsRole)
{
	sandbox::shell("chown -R 61235 /usr/velarix");
	leaveAlone();
	settings.set("AGENT.GATEWAY_IP", "192.0.2.101");
	apply();
	DaemonProcess daemon;
	startWith(daemon, becomeUserOfFourThreads);
	waitForEvents(daemon, {"E Utill:550 shell command run error(fp is NULL): cat /sys/class/net/eth1/carrier",
	                       "D CHeartReciver:182 COMUNICATION LAN CARD ERROR"});
	EXPECT_THAT(eventsOf(readLogFile()), Not(Contains(HasSubstr("slave -> master"))));
	EXPECT_EQ(daemon.threads(), 4);
}

} // namespace
