// The line of the monitoring plug-in and its four statuses.

#include "StateTest.h"

using namespace std::chrono_literals;

class Nagios : public StateTest
{
protected:
	/// A sound master whose partner was heard last this long ago.
	void partnerSilentFor(std::chrono::milliseconds silence)
	{
		soundMaster();
		writeLog(emptyLog().start(298s).masterFor(silence + 200s, silence).masterFor(silence - 1s, 300ms, ""));
	}
};

TEST_F(Nagios, OfASoundNodeIsOk)
{
	soundMaster();
	const Outcome master = runHere({"nagios"});
	EXPECT_EQ(master.out, "VELARIX OK - master, partner 192.0.2.2 standby, a failover would work"
	                      "|heartbeat_age=0.3s;15;60;0 log_age=0.3s;6;;0 threads=4;;4:;0 processes=1;;;0 "
	                      "address=1;;;0;1\n");
	EXPECT_EQ(master.err, "");
	EXPECT_EQ(master.code, 0);
	freshHost();
	soundSlave();
	const Outcome standby = runHere({"nagios"});
	EXPECT_EQ(standby.out, "VELARIX OK - standby, partner 192.0.2.1 master, a failover would work"
	                       "|heartbeat_age=0.3s;15;60;0 log_age=0.3s;6;;0 threads=4;;4:;0 processes=0;;;0 "
	                       "address=0;;;0;1\n");
	EXPECT_EQ(standby.code, 0);
}

TEST_F(Nagios, JudgesASilentPartnerByTheLimitsAlone)
{
	partnerSilentFor(14300ms);
	const Outcome fine = runHere({"nagios"});
	EXPECT_THAT(fine.out, StartsWith("VELARIX OK - master, partner 192.0.2.2 last heard 14 s ago"
	                                 "|heartbeat_age=14.3s;15;60;0 "));
	EXPECT_EQ(fine.code, 0);

	const Outcome warned = runHere({"nagios", "--warning", "14.3"});
	EXPECT_THAT(warned.out, StartsWith("VELARIX WARNING - the partner's last heartbeat is 14 s old"
	                                   "|heartbeat_age=14.3s;14.3;60;0 "));
	EXPECT_EQ(warned.code, 1);

	const Outcome alarmed = runHere({"nagios", "--warning", "3", "--critical", "10"});
	EXPECT_THAT(alarmed.out, StartsWith("VELARIX CRITICAL - the partner's last heartbeat is 14 s old"
	                                    "|heartbeat_age=14.3s;3;10;0 "));
	EXPECT_EQ(alarmed.code, 2);
}

TEST_F(Nagios, AlarmsByItselfAfterAMinute)
{
	partnerSilentFor(60s);
	EXPECT_EQ(runHere({"nagios"}).code, 2);
	partnerSilentFor(59s);
	EXPECT_EQ(runHere({"nagios"}).code, 1);
}

TEST_F(Nagios, WarnsWhenAFailOverWouldNotWork)
{
	soundSlave();
	fakeHost().interfaces["eth1"].carrier = false;
	const Outcome outcome = runHere({"nagios"});
	EXPECT_THAT(outcome.out, StartsWith("VELARIX WARNING - the communication interface eth1 has no carrier|"));
	EXPECT_EQ(outcome.code, 1);
}

TEST_F(Nagios, OfADeadAgentIsCriticalWithTheFiguresThatAreKnown)
{
	soundMaster();
	endProcess(kAgent);
	const Outcome outcome = runHere({"nagios"});
	EXPECT_EQ(outcome.out, "VELARIX CRITICAL - the agent is dead: process 4711 of the pid file has ended; the programs "
	                       "and the address are as it left them|log_age=0.3s;6;;0 processes=1;;;0 address=1;;;0;1\n");
	EXPECT_EQ(outcome.code, 2);
}

TEST_F(Nagios, PutsTheWorstFirst)
{
	soundMaster();
	fakeHost().interfaces["eth1"].carrier = false;
	dropAddress();
	EXPECT_THAT(runHere({"nagios"}).out,
	            StartsWith("VELARIX CRITICAL - this node is master, but the virtual address 198.51.100.10 is not on "
	                       "it; the communication interface eth1 has no carrier|"));
}

TEST_F(Nagios, WithoutSettingsIsUnknown)
{
	soundMaster();
	std::filesystem::remove(below(kSettings));
	const Outcome outcome = runHere({"nagios"});
	EXPECT_EQ(outcome.out, "VELARIX UNKNOWN - cannot read /usr/velarix/bin/ini/config.ini: No such file or directory"
	                       "|threads=4;;4:;0\n");
	EXPECT_EQ(outcome.code, 3);
}

TEST_F(Nagios, CountsUnknownAsWorseThanAWarningAndBetterThanAnAlarm)
{
	soundMaster();
	addProcess(6000, "VelarixHA");
	std::filesystem::remove(below(kSettings));
	EXPECT_THAT(runHere({"nagios"}).out, StartsWith("VELARIX UNKNOWN - cannot read"));
	endProcess(kAgent);
	EXPECT_THAT(runHere({"nagios"}).out, StartsWith("VELARIX CRITICAL - the agent is dead: "));
}

TEST_F(Nagios, OfAnotherRootIsUnknown)
{
	soundMaster();
	EXPECT_EQ(runBelow({"nagios"}).code, 3);
}

TEST_F(Nagios, KeepsBarsAndLineFeedsOutOfItsText)
{
	soundMaster();
	writeSettings(1, {{"GATEWAY_IP", "a|b"}});
	EXPECT_THAT(runHere({"nagios"}).out, HasSubstr("the gateway a/b does not answer"));
}

TEST_F(Nagios, WithAWrongCommandLineIsUnknown)
{
	soundMaster();
	for (const std::vector<std::string>& arguments : {std::vector<std::string>{"nagios", "--warning", "soon"},
	                                                  {"nagios", "--warning", "-1"},
	                                                  {"nagios", "--critical", "nan"},
	                                                  {"nagios", "--warning", "20", "--critical", "10"},
	                                                  {"nagios", "--perhaps"},
	                                                  {"--root", "/nowhere/at/all", "nagios"}})
	{
		const Outcome outcome = runHere(arguments);
		EXPECT_THAT(outcome.out, StartsWith("VELARIX UNKNOWN - ")) << arguments.back();
		EXPECT_EQ(outcome.code, 3) << arguments.back();
	}
}

TEST_F(Nagios, StillExplainsItself)
{
	const Outcome outcome = runHere({"nagios", "--help"});
	EXPECT_THAT(outcome.out, HasSubstr("--critical"));
	EXPECT_EQ(outcome.code, 0);
}
