// The planned move of the service: when it is refused.

#include "StateTest.h"

using namespace std::chrono_literals;

class SwitchoverRefusal : public StateTest
{
protected:
	SwitchoverRefusal() { partnerSays(R"({"works":true,"reasons":[]})"); }

	Outcome refused(const std::vector<std::string>& arguments = {"switchover"})
	{
		const Outcome outcome = runHere(arguments);
		EXPECT_EQ(outcome.code, 69);
		EXPECT_EQ(outcome.out, "");
		EXPECT_THAT(fakeMachine().acts, IsEmpty());
		return outcome;
	}
};

TEST_F(SwitchoverRefusal, IsRefusedForWhatThePartnersOwnStatusSays)
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

TEST_F(SwitchoverRefusal, SaysThatItCouldNotAskThePartnerAndGoesOn)
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

TEST_F(SwitchoverRefusal, IsRefusedWhenThePartnerDiesWhileItIsAsked)
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
TEST_F(SwitchoverRefusal, WithoutTheRightToReadTheSettingsIsNotRefusedButFails)
{
	soundMaster();
	fakeHost().user = 1000;
	std::filesystem::remove(below(kSettings));
	EXPECT_EQ(runHere({"switchover"}).code, 77);
}

TEST_F(SwitchoverRefusal, InMaintenanceSaysThatItIsToBeEndedFirst)
{
	soundMaster();
	endProcess(kAgent);
	addProcess(kAgent, "VelarixHA", 'T', 4);
	write("/usr/velarix/pid/maintenance", "since=1772366400\nuntil=1772370000\nreason=new disk\n");
	EXPECT_THAT(refused().err, AllOf(HasSubstr(": new disk: end the maintenance first: velarixctl maintenance off\n"),
	                                 Not(HasSubstr("is stopped"))));
}

TEST_F(SwitchoverRefusal, IsRefusedOnASlave)
{
	soundSlave();
	EXPECT_EQ(refused().err,
	          "velarixctl: refused: this node is standby: run it on the master, the partner 192.0.2.1\n");
	refused({"switchover", "--dry-run"});
}

TEST_F(SwitchoverRefusal, IsRefusedWhereItWouldNotGoWell)
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

TEST_F(SwitchoverRefusal, IsRefusedForAnotherRoot)
{
	soundMaster();
	EXPECT_EQ(runBelow({"switchover"}).code, 69);
}

// A receiver with much patience has not yet counted a silence. With a partner that
// has frozen nobody would serve after the move.
TEST_F(SwitchoverRefusal, IsRefusedAlreadyWhenTheLastHeartbeatIsLate)
{
	soundMaster();
	writeSettings(1, {{"MAX_HEART_BEAT_RECEIING_TIME", "20"}, {"PROCESS_CHECK_CYCLE", "10"}});
	now += 3500ms;
	EXPECT_EQ(runHere({"switchover", "--dry-run"}).code, 0);
	now += 2s;
	EXPECT_THAT(refused().err, StartsWith("velarixctl: refused: the partner's last heartbeat is "));
}

TEST_F(SwitchoverRefusal, IsNotRefusedForSettingsThatWereOnlyTouched)
{
	soundMaster();
	fakeMachine().changed[below(kSettings).string()] = now - 10s;
	EXPECT_EQ(runHere({"switchover", "--dry-run"}).code, 0);
}
