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

/// A whole settings file; every key has a working value until it is changed.
class Settings
{
public:
	Settings();
	/// @param key "SECTION.KEY"
	Settings& set(const std::string& key, const std::string& value);
	Settings& remove(const std::string& key);
	/// The managed programs' paths; sets PROCESS_NUM too.
	Settings& programs(const std::vector<std::string>& paths);
	/// Writes the file and makes the daemon's store read it at the next use.
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
	void SetUp() override;
	void TearDown() override;

	/// Writes `settings` after a change.
	void apply() { settings.write(); }
	/// Makes the log anew with its real file at `path`, which is empty.
	void useRealLogFileAt(const char* path);

	Settings settings;
};

/// The line of a start of the managed programs.
inline constexpr char kBanner[] = "log E Utill:78 \n"
                                  "======================================================\n"
                                  "================ process run =========================\n"
                                  "======================================================";

/// The default run-info record.
extern const char kRunInfo[];

/// Makes the log anew with its real file (LOG.PATH), without recording.
void useRealLogFile();
/// Makes the log anew with its lines recorded as events.
void useRecordedLog();
/// Called with the event of each recorded log line after it was recorded; what it
/// throws leaves the log's channel. Forgotten when the log is made anew.
void onLogLine(std::function<void(const std::string&)> handler);
/// Leaves `velarixLog` without a logger, as after a failed init.
void useUnsetLog();

/// The line that the C library prints for a failed assertion, without the
/// program's name.
std::string assertionReport(const std::string& expression, const std::string& source, unsigned line,
                            const std::string& function);

/// Death test of a fatal condition: SIGABRT and the exact report line.
#define EXPECT_FATAL(statement, expression, source, line, function)                                                    \
	EXPECT_EXIT(statement, testing::KilledBySignal(SIGABRT),                                                           \
	            testing::HasSubstr(assertionReport(expression, source, line, function)))

/// The two lines that EXPECT_FATAL_AFTER looks for, as a regular expression.
std::string endOfDaemon(const std::string& errorLine, const std::string& expression, const std::string& source,
                        unsigned line, const std::string& function);

/// Death test of a fatal condition with the error line (`errorLine`: its echo "**ERROR**(FILE:LINE)TEXT")
/// that tells the operator why, directly before the report.
#define EXPECT_FATAL_AFTER(statement, errorLine, expression, source, line, function)                                   \
	EXPECT_EXIT(statement, testing::KilledBySignal(SIGABRT),                                                           \
	            testing::ContainsRegex(endOfDaemon(errorLine, expression, source, line, function)))

/// Death tests of a setting that is read and missing.
#define EXPECT_NO_NUMBER(statement, key)                                                                               \
	EXPECT_FATAL_AFTER(statement, "**ERROR**(Configuraion:82)Not found: " key, "0", "Configuraion", 83,                \
	                   "int Configuraion::getInt(const std::string&)")
#define EXPECT_NO_TEXT(statement, key)                                                                                 \
	EXPECT_FATAL_AFTER(statement, "**ERROR**(Configuraion:65)Not found: " key, "0", "Configuraion", 66,                \
	                   "std::string Configuraion::getString(const std::string&)")
