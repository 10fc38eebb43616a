// The checker's line for every role and both answers: only the role 1 is "M".

#include "ProcessChecker.h"

#include "Daemon.h"
#include "WorkerAccess.h"

using testing::ElementsAre;

namespace
{

struct Row
{
	const char* name;
	MODE mode;
	const char* number; ///< of configured programs; none of them runs
	const char* line;
};

void PrintTo(const Row& row, std::ostream* pStream)
{
	*pStream << row.name;
}

// clang-format off
const Row kRows[] = {
//   name                mode  number  line
	{"MasterRunning",    1,    "0",    "log D ProcessChecker:103 ProcessRuning[noName][MODE:M]: 1"},
	{"MasterNot",        1,    "1",    "log D ProcessChecker:103 ProcessRuning[noName][MODE:M]: 0"},
	{"SlaveRunning",     2,    "0",    "log D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 1"},
	{"SlaveNot",         2,    "1",    "log D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 0"},
	{"UnsetRunning",     0,    "0",    "log D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 1"},
	{"UnsetNot",         0,    "1",    "log D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 0"},
	{"ThreeRunning",     3,    "0",    "log D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 1"},
	{"MinusOneRunning", -1,    "0",    "log D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 1"},
};
// clang-format on

class CheckerLineTable : public DaemonTest, public testing::WithParamInterface<Row>
{
};

TEST_P(CheckerLineTable, Row)
{
	settings.set("PROCESS_CHECK.PROCESS_NUM", GetParam().number);
	apply();
	std::vector<Poco::ProcessHandle*>* pHandles = nullptr;
	bool running = false;
	MODE mode = GetParam().mode;
	std::string location = "noName";
	ProcessChecker checker(&pHandles, &running, &mode, location);
	events::clear();
	events::endAtSleep(1);
	EXPECT_THROW(checker.run(), events::EndOfScript);
	EXPECT_THAT(events::all(), ElementsAre(GetParam().line, "sleep 5000"));
	EXPECT_EQ(mode, GetParam().mode);
}

INSTANTIATE_TEST_SUITE_P(AllRoles, CheckerLineTable, testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<Row>& rowInfo) { return std::string(rowInfo.param.name); });

} // namespace
