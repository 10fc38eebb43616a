// The report of a fatal condition, and the settings and records that end the daemon.

#include <utility>

#include "Configuraion.h"
#include "Daemon.h"
#include "LogFile.h"
#include "PlainUser.h"
#include "QuorinINI.h"
#include "VelarixLog.h"
#include "velarix/fatal.h"

namespace
{

constexpr char kOther[] = "/usr/velarix/bin/ini/other.ini";
constexpr char kLog[] = "/usr/velarix/log/settings-fatal.log";

constexpr char kGetInstance[] = "static Configuraion* Configuraion::getInstance(const std::string&)";
constexpr char kLoadFile[] = "bool Configuraion::loadFile(const std::string&)";
constexpr char kGetString[] = "std::string Configuraion::getString(const std::string&)";
constexpr char kGetInt[] = "int Configuraion::getInt(const std::string&)";
constexpr char kGetBool[] = "bool Configuraion::getBool(const std::string&)";
constexpr char kSetInt[] = "void Configuraion::setInt(const std::string&, int)";

/// Set while the allocation of the store's object raises an error of the library.
bool g_storeRaisesLibraryError = false;

void moveAwayAndSetInt()
{
	Configuraion store(velarix::kSettingsPath);
	const Configuraion taken(std::move(store));
	store.setInt("AGENT.MODE", 1); // NOLINT(bugprone-use-after-move)
}

/// The real log file tells that the report reached it too.
class SettingsFatal : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		useRealLogFileAt(kLog);
		sandbox::writeFile(kOther, "[AGENT]\nTEXT = master\nLOOP = ${AGENT.LOOP}\n");
	}

	static Configuraion other() { return Configuraion(kOther); }
};

/// Expects the load of `path` to end in the bare report: the log may not exist yet.
void expectSilentEnd(const std::string& path)
{
	EXPECT_EXIT(Configuraion{path}, testing::KilledBySignal(SIGABRT),
	            AllOf(HasSubstr(assertionReport("0", "Configuraion", 50, kLoadFile)), Not(HasSubstr("**ERROR**"))));
	EXPECT_THAT(logFileTexts(kLog), IsEmpty());
}

} // namespace

extern "C" void* __real__Znwm(std::size_t size);
extern "C" void* __wrap__Znwm(std::size_t size);
extern "C" void* __wrap__Znwm(std::size_t size)
{
	if (g_storeRaisesLibraryError && size == sizeof(Configuraion))
	{
		throw Poco::OutOfMemoryException("no room for the settings");
	}
	return __real__Znwm(size);
}

