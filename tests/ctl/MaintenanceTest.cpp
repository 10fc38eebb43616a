// Maintenance: what it stops and continues, what it refuses, what everybody is reported.

#include <csignal>

#include "StateTest.h"

using namespace std::chrono_literals;

namespace
{

const std::string kStopAgent = std::to_string(SIGSTOP) + " 4711";
const std::string kContinueAgent = std::to_string(SIGCONT) + " 4711";

} // namespace

class MaintenanceVerb : public StateTest
{
protected:
	MaintenanceVerb()
	{
		// Whoever gets one of the two signals obeys.
		fakeMachine().onAct = [](const std::string& act)
		{
			for (auto& process : fakeHost().processes)
			{
				if (act.ends_with(" " + std::to_string(process.pid)))
				{
					process.state = act.starts_with(std::to_string(SIGSTOP)) ? 'T' : 'S';
				}
			}
		};
	}

	void begin(const std::vector<std::string>& options = {})
	{
		std::vector<std::string> arguments{"maintenance", "on"};
		arguments.insert(arguments.end(), options.begin(), options.end());
		const Outcome outcome = runHere(arguments);
		ASSERT_EQ(outcome.code, 0) << outcome.err;
		fakeMachine().acts.clear();
	}

	std::string problems() const
	{
		const std::string json = runHere({"status", "--json"}).out;
		return json.substr(json.find("\"problems\""));
	}
};

TEST_F(MaintenanceVerb, StopsTheAgentAndTellsEverybody)
{
	soundMaster();
	const Outcome on = runHere({"maintenance", "on", "--reason", "new disk", "--for", "2h"});
	EXPECT_EQ(on.code, 0) << on.err;
	EXPECT_THAT(on.out, HasSubstr("maintenance since 2026-03-01 12:00:00, until 2026-03-01 14:00:00: new disk\n"));
	EXPECT_THAT(fakeMachine().acts, ElementsAre(kStopAgent));
	EXPECT_THAT(runHere({"status"}).out, HasSubstr("MAINTENANCE since 2026-03-01 12:00:00"));
	EXPECT_THAT(problems(), testing::AllOf(HasSubstr("\"maintenance\""), Not(HasSubstr("agent-frozen"))));
	const Outcome nagios = runHere({"nagios"});
	EXPECT_EQ(nagios.code, 1);
	EXPECT_THAT(nagios.out, HasSubstr("new disk"));
	EXPECT_THAT(runHere({"metrics"}).out, HasSubstr("velarix_maintenance 1\n"));
	EXPECT_THAT(on.out, HasSubstr("this node alone; both at once: velarixctl maintenance on --pair\n"));
}

TEST_F(MaintenanceVerb, ItsBeginAndEndAreEvents)
{
	soundMaster();
	begin({"--reason", "new disk"});
	EXPECT_EQ(runHere({"maintenance", "off"}).code, 0);
	EXPECT_THAT(runHere({"events"}).out,
	            testing::ContainsRegex("12:00:00.0  operator +velarixctl maintenance-on: since .*: new disk, by .*\n"
	                                   ".*  operator +velarixctl maintenance-off: by "));
}

TEST_F(MaintenanceVerb, ASecondOneSaysWhichItReplaces)
{
	soundMaster();
	begin({"--reason", "new disk"});
	EXPECT_THAT(runHere({"maintenance", "on", "--reason", "other"}).err,
	            testing::MatchesRegex("velarixctl: this replaces the maintenance since .*: new disk\n"));
}

TEST_F(MaintenanceVerb, IsReportedAsForgottenAfterItsTime)
{
	soundMaster();
	begin({"--for", "30m"});
	now += 31min;
	EXPECT_THAT(problems(), HasSubstr("maintenance-forgotten"));
	EXPECT_EQ(runHere({"nagios"}).code, 2);
}

TEST_F(MaintenanceVerb, EndsOnASoundMaster)
{
	soundMaster();
	begin();
	const Outcome off = runHere({"maintenance", "off"});
	EXPECT_EQ(off.code, 0) << off.err;
	EXPECT_THAT(fakeMachine().acts, ElementsAre(kContinueAgent));
	EXPECT_FALSE(std::filesystem::exists(paths.maintenance));
	EXPECT_THAT(problems(), Not(HasSubstr("maintenance")));
}

