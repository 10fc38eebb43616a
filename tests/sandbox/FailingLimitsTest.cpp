// The real daemon when limits of the system are reached.

#include <array>
#include <csignal>
#include <filesystem>
#include <map>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <linux/capability.h>

#include <Poco/Net/ServerSocket.h>

#include "FailingSurroundings.h"
#include "Sandbox.h"

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
	if (::prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) != 0 || ::setuid(otherUser()) != 0 ||
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

/// What each of the daemon's descriptors is.
std::map<rlim_t, std::string> descriptorsOf(const DaemonProcess& daemon)
{
	std::map<rlim_t, std::string> open;
	std::error_code error;
	for (const auto& entry :
	     std::filesystem::directory_iterator("/proc/" + std::to_string(daemon.pid()) + "/fd", error))
	{
		const std::string number = entry.path().filename();
		open[std::stoul(number)] = std::filesystem::read_symlink(entry.path(), error);
	}
	return open;
}

/// The descriptors that stay open while the receiver waits for a heartbeat: those that are
/// there at each of twenty looks, the one with which it waits among them.
std::map<rlim_t, std::string> keptDescriptorsOf(const DaemonProcess& daemon)
{
	std::map<rlim_t, std::string> kept;
	int looks = 0;
	const auto look = [&]
	{
		const std::map<rlim_t, std::string> open = descriptorsOf(daemon);
		kept = looks == 0 ? open : kept;
		std::erase_if(kept, [&](const auto& entry) { return !open.contains(entry.first); });
		const bool waits = std::any_of(kept.begin(), kept.end(),
		                               [](const auto& entry) { return entry.second == "anon_inode:[eventpoll]"; });
		looks = waits ? looks + 1 : 0;
		return looks == 20;
	};
	EXPECT_TRUE(waitFor(look, 20s, "a receiver that waits"));
	return kept;
}

/// @return the limit below which one more than the `kept` descriptors can be opened
rlim_t limitWithOneLeft(const std::map<rlim_t, std::string>& kept)
{
	rlim_t free = 0;
	while (kept.contains(free))
	{
		++free;
	}
	return free + 1;
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

// A connection takes two for a moment: the socket, and what its success is waited for with.
TEST_F(FailingSurroundings, WithOneDescriptorLeftNoHeartbeatGoesOutAndTheDaemonLives)
{
	const Poco::Net::ServerSocket partner(Poco::Net::SocketAddress("127.0.0.1", 7002));
	// Its own receiver waits for its first heartbeat all the while, and nobody looks into /proc.
	settings.set("AGENT.MAX_HEART_BEAT_RECEIING_TIME", "60").set("PROCESS_CHECK.PROCESS_CHECK_CYCLE", "60");
	apply();
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon);
	waitForEvents(daemon, {"D CHeartReciver:124 new server"});
	const rlim_t allowed = limitWithOneLeft(keptDescriptorsOf(daemon));
	const rlimit oneLeft{allowed, allowed};
	ASSERT_EQ(::prlimit(daemon.pid(), RLIMIT_NOFILE, &oneLeft, nullptr), 0);
	waitForEvents(daemon, {"E CHeartSender:79 Sender I/O error: Too many open files(CODE: 24)[noName]"});
	EXPECT_EQ(daemon.threads(), 4);
	EXPECT_EQ(daemon.waitForEnd(0ms), -1);
}
#endif

TEST_F(FailingSurroundings, ADaemonThatCannotForkSaysSoAndKeepsItsRole)
{
	SCOPED_TRACE("user " + std::to_string(otherUser()));
	sandbox::shell("chown -R " + std::to_string(otherUser()) + " /usr/velarix");
	leaveAlone();
	settings.set("AGENT.GATEWAY_IP", "192.0.2.101");
	apply();
	DaemonProcess daemon;
	startWith(daemon, becomeUserOfFourThreads);
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
