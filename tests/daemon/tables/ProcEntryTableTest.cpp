// Which entries of /proc are taken for processes: the first character is compared
// as a signed char with '9', and a '.' is left out.

#include <sys/stat.h>

#include "Daemon.h"
#include "Sandbox.h"
#include "Utill.h"

namespace
{

struct Row
{
	const char* name;
	const char* entry;
	bool counts;
};

void PrintTo(const Row& row, std::ostream* pStream)
{
	*pStream << row.name;
}

// clang-format off
const Row kRows[] = {
//   name                  entry           counts
	{"One",                "1",            true},
	{"Zero",               "0",            true},
	{"Nine",               "9",            true},
	{"NineAndLetters",     "9abc",         true},
	{"Colon",              ":",            false},
	{"ColonAndDigits",     ":12",          false},
	{"UpperA",             "A",            false},
	{"LowerSelf",          "self",         false},
	{"Tilde",              "~",            false},
	{"Delete",             "\x7f",         false},
	{"Hyphen",             "-1",           true},
	{"Plus",               "+",            true},
	{"Blank",              " 1",           true},
	{"Comma",              ",",            true},
	{"Exclamation",        "!x",           true},
	{"Control1",           "\x01",         true},
	{"Dot",                ".1",           false},
	{"TwoDots",            "..1",          false},
	{"HiddenName",         ".server",      false},
	{"Byte80",             "\x80",         true},
	{"ByteC3Umlaut",       "\xc3\xa4",     true},
	{"ByteFF",             "\xff",         true},
};
// clang-format on

class ProcEntryTable : public DaemonTest, public testing::WithParamInterface<Row>
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		settings.programs({"/opt/app/server"});
		apply();
		sandbox::coverProc();
	}

	void TearDown() override
	{
		sandbox::showRealProc();
		DaemonTest::TearDown();
	}
};

TEST_P(ProcEntryTable, Row)
{
	const std::string path = std::string("/proc/") + GetParam().entry;
	ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);
	sandbox::writeFile(path + "/status", "Name:\tserver\n");
	EXPECT_EQ(Utill::isProcessRunning(OBSERVATION_MODE_1), GetParam().counts);
	EXPECT_THAT(events::all(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(AllEntries, ProcEntryTable, testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<Row>& rowInfo) { return std::string(rowInfo.param.name); });

} // namespace
