/// A cold start, and on the same pair what the daemon leaves and lets through.

#include "PairTest.h"

#include <algorithm>
#include <cerrno>
#include <regex>
#include <set>
#include <sstream>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "lab/core/LogMeaning.h"
#include "lab/core/ProcessTable.h"

namespace velarix::lab
{

namespace
{

/// Inode and local port of every IPv4 TCP socket in a process's network.
struct TcpSocket
{
	std::string inode;
	int port = 0;
	bool listening = false;
};

std::vector<TcpSocket> tcpSocketsOf(pid_t pid)
{
	std::vector<TcpSocket> found;
	for (const std::string& line : linesOf("/proc/" + std::to_string(pid) + "/net/tcp"))
	{
		std::istringstream words(line);
		std::vector<std::string> fields{std::istream_iterator<std::string>(words), {}};
		if (fields.size() > 9 && fields[0] != "sl")
		{
			const int port = std::stoi(fields[1].substr(fields[1].find(':') + 1), nullptr, 16);
			found.push_back({fields[9], port, fields[3] == "0A"});
		}
	}
	return found;
}

std::size_t listenersAt(pid_t pid, int port)
{
	const std::vector<TcpSocket> sockets = tcpSocketsOf(pid);
	return static_cast<std::size_t>(std::count_if(sockets.begin(), sockets.end(),
	                                              [&](const TcpSocket& socket)
	                                              { return socket.listening && socket.port == port; }));
}

/// Descriptors above standard error that are no socket of the service's own port.
std::vector<std::string> foreignDescriptors(pid_t pid)
{
	const std::vector<std::string> descriptors = descriptorsOf(pid);
	std::set<std::string> own;
	for (const TcpSocket& socket : tcpSocketsOf(pid))
	{
		if (socket.port == plan::servicePort)
		{
			own.insert("socket:[" + socket.inode + "]");
		}
	}
	std::vector<std::string> foreign;
	for (const std::string& descriptor : descriptors)
	{
		const bool standard = std::stoi(descriptor) <= 2;
		if (!standard && !own.contains(descriptor.substr(descriptor.find(' ') + 1)))
		{
			foreign.push_back(descriptor);
		}
	}
	return foreign;
}

std::string joined(const std::vector<std::string>& words)
{
	std::string text;
	for (const std::string& word : words)
	{
		text += word + "; ";
	}
	return text;
}

/// errno of binding the heartbeat port with SO_REUSEPORT, inside the node; 0
/// when the port could be had.
int tryToShareHeartbeatPort(const Host& host, const char* address)
{
	int result = -1;
	inNetworkOf(host,
	            [&]
	            {
		            const Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
		            const int on = 1;
		            ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEPORT, &on, sizeof on);
		            sockaddr_in wanted{};
		            wanted.sin_family = AF_INET;
		            wanted.sin_port = htons(static_cast<std::uint16_t>(plan::heartbeatPort));
		            wanted.sin_addr.s_addr = ::inet_addr(address);
		            const bool bound =
		                ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&wanted), sizeof wanted) == 0;
		            result = bound ? 0 : errno;
	            });
	return result;
}

} // namespace

class Election : public PairTest
{
protected:
	void expectPidFileAndFarewell();
	void expectLogLayout(HostId node);
	void expectOnlyStandardStreamsInherited();
	void expectHeartbeatPortNotShared();
	void expectTimelineToAgreeWithLog(HostId node);
};

/// The digits of the daemon's own pid, nothing else; one line of farewell.
void Election::expectPidFileAndFarewell()
{
	for (const HostId id : nodes)
	{
		const std::optional<Process> agent = lab().node(id).agent();
		ASSERT_TRUE(agent);
		EXPECT_EQ(contentOf(lab().node(id).file(plan::pidFile)), std::to_string(agent->pidInside));
		EXPECT_TRUE(contentOf(lab().node(id).file(plan::consoleFile)).starts_with("Good Bye!!! [fork parent]\r\n"));
	}
}

void Election::expectLogLayout(HostId node)
{
	static const std::regex layout(
	    R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d \[(\d+):\d+\]\[([A-Za-z]+):\d+\] <([A-Z])> .*)");
	static const std::set<std::string> labels{"HAmain",         "CAgent", "CHeartSender", "CHeartReciver",
	                                          "ProcessChecker", "Utill",  "Configuraion", "QuorinINI"};
	const std::string pid = contentOf(lab().node(node).file(plan::pidFile));
	std::size_t matches = 0;
	inspect::LogClock clock;
	for (const std::string& line : linesOf(lab().node(node).file(plan::logFile)))
	{
		std::smatch parts;
		if (line.size() < 5 || line[4] != '-' || !std::all_of(line.begin(), line.begin() + 4, ::isdigit))
		{
			continue; // a message's further lines, or the library's remark
		}
		ASSERT_TRUE(std::regex_match(line, parts, layout)) << line;
		EXPECT_EQ(parts[1], pid) << line;
		EXPECT_TRUE(labels.contains(parts[2])) << line;
		EXPECT_NE(std::string("DIE").find(parts[3]), std::string::npos) << line;
		EXPECT_TRUE(inspect::parseHead(line, clock)) << line;
		++matches;
	}
	EXPECT_GT(matches, 50U);
}

