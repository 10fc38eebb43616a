// What the daemon takes from a configured program's path: the directory that the
// run script changes into, and the name by which the program is found and killed.

#include "CAgent.h"
#include "Daemon.h"

namespace
{

struct Row
{
	const char* name;
	const char* path;
	const char* directory;
	const char* program;
};

// clang-format off
const Row kRows[] = {
//   name                    path                               directory                     program
	{"Absolute",             "/usr/bin/mysqld",                 "/usr/bin/",                  "mysqld"},
	{"WithAnArgument",       "/opt/app/bin/server -d",          "/opt/app/bin/",              "server -d"},
	{"SlashInAnArgument",    "/opt/app/server -c /etc/app.conf", "/opt/app/server -c /etc/",  "app.conf"},
	{"WithoutDirectory",     "worker",                          "",                           "worker"},
	{"InTheRoot",            "/worker",                         "/",                          "worker"},
	{"Relative",             "bin/worker",                      "bin/",                       "worker"},
	{"BelowTheParent",       "../bin/./worker",                 "../bin/./",                  "worker"},
	{"DoubleSlash",          "/opt//app///worker",              "/opt//app///",               "worker"},
	{"BlanksAreKept",        "/opt/my app / worker ",           "/opt/my app /",              " worker "},
	{"TrailingSlash",        "/opt/app/",                       "/opt/app/",                  ""},
	{"OnlyASlash",           "/",                               "/",                          ""},
};
// clang-format on

class ProgramPathTable : public DaemonTest, public testing::WithParamInterface<Row>
{
};

TEST_P(ProgramPathTable, Directory)
{
	CAgent agent(MODE_SLAVE);
	std::string path = GetParam().path;
	EXPECT_EQ(agent.getProcessLocation(path), GetParam().directory);
	EXPECT_EQ(path, GetParam().path);
}

TEST_P(ProgramPathTable, Program)
{
	std::string path = GetParam().path;
	EXPECT_EQ(getProcessName(path), GetParam().program);
	EXPECT_EQ(path, GetParam().path);
	EXPECT_THAT(events::all(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(AllPaths, ProgramPathTable, testing::ValuesIn(kRows), rowName<Row>);

} // namespace
