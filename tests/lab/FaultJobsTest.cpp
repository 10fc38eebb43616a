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
	inject(FaultKind::programCrashes);
	EXPECT_EQ(refusalOf(FaultKind::programCrashes), "the managed program of node a crashes already");
	EXPECT_TRUE(waitFor([] { return !programRunsOn(a); }, soon, "the program to be killed"));
	EXPECT_EQ(shell(a, plan::serviceProgram).status, 128 + SIGKILL) << "and again";
	repair(FaultKind::programCrashes);
	EXPECT_TRUE(processesNamed(node(a).host().pid(), "killall").empty()) << "what the loop was about";
	EXPECT_TRUE(shell(a, plan::serviceProgram, Millis(1000)).timedOut) << "it stays";
	node(a).killService();
}

TEST_F(FaultAction, ProgramCrashesOnBothNodesUntilBothLoopsAreEnded)
{
	inject(FaultKind::programCrashesEverywhere);
	for (const HostId id : nodes)
	{
		EXPECT_EQ(shell(id, plan::serviceProgram).status, 128 + SIGKILL) << nameOf(id);
	}
	// The loop of one node ends with the node, so only one is left to end.
	lab().powerOff(a);
	lab().powerOn(a, false);
	const std::string refusal = refusalOf([] { repair(FaultKind::programCrashesEverywhere); });
	EXPECT_NE(refusal.find("had ended by itself"), std::string::npos) << refusal;
	node(b).startService();
	EXPECT_EQ(refusalOf(FaultKind::programCrashesEverywhere), "") << "nothing is under way any more";
	repair(FaultKind::programCrashesEverywhere);
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
	EXPECT_EQ(refusalOf(FaultKind::programZombie), "no managed program runs on node a");
	node(a).startService();
	inject(FaultKind::programZombie);
	EXPECT_TRUE(waitFor([&] { return zombies() == 1; }, soon, "one zombie, that of the fault"));
	EXPECT_TRUE(waitFor([] { return !programRunsOn(a); }, soon, "the program to be gone"));
	repair(FaultKind::programZombie);
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
	inject(FaultKind::communicationDeaf);
	EXPECT_TRUE(reachesSoon(lab(), a, b));
	EXPECT_FALSE(reaches(lab(), b, a));
	EXPECT_TRUE(reachesSoon(lab(), HostId::gateway, a));
	repair(FaultKind::communicationDeaf);
	EXPECT_TRUE(reachesSoon(lab(), b, a));
	inject(FaultKind::communicationMute);
	EXPECT_FALSE(reaches(lab(), a, b));
	EXPECT_TRUE(reachesSoon(lab(), b, a));
	EXPECT_TRUE(reachesSoon(lab(), a, HostId::gateway));
	repair(FaultKind::communicationMute);
	EXPECT_TRUE(reachesSoon(lab(), a, b));
}

TEST_F(FaultAction, AttackersAreHeard)
{
	const Descriptor listening = boundSocket(node(a).host(), a, SOCK_STREAM, plan::heartbeatPort);
	ASSERT_EQ(::listen(listening.get(), 8), 0);
	const std::vector<std::pair<FaultKind, std::vector<std::string>>> attackers{
	    {FaultKind::heartbeatGarbage,
	     {"", "/process/", "/other/1/1/20260101000000/1/", std::string("\0\377\1\n", 4), "/process/1/1",
	      std::string(300, '0'), ""}},
	    {FaultKind::heartbeatReplay, {"/process/1/1/20260101000000/0/", "/process/1/1/20260101000000/0/"}},
	    {FaultKind::askReplay, {"/process/0/2/20260101000000/1/", "/process/0/2/20260101000000/1/"}}};
	for (const auto& [kind, words] : attackers)
	{
		SCOPED_TRACE(infoOf(kind).name);
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
	lab().jobs().start(node(a).host(), "try something", {"sh", "-c", "echo broken >&2; exit 3"});
	// The one who waits for it outside of the host is a copy of this program.
	const auto ended = []
	{
		const std::vector<Process> here = processesOf(::getpid());
		return std::any_of(here.begin(), here.end(),
		                   [](const Process& entry)
		                   { return entry.state == 'Z' && entry.name.starts_with("lab_fault"); });
	};
	EXPECT_TRUE(waitFor(ended, soon, "the job to end"));
	const std::string reported = refusalOf([] { lab().jobs().end("try something"); });
	EXPECT_EQ(reported, "this had ended by itself with status 3: try something: broken\n");
	EXPECT_FALSE(lab().jobs().underWay("try something"));
}

} // namespace velarix::lab
