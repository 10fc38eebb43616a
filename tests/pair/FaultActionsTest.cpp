/// Each fault that nobody would see otherwise takes hold, and is undone. All tests
/// share one lab, whose agents are started by the last ones only.

#include <algorithm>
#include <csignal>
#include <set>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Command.h"
#include "Files.h"
#include "Lab.h"
#include "LogLine.h"
#include "Plan.h"

namespace velarix::lab
{

namespace
{

namespace fs = std::filesystem;

constexpr auto a = HostId::a;
constexpr auto b = HostId::b;
constexpr std::uint64_t seed = 7;
constexpr Millis soon{10000};

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
UniqueFd boundSocket(const Host& where, HostId host, int type, int port)
{
	UniqueFd opened;
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

/// What the next stranger says to a listening socket until it hangs up; empty: none came.
std::optional<std::string> nextWords(int listening, Millis limit)
{
	if (!readableWithin(listening, limit))
	{
		return std::nullopt;
	}
	sockaddr_in peer{};
	socklen_t size = sizeof peer;
	const UniqueFd connection(::accept(listening, reinterpret_cast<sockaddr*>(&peer), &size));
	EXPECT_EQ(peer.sin_addr.s_addr, addressOn(HostId::gateway, 0).sin_addr.s_addr);
	std::string words;
	char buffer[1024];
	for (ssize_t count = 0; (count = ::recv(connection.get(), buffer, sizeof buffer, 0)) > 0;)
	{
		words.append(buffer, static_cast<std::size_t>(count));
	}
	return words;
}

} // namespace

class FaultAction : public testing::Test
{
protected:
	static void SetUpTestSuite()
	{
		if (const std::optional<std::string> problem = namespaceProblem())
		{
			s_problem = *problem;
			return;
		}
		requireLab();
		LabOptions options;
		options.clockShim = true;
		options.seed = seed;
		s_lab = std::make_unique<Lab>(options);
	}

	static void TearDownTestSuite() { s_lab.reset(); }

	void SetUp() override
	{
		if (!s_lab)
		{
			GTEST_SKIP() << s_problem;
		}
	}

	void TearDown() override
	{
		if (s_lab && HasFailure())
		{
			std::cout << toText(lab().timeline());
		}
	}

	static Lab& lab() { return *s_lab; }
	static Node& node(HostId id) { return lab().node(id); }

	static void inject(FaultKind kind, HostId id = a) { lab().inject({kind, id}); }
	static void heal(FaultKind kind, HostId id = a) { lab().heal({kind, id}); }

	/// Why the call is refused; empty: it is not.
	static std::string refusalOf(const std::function<void()>& call)
	{
		try
		{
			call();
			return "";
		}
		catch (const LabError& error)
		{
			return error.what();
		}
	}

	static std::string refusalOf(FaultKind kind, HostId id = a)
	{
		return refusalOf([&] { inject(kind, id); });
	}

	static CommandResult shell(HostId id, const std::string& line, Millis limit = soon)
	{
		return lab().run(id, {"sh", "-c", line}, limit);
	}

	static bool holdsAddress(HostId id)
	{
		return shell(id, "ip -4 -o addr show").output.find(plan::virtualAddress) != std::string::npos;
	}

	static bool programRunsOn(HostId id)
	{
		return !processesNamed(node(id).host().pid(), plan::serviceProgramName).empty();
	}

	static std::string setting(const std::string& key) { return NodeSettings::standard(a).get(key); }

	/// A datagram from one host to another arrives.
	static bool reaches(HostId from, HostId to)
	{
		constexpr int port = 9999;
		const UniqueFd receiver = boundSocket(lab().host(to), to, SOCK_DGRAM, port);
		const UniqueFd sender = boundSocket(lab().host(from), from, SOCK_DGRAM, 0);
		const sockaddr_in address = addressOn(to, port);
		EXPECT_EQ(::sendto(sender.get(), "x", 1, 0, generic(address), sizeof address), 1);
		return readableWithin(receiver.get(), Millis(700));
	}

