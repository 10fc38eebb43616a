// The planned move of the service: when it is refused, what it does, how it ends.

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

	/// What the partner's own status says of a failover to it.
	void partnerSays(const std::string& failover, const std::string& node = "192.0.2.2") const
	{
		ssh("printf '%s\\n' '{\"node\":\"" + node +
		    "\",\"partner\":{\"address\":\"192.0.2.1\"},\"fail_over\":" + failover + "}'\nexit 1\n");
	}

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

	Outcome refused(const std::vector<std::string>& arguments = {"switchover"})
	{
		const Outcome outcome = runHere(arguments);
		EXPECT_EQ(outcome.code, 69);
		EXPECT_EQ(outcome.out, "");
		EXPECT_THAT(fakeMachine().acts, IsEmpty());
		return outcome;
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

TEST_F(Switchover, IsRefusedForWhatThePartnersOwnStatusSays)
{
	soundMaster();
	partnerSays(R"({"works":false,"reasons":["the service interface eth0 has no carrier"]})");
	for (const char* option : {"--dry-run", "--ssh=root@b"})
	{
		EXPECT_EQ(refused({"switchover", option}).err,
		          "velarixctl: refused: the partner could not take the service: its status says that a failover would "
		          "not work; the service interface eth0 has no carrier\n");
	}
	EXPECT_FALSE(std::filesystem::exists(paths.keeperLog));
}

TEST_F(Switchover, SaysThatItCouldNotAskThePartnerAndGoesOn)
{
	struct Row
	{
		std::string why;
		std::function<void()> change;
	};
	const std::vector<Row> rows{
	    {"ssh 192.0.2.2 ended with 255: no key", [&] { ssh("echo no key >&2\nexit 255\n"); }},
	    {"192.0.2.2 is 192.0.2.9, and not this node's partner",
	     [&] { partnerSays(R"({"works":false,"reasons":[]})", "192.0.2.9"); }},
	    {"it does not know itself", [&] { partnerSays(R"({"works":null,"reasons":[]})"); }},
	};
	for (const Row& row : rows)
	{
		soundMaster();
		row.change();
		const Outcome outcome = runHere({"switchover", "--dry-run"});
		EXPECT_EQ(outcome.code, 0);
		EXPECT_EQ(outcome.err,
		          "velarixctl: could not ask the partner: " + row.why + "; as far as its heartbeats tell it is well\n");
		freshHost();
	}
}

TEST_F(Switchover, IsRefusedWhenThePartnerDiesWhileItIsAsked)
{
	soundMaster();
	NodeLog log = emptyLog().start(198s).slaveFor(198s, 191s).takeService(190s);
	write("/later", log.masterFor(183300ms, 13300ms).masterFor(12300ms, 300ms, "").text());
	ssh("mv DIR/later DIR/usr/velarix/log/velarix.log\nexit 255\n");
	const Outcome outcome = runHere({"switchover"});
	EXPECT_EQ(outcome.code, 69);
	EXPECT_THAT(outcome.err, HasSubstr("velarixctl: refused: the partner does not answer"));
}

// What the timer of a failback takes for "nothing to do" must not be a lack of rights.
TEST_F(Switchover, WithoutTheRightToReadTheSettingsIsNotRefusedButFails)
{
	soundMaster();
	fakeHost().user = 1000;
	std::filesystem::remove(below(kSettings));
	EXPECT_EQ(runHere({"switchover"}).code, 77);
}

TEST_F(Switchover, InMaintenanceSaysThatItIsToBeEndedFirst)
{
	soundMaster();
	endProcess(kAgent);
	addProcess(kAgent, "VelarixHA", 'T', 4);
	write("/usr/velarix/pid/maintenance", "since=1772366400\nuntil=1772370000\nreason=new disk\n");
	EXPECT_THAT(refused().err, AllOf(HasSubstr(": new disk: end the maintenance first: velarixctl maintenance off\n"),
	                                 Not(HasSubstr("is stopped"))));
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
	writeSettings(1, {{"PROCESS_NUM", "2"}, {"PROCESS_CHECK_CYCLE", "1\nPROCESS_PATH2 = /opt/service/bin/worker"}});
	fakeHost().files["/opt/service/bin/worker"] = fakeHost().files[kProgram];
	write(kRunScript,
	      std::string("cd /opt/service/bin/\n") + kProgram + " &\ncd /opt/service/bin/\n/opt/service/bin/worker &\n");
	addProcess(5001, "worker");
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

TEST_F(Switchover, IsRefusedOnASlave)
{
	soundSlave();
	EXPECT_EQ(refused().err,
	          "velarixctl: refused: this node is standby: run it on the master, the partner 192.0.2.1\n");
	refused({"switchover", "--dry-run"});
}

TEST_F(Switchover, IsRefusedWhereItWouldNotGoWell)
{
	const auto partnerSends = [this](const char* heartbeat)
	{
		NodeLog log = emptyLog().start(198s).slaveFor(198s, 191s).takeService(190s);
		writeLog(log.masterFor(183300ms, 13300ms).masterFor(12300ms, 300ms, heartbeat));
	};
	struct Row
	{
		const char* text;
		std::function<void()> change;
	};
	const std::vector<Row> rows{
	    {"the role of this node is not known: process 4711 of the pid file has ended\n", [&] { endProcess(kAgent); }},
	    {"cannot read /usr/velarix/bin/ini/config.ini", [&] { std::filesystem::remove(below(kSettings)); }},
	    {"the partner does not answer: no heartbeat for 13 s", [&] { partnerSends(""); }},
	    {"both nodes are master", [&] { partnerSends(NodeLog::kMasterBeat); }},
	    {"the partner asks", [&] { partnerSends("/process/0/2/20260301110000/1/"); }},
	    {"this node is master, but the virtual address 198.51.100.10 is not on it", [&] { dropAddress(); }},
	    {"this node is master, but its programs do not run", [&] { endProcess(kServer); }},
	    {"the gateway 192.0.2.254 does not answer", [&] { fakeMachine().answering.erase("192.0.2.254"); }},
	    {"the agent would not notice that the programs have gone, since it counts these too: dbserver (700)\n",
	     [&] { addProcess(700, "dbserver"); }},
	    {"counts these too: server (5001, ended but not awaited), serverd (5002)\n",
	     [&]
	     {
		     addProcess(5001, "server", 'Z');
		     addProcess(5002, "serverd");
	     }},
	    {"no program is configured",
	     [&]
	     {
		     writeSettings(1, {{"PROCESS_NUM", "0"}});
		     write(kRunScript, "");
	     }},
	    {"the programs in the settings are not those in",
	     [&] { write(kRunScript, "cd /opt/service/bin/\n/opt/service/bin/former &\n"); }},
	    {"processList.sh: No such file or directory", [&] { std::filesystem::remove(below(kRunScript)); }},
	};
	for (const Row& row : rows)
	{
		soundMaster();
		row.change();
		const std::string error = refused().err;
		EXPECT_THAT(error, StartsWith("velarixctl: refused: ")) << row.text;
		EXPECT_THAT(error, HasSubstr(row.text));
		freshHost();
	}
}

TEST_F(Switchover, IsRefusedForAnotherRoot)
{
	soundMaster();
	EXPECT_EQ(runBelow({"switchover"}).code, 69);
}

// A receiver with much patience has not yet counted a silence. With a partner that
// has frozen nobody would serve after the move.
TEST_F(Switchover, IsRefusedAlreadyWhenTheLastHeartbeatIsLate)
{
	soundMaster();
	writeSettings(1, {{"MAX_HEART_BEAT_RECEIING_TIME", "20"}, {"PROCESS_CHECK_CYCLE", "10"}});
	now += 3500ms;
	EXPECT_EQ(runHere({"switchover", "--dry-run"}).code, 0);
	now += 2s;
	EXPECT_THAT(refused().err, StartsWith("velarixctl: refused: the partner's last heartbeat is "));
}

TEST_F(Switchover, IsNotRefusedWhenTooFewOthersCount)
{
	soundMaster();
	writeSettings(1, {{"PROCESS_NUM", "2"}, {"PROCESS_CHECK_CYCLE", "1\nPROCESS_PATH2 = /opt/service/bin/worker"}});
	write(kRunScript,
	      std::string("cd /opt/service/bin/\n") + kProgram + " &\ncd /opt/service/bin/\n/opt/service/bin/worker &\n");
	addProcess(5001, "worker");
	addProcess(700, "dbserver");
	EXPECT_EQ(runHere({"switchover", "--dry-run"}).code, 0);
}

TEST_F(Switchover, IsNotRefusedForSettingsThatWereOnlyTouched)
{
	soundMaster();
	fakeMachine().changed[below(kSettings).string()] = now - 10s;
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
	soundMaster();
	play({});
	says([](NodeLog& log) { log.masterFor(20s, 300ms); });
	EXPECT_EQ(runHere({"switchover"}).code, 75);
	EXPECT_EQ(fakeMachine().elapsed, 61s);

	freshHost();
	soundMaster();
	writeSettings(1, {{"WAITING_TIME_BEFORE_PROCESS_RUN", "30"}});
	play({});
	EXPECT_EQ(runHere({"switchover"}).code, 75);
	EXPECT_EQ(fakeMachine().elapsed, 136s);

	// The partner's heartbeats tell of its programs what its checker saw last.
	freshHost();
	soundMaster();
	writeSettings(1, {{"PROCESS_CHECK_CYCLE", "90"}});
	play({});
	EXPECT_EQ(runHere({"switchover"}).code, 75);
	EXPECT_EQ(fakeMachine().elapsed, 150s);
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
