// What a user of the node who is not root can do to the real daemon, and what keeps
// him from it.

#include <atomic>
#include <fstream>
#include <iterator>
#include <new>

#include <arpa/inet.h>
#include <grp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>

#include <Poco/String.h>

#include "DaemonProcess.h"
#include "LogFile.h"
#include "Peer.h"

using namespace std::chrono_literals;

namespace
{

constexpr int kAborted = 128 + SIGABRT;
constexpr uid_t kUser = 61234;
constexpr char kHeartbeat[] = "/process/1/1/20240131235959/0/";
constexpr char kHisHeartbeat[] = "/process/1/0/20240131235959/0/";
constexpr char kPrivilegedPorts[] = "/proc/sys/net/ipv4/ip_unprivileged_port_start";

/// What the user's process tells of its tries to have the port.
struct Tries
{
	std::atomic<int> inUse = 0;
	std::atomic<int> forbidden = 0;
	std::atomic<int> succeeded = 0;
	std::atomic<int> bytesHeard = 0;
};

/// Memory that a child shares with the test.
template <typename Value> class Shared
{
public:
	Shared()
	    : m_pValue(new (::mmap(nullptr, sizeof(Value), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
	                   Value())
	{
	}
	~Shared() { ::munmap(m_pValue, sizeof(Value)); }
	Shared(const Shared&) = delete;
	Shared& operator=(const Shared&) = delete;

	Value* operator->() const { return m_pValue; }
	Value& operator*() const { return *m_pValue; }

private:
	Value* m_pValue;
};

/// A process of the user, who has no privilege of root's; killed and awaited at the end.
class UsersProcess
{
public:
	explicit UsersProcess(const std::function<void()>& deed) : m_pid(::fork())
	{
		if (m_pid == 0)
		{
			::prctl(PR_SET_PDEATHSIG, SIGKILL);
			if (::setgroups(0, nullptr) == 0 && ::setgid(kUser) == 0 && ::setuid(kUser) == 0)
			{
				deed();
			}
			::_exit(126);
		}
	}
	~UsersProcess()
	{
		::kill(m_pid, SIGKILL);
		::waitpid(m_pid, nullptr, 0);
	}
	UsersProcess(const UsersProcess&) = delete;
	UsersProcess& operator=(const UsersProcess&) = delete;

private:
	pid_t m_pid;
};

/// Hears whoever connects, for ever.
void listenInPlaceOfTheAgent(int listener, Tries& tries)
{
	for (;;)
	{
		const int connection = ::accept(listener, nullptr, nullptr);
		char text[256];
		for (ssize_t read = 0; (read = ::recv(connection, text, sizeof text, 0)) > 0;)
		{
			tries.bytesHeard += static_cast<int>(read);
		}
		::close(connection);
	}
}

/// Tries to listen on the agent's port, thousands of times a second.
void snatch(std::uint16_t port, Tries& tries)
{
	sockaddr_in address{};
	address.sin_family = AF_INET;
	address.sin_port = htons(port);
	address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
	for (;;)
	{
		const int reuse = 1;
		const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
		::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
		// NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the interface of sockets
		if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
		    ::listen(listener, 16) == 0)
		{
			++tries.succeeded;
			listenInPlaceOfTheAgent(listener, tries);
		}
		++(errno == EACCES ? tries.forbidden : tries.inUse);
		::close(listener);
		::usleep(50);
	}
}

/// @return how often the agent's log has the event
std::ptrdiff_t timesTold(const std::string& event)
{
	const std::vector<std::string> events = eventsOf(readLogFile());
	return std::count(events.begin(), events.end(), event);
}

testing::AssertionResult isTold(const std::string& event, std::ptrdiff_t times = 1)
{
	return waitFor([&] { return timesTold(event) >= times; }, 30s, event,
	               [&] { return std::to_string(timesTold(event)) + " times"; });
}

/// Says a heartbeat to whoever listens, the agent or another.
/// @return whether somebody did
bool speakTo(std::uint16_t port, const char* heartbeat = kHeartbeat)
{
	try
	{
		peer::connectTo(port).send(heartbeat);
		return true;
	}
	catch (const std::runtime_error&)
	{
		return false;
	}
}

class LocalUser : public DaemonSandbox
{
protected:
	void TearDown() override { sandbox::writeFile(kPrivilegedPorts, "1024"); }

	/// The daemon listens, and closes and opens its socket for each of the partner's heartbeats.
	void expectThatTheAgentKeeps(std::uint16_t port)
	{
		settings.set("AGENT.HEART_BEAT_RECEIVE_PORT", std::to_string(port));
		apply();
		DaemonProcess daemon;
		startAndWaitForWorkers(daemon);
		const Shared<Tries> tries;
		const UsersProcess user([&] { snatch(port, *tries); });
		for (int i = 1; i <= 3; ++i)
		{
			ASSERT_TRUE(waitFor([&] { return peer::isListenedOn(port); }, 20s, "the agent's socket"));
			peer::connectTo(port).send(kHeartbeat);
			ASSERT_TRUE(isTold("D CHeartReciver:84 delete server", i));
		}
		ASSERT_TRUE(waitFor([&] { return peer::isListenedOn(port); }, 20s, "the agent's socket"));
		EXPECT_EQ(daemon.waitForEnd(0ms), -1);
		EXPECT_EQ(daemon.threads(), 4);
		EXPECT_GT(tries->forbidden, 100);
		EXPECT_EQ(tries->inUse, 0);
		EXPECT_EQ(tries->succeeded, 0);
	}
};

TEST_F(LocalUser, HeTakesAnUnprivilegedPortBetweenTwoHeartbeatsEndsTheAgentAndHearsThePartner)
{
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon);
	ASSERT_TRUE(waitFor([] { return peer::isListenedOn(7001); }, 20s, "the agent's socket"));
	const Shared<Tries> tries;
	const UsersProcess user([&] { snatch(7001, *tries); });
	ASSERT_TRUE(waitFor([&] { return tries->inUse > 0; }, 20s, "a try while the agent listens"));
	EXPECT_EQ(tries->succeeded, 0);

	// After a heartbeat the agent closes its socket and opens it anew. Not each of these
	// moments has to be long enough.
	int status = -1;
	int heartbeats = 0;
	for (; status == -1 && heartbeats < 60; ++heartbeats)
	{
		speakTo(7001);
		status = daemon.waitForEnd(1s);
	}
	RecordProperty("heartbeats", heartbeats);
	EXPECT_EQ(status, kAborted);
	EXPECT_EQ(tries->succeeded, 1);
	EXPECT_THAT(daemon.errors(), HasSubstr("VelarixHA: CHeartReciver:138: virtual void CHeartReciver::run(): "
	                                       "Assertion `0' failed.\n"));
	EXPECT_THAT(eventsOf(readLogFile()),
	            Contains(HasSubstr("E CHeartReciver:137 Net Exception: Address already in use")));

	const int before = tries->bytesHeard;
	speakTo(7001);
	EXPECT_TRUE(waitFor([&] { return tries->bytesHeard > before; }, 20s, "the partner's heartbeat"));
}

TEST_F(LocalUser, HeCannotTakeAGreaterPortWhereThoseOfRootReachUpToIt)
{
	sandbox::writeFile(kPrivilegedPorts, "7002");
	expectThatTheAgentKeeps(7001);
}

/// @return what the page has from a beginning to an end, for the test's port
std::string rulesOfThePage(const std::string& beginning, const std::string& ending)
{
	std::ifstream page(VELARIX_SECURITY_PAGE);
	const std::string text((std::istreambuf_iterator<char>(page)), std::istreambuf_iterator<char>());
	const std::size_t begin = text.find(beginning);
	const std::size_t end = text.find(ending, begin);
	if (begin == std::string::npos || end == std::string::npos)
	{
		return "the rules are not on the page";
	}
	const std::string rules = text.substr(begin, end + ending.size() - begin);
	const std::string fitted = Poco::replace(rules, "7000", "7001");
	return fitted == rules ? "no port in the rules" : fitted;
}

/// The user speaks as the partner, as often as the port lets him.
void speak(std::atomic<int>& heard)
{
	for (;;)
	{
		if (speakTo(7001, kHisHeartbeat))
		{
			++heard;
		}
		else
		{
			::usleep(50000);
		}
	}
}

/// @return the number behind the beginning in what the command tells
int counted(const std::string& command, const std::string& beginning)
{
	sandbox::shell(command + " >/usr/velarix/counted");
	const std::string reported = sandbox::readFile("/usr/velarix/counted");
	const std::size_t at = reported.find(beginning);
	return at == std::string::npos ? -1 : std::atoi(reported.c_str() + at + beginning.size());
}

/// The user speaks as the partner until the rules are loaded; root's agents are not meant.
class LocalUserAndRules : public LocalUser
{
protected:
	void expectToRefuseTheUserAlone(const std::string& load, const std::function<int()>& refused)
	{
		const std::string his = std::string("D CHeartReciver:164 received message: ") + kHisHeartbeat;
		DaemonProcess daemon;
		startAndWaitForWorkers(daemon);
		ASSERT_TRUE(waitFor([] { return peer::isListenedOn(7001); }, 20s, "the agent's socket"));
		const Shared<std::atomic<int>> before;
		{
			const UsersProcess user([&] { speak(*before); });
			EXPECT_TRUE(isTold(his));
		}
		sandbox::shell(load);
		const Shared<std::atomic<int>> behind;
		const UsersProcess user([&] { speak(*behind); });
		EXPECT_TRUE(waitFor([&] { return refused() >= 10; }, 30s, "ten refusals"));
		ASSERT_TRUE(waitFor([] { return peer::isListenedOn(7001); }, 20s, "the agent's socket"));
		peer::connectTo(7001).send(kHeartbeat);
		EXPECT_TRUE(isTold(std::string("D CHeartReciver:164 received message: ") + kHeartbeat));
		EXPECT_EQ(*behind, 0);
	}
};

TEST_F(LocalUserAndRules, HeSpeaksWithTheNodesAddressUntilNftablesRefuseHim)
{
	sandbox::writeFile("/usr/velarix/rules", rulesOfThePage("    table inet velarix_users {", "\n    }\n"));
	expectToRefuseTheUserAlone("nft -f /usr/velarix/rules",
	                           [] { return counted("nft list table inet velarix_users", "counter packets "); });
	sandbox::shell("nft delete table inet velarix_users");
}

} // namespace
