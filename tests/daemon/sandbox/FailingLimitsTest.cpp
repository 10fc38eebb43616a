// The real daemon when limits of the system are reached.

#include <array>
#include <csignal>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <linux/capability.h>

#include "FailingEnvironment.h"
#include "Sandbox.h"
#include "UserOfItsOwn.h"

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using namespace std::chrono_literals;

namespace
{

constexpr int kAborted = 128 + SIGABRT;

/// Goes on as the other user, who has no privilege but raw sockets.
void becomeOtherUserWithRawSockets()
{
	constexpr std::uint32_t rawSockets = 1U << CAP_NET_RAW;
	__user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
	const std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{
	    {{rawSockets, rawSockets, rawSockets}, {0, 0, 0}}};
	if (::prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) != 0 || ::setuid(userOfItsOwn()) != 0 ||
	    ::syscall(SYS_capset, &header, sets.data()) != 0 ||
	    ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_NET_RAW, 0, 0) != 0)
	{
		::_exit(126);
	}
}

/// As a user that has the daemon's own four threads and no process besides.
void becomeUserOfFourThreads()
{
	constexpr rlim_t threads = 4 + kToolThreads;
	const rlimit limit{threads, threads};
	becomeOtherUserWithRawSockets();
	if (::setrlimit(RLIMIT_NPROC, &limit) != 0)
	{
		::_exit(126);
	}
}

#if !defined(__SANITIZE_ADDRESS__)
// UndefinedBehaviorSanitizer, which comes with the address sanitizer here, looks at an
// object's memory through a pipe, and takes an object for none where it gets no pipe.

void allow(const DaemonProcess& daemon, rlim_t descriptors)
{
	const rlimit limit{descriptors, descriptors};
	ASSERT_EQ(::prlimit(daemon.pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
}

// As where the number of the listening socket itself has gone to another.
TEST_F(FailingEnvironment, WithoutADescriptorForTheListeningSocketTheDaemonEnds)
{
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon);
	waitForEvents(daemon, {"D CHeartReciver:124 new server"});
	allow(daemon, 4);
	EXPECT_EQ(daemon.waitForEnd(60s), kAborted);
	EXPECT_THAT(daemon.errors(), HasSubstr("VelarixHA: CHeartReciver:138: virtual void CHeartReciver::run(): "
	                                       "Assertion `0' failed.\n"));
	EXPECT_THAT(eventsOf(readLogFile()),
	            Contains(AllOf(StartsWith("E CHeartReciver:137 "), HasSubstr("oo many open files"))));
}

#endif

TEST_F(FailingEnvironment, ADaemonThatCannotForkSaysSoAndKeepsItsRole)
{
	SCOPED_TRACE("user " + std::to_string(userOfItsOwn()));
	sandbox::shell("chown -R " + std::to_string(userOfItsOwn()) + " /usr/velarix");
	leaveAlone();
	settings.set("AGENT.GATEWAY_IP", "192.0.2.101");
	apply();
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon, becomeUserOfFourThreads);
	waitForEvents(daemon, {"E Utill:550 shell command run error(fp is NULL): cat /sys/class/net/eth1/carrier",
	                       "D CHeartReciver:182 COMUNICATION LAN CARD ERROR"});
	const std::vector<std::string> events = eventsOf(readLogFile());
	EXPECT_THAT(events, Not(Contains(HasSubstr("slave -> master"))));
	// The one failure alone: pings are made.
	EXPECT_THAT(events, Contains("D Utill:791 myComunicationIPcheck : FALSE"));
	EXPECT_THAT(events, Not(Contains(HasSubstr("I/O error"))));
	EXPECT_EQ(daemon.threads(), 4);
}

} // namespace
