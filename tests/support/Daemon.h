/// What a test needs around the daemon's code: settings, log, shared values. What nearly
/// every such test includes and the matchers that it uses come along.
#pragma once

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <thread>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <Poco/Exception.h>
#include <gmock/gmock.h>

#include "Events.h"
#include "FakeOutside.h"
#include "RowName.h"
#include "Sandbox.h"
#include "Utill.h"
#include "WaitFor.h"
#include "velarix/paths.h"
#include "velarix/shared_value.h"
#include "velarix/velarix.h"

using testing::AllOf, testing::Contains, testing::ElementsAre, testing::ElementsAreArray, testing::HasSubstr;
using testing::IsEmpty, testing::MatchesRegex, testing::Not, testing::SizeIs, testing::StartsWith;

/// A whole settings file; every key has a working value until it is changed. Each change
/// writes it and makes the daemon's store read it at the next use.
class Settings
{
public:
	Settings();
	/// @param key "SECTION.KEY"
	Settings& set(const std::string& key, const std::string& value);
	Settings& remove(const std::string& key);
	/// The managed programs' paths; sets PROCESS_NUM too.
	Settings& programs(const std::vector<std::string>& paths);
	void write() const;

private:
	std::map<std::string, std::map<std::string, std::string>> m_sections;
};

/// Fixture with settings, an empty run-info record, and the real log whose lines
/// are recorded as events ("log D Utill:490 set virtual ip...") beside the
/// outward actions. The events are empty when the test's body begins.
class DaemonTest : public testing::Test
{
protected:
	DaemonTest();
	~DaemonTest() override;

	/// Makes the log anew with its real file at `path`, which is empty.
	void useRealLogFileAt(const char* path);

	Settings settings;
};

/// The line of a start of the managed programs.
inline constexpr char kBanner[] = "log E Utill:78 \n"
                                  "======================================================\n"
                                  "================ process run =========================\n"
                                  "======================================================";
inline constexpr char kScript[] = "system /usr/velarix/bin/ini/processList.sh";

/// The default run-info record.
inline constexpr char kRunInfo[] = "[TRACE]\nLAST_RUN_TIME = 20240131235959\nMASTER_LAST_RUN_TIME = 20240101000000\n"
                                   "SLAVE_LAST_RUN_TIME = 20240102000000\n";

/// Makes the log anew with its real file (LOG.PATH), without recording.
void useRealLogFile();
/// Leaves `velarixLog` without a logger, as after a failed init.
void useUnsetLog();

/// What the C library prints for a failed assertion.
struct Report
{
	const char* expression;
	const char* source;
	unsigned line;
	const char* function;

	std::string text() const;
};

inline constexpr Report kNoText{"0", "Configuraion", 66, "std::string Configuraion::getString(const std::string&)"};
inline constexpr Report kNoNumber{"0", "Configuraion", 83, "int Configuraion::getInt(const std::string&)"};
inline constexpr Report kNoRecord{"(1 == 0) && \"ini File fopen fail.\"", "QuorinINI", 30,
                                  "bool initialization::loadFile(const std::string&)"};

/// @return what a fatal condition leaves last on standard error
testing::Matcher<const std::string&> endOfDaemon(const events::List& before, const Report& report);

/// Death test of a fatal condition: SIGABRT, the exact report (a Report, or its values), and
/// exactly the events `before` in front of it. Whoever goes on instead would never end.
#define EXPECT_END(statement, before, ...)                                                                             \
	EXPECT_EXIT(                                                                                                       \
	    {                                                                                                              \
		    events::tellAtTheEnd();                                                                                    \
		    ::alarm(30);                                                                                               \
		    statement;                                                                                                 \
	    },                                                                                                             \
	    testing::KilledBySignal(SIGABRT), endOfDaemon(before, Report{__VA_ARGS__}))