/// Nothing of the daemon's (sockets, log file) reaches a command or a program.
void Election::expectOnlyStandardStreamsInherited()
{
	const pid_t init = lab().node(HostId::a).host().pid();
	const std::vector<Process> services = processesNamed(init, plan::serviceProgramName);
	ASSERT_EQ(services.size(), 1U);
	std::vector<std::string> foreign;
	// A connection that ends between two looks is none of its port for a moment.
	EXPECT_TRUE(waitFor(
	    [&]
	    {
		    foreign = foreignDescriptors(services.front().pid);
		    return foreign.empty();
	    },
	    Millis(5000), "the service to hold nothing that is not its own", [&] { return joined(foreign); }));

	// What the start command saw of its own descriptors; the last one is the
	// directory that the listing itself opened.
	const std::string listing = contentOf(lab().node(HostId::a).file("/run/descriptors"));
	EXPECT_EQ(listing, "0\n1\n2\n3\n");

	const std::vector<Process> shells = processesNamed(init, "sh");
	EXPECT_FALSE(shells.empty()) << "the announcing loop of the start command should run";
	for (const Process& shell : shells)
	{
		EXPECT_LE(descriptorsOf(shell.pid).size(), 3U) << joined(descriptorsOf(shell.pid));
	}
}

/// Two agents on one address have to find each other out.
void Election::expectHeartbeatPortNotShared()
{
	const Host& host = lab().node(HostId::a).host();
	const pid_t agent = lab().node(HostId::a).agent()->pid;
	int refusal = -1;
	// The socket is made anew for each pass, so only a look between two
	// sightings of the listener counts.
	EXPECT_TRUE(waitFor(
	    [&]
	    {
		    const bool before = listenersAt(agent, plan::heartbeatPort) == 1;
		    refusal = tryToShareHeartbeatPort(host, plan::addressOf(HostId::a, Network::communication));
		    return before && listenersAt(agent, plan::heartbeatPort) == 1;
	    },
	    moveLimit, "the agent to listen"));
	EXPECT_EQ(refusal, EADDRINUSE);
}

/// Each role the timeline shows is in the log at that time, within a second; and
/// the address was there when the log says that it waits for its answer.
void Election::expectTimelineToAgreeWithLog(HostId node)
{
	std::vector<inspect::LogLine> log;
	inspect::LogClock clock;
	for (const std::string& text : linesOf(lab().node(node).file(plan::logFile)))
	{
		if (std::optional<inspect::LogLine> line = inspect::parseHead(text, clock))
		{
			log.push_back(std::move(*line));
		}
	}
	const auto near = [&](Millis at, const auto& fits)
	{
		const auto wall = lab().clock().wallAt(at);
		return std::any_of(log.begin(), log.end(),
		                   [&](const inspect::LogLine& line) {
			                   return fits(line) &&
			                          std::chrono::abs(*line.time - wall) < std::chrono::milliseconds(1000);
		                   });
	};
	for (const Event& event : lab().timeline().events())
	{
		if (event.kind == EventKind::role && event.host == node && (event.text == "master" || event.text == "slave"))
		{
			EXPECT_TRUE(near(event.at,
			                 [&](const inspect::LogLine& line)
			                 {
				                 const LogMeaning* meaning = meaningOf(line);
				                 return meaning != nullptr && meaning->role != nullptr && event.text == meaning->role;
			                 }))
			    << toText(event);
		}
		if (event.kind == EventKind::address && event.text == nameOf(node))
		{
			EXPECT_TRUE(
			    near(event.at, [](const inspect::LogLine& line) { return line.text.starts_with("set virtual ip..."); }))
			    << toText(event);
		}
	}
}

TEST_F(Election, ConfiguredRoleWinsAndNothingLeaksFromTheDaemon)
{
	LabOptions options;
	const std::string start = options.settingsA.get("AGENT.VIRTUAL_IP_START_COMMAND");
	options.settingsA.set("AGENT.VIRTUAL_IP_START_COMMAND", "ls /proc/self/fd >/run/descriptors; " + start);
	PAIR_OR_RETURN(startServingPair(options));

	EXPECT_EQ(lab().role(HostId::a), "master");
	EXPECT_EQ(lab().role(HostId::b), "slave");
	EXPECT_EQ(heldBy("b", Millis(0)) + heldBy("a+b", Millis(0)), Millis(0)) << "node b never held the address";
	EXPECT_TRUE(processesNamed(lab().node(HostId::b).host().pid(), plan::serviceProgramName).empty());

	expectPidFileAndFarewell();
	expectOnlyStandardStreamsInherited();
	expectHeartbeatPortNotShared();
	for (const HostId id : nodes)
	{
		expectLogLayout(id);
		expectTimelineToAgreeWithLog(id);
	}
}

/// It is the setting that decides, not the node's name or who starts first.
TEST_F(Election, NodeBWinsWhenItIsTheConfiguredMaster)
{
	LabOptions options;
	options.settingsA.set("AGENT.MODE", 2);
	options.settingsB.set("AGENT.MODE", 1);
	PAIR_OR_RETURN(startPair(options));

	ASSERT_TRUE(lab().waitForService(HostId::b, moveLimit));
	EXPECT_EQ(lab().role(HostId::a), "slave");
	EXPECT_EQ(heldBy("a", Millis(0)) + heldBy("a+b", Millis(0)), Millis(0));
}

} // namespace velarix::lab
