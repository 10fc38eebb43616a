// What is found on the machine: interfaces, addresses, privileges, ports, space, other processes.

#include "CheckTest.h"
#include "ctl/check/Checks.h"

using namespace velarix::ctl;
using namespace velarix::inspect;

namespace
{

using Lines = std::vector<std::string>;

using Row = FaultRow<Lines>;

void addProcess(pid_t pid, const std::string& name)
{
	fakeHost().processes.push_back({pid, "Name:\t" + name, name, 'S', 1});
}

void addAddress(const std::string& label, const std::string& address, bool listed = true)
{
	fakeHost().addresses.push_back({"eth0", label, address, 24, listed});
}

// clang-format off
const Row kRows[] = {
    {"Sound",                     {},                                                [](Lines&) {}},
    {"NoInterfaces",                   {"error missing-interface config.ini"}, [](Lines&) { fakeHost().interfaces.clear(); }},
    {"InterfacesWithoutCarrier",       {"warning interface-without-carrier config.ini", "warning interface-without-carrier config.ini"}, [](Lines&) { fakeHost().interfaces["eth0"].carrier = false; fakeHost().interfaces["eth1"].carrier.reset(); }},
    {"AddressOfAnotherMachine",   {"error not-this-node config.ini:3"},              [](Lines& lines) { setKey(lines, "THIS_SERVER_IP", "192.0.2.7"); }},
    {"AddressOnTheServiceInterface",   {"warning not-on-communication-interface config.ini:3"}, [](Lines& lines) { setKey(lines, "THIS_SERVER_IP", "198.51.100.1"); }},
    {"ListensEverywhere",         {},                                                [](Lines& lines) { setKey(lines, "THIS_SERVER_IP", "0.0.0.0"); }},
    {"VirtualIPInsideAnAddress",  {"error address-inside-another config.ini:11"},    [](Lines&) { addAddress("eth0:1", "198.51.100.101"); }},
    {"VirtualIPInsideABroadcast", {"error address-inside-another config.ini:11"},    [](Lines& lines) { setKey(lines, "VIRTUAL_IP", "198.51.100.25"); }},
    {"AddressThatIsNotListed",    {},                                                [](Lines&) { addAddress("eth0", "198.51.100.101", false); }},
    {"VirtualIPIsThere",          {},                                                [](Lines&) { addAddress("eth0:ha", "198.51.100.10"); }},
    {"VirtualIPIsTheNetwork",     {"error unusable-address config.ini:11"},          [](Lines& lines) { setKey(lines, "VIRTUAL_IP", "198.51.100.0"); }},
    {"VirtualIPIsTheBroadcast",   {"error unusable-address config.ini:11"},          [](Lines& lines) { setKey(lines, "VIRTUAL_IP", "198.51.100.255"); }},
    {"NoRouteToTheGateway",       {"warning no-route config.ini:10"},                  [](Lines&) { fakeHost().routes = {{"192.0.2.254", ""}}; }},
    {"GatewayThatIsSilent",       {"warning gateway-silent config.ini:10"},            [](Lines&) { fakeHost().answering = {}; }},
    {"NoRouteToThePartner",       {"warning no-route config.ini:5"},                   [](Lines&) { fakeHost().routes = {{"192.0.2.2", ""}}; }},
    {"GatewayByTheServiceInterface",   {"warning route-elsewhere config.ini:10"},         [](Lines&) { fakeHost().routes = {{"192.0.2.254", "eth0"}}; }},
    {"PartnerByAnotherInterface",      {"warning route-elsewhere config.ini:5"},          [](Lines&) { fakeHost().routes = {{"192.0.2.2", "bond0"}}; }},
    {"GatewayIsThisNode",         {"warning address-of-this-node config.ini:10"},      [](Lines&) { fakeHost().routes = {{"192.0.2.254", "lo"}}; }},
    {"PartnerHasTheVirtualIP",    {},                                                [](Lines&) { fakeHost().holders = {{"198.51.100.10", "02:00"}, {"192.0.2.2", "02:00"}}; }},
    {"AnotherHasTheVirtualIP",    {"warning address-in-use config.ini:11"},          [](Lines&) { fakeHost().holders = {{"198.51.100.10", "02:00"}, {"192.0.2.2", "03:00"}}; }},
    {"SomebodyHasTheVirtualIP",   {"warning address-in-use config.ini:11"},          [](Lines&) { fakeHost().holders = {{"198.51.100.10", "02:00"}}; }},
    {"PerhapsThePartnerHasIt",    {},                                                [](Lines&) { fakeHost().holders = {{"198.51.100.10", "02:00"}}; fakeHost().answering = {"192.0.2.2", "192.0.2.254"}; }},
    {"BothHaveTheVirtualIP",      {"warning address-in-use config.ini:11"},          [](Lines&) { fakeHost().holders = {{"198.51.100.10", "02:00"}, {"192.0.2.2", "02:00"}}; addAddress("eth0:ha", "198.51.100.10"); }},
    {"RootWithoutRawSockets",     {"error no-raw-sockets config.ini"},               [](Lines&) { fakeHost().whyNoPing = "Operation not permitted"; }},
    {"UserWithoutRawSockets",     {},                                                [](Lines&) { fakeHost().whyNoPing = "Operation not permitted"; fakeHost().user = 1000; }},
    {"PingsIgnored",              {"error pings-ignored config.ini"},                [](Lines&) { fakeHost().ignoresPings = true; }},
    {"PortTaken",                 {"error port-taken config.ini:4"},                 [](Lines&) { fakeHost().takenPorts = {7000}; }},
    {"PortOfTheRunningAgent",     {},                                                [](Lines&) { fakeHost().takenPorts = {7000}; addProcess(4711, "VelarixHA"); }},
    {"PortOfOutgoingConnections", {"warning port-of-outgoing-connections config.ini:4"}, [](Lines& lines) { setKey(lines, "HEART_BEAT_RECEIVE_PORT", "40000"); fakeHost().outgoingPorts = {40000}; }},
    {"NameInAnotherProcess",      {"warning name-of-another-process config.ini:18"}, [](Lines&) { addProcess(1, "init"); addProcess(4242, "xserver-helper"); }},
    {"TheProgramItselfRuns",      {},                                                [](Lines&) { addProcess(4242, "server"); }},
};
// clang-format on

using MachineCheck = CheckTest;

class MachineTable : public CheckTest, public testing::WithParamInterface<Row>
{
};

} // namespace

