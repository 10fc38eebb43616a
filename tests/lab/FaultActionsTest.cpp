/// Faults of the commands, files and agents of a node; and what a fault that is
/// refused has done: nothing.

#include <cmath>
#include <set>

#include "FaultActionTest.h"
#include "lab/core/LogWatch.h"

namespace velarix::lab
{

namespace
{

namespace fs = std::filesystem;

/// Everything that a fault could have changed.
std::string stateOf(Lab& lab)
{
	std::string text;
	for (const Event& event : lab.timeline().events())
	{
		text += event.kind == EventKind::fault ? event.text + "\n" : "";
	}
	for (const HostId id : nodes)
	{
		text += nodeText(id) + (lab.node(id).isOn() ? " is on\n" : " is off\n");
		for (const auto& entry : fs::recursive_directory_iterator(lab.node(id).diskFile("/usr/velarix")))
		{
			text += entry.path().string() + "\n";
		}
		for (const Network network : {Network::service, Network::communication})
		{
			text += lab.wiring().isImpaired(id, network) ? "a bad wire\n" : "";
		}
		if (lab.node(id).isOn())
		{
			// IPv4 only: the interfaces' own IPv6 addresses become "permanent" by themselves.
			text += lab.run(id, {"ip", "-4", "-o", "addr", "show"}).output;
			for (const Process& process : processesOf(lab.node(id).host().pid()))
			{
				text += process.name + "\n";
			}
		}
	}
	return text;
}

} // namespace

/// Those of the list need something that may be missing; the others always have a place.
TEST_F(FaultAction, ThatIsRefusedHasChangedNothing)
{
	const std::set<std::string> refused{"power-off",           "reboot",
	                                    "agent-kill",          "agent-freeze",
	                                    "agent-term",          "program-kill",
	                                    "program-crash",       "program-zombie",
	                                    "program-crash-both",  "service-interface",
	                                    "gateway-for",         "communication-interface",
	                                    "address-removed",     "start-hangs",
	                                    "start-fails",         "start-prints",
	                                    "stop-fails",          "kill-fails",
	                                    "run-info-missing",    "run-info-read-only",
	                                    "clock-ahead",         "clock-behind",
	                                    "host-freeze",         "program-hang",
	                                    "keeper-kill-address", "keeper-kill-service",
	                                    "marker-missing"};
	const auto quiet = [] { return processesNamed(node(a).host().pid(), "sh").empty(); };
	EXPECT_TRUE(waitFor(quiet, soon, "the announcers of other tests to be gone"));
	lab().powerOff(b);
	for (const FaultInfo& info : allFaults())
	{
		SCOPED_TRACE(info.name);
		EXPECT_EQ(refused.contains(info.name), info.require != nullptr);
		if (refused.contains(info.name))
		{
			const std::string before = stateOf(lab());
			EXPECT_NE(refusalOf(info.name, b), "");
			EXPECT_EQ(stateOf(lab()), before);
		}
	}
	lab().powerOn(b, false);
}

TEST_F(FaultAction, ThatFailsIsReportedInTheTimeline)
{
	EXPECT_NE(refusalOf([] { repair("program-crash"); }), "");
	const std::string reported = toText(lab().timeline());
	EXPECT_NE(reported.find("program-crash:a did not come about: this is not being done"), std::string::npos)
	    << reported;
}

TEST_F(FaultAction, AFrozenHostIsSilentAndHoldsNothing)
{
	shell(a, setting("AGENT.VIRTUAL_IP_START_COMMAND"));
	EXPECT_TRUE(waitFor(addressAnswers, soon, "an answer of node a"));
	inject("host-freeze");
	EXPECT_FALSE(addressAnswers());
	EXPECT_EQ(lab().owners(), "none");
	EXPECT_EQ(lab().role(a), "frozen");
	repair("host-freeze");
	EXPECT_TRUE(waitFor(addressAnswers, soon, "an answer of node a"));
	EXPECT_TRUE(waitFor([] { return lab().owners() == "a"; }, soon, "node a as owner"));
	shell(a, setting("AGENT.VIRTUAL_IP_STOP_COMMAND"));
}

TEST_F(FaultAction, AThirdHostHasTheAddressUntilItIsRepaired)
{
	inject("rogue-address");
	EXPECT_TRUE(waitFor(addressAnswers, soon, "an answer of the third host"));
	EXPECT_EQ(lab().owners(), "none");
	repair("rogue-address");
	EXPECT_FALSE(addressAnswers());
}

TEST_F(FaultAction, StartCommandFailsInSilenceOrPrints)
{
	const std::string start = setting("AGENT.VIRTUAL_IP_START_COMMAND");
	const std::string stop = setting("AGENT.VIRTUAL_IP_STOP_COMMAND");
	inject("start-fails");
	EXPECT_EQ(refusalOf("start-prints"), "a command of node a is spoilt already");
	const CommandResult failed = shell(a, start);
	EXPECT_EQ(failed.status, 1);
	EXPECT_EQ(failed.output, "");
	EXPECT_FALSE(holdsAddress(a));
	repair("start-fails");
	EXPECT_EQ(refusalOf([] { repair("start-fails"); }), "no command of node a is spoilt");
	inject("start-prints");
	EXPECT_EQ(shell(a, start).output, "done\n");
	EXPECT_TRUE(holdsAddress(a)) << "and does its work";
	repair("start-prints");
	shell(a, stop);
	EXPECT_FALSE(holdsAddress(a));
	EXPECT_EQ(shell(a, start).output, "");
	shell(a, stop);
}

TEST_F(FaultAction, StopAndKillCommandsFail)
{
	const std::string kill = setting("ADVENCE.PROCESS_KILL_COMMAND") + " " + plan::serviceProgramName;
	const std::string stop = setting("AGENT.VIRTUAL_IP_STOP_COMMAND");
	node(a).startService();
	shell(a, setting("AGENT.VIRTUAL_IP_START_COMMAND"));
	inject("stop-fails");
	inject("kill-fails");
	EXPECT_EQ(shell(a, stop).status, 1);
	EXPECT_EQ(shell(a, kill).status, 1);
	EXPECT_TRUE(holdsAddress(a));
	EXPECT_TRUE(programRunsOn(a));
	repair("stop-fails");
	shell(a, stop);
	EXPECT_FALSE(holdsAddress(a));
	repair("kill-fails");
	shell(a, kill);
	EXPECT_TRUE(waitFor([] { return !programRunsOn(a); }, soon, "the program to be killed"));
}

TEST_F(FaultAction, AFullDiskTakesNoByteAndNoHook)
{
	const std::string write = "echo something >/usr/velarix/log/something";
	inject("disk-full");
	const CommandResult failed = lab().run(a, {"bash", "-c", write});
	EXPECT_FALSE(failed.ok());
	EXPECT_NE(failed.output.find("No space left on device"), std::string::npos) << failed.output;
	EXPECT_TRUE(shell(b, write).ok()) << "the other node has a disk of its own";
	const std::string refusal = refusalOf("start-hangs");
	EXPECT_NE(refusal.find("No space left on device"), std::string::npos) << refusal;
	for (const char* left : {"on-start", "on-start.new", "on-start.gate"})
	{
		EXPECT_FALSE(fs::exists(node(a).file(std::string("/usr/velarix/app/") + left))) << left;
	}
	repair("disk-full");
	EXPECT_TRUE(shell(a, write).ok());
	EXPECT_EQ(refusalOf("start-hangs"), "") << "nothing of the first attempt is in the way";
	repair("start-hangs");
}

TEST_F(FaultAction, RunInfoRecordCannotBeWritten)
{
	const std::string write = std::string("echo >>") + plan::runInfoFile;
	// A tool that warns gives no reason to refuse.
	const CommandResult careful = shell(a, "cd /usr/local/bin && echo 'echo careful >&2; exec /usr/bin/findmnt \"$@\"' "
	                                       ">findmnt && chmod +x findmnt && findmnt -no OPTIONS /");
	EXPECT_TRUE(careful.output.starts_with("careful\n") && careful.ok()) << careful.output;
	inject("run-info-read-only");
	EXPECT_EQ(refusalOf("run-info-read-only"), "the record of node a is read-only already");
	EXPECT_EQ(refusalOf("run-info-missing"), "the record of node a is read-only: it cannot be removed");
	const CommandResult failed = shell(a, write);
	EXPECT_FALSE(failed.ok());
	EXPECT_NE(failed.output.find("Read-only file system"), std::string::npos) << failed.output;
	repair("run-info-read-only");
	EXPECT_TRUE(shell(a, write).ok());
	EXPECT_EQ(refusalOf([] { repair("run-info-read-only"); }), "the record of node a is not read-only");
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
		std::optional<inspect::LogLine> last;
		inspect::LogClock clock;
		LogTail tail;
		for (const std::string& text : tail.readNew(node(a).diskFile(plan::logFile)))
		{
			const std::optional<inspect::LogLine> line = inspect::parseHead(text, clock);
			last = line ? line : last;
		}
		const auto now = std::chrono::system_clock::now();
		const auto ahead = last ? std::chrono::duration_cast<std::chrono::minutes>(*last->time - now).count() : 10000;
		return static_cast<double>(ahead) / 60.0;
	};
	const auto becomes = [&](double hours)
	{
		return waitFor([&] { return std::abs(hoursAhead() - hours) < 0.1; }, soon, "the stamp of the log to jump",
		               [&] { return std::to_string(hoursAhead()) + " h ahead"; });
	};
	EXPECT_EQ(refusalOf("clock-ahead"), "the agent of node a has no clock that can be stepped");
	lab().startAgent(a);
	EXPECT_TRUE(becomes(0));
	inject("clock-ahead");
	EXPECT_TRUE(becomes(2));
	repair("clock-ahead");
	EXPECT_TRUE(becomes(0));
	inject("clock-behind");
	EXPECT_TRUE(becomes(-2));
	repair("clock-behind");
	EXPECT_TRUE(becomes(0));
	lab().killAgent(a);
}

TEST_F(FaultAction, RunInfoRecordIsAwayOnceOnly)
{
	inject("run-info-missing");
	EXPECT_FALSE(fs::exists(node(a).file(plan::runInfoFile)));
	EXPECT_EQ(refusalOf("run-info-missing"), "the record of node a is away already");
	EXPECT_EQ(refusalOf("run-info-read-only"), "the record of node a is away");
	repair("run-info-missing");
	EXPECT_TRUE(fs::exists(node(a).file(plan::runInfoFile)));
	EXPECT_TRUE(node(a).agent()) << "it is started where there is none";
	EXPECT_EQ(refusalOf([] { repair("run-info-missing"); }), "the record of node a is not away");
	inject("agent-freeze");
	EXPECT_EQ(refusalOf("agent-freeze"), "the agent of node a is frozen already");
	EXPECT_EQ(refusalOf("agent-term"), "the agent of node a is frozen already") << "the signal would wait";
	repair("agent-freeze");
	lab().killAgent(a);
}

} // namespace velarix::lab
