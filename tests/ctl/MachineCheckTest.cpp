// What is found on the machine: cards, addresses, privileges, ports, space, other processes.

#include "CheckTest.h"
#include "FakeMachine.h"
#include "ctl/check/Checks.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class MachineCheck : public CheckTest
{
};

host::Process process(pid_t pid, const std::string& name)
{
	return {pid, "Name:\t" + name, name, 'S', 1};
}

} // namespace

TEST_F(MachineCheck, ASoundMachineHasNoFinding)
{
	EXPECT_THAT(foundOnMachine(), IsEmpty());
}

TEST_F(MachineCheck, MissingCardsAreFound)
{
	fakeHost().cards.clear();
	EXPECT_THAT(foundOnMachine(), ElementsAre("error missing-card config.ini", "error missing-card config.ini"));
}

TEST_F(MachineCheck, ACardWithoutCarrierIsWarnedOf)
{
	fakeHost().cards["eth0"].carrier = false;
	fakeHost().cards["eth1"].carrier = std::nullopt;
	EXPECT_THAT(foundOnMachine(),
	            ElementsAre("warning card-without-carrier config.ini", "warning card-without-carrier config.ini"));
}

TEST_F(MachineCheck, AnAddressOfAnotherMachineIsFound)
{
	setKey(lines, "THIS_SERVER_IP", "192.0.2.7");
	EXPECT_THAT(foundOnMachine(), ElementsAre("error not-this-node config.ini:3"));
}

TEST_F(MachineCheck, AnAddressOnTheServiceCardIsWarnedOf)
{
	setKey(lines, "THIS_SERVER_IP", "198.51.100.1");
	EXPECT_THAT(foundOnMachine(), ElementsAre("warning not-on-communication-card config.ini:3"));
}

TEST_F(MachineCheck, ListeningEverywhereIsNoAddressOfAnotherMachine)
{
	setKey(lines, "THIS_SERVER_IP", "0.0.0.0");
	EXPECT_THAT(foundOnMachine(), IsEmpty());
}

TEST_F(MachineCheck, AVirtualIPInsideAnAddressOfTheMachineIsFound)
{
	fakeHost().addresses.push_back({"eth0", "eth0:1", "198.51.100.101", 24, true});
	EXPECT_THAT(foundOnMachine(), ElementsAre("error address-inside-another config.ini:11"));
}

TEST_F(MachineCheck, AVirtualIPInsideABroadcastAddressIsFound)
{
	setKey(lines, "VIRTUAL_IP", "198.51.100.25");
	EXPECT_THAT(foundOnMachine(), ElementsAre("error address-inside-another config.ini:11"));
}

TEST_F(MachineCheck, AnAddressThatIsNotListedDoesNotCount)
{
	fakeHost().addresses.push_back({"eth0", "eth0", "198.51.100.101", 24, false});
	EXPECT_THAT(foundOnMachine(), IsEmpty());
}

TEST_F(MachineCheck, TheVirtualIPItselfMayBeThere)
{
	fakeHost().addresses.push_back({"eth0", "eth0:ha", "198.51.100.10", 24, true});
	EXPECT_THAT(foundOnMachine(), IsEmpty());
}

TEST_F(MachineCheck, TheWaysToTheOtherHostsAreLookedAt)
{
	struct Row
	{
		const char* address;
		const char* route;
		const char* expected;
	};
	for (const Row& row :
	     {Row{"192.0.2.254", "", "error no-route config.ini:10"}, Row{"192.0.2.2", "", "error no-route config.ini:5"},
	      Row{"192.0.2.254", "eth0", "warning route-elsewhere config.ini:10"},
	      Row{"192.0.2.2", "bond0", "warning route-elsewhere config.ini:5"},
	      Row{"192.0.2.254", "lo", "error address-of-this-node config.ini:10"}})
	{
		fakeHost().routes = {{row.address, row.route}};
		EXPECT_THAT(foundOnMachine(), ElementsAre(row.expected)) << row.address << row.route;
	}
	// Without the node's own address on eth1 there is no way to speak of.
	setKey(lines, "THIS_SERVER_IP", "192.0.2.7");
	EXPECT_THAT(foundOnMachine(), ElementsAre("error not-this-node config.ini:3"));
}

TEST_F(MachineCheck, WhoHasTheVirtualIPIsKnownByTheHardwareAddress)
{
	constexpr char kInUse[] = "warning address-in-use config.ini:11";
	fakeHost().holders = {{"198.51.100.10", "52:54:00:00:00:02"}, {"192.0.2.2", "52:54:00:00:00:02"}};
	EXPECT_THAT(foundOnMachine(), IsEmpty());
	fakeHost().holders["192.0.2.2"] = "52:54:00:00:00:03";
	EXPECT_THAT(foundOnMachine(), ElementsAre(kInUse));
	fakeHost().holders.erase("192.0.2.2");
	EXPECT_THAT(foundOnMachine(), ElementsAre(kInUse));
	// A partner that keeps its hardware address for itself may be the holder.
	fakeMachine().answering = {"192.0.2.2"};
	EXPECT_THAT(foundOnMachine(), IsEmpty());
	fakeHost().addresses.push_back({"eth0", "eth0:ha", "198.51.100.10", 24, true});
	EXPECT_THAT(foundOnMachine(), ElementsAre(kInUse));
}

