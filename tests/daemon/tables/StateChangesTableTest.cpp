// Other threads read role and ask at any moment: between which two events each value
// changes when a heartbeat is judged, when the node judges itself and at a fail-over. The
// changes of the network verdict are in NetworkStatusTableTest.cpp.
#include "Workers.h"

namespace
{

struct Row
{
	const char* name;
	const char* call; ///< role and ask of a heartbeat, or "judge" or "fail over"
	MODE role;
	int status;
	int ask;
	int count;
	const char* configured;
	bool programs;
	int gateway; ///< replies
	std::vector<std::string> changes;
};

class StateChanges : public ReceiverTest, public testing::WithParamInterface<Row>
{
protected:
	void call(const std::string& what)
	{
		if (what == "judge")
		{
			WorkerAccess::judgeOwnNode(*receiver);
		}
		else if (what == "fail over")
		{
			receiver->failOver();
		}
		else
		{
			hear(what.substr(0, 1), what.substr(2));
		}
	}
};

TEST_P(StateChanges, ComeInThisOrder)
{
	const Row& row = GetParam();
	settings.set("AGENT.MODE", row.configured);
	programRuns(row.programs);
	fakeoutside::commandPrints("cat /sys/class/net/eth0/carrier", {"1\n"});
	fakeoutside::pingGives("10.0.0.254", {row.gateway});
	mode = row.role;
	status() = row.status;
	velarix::storeShared(g_specialAsking, row.ask);
	count() = row.count;
	EXPECT_THAT(stateChanges([&] { call(row.call); }), ElementsAreArray(row.changes));
}

#define LINE(number) "log D CHeartReciver:" #number " "
const char kWaits[] = LINE(363) "My NetWork Status: OK MY:SLAVE PARTNER:MASTER Special ask <-- answer wait [2/3]";
const char kDone[] = LINE(368) "My NetWork Status: OK MY:SLAVE PARTNER:MASTER Special ask <-- answer OK [4/4]";
const char kDoneNotOK[] = LINE(389) "My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Special ask <-- answer OK [4/3]";
const char kInVainNotOK[] =
    LINE(434) "My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Special ask <-- answer OK [4/3]";

std::string state(MODE role, int status, int ask, int count, const std::string& at)
{
	return "role " + std::to_string(role) + " status " + std::to_string(status) + " ask " + std::to_string(ask) +
	       " count " + std::to_string(count) + " at " + at;
}

// clang-format off
const Row kRows[] = {
    // name                                call       role st ask count conf runs  gateway changes
    {"MastersHeartbeatMakesTheStatusOK",     "1 0",       2, 0, 0, 2, "2", false, 10, {state(2, 1, 0, 2, LINE(376) "szTmp[1] szPartnerProcessRunning[0]")}},
    {"AnsweredAskEndsAfterTheLine",          "1 0",       2, 1, 1, 2, "2", false, 10, {state(2, 1, 0, 2, "the end")}},
    {"CountGrowsBeforeTheWaitIsLogged",      "1 1",       2, 1, 1, 1, "2", false, 10, {state(2, 1, 1, 2, kWaits)}},
    {"AskEndsAfterTheLineOfTheAnswer",       "1 1",       2, 1, 1, 3, "2", false, 10, {state(2, 1, 1, 4, kDone), state(2, 1, 0, 0, "the end")}},
    {"NotOKAskEndsAfterTheLineToo",          "1 1",       2, 0, 1, 3, "2", false, 10, {state(2, 1, 1, 3, LINE(376) "szTmp[1] szPartnerProcessRunning[1]"), state(2, 1, 1, 4, kDoneNotOK), state(2, 1, 0, 0, "the end")}},
    {"AskInVainEndsBeforeThePartnersIsSeen", "2 1",       2, 1, 1, 3, "2", false, 10, {state(2, 1, 0, 0, LINE(411) "szTmp[1] specialAsk[1]"), state(1, 1, 0, 0, "command vip-stop")}},
    {"NotOKAskInVainEndsAfterTheLine",       "2 1",       2, 0, 1, 3, "2", false, 10, {state(2, 0, 1, 4, kInVainNotOK), state(2, 0, 0, 0, LINE(440) "szTmp[1] specialAsk[1]"), state(1, 0, 0, 0, "command vip-stop")}},
    {"ConfiguredMasterBeforeTheKill",        "2 0",       2, 1, 0, 2, "1", true,  10, {state(1, 1, 0, 2, LINE(470) "MASTER kill")}},
    {"ConfiguredSlaveBeforeTheKill",         "1 0",       1, 1, 0, 2, "2", true,  10, {state(2, 1, 0, 2, LINE(480) "SLAVE kill")}},
    {"RunningMasterIsOKAgain",               "2 0",       1, 0, 0, 2, "2", true,  10, {state(1, 1, 0, 2, "the end")}},
    {"MasterThatHearsASlave",                "2 1",       1, 1, 0, 2, "2", true,  10, {}},
    {"StoppedMasterAsksAfterTheDrop",        "judge",     1, 1, 0, 2, "2", false, 10, {state(2, 1, 0, 2, "command vip-stop"), state(2, 1, 1, 0, "sleep 1000")}},
    {"IsolatedMasterIsNotOKAfterTheLine",    "judge",     1, 1, 0, 2, "2", false,  0, {state(2, 1, 0, 2, "command kill-by-name dbServer"), state(2, 0, 0, 2, "sleep 1000")}},
    {"FailOverIsMasterFirst",                "fail over", 2, 1, 0, 2, "2", false, 10, {state(1, 1, 0, 2, LINE(601) "try to process run")}},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Table, StateChanges, testing::ValuesIn(kRows), rowName<Row>);

} // namespace