TEST_P(MachineTable, IsFound)
{
	GetParam().change(lines);
	EXPECT_EQ(foundOnMachine(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Faults, MachineTable, testing::ValuesIn(kRows), rowName<Row>);

TEST_F(MachineCheck, AgesAreDaysForTheRoomOfTheLogs)
{
	struct Age
	{
		const char* age;
		std::uintmax_t days;
	};
	for (const Age& row :
	     {Age{"30 days", 30}, Age{"2 months", 60}, Age{"2 weeks", 14}, Age{"2 days", 2}, Age{"36 hours", 1}})
	{
		setKey(lines, "PURGEAGE", row.age);
		fakeHost().freeSpace = (row.days + 1) * 110 * 1000 * 1000;
		EXPECT_THAT(foundOnMachine(), IsEmpty()) << row.age;
		fakeHost().freeSpace -= 1;
		EXPECT_THAT(foundOnMachine(), ElementsAre("warning little-log-space config.ini:26")) << row.age;
	}
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

	CheckReport tried(const std::vector<host::Address>& addresses = {kLoopback, kOwn, kRaised}) const
	{
		return reportOf(parsed(), [&](Findings& findings) { checks::trial(findings, addresses); });
	}

	static inline const host::Address kLoopback{"lo", "lo", "127.0.0.1", 8, true};
	static inline const host::Address kOwn{"eth0", "eth0", "198.51.100.1", 24, true};
	static inline const host::Address kRaised{"eth0", "eth0:ha", "198.51.100.10", 24, true};
};

} // namespace

// What the trials of real commands give is in TrialTableTest.cpp.

TEST_F(CommandTrial, GetsTheCommandsAndWhatTheInterfacesHave)
{
	EXPECT_THAT(shortForms(tried()), IsEmpty());
	ASSERT_EQ(fakeHost().trials.size(), 1U);
	const host::TrialPlan& plan = fakeHost().trials.front();
	const SettingsFile file = parsed();
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
	const auto with = [&](const std::string& interface, const std::string& label, int prefix) {
		return std::vector<host::Address>{kOwn, {interface, label, "198.51.100.10", prefix, true}};
	};
	for (const Row& row :
	     {Row{"held as raised", with("eth0", "eth0:ha", 24), {}},
	      Row{"held by a former label", with("eth0", "eth0:vip", 24), {}},
	      Row{"configured", with("eth0", "eth0", 24), {"warning address-already-there config.ini:11"}},
	      Row{"the node's own",
	          {{"eth0", "eth0", "198.51.100.10", 24, true}, {"eth0", "eth0", "203.0.113.1", 24, true}},
	          {"error address-already-there config.ini:11"}},
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