TEST_F(MachineCheck, RootWithoutRawSocketsIsFound)
{
	fakeHost().whyNoPing = "Operation not permitted";
	EXPECT_THAT(foundOnMachine(), ElementsAre("error no-raw-sockets config.ini"));
}

TEST_F(MachineCheck, AMachineThatAnswersNoPingsIsFound)
{
	fakeHost().ignoresPings = true;
	EXPECT_THAT(foundOnMachine(), ElementsAre("error pings-ignored config.ini"));
}

TEST_F(MachineCheck, AVirtualIPThatIsNoHostsIsFound)
{
	for (const char* address : {"198.51.100.0", "198.51.100.255"})
	{
		setKey(lines, "VIRTUAL_IP", address);
		EXPECT_THAT(foundOnMachine(), ElementsAre("error unusable-address config.ini:11"));
	}
}

TEST_F(MachineCheck, AnotherUserCannotTellWhetherRootMayPing)
{
	fakeHost().whyNoPing = "Operation not permitted";
	fakeHost().user = 1000;
	EXPECT_THAT(foundOnMachine(), IsEmpty());
}

TEST_F(MachineCheck, APortInUseIsFound)
{
	fakeHost().takenPorts = {7000};
	EXPECT_THAT(foundOnMachine(), ElementsAre("error port-taken config.ini:4"));
}

TEST_F(MachineCheck, ThePortOfTheRunningAgentIsNotTried)
{
	fakeHost().takenPorts = {7000};
	fakeHost().processes = {process(4711, "VelarixHA")};
	EXPECT_THAT(foundOnMachine(), IsEmpty());
}

TEST_F(MachineCheck, APortOfOutgoingConnectionsIsWarnedOf)
{
	setKey(lines, "HEART_BEAT_RECEIVE_PORT", "40000");
	fakeHost().outgoingPorts = {40000};
	EXPECT_THAT(foundOnMachine(), ElementsAre("warning port-of-outgoing-connections config.ini:4"));
}

TEST_F(MachineCheck, RoomForTheLogsOfThirtyDaysIsNeeded)
{
	fakeHost().freeSpace = 31ULL * 110 * 1000 * 1000;
	EXPECT_THAT(foundOnMachine(), IsEmpty());
	fakeHost().freeSpace -= 1;
	EXPECT_THAT(foundOnMachine(), ElementsAre("warning little-log-space config.ini:26"));
}

TEST_F(MachineCheck, AgesAreDaysForTheRoomOfTheLogs)
{
	struct Row
	{
		const char* age;
		std::uintmax_t days;
	};
	for (const Row& row : {Row{"2 months", 60}, Row{"2 weeks", 14}, Row{"2 days", 2}, Row{"36 hours", 1}})
	{
		setKey(lines, "PURGEAGE", row.age);
		fakeHost().freeSpace = (row.days + 1) * 110 * 1000 * 1000;
		EXPECT_THAT(foundOnMachine(), IsEmpty()) << row.age;
		fakeHost().freeSpace -= 1;
		EXPECT_THAT(foundOnMachine(), ElementsAre("warning little-log-space config.ini:26")) << row.age;
	}
}

TEST_F(MachineCheck, AProcessWhoseNameContainsAProgramsIsWarnedOf)
{
	fakeHost().processes = {process(1, "init"), process(4242, "xserver-helper")};
	EXPECT_THAT(foundOnMachine(), ElementsAre("warning name-of-another-process config.ini:18"));
}

TEST_F(MachineCheck, TheProgramItselfMayRun)
{
	fakeHost().processes = {process(4242, "server")};
	EXPECT_THAT(foundOnMachine(), IsEmpty());
}

// ---- the commands, tried

namespace
{

class CommandTrial : public CheckTest
{
protected:
	CommandTrial()
	{
		host::Trial& trial = fakeHost().trial;
		trial.whyNot = "";
		trial.start.end = trial.stop.end = trial.kill.end = host::RunEnd::ended;
		trial.start.addresses = {kOwn, kRaised};
		trial.stop.addresses = {kOwn};
		trial.kill.programStarted = trial.kill.programEnded = true;
	}

	CheckReport tried() const { return tried({kLoopback, kOwn, kRaised}); }