TEST_F(MaintenanceVerb, RefusesToEndWhereTheServiceWouldMove)
{
	soundMaster();
	begin();
	fakeHost().interfaces["eth0"] = {true, false};
	EXPECT_THAT(runHere({"maintenance", "off"}).err, HasSubstr("eth0 has no carrier"));
	fakeMachine().answering.clear();
	EXPECT_THAT(runHere({"maintenance", "off"}).err, HasSubstr("its gateway 192.0.2.254 does not answer"));
	endProcess(kServer);
	const Outcome off = runHere({"maintenance", "off"});
	EXPECT_EQ(off.code, 69);
	EXPECT_THAT(off.err, HasSubstr("this node is master and does not run server"));
	EXPECT_THAT(fakeMachine().acts, IsEmpty());
	EXPECT_TRUE(std::filesystem::exists(paths.maintenance));
	EXPECT_EQ(runHere({"maintenance", "off", "--force"}).code, 0);
	EXPECT_THAT(fakeMachine().acts, ElementsAre(kContinueAgent));
}

TEST_F(MaintenanceVerb, EndsOnAStandbyWithoutPrograms)
{
	soundSlave();
	begin();
	EXPECT_EQ(runHere({"maintenance", "off"}).code, 0);
}

TEST_F(MaintenanceVerb, StopsWhatStartsTheKeepersServicesButNoAddress)
{
	soundMaster();
	addProcess(5001, "ha-address");
	addProcess(5002, "keeper");
	addProcess(5003, "ha-web");
	addProcess(5004, "keeper");
	addProcess(5005, "ha-reach");
	addProcess(5006, "keeper");
	addProcess(5008, "keeper");
	for (auto& process : fakeHost().processes)
	{
		process.parent = process.name == "keeper" ? process.pid - 1 : 1;
	}
	EXPECT_EQ(runHere({"maintenance", "on"}).code, 0);
	EXPECT_THAT(fakeMachine().acts, ElementsAre(std::to_string(SIGSTOP) + " 5004", kStopAgent));
}

TEST_F(MaintenanceVerb, ContinuesTheServicesAlsoWithoutAnAgent)
{
	soundMaster();
	addProcess(5003, "ha-web");
	addProcess(5004, "keeper");
	fakeHost().processes.back().parent = 5003;
	begin();
	endProcess(kAgent);
	EXPECT_EQ(runHere({"maintenance", "off"}).code, 0);
	EXPECT_THAT(fakeMachine().acts, ElementsAre(std::to_string(SIGCONT) + " 5004"));
}

TEST_F(MaintenanceVerb, OfAnAgentThatWasContinuedByHandIsAWarning)
{
	soundMaster();
	begin();
	fakeMachine().onAct(kContinueAgent);
	EXPECT_THAT(problems(), HasSubstr("maintenance-left"));
}

TEST_F(MaintenanceVerb, AfterARebootIsEndedWithoutAnAgent)
{
	soundMaster();
	begin();
	endProcess(kAgent);
	EXPECT_THAT(problems(), testing::AllOf(HasSubstr("\"maintenance\""), Not(HasSubstr("agent-dead"))));
	EXPECT_THAT(runHere({"maintenance", "off"}).out, HasSubstr("systemctl start velarix-ha"));
	EXPECT_FALSE(std::filesystem::exists(paths.maintenance));
}

TEST_F(MaintenanceVerb, RefusesWhatItCannotDoAndLeavesNoRecord)
{
	soundMaster();
	fakeHost().user = 1000;
	EXPECT_EQ(runHere({"maintenance", "on"}).code, 77);
	fakeHost().user = 0;
	EXPECT_EQ(runHere({"maintenance", "on", "--for", "10s"}).code, 2);
	fakeMachine().onAct = nullptr;
	EXPECT_EQ(runHere({"maintenance", "on"}).code, 1) << "the agent did not stop";
	EXPECT_FALSE(std::filesystem::exists(paths.maintenance));
	endProcess(kAgent);
	EXPECT_EQ(runHere({"maintenance", "on"}).code, 69);
	EXPECT_FALSE(std::filesystem::exists(paths.maintenance));
	EXPECT_EQ(runHere({"maintenance", "off"}).out, "this node is not in maintenance\n");
}

TEST_F(MaintenanceVerb, TellsOfARecordThatIsDamaged)
{
	soundMaster();
	write("/usr/velarix/pid/maintenance", "until=soon\n");
	EXPECT_THAT(problems(), HasSubstr("maintenance-unreadable"));
}
