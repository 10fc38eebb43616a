// The decision on a heartbeat while the own network is judged OK: own role and
// partner's role select the action.
#include "ReceiverTest.h"
#include "velarix/shared_value.h"

using testing::ElementsAreArray;

namespace
{

struct Row
{
	const char* name;
	MODE role;
	const char* partner;
	const char* ask;
	const char* configured;
	bool programs;
	MODE roleAfter;
	events::List steps;
};

void PrintTo(const Row& row, std::ostream* pStream)
{
	*pStream << row.name;
}

class OwnStatusOK : public ReceiverTest, public testing::WithParamInterface<Row>
{
};

TEST_P(OwnStatusOK, Decides)
{
	const Row& row = GetParam();
	configureRole(row.configured);
	programRuns(row.programs);
	mode = row.role;
	status() = 1;

	hear(row.partner, row.ask);

	EXPECT_EQ(mode, row.roleAfter);
	EXPECT_EQ(status(), 1);
	EXPECT_EQ(count(), 0);
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 0);
	EXPECT_FALSE(running);
	EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({row.steps})));
}

const char kQuiet[] = "log D CHeartReciver:278 My NetWork Status: OK   MY:MASTER PARTNER:SLAVE OK";
const char kTwoMasters[] = "log D CHeartReciver:282 My NetWork Status: OK MY:MASTER PARTNER:MASTER OK";
const char kStandby[] = "log D CHeartReciver:287 My NetWork Status: OK MY:SLAVE PARTNER:MASTER OK";
const char kTwoSlaves[] = "log D CHeartReciver:418 My NetWork Status: OK MY:SLAVE PARTNER:SLAVE OK";
const char kUnknown[] = "log D CHeartReciver:297 My NetWork Status: OK UNKNOW";

const char kAnswer0[] = "log D CHeartReciver:350 szTmp[1] szPartnerProcessRunning[0]";
const char kAnswer1[] = "log D CHeartReciver:350 szTmp[1] szPartnerProcessRunning[1]";
const char kAsk0[] = "log D CHeartReciver:411 szTmp[1] specialAsk[0]";
const char kAsk1[] = "log D CHeartReciver:411 szTmp[1] specialAsk[1]";
const char kTakeOver[] = "log D CHeartReciver:414 special ask: slave -> master";

const char kMasterKill[] = "log D CHeartReciver:470 MASTER kill";
const char kRun[] = "log D CHeartReciver:473 try to process run";
const char kSlaveKill[] = "log D CHeartReciver:480 SLAVE kill";

std::vector<Row> rows()
{
	using namespace steps;
	// clang-format off
	return {
	    // name                                   own  partner ask  conf  runs    role  steps
	    {"MasterHearsASlave",                      1,  "2",    "0",  "1", true,    1,  {kQuiet}},
	    {"MasterHearsAnAskingSlave",               1,  "2",    "1",  "1", true,    1,  {kQuiet}},
	    {"MasterWithoutProgramsHearsASlave",       1,  "2",    "0",  "1", false,   1,  {kQuiet}},
	    {"ConfiguredSlaveAsMasterHearsASlave",     1,  "2",    "0",  "2", true,    1,  {kQuiet}},
	    {"MasterHearsAnEmptyRole",                 1,  "",     "0",  "2", true,    1,  {kQuiet}},
	    {"MasterHearsTheRole01",                   1,  "01",   "0",  "2", true,    1,  {kQuiet}},
	    {"MasterHearsTheRole11",                   1,  "11",   "0",  "2", true,    1,  {kQuiet}},
	    {"MasterHearsTheRole3",                    1,  "3",    "0",  "2", true,    1,  {kQuiet}},
	    {"ConfiguredMasterHearsAMaster",           1,  "1",    "0",  "1", true,    1,  join({kTwoMasters, kMasterKill, killPrograms(), kRun, runPrograms()})},
	    {"ConfiguredMasterStoppedHearsAMaster",    1,  "1",    "0",  "1", false,   1,  join({kTwoMasters, kRun, runPrograms()})},
	    {"ConfiguredSlaveHearsAMaster",            1,  "1",    "0",  "2", true,    2,  join({kTwoMasters, kSlaveKill, killPrograms(), dropAddress()})},
	    {"ConfiguredSlaveStoppedHearsAMaster",     1,  "1",    "0",  "2", false,   2,  {kTwoMasters}},
	    {"MasterHearsAnAskingMaster",              1,  "1",    "1",  "2", false,   2,  {kTwoMasters}},
	    {"SlaveHearsAMaster",                      2,  "1",    "0",  "2", false,   2,  {kStandby, kAnswer0}},
	    {"SlaveWithProgramsHearsAMaster",          2,  "1",    "0",  "2", true,    2,  {kStandby, kAnswer0}},
	    {"ConfiguredMasterAsSlaveHearsAMaster",    2,  "1",    "0",  "1", false,   2,  {kStandby, kAnswer0}},
	    {"SlaveHearsAnAskingMaster",               2,  "1",    "1",  "2", false,   2,  {kStandby, kAnswer1}},
	    {"SlaveHearsASlave",                       2,  "2",    "0",  "2", false,   2,  {kAsk0, kTwoSlaves}},
	    {"SlaveWithProgramsHearsASlave",           2,  "2",    "0",  "2", true,    2,  join({kAsk0, kTwoSlaves, kSlaveKill, killPrograms(), dropAddress()})},
	    {"ConfiguredMasterAsSlaveHearsASlave",     2,  "2",    "0",  "1", false,   1,  join({kAsk0, kTwoSlaves, kRun, runPrograms()})},
	    {"SlaveHearsTheRole01",                    2,  "01",   "0",  "2", false,   2,  {kAsk0, kTwoSlaves}},
	    {"SlaveHearsAnEmptyRole",                  2,  "",     "0",  "2", false,   2,  {kAsk0, kTwoSlaves}},
	    {"SlaveHearsAnAskingSlave",                2,  "2",    "1",  "2", false,   1,  join({kAsk1, kTakeOver, findAddress(), runPrograms()})},
	    {"SlaveHearsAnAskingSlaveOfTheRole01",     2,  "01",   "1",  "2", false,   1,  join({kAsk1, kTakeOver, findAddress(), runPrograms()})},
	    {"UnsetHearsAMaster",                      0,  "1",    "0",  "1", true,    0,  {kUnknown}},
	    {"UnsetHearsASlave",                       0,  "2",    "0",  "1", true,    0,  {kUnknown}},
	    {"UnsetHearsAnAskingSlave",                0,  "2",    "1",  "1", false,   0,  {kUnknown}},
	    {"RoleThreeHearsAMaster",                  3,  "1",    "0",  "2", true,    3,  {kUnknown}},
	    {"RoleThreeHearsASlave",                   3,  "2",    "0",  "2", false,   3,  {kUnknown}},
	    {"NegativeRoleHearsASlave",               -1,  "2",    "0",  "2", false,  -1,  {kUnknown}},
	};
	// clang-format on
}

INSTANTIATE_TEST_SUITE_P(Table, OwnStatusOK, testing::ValuesIn(rows()),
                         [](const testing::TestParamInfo<Row>& row) { return row.param.name; });

} // namespace
