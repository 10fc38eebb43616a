// The planned move of the service: what it does, and how it ends.

#include "StateTest.h"

using namespace std::chrono_literals;
using velarix::inspect::host::CommandEnd;

namespace
{

constexpr char kCommand[] = "ip addr del 198.51.100.10/24 dev eth0 >/dev/null 2>&1; killall -q -9 server";
constexpr char kPartnerMaster[] = "/process/0/1/20260301110000/0/";
constexpr char kPartnerServes[] = "/process/1/1/20260301120009/0/";

} // namespace

class Switchover : public StateTest
{
protected:
	Switchover() { partnerSays(R"({"works":true,"reasons":[]})"); }

	/// Steps of a hand-over as the node sees them; each happens once, at the first
	/// pause after its time.
	struct Step
	{
		std::chrono::milliseconds at;
		std::function<void()> happens;
	};

	/// Lets time pass: the log goes on each second and the steps happen.
	void play(std::vector<Step> steps)
	{
		fakeMachine().onPause = [this, steps = std::move(steps)](std::chrono::milliseconds time) mutable
		{
			now += time;
			while (!steps.empty() && fakeMachine().elapsed >= steps.front().at)
			{
				steps.front().happens();
				steps.erase(steps.begin());
			}
			m_says ? m_says() : void();
		};
	}

	/// From now on the end of the log is this, at each moment.
	void says(std::function<void(NodeLog&)> tail)
	{
		m_says = [this, tail = std::move(tail)]
		{
			NodeLog log = emptyLog().start(98s).takeService(90s).masterFor(83300ms, 80s);
			tail(log);
			writeLog(log);
		};
	}

	/// The agent has noticed, drops the address and asks.
	Step givesUp()
	{
		return {1000ms, [this]
		        {
			        dropAddress();
			        fakeMachine().answering.erase("198.51.100.10");
			        says([](NodeLog& log) { log.giveUp(900ms).slave(300ms, NodeLog::kSlaveBeat, true); });
		        }};
	}

	/// What a sound pair does.
	void playASoundPair()
	{
		fakeMachine().onAct = [this](const std::string&) { endProcess(kServer); };
		play({givesUp(),
		      {3000ms, [this] { says([](NodeLog& log) { log.giveUp(900ms).slave(300ms, kPartnerMaster); }); }},
		      {9000ms, [] { fakeMachine().answering.insert("198.51.100.10"); }},
		      {10000ms, [this] { says([](NodeLog& log) { log.giveUp(900ms).slave(300ms, kPartnerServes); }); }}});
	}

	/// A second program.
	void addWorker()
	{
		writeSettings(1, {{"PROCESS_NUM", "2"}, {"PROCESS_CHECK_CYCLE", "1\nPROCESS_PATH2 = /opt/service/bin/worker"}});
		fakeHost().files["/opt/service/bin/worker"] = fakeHost().files[kProgram];
		write(kRunScript, std::string("cd /opt/service/bin/\n") + kProgram +
		                      " &\ncd /opt/service/bin/\n/opt/service/bin/worker &\n");
		addProcess(5001, "worker");
	}

private:
	std::function<void()> m_says;
};

TEST_F(Switchover, MovesTheServiceAndTellsEachStepAndTheTime)
{
	soundMaster();
	playASoundPair();
	const Outcome outcome = runHere({"switchover"});
	expectGolden("switchover.txt", outcome.out);
	EXPECT_EQ(outcome.err, "");
	EXPECT_EQ(outcome.code, 0);
	EXPECT_THAT(fakeMachine().acts, ElementsAre(kCommand));
	EXPECT_THAT(readFile(paths.keeperLog),
	            testing::MatchesRegex(
	                "2026-03-01T12:00:00.000\\+0000 velarixctl\\[[0-9]+\\] switchover: to 192.0.2.2, by .*\n"));
}

TEST_F(Switchover, OnlyTellsWhatItWouldDoInADryRun)
{
	soundMaster();
	fakeHost().user = 1000;
	const Outcome outcome = runHere({"switchover", "--dry-run"});
	expectGolden("switchover-dry-run.txt", outcome.out);
	EXPECT_EQ(outcome.code, 0);
	EXPECT_THAT(fakeMachine().acts, IsEmpty());
	EXPECT_EQ(fakeMachine().elapsed, 0s);
}

TEST_F(Switchover, RunsTheKillCommandOnceForEachProgram)
{
	soundMaster();
	addWorker();
	playASoundPair();
	EXPECT_EQ(runHere({"switchover"}).code, 0);
	EXPECT_THAT(fakeMachine().acts,
	            ElementsAre(kCommand, "ip addr del 198.51.100.10/24 dev eth0 >/dev/null 2>&1; killall -q -9 worker"));
}

// The agent would find its address gone first, give up and ask nobody.
TEST_F(Switchover, LeavesTheKeepersAddressToTheAgent)
{
	soundMaster();
	writeSettings(1, {{"PROCESS_NUM", "2"},
	                  {"PROCESS_PATH1", "/usr/velarix/run/ha-address\nPROCESS_PATH2 = /opt/service/bin/server"}});
	fakeHost().files["/usr/velarix/run/ha-address"] = fakeHost().files[kProgram];
	write(kRunScript, std::string("cd /usr/velarix/run/\n/usr/velarix/run/ha-address &\ncd /opt/service/bin/\n") +
	                      kProgram + " &\n");
	addProcess(5001, "ha-address");
	playASoundPair();
	EXPECT_EQ(runHere({"switchover"}).code, 0);
	EXPECT_THAT(fakeMachine().acts, ElementsAre(kCommand));
}

