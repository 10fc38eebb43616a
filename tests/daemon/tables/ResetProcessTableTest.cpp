// The return to the configured role: a configured master restarts its programs
// on every reset, any other node only stops what runs.
#include "ReceiverTest.h"
#include "velarix/shared_value.h"

using testing::ElementsAreArray;

namespace
{

struct Row
{
	const char* name;
	const char* configured;
	bool programs;
	MODE role;
	MODE roleAfter;
	events::List steps;
};

void PrintTo(const Row& row, std::ostream* pStream)
{
	*pStream << row.name;
}

class ResetProcess : public ReceiverTest, public testing::WithParamInterface<Row>
{
};

TEST_P(ResetProcess, ReturnsToTheConfiguredRole)
{
	const Row& row = GetParam();
	configureRole(row.configured);
	programRuns(row.programs);
	mode = row.role;
	status() = 0;
	count() = 2;
	velarix::storeShared(g_specialAsking, std::int32_t{1});

	receiver->resetProcess();

	EXPECT_EQ(mode, row.roleAfter);
	EXPECT_EQ(status(), 0);
	EXPECT_EQ(count(), 2);
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 1);
	EXPECT_FALSE(running);
	EXPECT_EQ(handles, nullptr);
	EXPECT_THAT(events::all(), ElementsAreArray(row.steps));
}

const char kMasterKill[] = "log D CHeartReciver:470 MASTER kill";
const char kRun[] = "log D CHeartReciver:473 try to process run";
const char kSlaveKill[] = "log D CHeartReciver:480 SLAVE kill";

std::vector<Row> rows()
{
	using namespace steps;
	// clang-format off
	return {
	    // name                           conf  runs   role role  steps
	    {"MasterRunningAsMaster",          "1", true,   1,   1,  join({kMasterKill, killPrograms(), kRun, runPrograms()})},
	    {"MasterRunningAsSlave",           "1", true,   2,   1,  join({kMasterKill, killPrograms(), kRun, runPrograms()})},
	    {"MasterRunningUnset",             "1", true,   0,   1,  join({kMasterKill, killPrograms(), kRun, runPrograms()})},
	    {"MasterStoppedAsMaster",          "1", false,  1,   1,  join({kRun, runPrograms()})},
	    {"MasterStoppedAsSlave",           "1", false,  2,   1,  join({kRun, runPrograms()})},
	    {"SlaveRunningAsMaster",           "2", true,   1,   2,  join({kSlaveKill, killPrograms(), dropAddress()})},
	    {"SlaveRunningAsSlave",            "2", true,   2,   2,  join({kSlaveKill, killPrograms(), dropAddress()})},
	    {"SlaveStoppedAsMaster",           "2", false,  1,   2,  {}},
	    {"SlaveStoppedAsSlave",            "2", false,  2,   2,  {}},
	    {"SlaveStoppedInRoleThree",        "2", false,  3,   2,  {}},
	    {"SevenRunningAsMaster",           "7", true,   1,   2,  join({kSlaveKill, killPrograms(), dropAddress()})},
	    {"SevenStoppedAsMaster",           "7", false,  1,   2,  {}},
	    {"ZeroRunningAsMaster",            "0", true,   1,   2,  join({kSlaveKill, killPrograms(), dropAddress()})},
	    {"NegativeStoppedAsMaster",       "-1", false,  1,   2,  {}},
	};
	// clang-format on
}

INSTANTIATE_TEST_SUITE_P(Table, ResetProcess, testing::ValuesIn(rows()),
                         [](const testing::TestParamInfo<Row>& row) { return row.param.name; });

} // namespace
