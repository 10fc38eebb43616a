/// Faults of the managed program and of the wires, and attackers: what they do is
/// looked at where it arrives.

#include <algorithm>
#include <csignal>

#include "FaultActionTest.h"
#include "lab/core/FaultTables.h"

namespace velarix::lab
{

namespace
{

/// A datagram from one host to another arrives: the second one counts them. One may be lost at the moment in
/// which a wire becomes bad or good.
bool reaches(Lab& lab, HostId from, HostId to, int tries = 2)
{
	const Host& receiver = lab.host(to);
	shell(receiver, "nft 'add table ip seen; add chain ip seen in { type filter hook input priority 0; }; "
	                "flush chain ip seen in; add rule ip seen in udp dport 9999 counter'");
	const auto arrived = [&]
	{ return shell(receiver, "nft list chain ip seen in").find("packets 0 ") == std::string::npos; };
	bool any = false;
	for (int number = 0; number < tries && !any; ++number)
	{
		shell(lab.host(from), std::string("echo >/dev/udp/") + plan::addressOf(to, Network::communication) + "/9999");
		any = waitFor(arrived, Millis(700), "a datagram");
	}
	return any;
}

/// Prints what each connection says, and where it comes from.
constexpr const char* listener = R"(
import socket
listening = socket.create_server(("", 15001))
print("ready", flush=True)
while True:
    connection, peer = listening.accept()
    words = b"".join(iter(lambda: connection.recv(1024), b""))
    print(peer[0], words, flush=True)
)";

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
	EXPECT_TRUE(reaches(lab(), a, b) && reaches(lab(), b, a));
	// Neither has to ask for the other's interface, which takes both ways.
	for (const HostId id : nodes)
	{
		const char* other = plan::addressOf(otherNode(id), Network::communication);
		const CommandResult kept = lab().run(id, {"ip", "neigh", "change", other, "dev", "eth1", "nud", "permanent"});
		EXPECT_TRUE(kept.ok()) << kept.output;
	}
	inject("deaf");
	EXPECT_TRUE(reaches(lab(), a, b));
	EXPECT_FALSE(reaches(lab(), b, a, 1));
	EXPECT_TRUE(reaches(lab(), HostId::gateway, a));
	repair("deaf");
	EXPECT_TRUE(reaches(lab(), b, a));
	inject("mute");
	EXPECT_FALSE(reaches(lab(), a, b, 1));
	EXPECT_TRUE(reaches(lab(), b, a));
	EXPECT_TRUE(reaches(lab(), a, HostId::gateway));
	repair("mute");
	EXPECT_TRUE(reaches(lab(), a, b));
}

TEST_F(FaultAction, AttackersAreHeard)
{
	const auto heard = [] { return contentIfAny(node(a).file("/run/heard.says")); };
	const std::string gateway = plan::addressOf(HostId::gateway, Network::communication);
	const auto saying = [&](const std::string& words) { return gateway + " b'" + words + "'\n"; };
	const std::vector<std::pair<std::string, std::string>> attackers{
	    {"garbage", saying("") + saying("/process/") + saying("/other/1/1/20260101000000/1/") +
	                    saying("\\x00\\xff\\x01\\n") + saying("/process/1/1") + saying(std::string(300, '0')) +
	                    saying("")},
	    {"replay-master", saying("/process/1/1/20260101000000/0/") + saying("/process/1/1/20260101000000/0/")},
	    {"replay-ask", saying("/process/0/2/20260101000000/1/") + saying("/process/0/2/20260101000000/1/")}};
	for (const auto& [kind, words] : attackers)
	{
		SCOPED_TRACE(kind);
		startJob(node(a).host(), "heard", {"python3", "-c", listener});
		ASSERT_TRUE(waitFor([&] { return heard() == "ready\n"; }, soon, "the listener"));
		inject(kind);
		EXPECT_TRUE(
		    waitFor([&, &said = words] { return heard().starts_with("ready\n" + said); }, soon, "the attacker", heard));
		EXPECT_TRUE(refusalOf(kind).starts_with("this is done already")) << refusalOf(kind);
		repair(kind);
		// One more may have come before the end.
		const auto connections = [&] { return std::ranges::count(heard(), '\n'); };
		const auto last = connections();
		EXPECT_FALSE(waitFor([&] { return connections() > last + 1; }, Millis(3000), "nobody"));
		endJob(node(a).host(), "heard");
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
