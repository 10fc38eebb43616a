// Configured programs against running ones: the number of matches alone decides.

#include <sys/stat.h>

#include "Daemon.h"
#include "Sandbox.h"
#include "Utill.h"

namespace
{

struct Row
{
	const char* name;
	std::vector<std::string> configured;
	std::vector<std::string> running;
	bool result;
	events::List lines;
};

void PrintTo(const Row& row, std::ostream* pStream)
{
	*pStream << row.name;
}

// clang-format off
const Row kRows[] = {
//   name                    configured            running                       result  lines
	{"NoneOfNone",           {},                   {},                           true,   {}},
	{"SomeOfNone",           {},                   {"a", "b"},                   true,   {}},
	{"NoneOfOne",            {"/p/qa"},            {},                           false,  {}},
	{"OtherOfOne",           {"/p/qa"},            {"qb"},                       false,  {}},
	{"OneOfOne",             {"/p/qa"},            {"qa"},                       true,   {}},
	{"TwoOfOne",             {"/p/qa"},            {"qa", "qa"},                 true,   {"log D Utill:241  2processes are running at the same time"}},
	{"ThreeOfOne",           {"/p/qa"},            {"qa", "qa", "qa"},           true,   {"log D Utill:241  3processes are running at the same time"}},
	{"NoneOfTwo",            {"/p/qa", "/p/qb"},   {"c"},                        false,  {}},
	{"FirstOfTwo",           {"/p/qa", "/p/qb"},   {"qa"},                       false,  {}},
	{"SecondOfTwo",          {"/p/qa", "/p/qb"},   {"qb"},                       false,  {}},
	{"BothOfTwo",            {"/p/qa", "/p/qb"},   {"qa", "qb"},                 true,   {}},
	{"FirstTwiceOfTwo",      {"/p/qa", "/p/qb"},   {"qa", "qa"},                 true,   {}},
	{"SecondTwiceOfTwo",     {"/p/qa", "/p/qb"},   {"qb", "qb"},                 true,   {}},
	{"BothAndOneMoreOfTwo",  {"/p/qa", "/p/qb"},   {"qa", "qb", "qb"},           true,   {"log D Utill:241  3processes are running at the same time"}},
	{"OneThatContainsTwo",   {"/p/qa", "/p/qb"},   {"qaqb"},                     true,   {}},
	{"SameTwiceConfigured",  {"/p/qa", "/r/qa"},   {"qa"},                       true,   {}},
	{"TwiceAndTwice",        {"/p/qa", "/r/qa"},   {"qa", "qa"},                 true,   {"log D Utill:241  4processes are running at the same time"}},
	{"ElevenOfOne",          {"/p/qa"},            std::vector<std::string>(11, "qa"), true, {"log D Utill:241  11processes are running at the same time"}},
};
// clang-format on

class ProcessCountTable : public DaemonTest, public testing::WithParamInterface<Row>
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		sandbox::coverProc();
	}

	void TearDown() override
	{
		sandbox::showRealProc();
		DaemonTest::TearDown();
	}
};

TEST_P(ProcessCountTable, Row)
{
	const Row& row = GetParam();
	settings.programs(row.configured);
	apply();
	int id = 1;
	for (const std::string& name : row.running)
	{
		const std::string directory = "/proc/" + std::to_string(id++);
		ASSERT_EQ(::mkdir(directory.c_str(), 0755), 0);
		sandbox::writeFile(directory + "/status", "Name:\t" + name + "\nUmask:\t0022\n");
	}
	EXPECT_EQ(Utill::isProcessRunning(OBSERVATION_MODE_1), row.result);
	EXPECT_EQ(events::all(), row.lines);
}

INSTANTIATE_TEST_SUITE_P(AllCounts, ProcessCountTable, testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<Row>& rowInfo) { return std::string(rowInfo.param.name); });

} // namespace
