// The observation mode for every kind of setting: only 1 gives the first.

#include "Daemon.h"
#include "Utill.h"

namespace
{

struct Row
{
	const char* name;
	const char* setting;
	OBSERVATION_MODE mode;
};

void PrintTo(const Row& row, std::ostream* pStream)
{
	*pStream << row.name;
}

// clang-format off
const Row kRows[] = {
//   name        setting  mode
	{"One",      "1",     OBSERVATION_MODE_1},
	{"Two",      "2",     OBSERVATION_MODE_2},
	{"Seven",    "7",     OBSERVATION_MODE_2},
	{"Eleven",   "11",    OBSERVATION_MODE_2},
	{"Zero",     "0",     OBSERVATION_MODE_2},
	{"MinusOne", "-1",    OBSERVATION_MODE_2},
};
// clang-format on

class ObservationModeTable : public DaemonTest, public testing::WithParamInterface<Row>
{
};

TEST_P(ObservationModeTable, Row)
{
	settings.set("PROCESS_CHECK.OBSERVATION_MODE", GetParam().setting);
	apply();
	EXPECT_EQ(Utill::getObservationMode(), GetParam().mode);
	EXPECT_THAT(events::all(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(AllSettings, ObservationModeTable, testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<Row>& rowInfo) { return std::string(rowInfo.param.name); });

TEST(ObservationModes, HaveTheNumbersOneAndTwo)
{
	EXPECT_EQ(static_cast<int>(OBSERVATION_MODE_1), 1);
	EXPECT_EQ(static_cast<int>(OBSERVATION_MODE_2), 2);
}

} // namespace
