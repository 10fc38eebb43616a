// What is wrong in which state, and whether a failover would work then.

#include <functional>

#include "StateTest.h"
#include "ctl/status/Judgement.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
using namespace std::chrono_literals;
using testing::ElementsAreArray;

namespace
{

enum class Side
{
	master,
	slave
};

struct Row
{
	const char* name;
	Side side;
	/// Breaks a sound node, whose state the test has read.
	std::function<void(NodeState&)> change;
	/// "ID grade" or "ID grade blocks", in the order of the list.
	std::vector<std::string> problems;
};

void partner(NodeState& state, bool master, bool asking = false)
{
	state.partnerRole.told = master ? Role::master : Role::slave;
	state.partnerAsks.told = asking;
}

void silence(NodeState& state)
{
	state.partnerRole.why = "no heartbeat for 20 s";
	state.partnerAsks.why = state.partnerRole.why;
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
	state.address.told->held = false;
}

FaultState& fault(NodeState& state, Fault which)
{
	return state.tail.picture.faults[static_cast<std::size_t>(which)];
}

const std::vector<Row>& rows()
{
	static const std::vector<Row> all{
	    {"SoundMaster", Side::master, [](NodeState&) {}, {}},
	    {"SoundSlave", Side::slave, [](NodeState&) {}, {}},

	    {"ThreadLost",
	     Side::master,
	     [](NodeState& state) { state.agent.threads = 3; },
	     {"thread-lost critical blocks"}},
	    {"ReceiverStuck",
	     Side::slave,
	     [](NodeState& state) { state.tail.picture.lastOfReceiver = state.now - 18s; },
	     {"receiver-stuck critical blocks"}},
	    {"ReceiverSlow",
	     Side::slave,
	     [](NodeState& state) { state.tail.picture.lastOfReceiver = state.now - 16s; },
	     {}},
	    {"ReceiverBusyWithATakeOver",
	     Side::master,
	     [](NodeState& state)
	     {
		     state.tail.picture.lastOfReceiver = state.now - 60s;
		     state.tail.picture.takeOver = Event{};
		     state.tail.picture.takeOver->time = state.now - 60s;
	     },
	     {"taking-over warning blocks"}},

	    {"NoCarrierForHeartbeats",
	     Side::slave,
	     [](NodeState& state) { state.communicationCard.told = false; },
	     {"communication-card warning blocks"}},
	    {"NoCommunicationCard",
	     Side::master,
	     [](NodeState& state) { state.communicationCard = notKnown<bool>("there is no interface eth1"); },
	     {"communication-card warning blocks"}},
	    {"NoServiceCarrierOnAMaster",
	     Side::master,
	     [](NodeState& state) { state.serviceCard.told = false; },
	     {"service-card critical"}},
	    {"NoServiceCarrierOnASlave",
	     Side::slave,
	     [](NodeState& state) { state.serviceCard.told = false; },
	     {"service-card warning blocks"}},
	    {"NoGatewayOnAMaster",
	     Side::master,
	     [](NodeState& state) { state.gatewayAnswers.told = false; },
	     {"gateway critical"}},
	    {"NoGatewayOnASlave",
	     Side::slave,
	     [](NodeState& state) { state.gatewayAnswers.told = false; },
	     {"gateway warning blocks"}},
	    {"GatewayNotAsked",
	     Side::slave,
	     [](NodeState& state) { state.gatewayAnswers = notKnown<bool>("this user may not send pings"); },
	     {}},

	    {"PartnerSilentToAMaster",
	     Side::master,
	     [](NodeState& state) { silence(state); },
	     {"partner-silent warning blocks"}},
	    {"PartnerSilentToASlave", Side::slave, [](NodeState& state) { silence(state); }, {"partner-silent warning"}},
	    {"PartnerMute",
	     Side::slave,
	     [](NodeState& state)
	     {
		     silence(state);
		     fault(state, Fault::heartbeats).there = true;
	     },
	     {"partner-mute critical blocks"}},
	    {"TwoMasters", Side::master, [](NodeState& state) { partner(state, true); }, {"two-masters critical blocks"}},
	    {"NoMaster", Side::slave, [](NodeState& state) { partner(state, false); }, {"no-master critical blocks"}},
	    {"PartnerAsks",
	     Side::slave,
	     [](NodeState& state) { partner(state, false, true); },
	     {"no-master critical blocks", "partner-asks warning blocks"}},
	    {"Asks",
	     Side::slave,
	     [](NodeState& state)
	     {
		     partner(state, false);
		     state.asking.told = true;
	     },
	     {"no-master critical blocks", "asks warning blocks"}},
	    {"PartnerRefuses",
	     Side::master,
	     [](NodeState& state)
	     {
		     fault(state, Fault::partnerPort).there = true;
		     state.tail.picture.refusals = 3;
	     },
	     {"partner-refuses warning blocks"}},
	    {"PartnerRefusedTwice",
	     Side::master,
	     [](NodeState& state)
	     {
		     fault(state, Fault::partnerPort).there = true;
		     state.tail.picture.refusals = 2;
	     },
	     {}},

	    {"Flapping",
	     Side::slave,
	     [](NodeState& state) {
		     state.tail.picture.roleChanges = {state.now - 299s, state.now - 150s, state.now - 9s};
	     },
	     {"flapping critical"}},
	    {"MovedThereAndBack",
	     Side::slave,
	     [](NodeState& state) {
		     state.tail.picture.roleChanges = {state.now - 301s, state.now - 150s, state.now - 9s};
	     },
	     {}},
	    {"StartFails",
	     Side::master,
	     [](NodeState& state)
	     {
		     state.tail.picture.takeOver = Event{};
		     state.tail.picture.takeOver->time = state.now - 20s;
		     state.tail.picture.failedStarts = 2;
	     },
	     {"start-fails critical blocks", "taking-over warning blocks"}},
	    {"StartFailedOnce",
	     Side::master,
	     [](NodeState& state)
	     {
		     state.tail.picture.takeOver = Event{};
		     state.tail.picture.takeOver->time = state.now - 20s;
		     state.tail.picture.failedStarts = 1;
	     },
	     {"taking-over warning blocks"}},

	    {"LogDiskNearlyFull",
	     Side::slave,
	     [](NodeState& state) { state.logSpace.told = 119'999'999; },
	     {"log-disk warning"}},
	    {"LogDiskFull",
	     Side::slave,
	     [](NodeState& state) { state.logSpace.told = 999'999; },
	     {"log-disk critical blocks"}},
	    {"LogDiskWithRoom", Side::slave, [](NodeState& state) { state.logSpace.told = 120'000'000; }, {}},
	    {"LogBegunAhead",
	     Side::slave,
	     [](NodeState& state) { state.logBegunAhead = state.now + 24h; },
	     {"log-begun-ahead warning"}},
	    {"LogOfAnotherZone",
	     Side::master,
	     [](NodeState& state)
	     {
		     state.otherZone = true;
		     state.role.why = state.distrust = "another time zone";
	     },
	     {"log-time-zone unknown"}},
	    {"Console", Side::master, [](NodeState& state) { state.agent.console = "a pipe"; }, {"agent-console warning"}},

	    {"AddressMissing",
	     Side::master,
	     [](NodeState& state) { state.address.told->held = false; },
	     {"address-missing critical"}},
	    {"AddressUnlisted",
	     Side::master,
	     [](NodeState& state) { state.address.told->listed = false; },
	     {"address-unlisted warning"}},
	    {"KeeperWithoutAFault", Side::master, [](NodeState& state) { keeper(state); }, {}},
	    {"AddressWithThePartner",
	     Side::master,
	     [](NodeState& state)
	     {
		     silence(state);
		     waits(state);
	     },
	     {"address-with-partner warning", "partner-silent warning blocks"}},
	    {"AddressWithThePartnerAndNoMarker",
	     Side::master,
	     [](NodeState& state)
	     {
		     silence(state);
		     keeper(state).address.state = "stopped";
		     state.tail.picture.takeOver = Event{};
		     state.tail.picture.takeOver->time = state.now - 60s;
		     state.tail.picture.failedStarts = 9;
		     state.tail.picture.startOutput = "198.51.100.10 is held by 02:00:00:00:00:01 since 12:00";
	     },
	     {"address-with-partner warning", "partner-silent warning blocks", "taking-over warning blocks"}},
	    {"AddressWithSomebodyElse", Side::master, waits, {"address-taken critical blocks"}},
	    {"AddressConflict",
	     Side::master,
	     [](NodeState& state) { keeper(state).address.lastConflict = state.now - 14s; },
	     {"address-conflict critical"}},
	    {"AddressConflictIsOver",
	     Side::master,
	     [](NodeState& state) { keeper(state).address.lastConflict = state.now - 16s; },
	     {}},
	    {"ServiceFailed",
	     Side::master,
	     [](NodeState& state) { keeper(state).services[0].state = "failed"; },
	     {"service-failed warning blocks"}},
	    {"ServiceUnwell",
	     Side::master,
	     [](NodeState& state) { keeper(state).services[0].check = "failed 1"; },
	     {"service-unwell warning"}},
	    {"MarkerMissing",
	     Side::slave,
	     [](NodeState& state) { keeper(state).marked = std::nullopt; },
	     {"marker-missing warning"}},
	    {"ProgramsMissing",
	     Side::master,
	     [](NodeState& state) { state.programs.told->run = false; },
	     {"programs-missing critical"}},
	    {"AddressOnASlave",
	     Side::slave,
	     [](NodeState& state) { state.address.told->held = true; },
	     {"address-on-slave critical"}},
	    {"ProgramsOnASlave",
	     Side::slave,
	     [](NodeState& state) { state.programs.told->run = true; },
	     {"programs-on-slave warning"}},
	    {"NoProgramsAtAll",
	     Side::slave,
	     [](NodeState& state) {
		     state.programs.told = Programs{{}, true};
	     },
	     {}},
	    {"ProgramFile",
	     Side::slave,
	     [](NodeState& state) { state.programs.told->each[0].executable = false; },
	     {"program-file warning blocks"}},
	    {"ProgramFileNotKnown",
	     Side::slave,
	     [](NodeState& state) { state.programs.told->each[0].executable.reset(); },
	     {}},

	    {"SettingsNewer",
	     Side::master,
	     [](NodeState& state) { state.settingsNewer = true; },
	     {"settings-newer warning"}},
	    {"Stranger", Side::master, [](NodeState& state) { state.agent.stranger = 6000; }, {"agent-stranger warning"}},
	    {"RoleNotTold",
	     Side::master,
	     [](NodeState& state) { state.role = notKnown<Role>("the log does not tell"); },
	     {"role-not-known unknown"}},
	    {"LogStale",
	     Side::master,
	     [](NodeState& state)
	     {
		     state.logStale = true;
		     state.role.why = state.distrust = "silent";
	     },
	     {"log-stale critical blocks"}},
	    {"Starting",
	     Side::master,
	     [](NodeState& state)
	     {
		     state.starting = true;
		     state.role.why = state.distrust = "nothing yet";
	     },
	     {"agent-starting warning blocks"}},
	    {"Dead",
	     Side::master,
	     [](NodeState& state)
	     {
		     state.agent.state = AgentState::dead;
		     state.role.why = "dead";
	     },
	     {"agent-dead critical blocks"}},
	    {"NoPidFile",
	     Side::master,
	     [](NodeState& state)
	     {
		     state.agent.state = AgentState::noPidFile;
		     state.role.why = "none";
	     },
	     {"agent-not-running critical blocks"}},
	    {"Frozen",
	     Side::master,
	     [](NodeState& state)
	     {
		     state.agent.state = AgentState::frozen;
		     state.role.why = "frozen";
	     },
	     {"agent-frozen critical blocks"}},
	    {"AgentNotKnown",
	     Side::master,
	     [](NodeState& state)
	     {
		     state.agent.state = AgentState::notKnown;
		     state.agent.text = state.role.why = "hidden";
	     },
	     {"agent-not-known unknown"}},
	    {"NoSettings",
	     Side::master,
	     [](NodeState& state)
	     {
		     state.settings.reset();
		     state.settingsProblem = state.role.why = "no settings";
	     },
	     {"settings-unreadable unknown"}},
	    {"NoLog",
	     Side::master,
	     [](NodeState& state)
	     {
		     state.tail.problem = "no log";
		     state.role.why = "no log";
	     },
	     {"log-unreadable unknown"}},
	};
	return all;
}

} // namespace

class JudgementOfAState : public StateTest, public testing::WithParamInterface<Row>
{
};

TEST_P(JudgementOfAState, ListsWhatIsWrong)
{
	GetParam().side == Side::master ? soundMaster() : soundSlave();
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

INSTANTIATE_TEST_SUITE_P(Row, JudgementOfAState, testing::ValuesIn(rows()),
                         [](const auto& row) { return row.param.name; });

TEST(Judgement, KnowsNoProblemThatTheMonitoringPageDoesNotExplain)
{
	const std::string page = readFile(VELARIX_CTL_MONITORING);
	for (const Row& row : rows())
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
