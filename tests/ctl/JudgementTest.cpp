// What is wrong in which state, and whether a failover would work then.

#include "ctl/status/Judgement.h"
#include "StateTest.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
using namespace std::chrono_literals;
using testing::ElementsAreArray;

namespace
{

constexpr bool kMaster = true;
constexpr bool kSlave = false;

struct Row
{
	const char* name;
	bool master;
	/// "ID grade" or "ID grade blocks", in the order of the list.
	std::vector<std::string> problems;
	/// Breaks a sound node, whose state the test has read.
	void (*change)(NodeState&);
};

void partner(NodeState& state, bool master, bool asking = false)
{
	state.partnerRole.reported = master ? Role::master : Role::slave;
	state.partnerAsks.reported = asking;
}

void silence(NodeState& state)
{
	state.partnerRole.why = state.partnerAsks.why = "no heartbeat for 20 s";
}

/// The keeper holds the address and runs one service.
KeeperState& keeper(NodeState& state)
{
	state.keeper.emplace();
	state.keeper->address.state = "holding";
	state.keeper->address.holder = "02:00:00:00:00:01";
	state.keeper->services.resize(1);
	state.keeper->services[0].state = "running";
	state.keeper->marked = true;
	return *state.keeper;
}

/// ... and another host has the address.
void waits(NodeState& state)
{
	keeper(state).address.state = "waiting";
	state.address.reported->held = false;
}

FaultState& fault(NodeState& state, Fault which)
{
	return state.tail.snapshot.faults[static_cast<std::size_t>(which)];
}

void takeOver(NodeState& state, std::chrono::seconds since, int failedStarts = 0)
{
	state.tail.snapshot.takeOver = Event{};
	state.tail.snapshot.takeOver->time = state.now - since;
	state.tail.snapshot.failedStarts = failedStarts;
}

void tunnel(NodeState& state, bool present, bool down)
{
	state.tunnel.emplace();
	state.tunnel->settings.endpoint = "192.0.2.2";
	state.tunnel->present = present;
	state.tunnel->down = down;
}

void refused(NodeState& state, int times)
{
	fault(state, Fault::partnerPort).there = true;
	state.tail.snapshot.refusals = times;
}

void roleChanged(NodeState& state, std::chrono::seconds firstTime)
{
	state.tail.snapshot.roleChanges = {state.now - firstTime, state.now - 150s, state.now - 9s};
}

/// Nothing of the log counts.
void distrust(NodeState& state)
{
	state.role.why = state.distrust = "a reason";
}

void agentIs(NodeState& state, AgentState what)
{
	state.agent.state = what;
	state.agent.text = state.role.why = "a reason";
}

// clang-format off
const Row kRows[] = {
    {"SoundMaster",               kMaster, {},                                       [](NodeState&) {}},
    {"SoundSlave",                kSlave,  {},                                       [](NodeState&) {}},

    {"WorkersAreStillToBeMade",   kMaster, {},                                       [](NodeState& state) { state.agent.threads = 1; state.agent.since = state.now - 3s; }},
    {"ThreadLost",                kMaster, {"thread-lost critical blocks"},          [](NodeState& state) { state.agent.threads = 3; }},
    {"ReceiverStuck",             kSlave,  {"receiver-stuck critical blocks"},       [](NodeState& state) { state.tail.snapshot.lastOfReceiver = state.now - 18s; }},
    {"ReceiverSlow",              kSlave,  {},                                       [](NodeState& state) { state.tail.snapshot.lastOfReceiver = state.now - 16s; }},
    {"ReceiverBusyWithATakeOver", kMaster, {"taking-over warning blocks"},           [](NodeState& state) { state.tail.snapshot.lastOfReceiver = state.now - 60s; takeOver(state, 60s); }},

    {"NoCarrierForHeartbeats",    kSlave,  {"communication-interface warning blocks"},    [](NodeState& state) { state.communicationInterface.reported = false; }},
    {"NoCommunicationInterface",       kMaster, {"communication-interface warning blocks"},    [](NodeState& state) { state.communicationInterface = notKnown<bool>("there is no interface eth1"); }},
    {"NoServiceCarrierOnAMaster", kMaster, {"service-interface critical"},                [](NodeState& state) { state.serviceInterface.reported = false; }},
    {"NoServiceCarrierOnASlave",  kSlave,  {"service-interface warning blocks"},          [](NodeState& state) { state.serviceInterface.reported = false; }},
    {"NoGatewayOnAMaster",        kMaster, {"gateway critical"},                     [](NodeState& state) { state.gatewayAnswers.reported = false; }},
    {"NoGatewayOnASlave",         kSlave,  {"gateway warning blocks"},               [](NodeState& state) { state.gatewayAnswers.reported = false; }},
    {"GatewayNotAsked",           kSlave,  {},                                       [](NodeState& state) { state.gatewayAnswers = notKnown<bool>("this user may not send pings"); }},

    {"PartnerSilentToAMaster",    kMaster, {"partner-silent warning blocks"},        [](NodeState& state) { silence(state); }},
    {"AddressOnAnotherHostToo",   kMaster, {"duplicate-address critical blocks"},    [](NodeState& state) { silence(state); state.otherHolder = "02:00"; }},
    {"PartnerSilentToASlave",     kSlave,  {"partner-silent warning"},               [](NodeState& state) { silence(state); }},
    {"PartnerMute",               kSlave,  {"partner-mute critical blocks"},         [](NodeState& state) { silence(state); fault(state, Fault::heartbeats).there = true; }},
    {"TwoMasters",                kMaster, {"two-masters critical blocks"},          [](NodeState& state) { partner(state, true); }},
    {"NoMaster",                  kSlave,  {"no-master critical blocks"},            [](NodeState& state) { partner(state, false); }},
    {"PartnerAsks",               kSlave,  {"no-master critical blocks", "partner-asks warning blocks"}, [](NodeState& state) { partner(state, false, true); }},
    {"Asks",                      kSlave,  {"no-master critical blocks", "asks warning blocks"}, [](NodeState& state) { partner(state, false); state.asking.reported = true; }},
    {"PartnerRefuses",            kMaster, {"partner-refuses warning blocks"},       [](NodeState& state) { refused(state, 3); }},
    {"PartnerRefusedTwice",       kMaster, {},                                       [](NodeState& state) { refused(state, 2); }},

    {"TunnelUp",                  kMaster, {},                                       [](NodeState& state) { tunnel(state, true, false); }},
    {"TunnelMissing",             kMaster, {"tunnel-missing critical blocks"},       [](NodeState& state) { tunnel(state, false, false); }},
    {"TunnelDown",                kSlave,  {"tunnel-down critical blocks", "partner-silent warning"}, [](NodeState& state) { silence(state); tunnel(state, true, true); }},

    {"Flapping",                  kSlave,  {"flapping critical"},                    [](NodeState& state) { roleChanged(state, 299s); }},
    {"MovedThereAndBack",         kSlave,  {},                                       [](NodeState& state) { roleChanged(state, 301s); }},
    {"StartFails",                kMaster, {"start-fails critical blocks", "taking-over warning blocks"}, [](NodeState& state) { takeOver(state, 20s, 2); }},
    {"StartFailedOnce",           kMaster, {"taking-over warning blocks"},           [](NodeState& state) { takeOver(state, 20s, 1); }},

    {"LogDiskNearlyFull",         kSlave,  {"log-disk warning"},                     [](NodeState& state) { state.logSpace.reported = 119'999'999; }},
    {"LogDiskFull",               kSlave,  {"log-disk critical blocks"},             [](NodeState& state) { state.logSpace.reported = 999'999; }},
    {"LogDiskWithRoom",           kSlave,  {},                                       [](NodeState& state) { state.logSpace.reported = 120'000'000; }},
    {"LogBegunAhead",             kSlave,  {"log-begun-ahead warning"},              [](NodeState& state) { state.logBegunAhead = state.now + 24h; }},
    {"LogOfAnotherZone",          kMaster, {"log-time-zone unknown"},                [](NodeState& state) { state.otherZone = true; distrust(state); }},
    {"Console",                   kMaster, {"agent-console warning"},                [](NodeState& state) { state.agent.console = "a pipe"; }},

    {"AddressMissing",            kMaster, {"address-missing critical"},             [](NodeState& state) { state.address.reported->held = false; }},
    {"AddressUnlisted",           kMaster, {"address-unlisted warning"},             [](NodeState& state) { state.address.reported->listed = false; }},
    {"KeeperWithoutAFault",       kMaster, {},                                        [](NodeState& state) { keeper(state); }},
    {"AddressWithThePartner",     kMaster, {"address-with-partner warning", "partner-silent warning blocks"},
     [](NodeState& state) { silence(state); waits(state); }},
    {"AddressWithThePartnerAndNoMarker", kMaster,
     {"address-with-partner warning", "partner-silent warning blocks", "taking-over warning blocks"},
     [](NodeState& state)
     {
	     silence(state);
	     keeper(state).address.state = "stopped";
	     takeOver(state, 60s, 9);
	     state.tail.snapshot.startOutput = "198.51.100.10 is held by 02:00:00:00:00:01 since 12:00";
     }},
    {"AddressWithSomebodyElse",   kMaster, {"address-taken critical blocks"},        waits},
    {"AddressConflict",           kMaster, {"address-conflict critical"},            [](NodeState& state) { keeper(state).address.lastConflict = state.now - 14s; }},
    {"AddressConflictIsOver",     kMaster, {},                                       [](NodeState& state) { keeper(state).address.lastConflict = state.now - 16s; }},
    {"ServiceFailed",             kMaster, {"service-failed warning blocks"},        [](NodeState& state) { keeper(state).services[0].state = "failed"; }},
    {"ServiceUnwell",             kMaster, {"service-unwell warning"},               [](NodeState& state) { keeper(state).services[0].check = "failed 1"; }},
    {"MarkerMissing",             kSlave,  {"marker-missing warning"},               [](NodeState& state) { keeper(state).marked = false; }},
    {"ProgramsMissing",           kMaster, {"programs-missing critical"},            [](NodeState& state) { state.programs.reported->run = false; }},
    {"AddressOnASlave",           kSlave,  {"address-on-slave critical"},            [](NodeState& state) { state.address.reported->held = true; }},
    {"ProgramsOnASlave",          kSlave,  {"programs-on-slave warning"},            [](NodeState& state) { state.programs.reported->run = true; }},
    {"NoProgramsAtAll",           kSlave,  {},                                       [](NodeState& state) { state.programs.reported = Programs{{}, true, 0}; }},
    {"ProgramFile",               kSlave,  {"program-file warning blocks"},          [](NodeState& state) { state.programs.reported->each[0].executable = false; }},
    {"ProgramFileNotKnown",       kSlave,  {},                                       [](NodeState& state) { state.programs.reported->each[0].executable.reset(); }},

    {"SettingsNewer",             kMaster, {"settings-newer warning"},               [](NodeState& state) { state.settingsNewer = true; }},
    {"Foreign",                  kMaster, {"foreign-agent warning"},               [](NodeState& state) { state.agent.foreign = 6000; }},
    {"RoleNotReported",               kMaster, {"role-not-known unknown"},               [](NodeState& state) { state.role = notKnown<Role>("the log does not tell"); }},
    {"LogStale",                  kMaster, {"log-stale critical blocks"},            [](NodeState& state) { state.logStale = true; distrust(state); }},
    {"Starting",                  kMaster, {"agent-starting warning blocks"},        [](NodeState& state) { state.starting = true; distrust(state); }},
    {"Dead",                      kMaster, {"agent-dead critical blocks"},           [](NodeState& state) { agentIs(state, AgentState::dead); }},
    {"NoPidFile",                 kMaster, {"agent-not-running critical blocks"},    [](NodeState& state) { agentIs(state, AgentState::noPidFile); }},
    {"Frozen",                    kMaster, {"agent-frozen critical blocks"},         [](NodeState& state) { agentIs(state, AgentState::frozen); }},
    {"AgentNotKnown",             kMaster, {"agent-not-known unknown"},              [](NodeState& state) { agentIs(state, AgentState::notKnown); }},
    {"NoSettings",                kMaster, {"settings-unreadable unknown"},          [](NodeState& state) { state.settings.reset(); state.settingsProblem = state.role.why = "no settings"; }},
    {"NoLog",                     kMaster, {"log-unreadable unknown"},               [](NodeState& state) { state.tail.problem = state.role.why = "no log"; }},
};
// clang-format on

} // namespace

class JudgementOfAState : public StateTest, public testing::WithParamInterface<Row>
{
};

TEST_P(JudgementOfAState, ListsWhatIsWrong)
{
	GetParam().master ? soundMaster() : soundSlave();
	NodeState state = Observer(paths).look(now);
	GetParam().change(state);
	const Judgement judgement = judge(state);

	std::vector<std::string> found;
	bool blocked = false;
	bool unknown = false;
	for (const Problem& problem : judgement.problems)
	{
		found.push_back(std::string(problem.id) + " " + std::string(wordOf(problem.grade)) +
		                (problem.blocks ? " blocks" : ""));
		EXPECT_NE(problem.text, "");
		blocked = blocked || problem.blocks;
		unknown = unknown || problem.grade == Grade::unknown;
	}
	EXPECT_THAT(found, ElementsAreArray(GetParam().problems));
	if (blocked || !unknown)
	{
		EXPECT_EQ(judgement.failOverWorks, !blocked);
	}
	else
	{
		EXPECT_EQ(judgement.failOverWorks, std::nullopt);
	}
}

INSTANTIATE_TEST_SUITE_P(Row, JudgementOfAState, testing::ValuesIn(kRows), rowName<Row>);

TEST(Judgement, KnowsNoProblemThatTheMonitoringPageDoesNotExplain)
{
	const std::string page = readFile(VELARIX_CTL_MONITORING);
	for (const Row& row : kRows)
	{
		for (const std::string& problem : row.problems)
		{
			const std::string id = problem.substr(0, problem.find(' '));
			EXPECT_THAT(page, testing::HasSubstr("\n| `" + id + "` | ")) << row.name;
		}
	}
}

TEST(Judgement, GivesTheTextsOfWhatStandsInTheWay)
{
	Judgement judgement;
	judgement.problems = {{"one", Grade::warning, false, "harmless"}, {"two", Grade::critical, true, "in the way"}};
	judgement.failOverWorks = false;
	EXPECT_THAT(judgement.reasons(), testing::ElementsAre("in the way"));
	judgement.problems = {{"one", Grade::warning, false, "harmless"}, {"two", Grade::unknown, false, "not known"}};
	judgement.failOverWorks.reset();
	EXPECT_THAT(judgement.reasons(), testing::ElementsAre("not known"));
}
