// The decision on a heartbeat after a failed check of the own network. Only a
// master's heartbeat, or running programs on a master, make the status OK again.
#include "OwnStatusTable.h"

namespace
{

class OwnStatusNotOK : public OwnStatusTable
{
};

TEST_P(OwnStatusNotOK, Decides)
{
	expectAsWritten();
}

const char kStopped0[] = "log E CHeartReciver:319 m_myStatus[0]:ERRRRREEEEEEERRRRRRR";
const char kStopped7[] = "log E CHeartReciver:319 m_myStatus[7]:ERRRRREEEEEEERRRRRRR";
const char kStoppedMinus[] = "log E CHeartReciver:319 m_myStatus[-1]:ERRRRREEEEEEERRRRRRR";
const char kTwoMasters[] = "log D CHeartReciver:324 My NetWork Status: NOT OK MY:MASTER PARTNER:MASTER RESET";
const char kStandby[] = "log D CHeartReciver:329 My NetWork Status: NOT OK MY:SLAVE PARTNER:MASTER OK";
const char kTwoSlaves[] = "log D CHeartReciver:447 My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Reset";
const char kUnknown[] = "log D CHeartReciver:339 My NetWork Status: NOT OK UNKNOW";

const char kAnswer0[] = "log D CHeartReciver:376 szTmp[1] szPartnerProcessRunning[0]";
const char kAnswer1[] = "log D CHeartReciver:376 szTmp[1] szPartnerProcessRunning[1]";
const char kAsk0[] = "log D CHeartReciver:440 szTmp[1] specialAsk[0]";
const char kAsk1[] = "log D CHeartReciver:440 szTmp[1] specialAsk[1]";
const char kTakeOver[] = "log D CHeartReciver:443 special ask: slave -> master";

const char kMasterKill[] = "log D CHeartReciver:470 MASTER kill";
const char kRun[] = "log D CHeartReciver:473 try to process run";
const char kSlaveKill[] = "log D CHeartReciver:480 SLAVE kill";

std::vector<OwnStatusRow> rows()
{
	using namespace steps;
	// clang-format off
	return {
	    // name                                 status own  partner ask  conf  runs    role status  steps
	    {"MasterHearsASlave",                      0,   1,  "2",    "0",  "1", true,    1,   1,  {}},
	    {"ConfiguredSlaveAsMasterHearsASlave",     0,   1,  "2",    "0",  "2", true,    1,   1,  {}},
	    {"StatusSevenMasterHearsASlave",           7,   1,  "2",    "0",  "1", true,    1,   1,  {}},
	    {"MasterHearsAnAskingSlave",               0,   1,  "2",    "1",  "1", true,    1,   1,  {}},
	    {"MasterHearsTheRole01",                   0,   1,  "01",   "0",  "1", true,    1,   1,  {}},
	    {"MasterHearsAnEmptyRole",                 0,   1,  "",     "0",  "1", true,    1,   1,  {}},
	    {"StoppedMasterHearsASlave",               0,   1,  "2",    "0",  "1", false,   1,   0,  {kStopped0}},
	    {"StoppedMasterHearsAnAskingSlave",        0,   1,  "2",    "1",  "2", false,   1,   0,  {kStopped0}},
	    {"StoppedMasterHearsTheRole01",            0,   1,  "01",   "0",  "1", false,   1,   0,  {kStopped0}},
	    {"StatusSevenStoppedMasterHearsASlave",    7,   1,  "2",    "0",  "1", false,   1,   7,  {kStopped7}},
	    {"StatusMinusStoppedMasterHearsASlave",   -1,   1,  "2",    "0",  "1", false,   1,  -1,  {kStoppedMinus}},
	    {"ConfiguredMasterHearsAMaster",           0,   1,  "1",    "0",  "1", true,    1,   0,  join({kTwoMasters, kMasterKill, killPrograms(), kRun, runPrograms()})},
	    {"ConfiguredMasterStoppedHearsAMaster",    0,   1,  "1",    "0",  "1", false,   1,   0,  join({kTwoMasters, kRun, runPrograms()})},
	    {"ConfiguredSlaveHearsAMaster",            0,   1,  "1",    "0",  "2", true,    2,   0,  join({kTwoMasters, kSlaveKill, killPrograms(), dropAddress()})},
	    {"ConfiguredSlaveStoppedHearsAMaster",     0,   1,  "1",    "0",  "2", false,   2,   0,  {kTwoMasters}},
	    {"MasterHearsAnAskingMaster",              0,   1,  "1",    "1",  "2", false,   2,   0,  {kTwoMasters}},
	    {"SlaveHearsAMaster",                      0,   2,  "1",    "0",  "2", false,   2,   1,  {kStandby, kAnswer0}},
	    {"ConfiguredMasterAsSlaveHearsAMaster",    0,   2,  "1",    "0",  "1", false,   2,   1,  {kStandby, kAnswer0}},
	    {"SlaveHearsAnAskingMaster",               0,   2,  "1",    "1",  "2", true,    2,   1,  {kStandby, kAnswer1}},
	    {"StatusSevenSlaveHearsAMaster",           7,   2,  "1",    "0",  "2", false,   2,   1,  {kStandby, kAnswer0}},
	    {"StatusMinusSlaveHearsAMaster",          -1,   2,  "1",    "0",  "2", false,   2,   1,  {kStandby, kAnswer0}},
	    {"SlaveHearsASlave",                       0,   2,  "2",    "0",  "2", false,   2,   0,  {kAsk0, kTwoSlaves}},
	    {"SlaveWithProgramsHearsASlave",           0,   2,  "2",    "0",  "2", true,    2,   0,  join({kAsk0, kTwoSlaves, kSlaveKill, killPrograms(), dropAddress()})},
	    {"ConfiguredMasterAsSlaveHearsASlave",     0,   2,  "2",    "0",  "1", false,   1,   0,  join({kAsk0, kTwoSlaves, kRun, runPrograms()})},
	    {"SlaveHearsTheRole01",                    0,   2,  "01",   "0",  "2", false,   2,   0,  {kAsk0, kTwoSlaves}},
	    {"SlaveHearsAnEmptyRole",                  0,   2,  "",     "0",  "2", false,   2,   0,  {kAsk0, kTwoSlaves}},
	    {"StatusSevenSlaveHearsASlave",            7,   2,  "2",    "0",  "2", false,   2,   7,  {kAsk0, kTwoSlaves}},
	    {"SlaveHearsAnAskingSlave",                0,   2,  "2",    "1",  "2", false,   1,   0,  join({kAsk1, kTakeOver, findAddress(), runPrograms()})},
	    {"StatusSevenSlaveHearsAnAskingSlave",     7,   2,  "2",    "1",  "2", false,   1,   7,  join({kAsk1, kTakeOver, findAddress(), runPrograms()})},
	    {"UnsetHearsAMaster",                      0,   0,  "1",    "0",  "1", true,    0,   0,  {kUnknown}},
	    {"UnsetHearsASlave",                       0,   0,  "2",    "0",  "1", true,    0,   0,  {kUnknown}},
	    {"UnsetHearsAnAskingSlave",                0,   0,  "2",    "1",  "2", false,   0,   0,  {kUnknown}},
	    {"RoleThreeHearsAMaster",                  0,   3,  "1",    "0",  "1", true,    3,   0,  {kUnknown}},
	    {"RoleThreeHearsASlave",                   7,   3,  "2",    "0",  "2", false,   3,   7,  {kUnknown}},
	    {"NegativeRoleHearsASlave",               -1,  -1,  "2",    "0",  "2", false,  -1,  -1,  {kUnknown}},
	};
	// clang-format on
}

INSTANTIATE_TEST_SUITE_P(Table, OwnStatusNotOK, testing::ValuesIn(rows()),
                         [](const testing::TestParamInfo<OwnStatusRow>& row) { return row.param.name; });

} // namespace