namespace
{

TEST(FatalReport, HasTheFormOfAFailedAssertionInEveryBuild)
{
	EXPECT_EXIT(velarix::fatal("a != b", "Label", 12, "int Class::operation(const std::string&)"),
	            testing::KilledBySignal(SIGABRT),
	            "^fatal_test: Label:12: int Class::operation\\(const std::string&\\): Assertion `a != b' "
	            "failed\\.\n$");
}

TEST_F(SettingsFatal, WhatIsNoFileThatOpensAndReadsEndsTheDaemonWithTheReportAlone)
{
	expectSilentEnd("/usr/velarix/bin/ini/no-such.ini");
	expectSilentEnd("/usr/velarix/bin/ini");
	// It opens, and every read of it fails as on a broken disk.
	sandbox::shell("ln -sfn /proc/self/mem /usr/velarix/bin/ini/broken.ini");
	expectSilentEnd("/usr/velarix/bin/ini/broken.ini");
}

// The assertion of the load comes first; getInstance never sees an exception.
TEST_F(SettingsFatal, AtTheFirstUseAMissingFileEndsInTheLoadWithoutAnyLog)
{
	EXPECT_EXIT(
	    {
		    velarixLog = nullptr;
		    Configuraion::pConf = nullptr;
		    Configuraion::getInstance("/usr/velarix/bin/ini/no-such.ini");
	    },
	    testing::KilledBySignal(SIGABRT),
	    AllOf(HasSubstr(assertionReport("0", "Configuraion", 50, kLoadFile)), Not(HasSubstr("Configuraion:33")),
	          Not(HasSubstr("**ERROR**"))));
}

TEST_F(SettingsFatal, ALibraryErrorAtTheFirstUseIsLoggedAndEndsTheDaemon)
{
	EXPECT_FATAL_AFTER(
	    {
		    Configuraion::pConf = nullptr;
		    g_storeRaisesLibraryError = true;
		    Configuraion::getInstance(velarix::kSettingsPath);
	    },
	    "**ERROR**(Configuraion:32)Out of memory: no room for the settings", "0", "Configuraion", 33, kGetInstance);
	EXPECT_THAT(logFileTexts(kLog), ElementsAre("[Configuraion:32] <E> Out of memory: no room for the settings"));
}

TEST_F(SettingsFatal, AValueThatAGetterCannotGiveIsNamedInTheLog)
{
	struct Row
	{
		std::function<void()> get;
		unsigned line; ///< of the log; the report is the next
		std::string error;
		const char* function;
	};
	const std::vector<Row> rows{
	    {[] { other().getString("AGENT.PARTNER_IP"); }, 65, "Not found: AGENT.PARTNER_IP", kGetString},
	    {[] { other().getString("AGENT.LOOP"); }, 65, "Circular reference: Too many property references encountered",
	     kGetString},
	    {[] { other().getInt("AGENT.MODE"); }, 82, "Not found: AGENT.MODE", kGetInt},
	    {[] { other().getInt("AGENT.TEXT"); }, 82, "Syntax error: Not a valid integer: master", kGetInt},
	    {[] { other().getBool("AGENT.QUIET"); }, 99, "Not found: AGENT.QUIET", kGetBool},
	    {[] { other().getBool("AGENT.TEXT"); }, 99, "Syntax error: Cannot convert to boolean: master", kGetBool},
	};
	for (const Row& row : rows)
	{
		const std::string place = "Configuraion:" + std::to_string(row.line);
		EXPECT_FATAL_AFTER(row.get(), "**ERROR**(" + place + ")" + row.error, "0", "Configuraion", row.line + 1,
		                   row.function);
		EXPECT_EQ(logFileTexts(kLog).back(), "[" + place + "] <E> " + row.error);
	}
}

TEST_F(SettingsFatal, AnErrorOfTheLibraryWhileSettingANumberEndsTheDaemon)
{
	EXPECT_FATAL_AFTER(moveAwayAndSetInt(), "**ERROR**(Configuraion:113)Null pointer", "0", "Configuraion", 114,
	                   kSetInt);
	EXPECT_THAT(logFileTexts(kLog), ElementsAre("[Configuraion:113] <E> Null pointer"));
}

TEST_F(SettingsFatal, WithoutAPurgeAgeTheStartOfTheLogEndsTheDaemonBeforeTheFileIsMade)
{
	settings.set("LOG.PATH", "/usr/velarix/log/never.log").remove("LOG.PURGEAGE");
	apply();
	useUnsetLog();
	EXPECT_NO_TEXT(velarixLog->init(), "LOG.PURGEAGE");
	EXPECT_NE(::access("/usr/velarix/log/never.log", F_OK), 0);
}

constexpr char kRecordLog[] = "/usr/velarix/log/run-info-fatal.log";
constexpr char kFile[] = "/usr/velarix/bin/log/record.txt";

constexpr char kOpenFailed[] = "(1 == 0) && \"ini File fopen fail.\"";
constexpr char kLoadRecord[] = "bool initialization::loadFile(const std::string&)";

class RunInfoFatal : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		useRealLogFileAt(kRecordLog);
	}

	/// Expects that the load of `path` ends the daemon after one line with `text`.
	static void expectLoadFails(const std::string& path, const std::string& text)
	{
		EXPECT_FATAL_AFTER(initialization().loadFile(path), "**ERROR**(QuorinINI:29)" + text, kOpenFailed, "QuorinINI",
		                   30, kLoadRecord);
		EXPECT_EQ(logFileTexts(kRecordLog).back(), "[QuorinINI:29] <E> " + text);
	}
};

TEST_F(RunInfoFatal, WhatIsNoFileThatOpensAndReadsCannotBeLoaded)
{
	expectLoadFails("/usr/velarix/bin/log/no-such.txt", "File not found: /usr/velarix/bin/log/no-such.txt");
	expectLoadFails("/usr/velarix/bin/log", "Cannot open file: not a file: /usr/velarix/bin/log");
	// It opens, and every read of it fails as on a broken disk.
	sandbox::shell("ln -sfn /proc/self/mem /usr/velarix/bin/log/broken.txt");
	expectLoadFails("/usr/velarix/bin/log/broken.txt", "I/O error: /usr/velarix/bin/log/broken.txt");
}

TEST_F(RunInfoFatal, AnUnreadableFileCannotBeLoaded)
{
	sandbox::writeFile(kFile, kRunInfo);
	ASSERT_EQ(::chmod(kFile, 0), 0);
	const PlainUser plainUser;
	expectLoadFails(kFile, "Access to file denied: /usr/velarix/bin/log/record.txt");
}

// A shortened path would let a later change rewrite another file.
TEST_F(RunInfoFatal, APathOf100CharactersCannotBeLoaded)
{
	std::string path = "/usr/velarix/bin/log/";
	path.append(100 - path.size(), 'p');
	sandbox::writeFile(path, kRunInfo);
	expectLoadFails(path, "Bad path syntax: path longer than 99 characters: " + path);
}

} // namespace
