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
#include <Poco/Net/StreamSocket.h>

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

using Descriptors = std::map<rlim_t, std::string>;

/// What each of the daemon's descriptors is.
Descriptors descriptorsOf(const DaemonProcess& daemon)
{
	Descriptors open;
	std::error_code error;
	for (const auto& entry :
	     std::filesystem::directory_iterator("/proc/" + std::to_string(daemon.pid()) + "/fd", error))
	{
		const std::string number = entry.path().filename();
		open[std::stoul(number)] = std::filesystem::read_symlink(entry.path(), error);
	}
	return open;
}

/// What poll() of the library waits with; opened for each wait.
bool isWait(const Descriptors::value_type& descriptor)
{
	return descriptor.second == "anon_inode:[eventpoll]";
}

/// The descriptors that stay open while so many threads wait for somebody: those that are
/// there at each of twenty looks, the ones with which they wait among them.
Descriptors keptDescriptorsOf(const DaemonProcess& daemon, int waits)
{
	Descriptors kept;
	int looks = 0;
	const auto look = [&]
	{
		const Descriptors open = descriptorsOf(daemon);
		kept = looks == 0 ? open : kept;
		std::erase_if(kept, [&](const auto& entry) { return !open.contains(entry.first); });
		looks = std::count_if(kept.begin(), kept.end(), isWait) == waits ? looks + 1 : 0;
		return looks == 20;
	};
	EXPECT_TRUE(waitFor(look, 20s, "threads that wait", [&] { return std::to_string(kept.size()) + " descriptors"; }));
	return kept;
}

/// @return the lowest number that none of them has
rlim_t firstFree(const Descriptors& open)
{
	rlim_t free = 0;
	while (open.contains(free))
	{
		++free;
	}
	return free;
}

void allow(const DaemonProcess& daemon, rlim_t descriptors)
{
	const rlimit limit{descriptors, descriptors};
	ASSERT_EQ(::prlimit(daemon.pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
}

/// @return the limit at which nothing more can be opened once these waits are over
rlim_t limitWithNoneLeft(Descriptors kept)
{
	std::erase_if(kept, isWait);
	return firstFree(kept);
}

/// As above, and the listening socket, given back, can be opened again. It does not always
/// have a number below all that are free: then the daemon, called, makes a new one.
rlim_t limitWithTheListeningSocketAlone(const DaemonProcess& daemon)
{
	rlim_t limit = 0;
	const auto found = [&]
	{
		const Descriptors kept = keptDescriptorsOf(daemon, 1);
		limit = limitWithNoneLeft(kept);
		const bool listensBelow =
		    std::none_of(kept.begin(), kept.end(),
		                 [&](const auto& entry) { return entry.second.starts_with("socket:") && entry.first > limit; });
		return listensBelow || (Poco::Net::StreamSocket(Poco::Net::SocketAddress("127.0.0.1", 7001)), false);
	};
	EXPECT_TRUE(waitFor(found, 60s, "a listening socket with a low number"));
	return limit;
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

// It has nothing to wait with at its listening socket, gives that back, opens it again and
// so on, without a pause. Where another thread has the number at that moment it ends.
TEST_F(FailingEnvironment, WithNoDescriptorLeftTheDaemonHearsNothingAndTriesWithoutAPause)
{
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon);
	waitForEvents(daemon, {"D CHeartReciver:124 new server"});
	allow(daemon, limitWithTheListeningSocketAlone(daemon));
	const std::string failure = "E CHeartReciver:79 Server Error: I/O error: Too many open files[CODE: 24][noName]";
	std::vector<std::string> events;
	int end = -1;
	const auto triedOften = [&]
	{
		end = daemon.waitForEnd(0ms);
		events = eventsOf(readLogFile());
		return end != -1 || std::count(events.begin(), events.end(), failure) >= 50;
	};
	EXPECT_TRUE(waitFor(triedOften, 60s, "a receiver that tries again and again"));
	if (end != -1)
	{
		EXPECT_EQ(end, kAborted);
		EXPECT_THAT(eventsOf(readLogFile()), Contains("E CHeartReciver:137 I/O error: Too many open files"));
	}
	EXPECT_GE(std::count(events.begin(), events.end(), failure), 1);
}

// A connection takes two for a moment: the socket, and what its success is waited for with.
TEST_F(FailingEnvironment, WithOneDescriptorLeftNoHeartbeatGoesOutAndTheDaemonLives)
{
	const Poco::Net::ServerSocket partner(Poco::Net::SocketAddress("127.0.0.1", 7002));
	beStill();
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon);
	waitForEvents(daemon, {"D CHeartReciver:124 new server"});
	allow(daemon, firstFree(keptDescriptorsOf(daemon, 1)) + 1);
	waitForEvents(daemon, {"E CHeartSender:79 Sender I/O error: Too many open files(CODE: 24)[noName]"});
	EXPECT_EQ(daemon.threads(), 4);
	EXPECT_EQ(daemon.waitForEnd(0ms), -1);
}

// While the sender waits for its partner to accept, the descriptors go.
TEST_F(FailingEnvironment, WithNoDescriptorLeftForTheRunInfoRecordTheHeartbeatEndsTheDaemon)
{
	Poco::Net::ServerSocket partner;
	partner.bind(Poco::Net::SocketAddress("127.0.0.1", 7002), true);
	partner.listen(1); // the first heartbeats wait to be accepted, and the next one to be let in
	beStill();
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon);
	waitForEvents(daemon, {"D CHeartReciver:124 new server"});
	allow(daemon, limitWithNoneLeft(keptDescriptorsOf(daemon, 2)));
	while (partner.poll(0, Poco::Net::Socket::SELECT_READ))
	{
		partner.acceptConnection();
	}
	EXPECT_EQ(daemon.waitForEnd(60s), kAborted);
	EXPECT_THAT(daemon.errors(), HasSubstr("VelarixHA: QuorinINI:30: "));
	EXPECT_THAT(eventsOf(readLogFile()), Contains(StartsWith("E QuorinINI:29 ")));
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
