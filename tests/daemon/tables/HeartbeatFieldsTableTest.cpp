// What a heartbeat says, for every combination of the shared values, and how the
// start time is copied into it. The rows are bytes on the wire.

#include <set>
#include <tuple>

#include "Sandbox.h"
#include "SenderTest.h"
#include "velarix/paths.h"
#include "velarix/shared_value.h"

namespace
{

struct Row
{
	const char* name;
	bool running;
	MODE mode;
	std::int32_t asking;
	const char* message;
};

void PrintTo(const Row& row, std::ostream* pStream)
{
	*pStream << row.name;
}

// clang-format off
const Row kRows[] = {
	// name                           running mode asks message
	{"stopped_master_no_ask",           false,  1,  0, "/process/0/1/20240131235959/0/"},
	{"stopped_master_ask",              false,  1,  1, "/process/0/1/20240131235959/1/"},
	{"stopped_master_ask_of_2",         false,  1,  2, "/process/0/1/20240131235959/0/"},
	{"stopped_master_ask_of_minus_1",   false,  1, -1, "/process/0/1/20240131235959/0/"},
	{"stopped_slave_no_ask",            false,  2,  0, "/process/0/2/20240131235959/0/"},
	{"stopped_slave_ask",               false,  2,  1, "/process/0/2/20240131235959/1/"},
	{"stopped_slave_ask_of_2",          false,  2,  2, "/process/0/2/20240131235959/0/"},
	{"stopped_slave_ask_of_minus_1",    false,  2, -1, "/process/0/2/20240131235959/0/"},
	{"stopped_unset_no_ask",            false,  0,  0, "/process/0/2/20240131235959/0/"},
	{"stopped_unset_ask",               false,  0,  1, "/process/0/2/20240131235959/1/"},
	{"stopped_unset_ask_of_2",          false,  0,  2, "/process/0/2/20240131235959/0/"},
	{"stopped_unset_ask_of_minus_1",    false,  0, -1, "/process/0/2/20240131235959/0/"},
	{"stopped_unknown_no_ask",          false,  3,  0, "/process/0/2/20240131235959/0/"},
	{"stopped_unknown_ask",             false,  3,  1, "/process/0/2/20240131235959/1/"},
	{"stopped_unknown_ask_of_2",        false,  3,  2, "/process/0/2/20240131235959/0/"},
	{"stopped_unknown_ask_of_minus_1",  false,  3, -1, "/process/0/2/20240131235959/0/"},
	{"stopped_negative_no_ask",         false, -1,  0, "/process/0/2/20240131235959/0/"},
	{"stopped_negative_ask",            false, -1,  1, "/process/0/2/20240131235959/1/"},
	{"stopped_negative_ask_of_2",       false, -1,  2, "/process/0/2/20240131235959/0/"},
	{"stopped_negative_ask_of_minus_1", false, -1, -1, "/process/0/2/20240131235959/0/"},
	{"running_master_no_ask",           true,   1,  0, "/process/1/1/20240131235959/0/"},
	{"running_master_ask",              true,   1,  1, "/process/1/1/20240131235959/1/"},
	{"running_master_ask_of_2",         true,   1,  2, "/process/1/1/20240131235959/0/"},
	{"running_master_ask_of_minus_1",   true,   1, -1, "/process/1/1/20240131235959/0/"},
	{"running_slave_no_ask",            true,   2,  0, "/process/1/2/20240131235959/0/"},
	{"running_slave_ask",               true,   2,  1, "/process/1/2/20240131235959/1/"},
	{"running_slave_ask_of_2",          true,   2,  2, "/process/1/2/20240131235959/0/"},
	{"running_slave_ask_of_minus_1",    true,   2, -1, "/process/1/2/20240131235959/0/"},
	{"running_unset_no_ask",            true,   0,  0, "/process/1/2/20240131235959/0/"},
	{"running_unset_ask",               true,   0,  1, "/process/1/2/20240131235959/1/"},
	{"running_unset_ask_of_2",          true,   0,  2, "/process/1/2/20240131235959/0/"},
	{"running_unset_ask_of_minus_1",    true,   0, -1, "/process/1/2/20240131235959/0/"},
	{"running_unknown_no_ask",          true,   3,  0, "/process/1/2/20240131235959/0/"},
	{"running_unknown_ask",             true,   3,  1, "/process/1/2/20240131235959/1/"},
	{"running_unknown_ask_of_2",        true,   3,  2, "/process/1/2/20240131235959/0/"},
	{"running_unknown_ask_of_minus_1",  true,   3, -1, "/process/1/2/20240131235959/0/"},
	{"running_negative_no_ask",         true,  -1,  0, "/process/1/2/20240131235959/0/"},
	{"running_negative_ask",            true,  -1,  1, "/process/1/2/20240131235959/1/"},
	{"running_negative_ask_of_2",       true,  -1,  2, "/process/1/2/20240131235959/0/"},
	{"running_negative_ask_of_minus_1", true,  -1, -1, "/process/1/2/20240131235959/0/"},
};
// clang-format on

class HeartbeatFields : public SenderTest, public testing::WithParamInterface<Row>
{
};

TEST_P(HeartbeatFields, AreSentAsWritten)
{
	running = GetParam().running;
	velarix::storeShared(g_specialAsking, GetParam().asking);
	// A thread that starts with the role 0 ends at once, so the role comes later.
	atWait(1, [this] { velarix::storeShared(mode, GetParam().mode); });
	untilWait(2);
	partner->message();
	EXPECT_EQ(partner->message(), GetParam().message);
	EXPECT_EQ(events::all().at(3), std::string("log D CHeartSender:124 beat sent[noName]:") + GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(Rows, HeartbeatFields, testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<Row>& row) { return std::string(row.param.name); });

TEST(HeartbeatFieldsRows, AreEveryCombinationOnce)
{
	std::set<std::tuple<bool, MODE, std::int32_t>> seen;
	for (const Row& row : kRows)
	{
		EXPECT_TRUE(seen.insert({row.running, row.mode, row.asking}).second) << row.name;
	}
	EXPECT_EQ(seen.size(), 2U * 5U * 4U);
}

struct TimeRow
{
	const char* name;
	const char* label;
	std::string record;
	std::string message;
};

void PrintTo(const TimeRow& row, std::ostream* pStream)
{
	*pStream << row.name;
}

const std::string kLongTime(2000, '7');

// clang-format off
const TimeRow kTimeRows[] = {
	// name                  label       record                                        message
	{"fourteen_digits",      "noName",   "LAST_RUN_TIME = 20240131235959",             "/process/0/2/20240131235959/0/"},
	{"empty",                "noName",   "LAST_RUN_TIME = ",                           "/process/0/2//0/"},
	{"empty_without_blank",  "noName",   "LAST_RUN_TIME=",                             "/process/0/2//0/"},
	{"no_time_at_all",       "noName",   "LAST_RUN_TIME = never",                      "/process/0/2/never/0/"},
	{"slash_is_not_escaped", "noName",   "LAST_RUN_TIME = 2024/01",                    "/process/0/2/2024/01/0/"},
	{"blank_inside",         "noName",   "LAST_RUN_TIME = 2024 01",                    "/process/0/2/2024 01/0/"},
	{"longer_than_a_beat",   "noName",   "LAST_RUN_TIME = " + kLongTime,               "/process/0/2/" + kLongTime + "/0/"},
	{"key_of_the_master",    "master1",  "LAST_RUN_TIME = 1\nMASTER_LAST_RUN_TIME = 2", "/process/0/2/2/0/"},
	{"key_of_the_slave",     "master2",  "LAST_RUN_TIME = 1\nSLAVE_LAST_RUN_TIME = 3",  "/process/0/2/3/0/"},
};
// clang-format on

class HeartbeatTime : public SenderTest, public testing::WithParamInterface<TimeRow>
{
};

TEST_P(HeartbeatTime, IsCopiedFromTheRecord)
{
	location = GetParam().label;
	makeSender();
	sandbox::writeFile(velarix::kRunInfoPath, "[TRACE]\n" + GetParam().record + "\n");
	untilWait(1);
	EXPECT_EQ(partner->message(), GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(Rows, HeartbeatTime, testing::ValuesIn(kTimeRows),
                         [](const testing::TestParamInfo<TimeRow>& row) { return std::string(row.param.name); });

} // namespace