TEST_F(Switchover, NeedsRoot)
{
	soundMaster();
	fakeHost().user = 1000;
	const Outcome outcome = runHere({"switchover"});
	EXPECT_EQ(outcome.err, "velarixctl: only root may end the programs\nvelarixctl: run it as root\n");
	EXPECT_EQ(outcome.code, 77);
	EXPECT_THAT(fakeMachine().acts, IsEmpty());
}

TEST_F(Switchover, IsNotRefusedWhenTooFewOthersCount)
{
	soundMaster();
	addWorker();
	addProcess(700, "dbserver");
	EXPECT_EQ(runHere({"switchover", "--dry-run"}).code, 0);
}

TEST_F(Switchover, SendsSignalsWhenTheKernelGivesNoNamespace)
{
	soundMaster();
	fakeMachine().commandEnd = CommandEnd::noNamespace;
	playASoundPair();
	const Outcome outcome = runHere({"switchover"});
	EXPECT_THAT(outcome.out, HasSubstr("the kernel gives no network namespace: the command is not run, the programs "
	                                   "get a signal"));
	EXPECT_THAT(outcome.out, HasSubstr("SIGTERM to server, process 5000"));
	EXPECT_THAT(fakeMachine().acts, ElementsAre("15 5000"));
	EXPECT_EQ(outcome.code, 0);
}

TEST_F(Switchover, HelpsProgramsToTheirEndThatTheCommandLeftAlive)
{
	soundMaster();
	play({});
	says([](NodeLog& log) { log.masterFor(20s, 300ms); });
	std::vector<std::chrono::milliseconds> times;
	fakeMachine().onAct = [&](const std::string&) { times.push_back(fakeMachine().elapsed); };
	const Outcome outcome = runHere({"switchover", "--timeout", "25"});
	EXPECT_THAT(fakeMachine().acts, ElementsAre(kCommand, "15 5000", "9 5000"));
	EXPECT_THAT(times, ElementsAre(0s, 10s, 20s));
	EXPECT_EQ(outcome.code, 75);
}

TEST_F(Switchover, GivesUpWaitingAndSaysWhatIsMissing)
{
	soundMaster();
	fakeMachine().onAct = [this](const std::string&) { endProcess(kServer); };
	play({givesUp()});
	const Outcome outcome = runHere({"switchover", "--timeout", "5"});
	EXPECT_EQ(outcome.err,
	          "velarixctl: not done after 5.0 s; not yet seen: the partner is master, the service "
	          "address answers, the programs run on the partner. The agents go on; see velarixctl watch\n");
	EXPECT_EQ(outcome.code, 75);
}

TEST_F(Switchover, WaitsAMinuteOrThreeTimesWhatTheSettingsMakeItTakeAndACheckCycle)
{
	struct Row
	{
		std::pair<std::string, std::string> setting;
		std::chrono::seconds waits;
	};
	const std::vector<Row> rows{
	    {{"MODE", "1"}, 61s},
	    {{"WAITING_TIME_BEFORE_PROCESS_RUN", "30"}, 136s},
	    // The partner's heartbeats tell of its programs what its checker saw last.
	    {{"PROCESS_CHECK_CYCLE", "90"}, 150s},
	};
	for (const Row& row : rows)
	{
		soundMaster();
		writeSettings(1, {row.setting});
		play({});
		EXPECT_EQ(runHere({"switchover"}).code, 75);
		EXPECT_EQ(fakeMachine().elapsed, row.waits) << row.setting.first;
		freshHost();
	}
}

TEST_F(Switchover, TellsThatThisNodeTookTheServiceBack)
{
	soundMaster();
	fakeMachine().onAct = [this](const std::string&) { endProcess(kServer); };
	play({givesUp(), {6000ms, [this] {
		                  says([](NodeLog& log)
		                       { log.giveUp(20s).slaveFor(19s, 17s).takeService(16s).masterFor(9300ms, 300ms); });
	                  }}});
	const Outcome outcome = runHere({"switchover"});
	EXPECT_EQ(outcome.err, "velarixctl: this node has taken the service back after 6.0 s; see velarixctl events here "
	                       "and on 192.0.2.2\n");
	EXPECT_EQ(outcome.code, 1);
}

TEST_F(Switchover, TellsOfACommandThatDoesNotEnd)
{
	soundMaster();
	fakeMachine().commandEnd = CommandEnd::tooLong;
	playASoundPair();
	EXPECT_THAT(runHere({"switchover"}).out, HasSubstr("the command did not end in time and was killed"));
}

TEST_F(Switchover, RefusesATimeOutThatMakesNoSense)
{
	for (const char* option :
	     {"--timeout=0", "--timeout=-1", "--timeout=soon", "--timeout=nan", "--timeout=inf", "--timeout=1e300"})
	{
		EXPECT_EQ(runHere({"switchover", option}).code, 2) << option;
	}
}