	/// Everything that a fault could have changed.
	static std::string stateOf()
	{
		std::string text = std::to_string(lab().timeline().events().size()) + " events\n";
		for (const HostId id : nodes)
		{
			text += nodeText(id) + (node(id).isOn() ? " is on\n" : " is off\n");
			for (const auto& entry : fs::recursive_directory_iterator(node(id).diskFile("/usr/velarix")))
			{
				text += entry.path().string() + "\n";
			}
			for (const Network network : {Network::service, Network::communication})
			{
				text += lab().wiring().impairmentOf(id, network) ? "a bad wire\n" : "";
			}
			if (node(id).isOn())
			{
				text += lab().run(id, {"ip", "-o", "addr", "show"}).output;
				for (const ProcessEntry& process : processesOf(node(id).host().pid()))
				{
					text += process.name + "\n";
				}
			}
		}
		return text;
	}

private:
	static std::unique_ptr<Lab> s_lab;
	static std::string s_problem;
};

std::unique_ptr<Lab> FaultAction::s_lab;
std::string FaultAction::s_problem;

/// A fault is in one of the two lists.
TEST_F(FaultAction, ThatIsRefusedHasChangedNothing)
{
	const std::set<std::string> refused{"power-off",          "reboot",       "agent-kill",       "agent-freeze",
	                                    "agent-term",         "program-kill", "program-crash",    "program-zombie",
	                                    "program-crash-both", "service-card", "gateway-for",      "communication-card",
	                                    "address-removed",    "start-hangs",  "start-fails",      "start-prints",
	                                    "stop-fails",         "kill-fails",   "run-info-missing", "run-info-read-only",
	                                    "clock-ahead",        "clock-behind"};
	const std::set<std::string> always{"communication-cut",
	                                   "gateway",
	                                   "disk-full",
	                                   "cold-start",
	                                   "cold-start-alone",
	                                   "garbage",
	                                   "replay-master",
	                                   "replay-ask",
	                                   "service-loss-10",
	                                   "service-loss-30",
	                                   "service-loss-50",
	                                   "service-delay",
	                                   "communication-loss-10",
	                                   "communication-loss-30",
	                                   "communication-loss-50",
	                                   "communication-delay",
	                                   "deaf",
	                                   "mute"};
	lab().powerOff(b);
	for (const FaultInfo& info : allFaults())
	{
		SCOPED_TRACE(info.name);
		EXPECT_NE(refused.contains(info.name), always.contains(info.name));
		if (refused.contains(info.name))
		{
			const std::string before = stateOf();
			EXPECT_NE(refusalOf(info.kind, b), "");
			EXPECT_EQ(stateOf(), before);
		}
	}
	lab().powerOn(b, false);
}

TEST_F(FaultAction, ThatFailsIsToldInTheTimeline)
{
	EXPECT_NE(refusalOf([] { heal(FaultKind::programCrashes); }), "");
	const std::string told = toText(lab().timeline());
	EXPECT_NE(told.find("program-crash:a did not come about: this is not being done"), std::string::npos) << told;
}

TEST_F(FaultAction, HostsNumberTheirProcessesFromTheSeed)
{
	for (const HostId id : allHosts)
	{
		const int first = firstProcessOf(id, seed);
		const int number = std::stoi(shell(id, "echo $$").output);
		EXPECT_GT(number, first) << nameOf(id);
		EXPECT_LT(number, first + 2000) << nameOf(id);
	}
}

TEST_F(FaultAction, StartCommandFailsInSilence)
{
	const std::string start = setting("AGENT.VIRTUAL_IP_START_COMMAND");
	const std::string stop = setting("AGENT.VIRTUAL_IP_STOP_COMMAND");
	inject(FaultKind::startFails);
	EXPECT_EQ(refusalOf(FaultKind::startPrints), "a command of node a is spoilt already");
	const CommandResult failed = shell(a, start);
	EXPECT_EQ(failed.status, 1);
	EXPECT_EQ(failed.output, "");
	EXPECT_FALSE(holdsAddress(a));
	heal(FaultKind::startFails);
	EXPECT_EQ(refusalOf([] { heal(FaultKind::startFails); }), "no command of node a is spoilt");
	EXPECT_TRUE(shell(a, start).ok());
	EXPECT_TRUE(holdsAddress(a));
	shell(a, stop);
	EXPECT_FALSE(holdsAddress(a));
}

TEST_F(FaultAction, StartCommandPrints)
{
	const std::string start = setting("AGENT.VIRTUAL_IP_START_COMMAND");
	inject(FaultKind::startPrints);
	EXPECT_EQ(shell(a, start).output, "done\n");
	EXPECT_TRUE(holdsAddress(a)) << "and does its work";
	heal(FaultKind::startPrints);
	shell(a, setting("AGENT.VIRTUAL_IP_STOP_COMMAND"));
	EXPECT_EQ(shell(a, start).output, "");
	shell(a, setting("AGENT.VIRTUAL_IP_STOP_COMMAND"));
}

TEST_F(FaultAction, StartCommandHangsUntilItIsRepaired)
{
	const std::string start = setting("AGENT.VIRTUAL_IP_START_COMMAND");
	inject(FaultKind::startHangs);
	EXPECT_EQ(refusalOf(FaultKind::startHangs), "a command of node a is spoilt already");
	const pid_t child = spawn({{"sh", "-c", start}, node(a).host().inside()});
	EXPECT_FALSE(waitForChild(child, Millis(500)));
	EXPECT_FALSE(holdsAddress(a));
	heal(FaultKind::startHangs);
	EXPECT_EQ(waitForChild(child, soon), 0);
	EXPECT_TRUE(holdsAddress(a)) << "it goes on where it hung";
	shell(a, setting("AGENT.VIRTUAL_IP_STOP_COMMAND"));
}

TEST_F(FaultAction, StopAndKillCommandsFail)
{
	const std::string kill = setting("ADVENCE.PROCESS_KILL_COMMAND") + " " + plan::serviceProgramName;
	const std::string stop = setting("AGENT.VIRTUAL_IP_STOP_COMMAND");
	node(a).startService();
	shell(a, setting("AGENT.VIRTUAL_IP_START_COMMAND"));
	inject(FaultKind::stopFails);
	inject(FaultKind::killFails);
	EXPECT_EQ(shell(a, stop).status, 1);
	EXPECT_EQ(shell(a, kill).status, 1);
	EXPECT_TRUE(holdsAddress(a));
	EXPECT_TRUE(programRunsOn(a));
	heal(FaultKind::stopFails);
	shell(a, stop);
	EXPECT_FALSE(holdsAddress(a));
	heal(FaultKind::killFails);
	shell(a, kill);
	EXPECT_TRUE(waitFor([] { return !programRunsOn(a); }, soon, "the program to be killed"));
}

TEST_F(FaultAction, AFullDiskTakesNoByteAndNoHook)
{
	const std::string write = "echo something >/usr/velarix/log/something";
	inject(FaultKind::diskFull);
	const CommandResult failed = lab().run(a, {"bash", "-c", write});
	EXPECT_FALSE(failed.ok());
	EXPECT_NE(failed.output.find("No space left on device"), std::string::npos) << failed.output;
	EXPECT_TRUE(shell(b, write).ok()) << "the other node has a disk of its own";
	const std::string refusal = refusalOf(FaultKind::startHangs);
	EXPECT_NE(refusal.find("No space left on device"), std::string::npos) << refusal;
	for (const char* left : {"on-start", "on-start.new", "on-start.gate"})
	{
		EXPECT_FALSE(fs::exists(node(a).file(std::string("/usr/velarix/app/") + left))) << left;
	}
	heal(FaultKind::diskFull);
	EXPECT_TRUE(shell(a, write).ok());
	EXPECT_EQ(refusalOf(FaultKind::startHangs), "") << "nothing of the first attempt is in the way";
	heal(FaultKind::startHangs);
}

TEST_F(FaultAction, RunInfoRecordCannotBeWritten)
{
	const std::string write = std::string("echo >>") + plan::runInfoFile;
	inject(FaultKind::runInfoReadOnly);
	EXPECT_EQ(refusalOf(FaultKind::runInfoReadOnly), "the record of node a is read-only already");
	EXPECT_EQ(refusalOf(FaultKind::runInfoMissing), "the record of node a is read-only: it cannot be removed");
	const CommandResult failed = shell(a, write);
	EXPECT_FALSE(failed.ok());
	EXPECT_NE(failed.output.find("Read-only file system"), std::string::npos) << failed.output;
	heal(FaultKind::runInfoReadOnly);
	EXPECT_TRUE(shell(a, write).ok());
	EXPECT_EQ(refusalOf([] { heal(FaultKind::runInfoReadOnly); }), "the record of node a is not read-only");
}

TEST_F(FaultAction, ProgramCrashesForAsLongAsTheFaultStands)
{
	node(a).startService();
	inject(FaultKind::programCrashes);
	EXPECT_EQ(refusalOf(FaultKind::programCrashes), "the managed program of node a crashes already");
	EXPECT_TRUE(waitFor([] { return !programRunsOn(a); }, soon, "the program to be killed"));
	EXPECT_EQ(shell(a, plan::serviceProgram).status, 128 + SIGKILL) << "and again";
	heal(FaultKind::programCrashes);
	EXPECT_EQ(shell(a, plan::serviceProgram, Millis(1000)).timedOut, true) << "it stays";
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
	const std::string refusal = refusalOf([] { heal(FaultKind::programCrashesEverywhere); });
	EXPECT_NE(refusal.find("had ended by itself"), std::string::npos) << refusal;
	node(b).startService();
	EXPECT_EQ(refusalOf(FaultKind::programCrashesEverywhere), "") << "nothing is under way any more";
	heal(FaultKind::programCrashesEverywhere);
	node(b).killService();
}

TEST_F(FaultAction, AZombieHasTheNameOfTheProgram)
{
	const auto zombies = []
	{
		const std::vector<ProcessEntry> all = processesOf(node(a).host().pid());
		return std::count_if(all.begin(), all.end(),
		                     [](const ProcessEntry& entry)
		                     { return entry.name == plan::serviceProgramName && entry.state == 'Z'; });
	};
	EXPECT_EQ(refusalOf(FaultKind::programZombie), "no managed program runs on node a");
	node(a).startService();
	inject(FaultKind::programZombie);
	EXPECT_EQ(zombies(), 1);
	EXPECT_TRUE(waitFor([] { return !programRunsOn(a); }, soon, "the program to be gone"));
	heal(FaultKind::programZombie);
	EXPECT_TRUE(waitFor([&] { return zombies() == 0; }, soon, "the zombie to be gone"));
}

TEST_F(FaultAction, GatewayIsGoneForOneNode)
{
	EXPECT_TRUE(reaches(HostId::gateway, a));
	inject(FaultKind::gatewayGoneForOne);
	EXPECT_FALSE(reaches(HostId::gateway, a));
	EXPECT_TRUE(reaches(HostId::gateway, b));
	EXPECT_TRUE(reaches(a, HostId::gateway)) << "asked, but not answered";
	heal(FaultKind::gatewayGoneForOne);
	EXPECT_TRUE(reaches(HostId::gateway, a));
}

TEST_F(FaultAction, DeafAndMuteLoseOneWayEach)
{
	EXPECT_TRUE(reaches(a, b) && reaches(b, a)) << "and both know each other's card";
	inject(FaultKind::communicationDeaf);
	EXPECT_TRUE(reaches(a, b));
	EXPECT_FALSE(reaches(b, a));
	EXPECT_TRUE(reaches(HostId::gateway, a));
	heal(FaultKind::communicationDeaf);
	EXPECT_TRUE(reaches(b, a));
	inject(FaultKind::communicationMute);
	EXPECT_FALSE(reaches(a, b));
	EXPECT_TRUE(reaches(b, a));
	EXPECT_TRUE(reaches(a, HostId::gateway));
	heal(FaultKind::communicationMute);
	EXPECT_TRUE(reaches(a, b));
}

TEST_F(FaultAction, AddressIsRemovedFromWhoHoldsIt)
{
	EXPECT_EQ(refusalOf(FaultKind::addressRemoved), "node a does not hold the virtual address");
	EXPECT_TRUE(shell(a, std::string("ip addr add ") + plan::virtualAddress + "/24 dev eth0").ok());
	EXPECT_TRUE(waitFor([] { return lab().owners() == "a"; }, soon, "node a to hold the address"));
	inject(FaultKind::addressRemoved);
	EXPECT_FALSE(holdsAddress(a));
	EXPECT_TRUE(waitFor([] { return lab().owners() == "none"; }, soon, "nobody to hold the address"));
}

TEST_F(FaultAction, StrangersAreHeard)
{
	const UniqueFd listening = boundSocket(node(a).host(), a, SOCK_STREAM, plan::heartbeatPort);
	ASSERT_EQ(::listen(listening.get(), 8), 0);
	const std::vector<std::pair<FaultKind, std::vector<std::string>>> strangers{
	    {FaultKind::heartbeatGarbage,
	     {"", "/process/", "/other/1/1/20260101000000/1/", std::string("\0\377\1\n", 4), "/process/1/1",
	      std::string(300, '0'), ""}},
	    {FaultKind::heartbeatReplay, {"/process/1/1/20260101000000/0/", "/process/1/1/20260101000000/0/"}},
	    {FaultKind::askReplay, {"/process/0/2/20260101000000/1/", "/process/0/2/20260101000000/1/"}}};
	for (const auto& [kind, words] : strangers)
	{
		SCOPED_TRACE(infoOf(kind).name);
		inject(kind);
		for (const std::string& word : words)
		{
			EXPECT_EQ(nextWords(listening.get(), soon), word);
		}
		EXPECT_TRUE(refusalOf(kind).starts_with("this is done already")) << refusalOf(kind);
		heal(kind);
		// One more may have come before the end.
		while (nextWords(listening.get(), Millis(0)))
		{
		}
		EXPECT_FALSE(nextWords(listening.get(), Millis(1200)));
	}
}

TEST_F(FaultAction, AnErrandThatHasEndedByItselfIsTold)
{
	lab().errands().start(node(a).host(), "try something", {"sh", "-c", "echo broken >&2; exit 3"});
	// The one who waits for it outside of the host is a copy of this program.
	const auto ended = []
	{
		const std::vector<ProcessEntry> here = processesOf(::getpid());
		return std::any_of(here.begin(), here.end(),
		                   [](const ProcessEntry& entry)
		                   { return entry.state == 'Z' && entry.name.starts_with("pair_fault"); });
	};
	EXPECT_TRUE(waitFor(ended, soon, "the errand to end"));
	const std::string told = refusalOf([] { lab().errands().end("try something"); });
	EXPECT_EQ(told, "this had ended by itself with status 3: try something: broken\n");
	EXPECT_FALSE(lab().errands().underWay("try something"));
}

TEST_F(FaultAction, AClockThatCannotBeSteppedEndsTheProgram)
{
	const std::string preload = std::string("LD_PRELOAD=") + plan::clockShim;
	for (const char* file : {"LAB_CLOCK=/no/such/file", "LAB_CLOCK=/dev/null", "OTHER=1"})
	{
		const CommandResult result = lab().run(a, {"env", preload, file, "true"});
		EXPECT_EQ(result.status, 126) << file;
		EXPECT_NE(result.output.find("liblabclock: the file named in LAB_CLOCK"), std::string::npos) << result.output;
	}
}

TEST_F(FaultAction, AgentSeesASteppedClock)
{
	const auto hoursAhead = []
	{
		std::optional<LogLine> last;
		LogTail tail;
		for (const std::string& text : tail.readNew(node(a).diskFile(plan::logFile)))
		{
			const std::optional<LogLine> line = parseLogLine(text);
			last = line ? line : last;
		}
		const auto now = std::chrono::system_clock::now();
		const auto ahead = last ? std::chrono::duration_cast<std::chrono::minutes>(last->time - now).count() : 10000;
		return static_cast<double>(ahead) / 60.0;
	};
	const auto becomes = [&](double hours)
	{
		return waitFor([&] { return std::abs(hoursAhead() - hours) < 0.1; }, soon, "the stamp of the log to jump",
		               [&] { return std::to_string(hoursAhead()) + " h ahead"; });
	};
	EXPECT_EQ(refusalOf(FaultKind::clockAhead), "the agent of node a has no clock that can be stepped");
	lab().startAgent(a);
	EXPECT_TRUE(becomes(0));
	inject(FaultKind::clockAhead);
	EXPECT_TRUE(becomes(2));
	heal(FaultKind::clockAhead);
	EXPECT_TRUE(becomes(0));
	inject(FaultKind::clockBehind);
	EXPECT_TRUE(becomes(-2));
	heal(FaultKind::clockBehind);
	EXPECT_TRUE(becomes(0));
	lab().killAgent(a);
}

TEST_F(FaultAction, RunInfoRecordIsAwayOnceOnly)
{
	inject(FaultKind::runInfoMissing);
	EXPECT_FALSE(fs::exists(node(a).file(plan::runInfoFile)));
	EXPECT_EQ(refusalOf(FaultKind::runInfoMissing), "the record of node a is away already");
	EXPECT_EQ(refusalOf(FaultKind::runInfoReadOnly), "the record of node a is away");
	heal(FaultKind::runInfoMissing);
	EXPECT_TRUE(fs::exists(node(a).file(plan::runInfoFile)));
	EXPECT_TRUE(node(a).agent()) << "it is started where there is none";
	EXPECT_EQ(refusalOf([] { heal(FaultKind::runInfoMissing); }), "the record of node a is not away");
	inject(FaultKind::agentFrozen);
	EXPECT_EQ(refusalOf(FaultKind::agentFrozen), "the agent of node a is frozen already");
	heal(FaultKind::agentFrozen);
	lab().killAgent(a);
}

TEST_F(FaultAction, AColdStartTakesWhatIsOn)
{
	lab().powerOff(b);
	inject(FaultKind::coldStartAlone, a);
	EXPECT_TRUE(node(a).isOn() && node(a).agent());
	EXPECT_FALSE(node(b).isOn());
	inject(FaultKind::coldStart);
	for (const HostId id : nodes)
	{
		EXPECT_TRUE(node(id).isOn() && node(id).agent()) << nameOf(id);
	}
}

} // namespace velarix::lab
