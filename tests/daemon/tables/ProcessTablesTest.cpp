// Small tables of the programs and their checker: the observation mode for every setting, the
// raw values of system() that count as started, the checker's pause for every configured
// cycle, and its line for every role.

#include "Workers.h"

namespace
{

class ProcessTables : public WorkerTest
{
protected:
	/// @return a checker of a node in this role
	ProcessChecker* make(MODE role)
	{
		mode = role;
		m_pChecker = WorkerTest::make<ProcessChecker>();
		events::clear();
		return m_pChecker.get();
	}

	/// The checker's events up to the pause.
	static events::List firstCycleOf(ProcessChecker* pChecker)
	{
		events::endAt(1, "sleep ");
		EXPECT_THROW(pChecker->run(), events::EndOfScript);
		return events::all();
	}

private:
	Poco::AutoPtr<ProcessChecker> m_pChecker;
};

TEST_F(ProcessTables, OnlyTheSettingOneIsTheFirstObservationMode)
{
	EXPECT_EQ(static_cast<int>(OBSERVATION_MODE_1), 1);
	EXPECT_EQ(static_cast<int>(OBSERVATION_MODE_2), 2);
	for (const auto& [setting, observed] :
	     std::map<std::string, int>{{"1", 1}, {"2", 2}, {"7", 2}, {"11", 2}, {"0", 2}, {"-1", 2}})
	{
		settings.set("PROCESS_CHECK.OBSERVATION_MODE", setting);
		EXPECT_EQ(Utill::getObservationMode(), observed) << setting;
	}
	EXPECT_THAT(events::all(), testing::IsEmpty());
}

// The two that do not count, 127 and -1, are in ProcessFatalTest.cpp and RealLaunchTest.cpp:
// exit statuses come shifted by eight bits, signals as they are.
TEST_F(ProcessTables, EveryOtherResultOfTheScriptCountsAsStarted)
{
	for (const int raw : {0, 256, 32256, 32512, 65280, 1, 9, 143, 126, 128, -2})
	{
		SCOPED_TRACE(raw);
		events::clear();
		fakeoutside::systemGives("/usr/velarix/bin/ini/processList.sh", raw);
		Utill::voidProcessRun(true);
		EXPECT_EQ(events::all(), steps::kRunProgramsOnly);
	}
}

struct Cycle
{
	const char* seconds;
	int milliseconds;
	const char* sleep;
};

// Cycles beyond the range of an int in milliseconds stay at its ends.
// clang-format off
const Cycle kCycles[] = {
	{"0",           0,                "sleep 0"},
	{"1",           1000,             "sleep 1000"},
	{"3600",        3600000,          "sleep 3600000"},
	{"2147483",     2147483000,       "sleep 2147483000"},
	{"2147484",     2147483647,       "sleep 2147483647"},
	{"2147483647",  2147483647,       "sleep 2147483647"},
	{"-1",          -1000,            "sleep -1000"},
	{"-2147483",    -2147483000,      "sleep -2147483000"},
	{"-2147483648", -2147483647 - 1,  "sleep -2147483648"},
};
// clang-format on

TEST_F(ProcessTables, TheCheckerPausesForTheConfiguredCycle)
{
	settings.programs({});
	for (const Cycle& row : kCycles)
	{
		SCOPED_TRACE(row.seconds);
		settings.set("PROCESS_CHECK.PROCESS_CHECK_CYCLE", row.seconds);
		ProcessChecker* const pChecker = make(MODE_SLAVE);
		EXPECT_EQ(pChecker->getCheckingCycle(), row.milliseconds);
		EXPECT_EQ(firstCycleOf(pChecker).back(), row.sleep);
	}
}

TEST_F(ProcessTables, OnlyTheRoleOneIsTheMastersLetterInTheCheckersLine)
{
	for (const auto& [role, letter] : std::map<MODE, std::string>{{1, "M"}, {2, "S"}, {0, "S"}, {3, "S"}, {-1, "S"}})
	{
		for (const std::string stopped : {"0", "1"}) // of configured programs none runs
		{
			SCOPED_TRACE(role);
			settings.set("PROCESS_CHECK.PROCESS_NUM", stopped);
			const std::string answer = stopped == "0" ? "1" : "0";
			EXPECT_THAT(firstCycleOf(make(role)),
			            ElementsAre("log D ProcessChecker:103 ProcessRuning[noName][MODE:" + letter + "]: " + answer,
			                        "sleep 5000"));
		}
	}
}

/// What the daemon takes from a configured program's path: the directory that the run script
/// changes into, and the name by which the program is found and killed.
struct Path
{
	const char* path;
	const char* directory;
	const char* program;
};

// clang-format off
const Path kPaths[] = {
//   path                               directory                     program
	{"/usr/bin/mysqld",                 "/usr/bin/",                  "mysqld"},
	{"/opt/app/bin/server -d",          "/opt/app/bin/",              "server -d"},
	{"/opt/app/server -c /etc/app.conf", "/opt/app/server -c /etc/",  "app.conf"},
	{"worker",                          "",                           "worker"},
	{"/worker",                         "/",                          "worker"},
	{"bin/worker",                      "bin/",                       "worker"},
	{"../bin/./worker",                 "../bin/./",                  "worker"},
	{"/opt//app///worker",              "/opt//app///",               "worker"},
	{"/opt/my app / worker ",           "/opt/my app /",              " worker "},
	{"/opt/app/",                       "/opt/app/",                  ""},
	{"/",                               "/",                          ""},
};
// clang-format on

TEST_F(ProcessTables, APathIsTheDirectoryAndTheNameOfItsProgram)
{
	CAgent agent(MODE_SLAVE);
	events::clear();
	for (const Path& row : kPaths)
	{
		std::string path = row.path;
		EXPECT_EQ(agent.getProcessLocation(path), row.directory);
		EXPECT_EQ(getProcessName(path), row.program);
		EXPECT_EQ(path, row.path);
	}
	EXPECT_THAT(events::all(), IsEmpty());
}

} // namespace
