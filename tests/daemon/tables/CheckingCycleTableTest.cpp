// The pause of the process checker for every kind of configured cycle. Cycles
// beyond the range of an int in milliseconds stay at its ends.

#include "ProcessChecker.h"

#include <limits>

#include "Daemon.h"
#include "FakeOutside.h"
#include "WorkerAccess.h"

using testing::ElementsAre;

namespace
{

struct Row
{
	const char* name;
	const char* seconds;
	int milliseconds;
	const char* sleep;
};

void PrintTo(const Row& row, std::ostream* pStream)
{
	*pStream << row.name;
}

// clang-format off
const Row kRows[] = {
//   name                  seconds        milliseconds        sleep
	{"Zero",               "0",           0,                  "sleep 0"},
	{"One",                "1",           1000,               "sleep 1000"},
	{"Five",               "5",           5000,               "sleep 5000"},
	{"AnHour",             "3600",        3600000,            "sleep 3600000"},
	{"LongestThatFits",    "2147483",     2147483000,         "sleep 2147483000"},
	{"ASecondTooLong",     "2147484",     2147483647,         "sleep 2147483647"},
	{"LargestNumber",      "2147483647",  2147483647,         "sleep 2147483647"},
	{"Negative",           "-1",          -1000,              "sleep -1000"},
	{"LowestThatFits",     "-2147483",    -2147483000,        "sleep -2147483000"},
	{"SmallestNumber",     "-2147483648", -2147483647 - 1,    "sleep -2147483648"},
};
// clang-format on

class CheckingCycleTable : public DaemonTest, public testing::WithParamInterface<Row>
{
};

TEST_P(CheckingCycleTable, Row)
{
	settings.programs({}).set("PROCESS_CHECK.PROCESS_CHECK_CYCLE", GetParam().seconds);
	apply();
	std::vector<Poco::ProcessHandle*>* pHandles = nullptr;
	bool running = false;
	MODE mode = MODE_SLAVE;
	std::string location = "noName";
	ProcessChecker checker(&pHandles, &running, &mode, location);
	EXPECT_EQ(checker.getCheckingCycle(), GetParam().milliseconds);
	events::endAtSleep(1);
	EXPECT_THROW(checker.run(), events::EndOfScript);
	EXPECT_THAT(events::only({"sleep "}), ElementsAre(GetParam().sleep));
}

INSTANTIATE_TEST_SUITE_P(AllCycles, CheckingCycleTable, testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<Row>& rowInfo) { return std::string(rowInfo.param.name); });

} // namespace