	CheckReport tried(const std::vector<host::Address>& addresses) const
	{
		CheckReport report;
		const SettingsFile file = SettingsFile::parse("config.ini", joined(lines));
		Findings findings(file, report);
		checks::trial(findings, addresses);
		return report;
	}

	const host::Address kLoopback{"lo", "lo", "127.0.0.1", 8, true};
	const host::Address kOwn{"eth0", "eth0", "198.51.100.1", 24, true};
	const host::Address kRaised{"eth0", "eth0:ha", "198.51.100.10", 24, true};
};

} // namespace

// What the trials of real commands give is in TrialTableTest.cpp.

TEST_F(CommandTrial, GetsTheCommandsAndWhatTheInterfacesHave)
{
	EXPECT_THAT(shortForms(tried()), IsEmpty());
	ASSERT_EQ(fakeHost().trials.size(), 1U);
	const host::TrialPlan& plan = fakeHost().trials.front();
	const SettingsFile file = SettingsFile::parse("", joined(lines));
	EXPECT_EQ(plan.start, file.text("AGENT.VIRTUAL_IP_START_COMMAND"));
	EXPECT_EQ(plan.stop, file.text("AGENT.VIRTUAL_IP_STOP_COMMAND"));
	EXPECT_EQ(plan.kill, file.text("ADVENCE.PROCESS_KILL_COMMAND").value() + " server");
	EXPECT_EQ(plan.program, "/opt/service/bin/server");
	EXPECT_THAT(plan.addresses, ElementsAre(testing::Field(&host::Address::address, "198.51.100.1")));
}

TEST_F(CommandTrial, WithoutNamespacesSaysSoOnce)
{
	fakeHost().trial.whyNot = "no namespaces of its own: Operation not permitted";
	const CheckReport report = tried();
	EXPECT_THAT(report.findings, IsEmpty());
	ASSERT_EQ(report.notChecked.size(), 1U);
	EXPECT_EQ(report.notChecked[0].what, "what the commands do");
}

TEST_F(CommandTrial, DoesNotRunWhatAsksAService)
{
	setKey(lines, "VIRTUAL_IP_STOP_COMMAND", "nmcli connection down service-address");
	const CheckReport report = tried();
	EXPECT_THAT(report.findings, IsEmpty());
	ASSERT_EQ(report.notChecked.size(), 1U);
	EXPECT_EQ(report.notChecked[0].what, "what AGENT.VIRTUAL_IP_STOP_COMMAND does");
	EXPECT_EQ(fakeHost().trials.front().stop, "");
}

TEST_F(CommandTrial, DoesNotRunAFencingCommandWhenTheRestWorks)
{
	setKey(lines, "VIRTUAL_IP_START_COMMAND", "/opt/fence && (ip addr add 198.51.100.10/24 dev eth0) >/dev/null 2>&1");
	EXPECT_THAT(shortForms(tried()), IsEmpty());
	ASSERT_EQ(fakeHost().trials.size(), 1U);
	EXPECT_THAT(fakeHost().trials[0].stubs, ElementsAre("/opt/fence"));
	fakeHost().trial.start.addresses.pop_back();
	EXPECT_THAT(shortForms(tried()), ElementsAre("error raises-nothing config.ini:12"));
	EXPECT_THAT(fakeHost().trials.back().stubs, IsEmpty());
}

TEST_F(CommandTrial, ComparesTheRaisedAddressWithWhatTheMachineHas)
{
	struct Row
	{
		const char* name;
		std::vector<host::Address> addresses;
		std::vector<std::string> expected;
	};
	const auto with = [&](const std::string& card, const std::string& label, int prefix) {
		return std::vector<host::Address>{kOwn, {card, label, "198.51.100.10", prefix, true}};
	};
	for (const Row& row :
	     {Row{"held as raised", with("eth0", "eth0:ha", 24), {}},
	      Row{"held by a former label", with("eth0", "eth0:vip", 24), {}},
	      Row{"configured", with("eth0", "eth0", 24), {"warning address-already-there config.ini:11"}},
	      Row{"configured with a prefix", with("eth0", "eth0:ha", 32), {"error address-already-there config.ini:11"}},
	      Row{"configured elsewhere", with("lo", "lo", 24), {"error address-already-there config.ini:11"}},
	      Row{"no other address", {kLoopback}, {}},
	      Row{"another network",
	          {{"eth0", "eth0", "203.0.113.1", 24, true}},
	          {"warning address-of-another-network config.ini:11"}},
	      Row{"another prefix",
	          {{"eth0", "eth0", "198.51.100.1", 25, true}},
	          {"warning prefix-of-no-network config.ini:12"}},
	      Row{"one network of two", {{"eth0", "eth0", "203.0.113.1", 24, true}, kOwn}, {}}})
	{
		EXPECT_EQ(shortForms(tried(row.addresses)), row.expected) << row.name;
	}
}
