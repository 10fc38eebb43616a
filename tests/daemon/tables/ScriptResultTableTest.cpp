// The raw values of system() for the run script that count as started. The two
// that do not are in LaunchingFatalTest.cpp.

#include "Daemon.h"
#include "FakeOutside.h"
#include "Utill.h"

using testing::ElementsAre;

namespace
{

struct Row
{
	const char* name;
	int raw;
};

void PrintTo(const Row& row, std::ostream* pStream)
{
	*pStream << row.name;
}

// clang-format off
const Row kRows[] = {
//   name                      raw
	{"Success",                0},
	{"ExitStatus1",            256},
	{"ExitStatus126",          32256},
	{"ExitStatus127",          32512},
	{"ExitStatus255",          65280},
	{"EndedBySignal1",         1},
	{"EndedBySignal9",         9},
	{"EndedBySignal15Dumped",  143},
	{"OneBelow127",            126},
	{"OneAbove127",            128},
	{"OneBelowMinusOne",       -2},
};
// clang-format on

class ScriptResultTable : public DaemonTest, public testing::WithParamInterface<Row>
{
};

TEST_P(ScriptResultTable, CountsAsStarted)
{
	fakeoutside::reset();
	fakeoutside::systemGives("/usr/velarix/bin/ini/processList.sh", GetParam().raw);
	Utill::voidProcessRun(true);
	EXPECT_THAT(events::all(),
	            ElementsAre("log D Utill:48 try to start virtual ip", "log D Utill:62 try to run processes",
	                        "system chmod 755 /usr/velarix/bin/ini/processList.sh",
	                        "system /usr/velarix/bin/ini/processList.sh",
	                        "log E Utill:78 \n"
	                        "======================================================\n"
	                        "================ process run =========================\n"
	                        "======================================================"));
}

INSTANTIATE_TEST_SUITE_P(AllResults, ScriptResultTable, testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<Row>& rowInfo) { return std::string(rowInfo.param.name); });

} // namespace
