/// Faults of the managed program and of the wires, and attackers: what they do is
/// looked at where it arrives.

#include <algorithm>
#include <csignal>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "FaultActionTest.h"

namespace velarix::lab
{

namespace
{

sockaddr_in addressOn(HostId host, int port)
{
	sockaddr_in address{};
	address.sin_family = AF_INET;
	address.sin_port = htons(static_cast<std::uint16_t>(port));
	::inet_pton(AF_INET, plan::addressOf(host, Network::communication), &address.sin_addr);
	return address;
}

const sockaddr* generic(const sockaddr_in& address)
{
	return reinterpret_cast<const sockaddr*>(&address);
}

/// A socket in the host, bound on the communication network.
Descriptor boundSocket(const Host& where, HostId host, int type, int port)
{
	Descriptor opened;
	inNetworkOf(where, [&] { opened.reset(::socket(AF_INET, type | SOCK_CLOEXEC, 0)); });
	const sockaddr_in address = addressOn(host, port);
	const int on = 1;
	::setsockopt(opened.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
	EXPECT_EQ(::bind(opened.get(), generic(address), sizeof address), 0);
	return opened;
}

bool readableWithin(int socket, Millis limit)
{
	pollfd watched{socket, POLLIN, 0};
	return ::poll(&watched, 1, static_cast<int>(limit.count())) == 1;
}

/// What the next attacker says to a listening socket until it hangs up; empty: none came.
std::optional<std::string> nextWords(int listening, Millis limit)
{
	if (!readableWithin(listening, limit))
	{
		return std::nullopt;
	}
	sockaddr_in peer{};
	socklen_t size = sizeof peer;
	const Descriptor connection(::accept(listening, reinterpret_cast<sockaddr*>(&peer), &size));
	EXPECT_EQ(peer.sin_addr.s_addr, addressOn(HostId::gateway, 0).sin_addr.s_addr);
	std::string words;
	char buffer[1024];
	for (ssize_t count = 0; (count = ::recv(connection.get(), buffer, sizeof buffer, 0)) > 0;)
	{
		words.append(buffer, static_cast<std::size_t>(count));
	}
	return words;
}

/// A datagram from one host to another arrives.
bool reaches(Lab& lab, HostId from, HostId to)
{
	constexpr int port = 9999;
	const Descriptor receiver = boundSocket(lab.host(to), to, SOCK_DGRAM, port);
	const Descriptor sender = boundSocket(lab.host(from), from, SOCK_DGRAM, 0);
	const sockaddr_in address = addressOn(to, port);
	EXPECT_EQ(::sendto(sender.get(), "x", 1, 0, generic(address), sizeof address), 1);
	return readableWithin(receiver.get(), Millis(700));
}

/// A frame may be lost at the moment in which a wire becomes bad or good.
bool reachesSoon(Lab& lab, HostId from, HostId to)
{
	return reaches(lab, from, to) || reaches(lab, from, to);
}

} // namespace

TEST_F(FaultAction, ProgramCrashesForAsLongAsTheFaultStands)
{
	node(a).startService();
	inject("program-crash");
	EXPECT_EQ(refusalOf("program-crash"), "the managed program of node a crashes already");
	EXPECT_TRUE(waitFor([] { return !programRunsOn(a); }, soon, "the program to be killed"));
	EXPECT_EQ(shell(a, plan::serviceProgram).status, 128 + SIGKILL) << "and again";
	repair("program-crash");
	EXPECT_TRUE(processesNamed(node(a).host().pid(), "killall").empty()) << "what the loop was about";
	EXPECT_TRUE(shell(a, plan::serviceProgram, Millis(1000)).timedOut) << "it stays";
	node(a).killService();
}

TEST_F(FaultAction, ProgramCrashesOnBothNodesUntilBothLoopsAreEnded)
{
	inject("program-crash-both");
	for (const HostId id : nodes)
	{
		EXPECT_EQ(shell(id, plan::serviceProgram).status, 128 + SIGKILL) << nameOf(id);
	}
	// The loop of one node ends with the node, so only one is left to end.
	lab().powerOff(a);
	lab().powerOn(a, false);
	const std::string refusal = refusalOf([] { repair("program-crash-both"); });
	EXPECT_EQ(refusal, "this is not being done: program-crash");
	node(b).startService();
	EXPECT_EQ(refusalOf("program-crash-both"), "") << "nothing is under way any more";
	repair("program-crash-both");
	node(b).killService();
}

TEST_F(FaultAction, AZombieHasTheNameOfTheProgram)
{
	const auto zombies = []
	{
		const std::vector<Process> all = processesOf(node(a).host().pid());
		return std::count_if(all.begin(), all.end(),
		                     [](const Process& entry)
		                     { return entry.name == plan::serviceProgramName && entry.state == 'Z'; });
	};
	EXPECT_EQ(refusalOf("program-zombie"), "no managed program runs on node a");
	node(a).startService();
	inject("program-zombie");
	EXPECT_TRUE(waitFor([&] { return zombies() == 1; }, soon, "one zombie, that of the fault"));
	EXPECT_TRUE(waitFor([] { return !programRunsOn(a); }, soon, "the program to be gone"));
	repair("program-zombie");
	EXPECT_TRUE(waitFor([&] { return zombies() == 0; }, soon, "the zombie to be gone"));
}

TEST_F(FaultAction, DeafAndMuteLoseOneWayEach)
{
	EXPECT_TRUE(reachesSoon(lab(), a, b) && reachesSoon(lab(), b, a));
	// Neither has to ask for the other's interface, which takes both ways.
	for (const HostId id : nodes)
	{
		const char* other = plan::addressOf(otherNode(id), Network::communication);
		const CommandResult kept = lab().run(id, {"ip", "neigh", "change", other, "dev", "eth1", "nud", "permanent"});
		EXPECT_TRUE(kept.ok()) << kept.output;
	}
	inject("deaf");
	EXPECT_TRUE(reachesSoon(lab(), a, b));
	EXPECT_FALSE(reaches(lab(), b, a));
	EXPECT_TRUE(reachesSoon(lab(), HostId::gateway, a));
	repair("deaf");
	EXPECT_TRUE(reachesSoon(lab(), b, a));
	inject("mute");
	EXPECT_FALSE(reaches(lab(), a, b));
	EXPECT_TRUE(reachesSoon(lab(), b, a));
	EXPECT_TRUE(reachesSoon(lab(), a, HostId::gateway));
	repair("mute");
	EXPECT_TRUE(reachesSoon(lab(), a, b));
}

TEST_F(FaultAction, AttackersAreHeard)
{
	const Descriptor listening = boundSocket(node(a).host(), a, SOCK_STREAM, plan::heartbeatPort);
	ASSERT_EQ(::listen(listening.get(), 8), 0);
	const std::vector<std::pair<std::string, std::vector<std::string>>> attackers{
	    {"garbage",
	     {"", "/process/", "/other/1/1/20260101000000/1/", std::string("\0\377\1\n", 4), "/process/1/1",
	      std::string(300, '0'), ""}},
	    {"replay-master", {"/process/1/1/20260101000000/0/", "/process/1/1/20260101000000/0/"}},
	    {"replay-ask", {"/process/0/2/20260101000000/1/", "/process/0/2/20260101000000/1/"}}};
	for (const auto& [kind, words] : attackers)
	{
		SCOPED_TRACE(kind);
		inject(kind);
		for (const std::string& word : words)
		{
			EXPECT_EQ(nextWords(listening.get(), soon), word);
		}
		EXPECT_TRUE(refusalOf(kind).starts_with("this is done already")) << refusalOf(kind);
		repair(kind);
		// One more may have come before the end.
		while (nextWords(listening.get(), Millis(0)))
		{
		}
		EXPECT_FALSE(nextWords(listening.get(), Millis(1200)));
	}
}

TEST_F(FaultAction, AJobThatHasEndedByItselfIsReported)
{
	inject("garbage");
	lab::shell(lab().host(HostId::gateway), "job=$(cat /run/garbage-a); echo broken >>/run/garbage-a.says; "
	                                        "while kill -9 -- -$job 2>/dev/null; do sleep 0.02; done");
	const std::string reported = refusalOf([] { repair("garbage"); });
	EXPECT_NE(reported.find("had ended by itself\n"), std::string::npos) << reported;
	EXPECT_NE(reported.find("broken\n"), std::string::npos) << reported;
	EXPECT_EQ(refusalOf([] { repair("garbage"); }), "this is not being done: garbage-a");
}

} // namespace velarix::lab
