// The decision on a heartbeat while the own network is judged OK: own role and
// partner's role select the action.
#include "OwnStatusTable.h"

namespace
{

class OwnStatusOK : public OwnStatusTable
{
};

TEST_P(OwnStatusOK, Decides)
{
	expectAsWritten();
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

std::vector<OwnStatusRow> rows()
{
	using namespace steps;
	// clang-format off
	return {
	    // name                                   status own partner ask conf  runs    role status  steps
	    {"MasterHearsASlave",                      1, 1,  "2",    "0",  "1", true,    1,  1,  {kQuiet}},
	    {"MasterHearsAnAskingSlave",               1, 1,  "2",    "1",  "1", true,    1,  1,  {kQuiet}},
	    {"MasterWithoutProgramsHearsASlave",       1, 1,  "2",    "0",  "1", false,   1,  1,  {kQuiet}},
	    {"ConfiguredSlaveAsMasterHearsASlave",     1, 1,  "2",    "0",  "2", true,    1,  1,  {kQuiet}},
	    {"MasterHearsAnEmptyRole",                 1, 1,  "",     "0",  "2", true,    1,  1,  {kQuiet}},
	    {"MasterHearsTheRole01",                   1, 1,  "01",   "0",  "2", true,    1,  1,  {kQuiet}},
	    {"MasterHearsTheRole11",                   1, 1,  "11",   "0",  "2", true,    1,  1,  {kQuiet}},
	    {"MasterHearsTheRole3",                    1, 1,  "3",    "0",  "2", true,    1,  1,  {kQuiet}},
	    {"ConfiguredMasterHearsAMaster",           1, 1,  "1",    "0",  "1", true,    1,  1,  join({kTwoMasters, kMasterKill, killPrograms(), kRun, runPrograms()})},
	    {"ConfiguredMasterStoppedHearsAMaster",    1, 1,  "1",    "0",  "1", false,   1,  1,  join({kTwoMasters, kRun, runPrograms()})},
	    {"ConfiguredSlaveHearsAMaster",            1, 1,  "1",    "0",  "2", true,    2,  1,  join({kTwoMasters, kSlaveKill, killPrograms(), dropAddress()})},
	    {"ConfiguredSlaveStoppedHearsAMaster",     1, 1,  "1",    "0",  "2", false,   2,  1,  {kTwoMasters}},
	    {"MasterHearsAnAskingMaster",              1, 1,  "1",    "1",  "2", false,   2,  1,  {kTwoMasters}},
	    {"SlaveHearsAMaster",                      1, 2,  "1",    "0",  "2", false,   2,  1,  {kStandby, kAnswer0}},
	    {"SlaveWithProgramsHearsAMaster",          1, 2,  "1",    "0",  "2", true,    2,  1,  {kStandby, kAnswer0}},
	    {"ConfiguredMasterAsSlaveHearsAMaster",    1, 2,  "1",    "0",  "1", false,   2,  1,  {kStandby, kAnswer0}},
	    {"SlaveHearsAnAskingMaster",               1, 2,  "1",    "1",  "2", false,   2,  1,  {kStandby, kAnswer1}},
	    {"SlaveHearsASlave",                       1, 2,  "2",    "0",  "2", false,   2,  1,  {kAsk0, kTwoSlaves}},
	    {"SlaveWithProgramsHearsASlave",           1, 2,  "2",    "0",  "2", true,    2,  1,  join({kAsk0, kTwoSlaves, kSlaveKill, killPrograms(), dropAddress()})},
	    {"ConfiguredMasterAsSlaveHearsASlave",     1, 2,  "2",    "0",  "1", false,   1,  1,  join({kAsk0, kTwoSlaves, kRun, runPrograms()})},
	    {"SlaveHearsTheRole01",                    1, 2,  "01",   "0",  "2", false,   2,  1,  {kAsk0, kTwoSlaves}},
	    {"SlaveHearsAnEmptyRole",                  1, 2,  "",     "0",  "2", false,   2,  1,  {kAsk0, kTwoSlaves}},
	    {"SlaveHearsAnAskingSlave",                1, 2,  "2",    "1",  "2", false,   1,  1,  join({kAsk1, kTakeOver, findAddress(), runPrograms()})},
	    {"SlaveHearsAnAskingSlaveOfTheRole01",     1, 2,  "01",   "1",  "2", false,   1,  1,  join({kAsk1, kTakeOver, findAddress(), runPrograms()})},
	    {"UnsetHearsAMaster",                      1, 0,  "1",    "0",  "1", true,    0,  1,  {kUnknown}},
	    {"UnsetHearsASlave",                       1, 0,  "2",    "0",  "1", true,    0,  1,  {kUnknown}},
	    {"UnsetHearsAnAskingSlave",                1, 0,  "2",    "1",  "1", false,   0,  1,  {kUnknown}},
	    {"RoleThreeHearsAMaster",                  1, 3,  "1",    "0",  "2", true,    3,  1,  {kUnknown}},
	    {"RoleThreeHearsASlave",                   1, 3,  "2",    "0",  "2", false,   3,  1,  {kUnknown}},
	    {"NegativeRoleHearsASlave",               1, -1,  "2",    "0",  "2", false,  -1,  1,  {kUnknown}},
	};
	// clang-format on
}

INSTANTIATE_TEST_SUITE_P(Table, OwnStatusOK, testing::ValuesIn(rows()),
                         [](const testing::TestParamInfo<OwnStatusRow>& row) { return row.param.name; });

} // namespace
