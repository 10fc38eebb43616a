// The report of a fatal condition, and the settings and records that end the daemon.

#include <utility>

#include "Configuraion.h"
#include "Daemon.h"
#include "PlainUser.h"
#include "QuorinINI.h"
#include "VelarixLog.h"
#include "velarix/fatal.h"

namespace
{

constexpr char kOther[] = "/usr/velarix/bin/ini/other.ini";
constexpr Report kNoSettings{"0", "Configuraion", 50, "bool Configuraion::loadFile(const std::string&)"};
constexpr Report kNoSwitch{"0", "Configuraion", 100, "bool Configuraion::getBool(const std::string&)"};

/// Set while the allocation of the store's object raises an error of the library.
bool g_storeRaisesLibraryError = false;

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

using SettingsFatal = DaemonTest;

// With the report alone: the log may not exist yet.
TEST_F(SettingsFatal, WhatIsNoFileThatOpensAndReadsEndsTheDaemonWithoutALogLine)
{
	// The last one opens, and every read of it fails as on a broken disk.
	sandbox::shell("ln -sfn /proc/self/mem /usr/velarix/bin/ini/broken.ini");
	for (const char* path :
	     {"/usr/velarix/bin/ini/no-such.ini", "/usr/velarix/bin/ini", "/usr/velarix/bin/ini/broken.ini"})
	{
		EXPECT_END(Configuraion{path}, {}, kNoSettings);
	}
	EXPECT_END(
	    {
		    velarixLog = nullptr;
		    Configuraion::pConf = nullptr;
		    Configuraion::getInstance("/usr/velarix/bin/ini/no-such.ini");
	    },
	    {}, kNoSettings);
}

TEST_F(SettingsFatal, ALibraryErrorAtTheFirstUseIsLoggedAndEndsTheDaemon)
{
	EXPECT_END(
	    {
		    Configuraion::pConf = nullptr;
		    g_storeRaisesLibraryError = true;
		    Configuraion::getInstance(velarix::kSettingsPath);
	    },
	    {"log E Configuraion:32 Out of memory: no room for the settings"}, "0", "Configuraion", 33,
	    "static Configuraion* Configuraion::getInstance(const std::string&)");
}

TEST_F(SettingsFatal, AValueThatAGetterCannotGiveIsNamedInTheLog)
{
	sandbox::writeFile(kOther, "[AGENT]\nTEXT = master\nLOOP = ${AGENT.LOOP}\n");
	Configuraion other(kOther);
	EXPECT_END(other.getString("AGENT.PARTNER_IP"), {"log E Configuraion:65 Not found: AGENT.PARTNER_IP"}, kNoText);
	EXPECT_END(other.getString("AGENT.LOOP"),
	           {"log E Configuraion:65 Circular reference: Too many property references encountered"}, kNoText);
	EXPECT_END(other.getInt("AGENT.MODE"), {"log E Configuraion:82 Not found: AGENT.MODE"}, kNoNumber);
	EXPECT_END(other.getInt("AGENT.TEXT"), {"log E Configuraion:82 Syntax error: Not a valid integer: master"},
	           kNoNumber);
	EXPECT_END(other.getBool("AGENT.QUIET"), {"log E Configuraion:99 Not found: AGENT.QUIET"}, kNoSwitch);
	EXPECT_END(other.getBool("AGENT.TEXT"), {"log E Configuraion:99 Syntax error: Cannot convert to boolean: master"},
	           kNoSwitch);
	const Configuraion taken(std::move(other));
	EXPECT_END(other.setInt("AGENT.MODE", 1), // NOLINT(bugprone-use-after-move)
	           {"log E Configuraion:113 Null pointer"}, "0", "Configuraion", 114,
	           "void Configuraion::setInt(const std::string&, int)");
}

TEST_F(SettingsFatal, WithoutAPurgeAgeTheStartOfTheLogEndsTheDaemonBeforeTheFileIsMade)
{
	settings.set("LOG.PATH", "/usr/velarix/log/never.log").remove("LOG.PURGEAGE");
	useUnsetLog();
	EXPECT_EXIT(velarixLog->init(), testing::KilledBySignal(SIGABRT),
	            "^\\*\\*ERROR\\*\\*\\(Configuraion:65\\)Not found: LOG.PURGEAGE\nfatal_test: Configuraion:66: ");
	EXPECT_NE(::access("/usr/velarix/log/never.log", F_OK), 0);
}

/// Expects that the load of `path` ends the daemon after one line with `text`.
void expectLoadFails(const std::string& path, const std::string& text)
{
	EXPECT_END(initialization().loadFile(path), {"log E QuorinINI:29 " + text}, kNoRecord);
}

using RunInfoFatal = DaemonTest;

TEST_F(RunInfoFatal, WhatIsNoFileThatOpensAndReadsCannotBeLoaded)
{
	const std::string folder = "/usr/velarix/bin/log";
	expectLoadFails(folder + "/no-such.txt", "File not found: /usr/velarix/bin/log/no-such.txt");
	expectLoadFails(folder, "Cannot open file: not a file: /usr/velarix/bin/log");
	sandbox::shell("ln -sfn /proc/self/mem /usr/velarix/bin/log/broken.txt");
	expectLoadFails(folder + "/broken.txt", "I/O error: /usr/velarix/bin/log/broken.txt");
	// A shortened path would let a later change rewrite another file.
	const std::string longest = folder + "/" + std::string(100 - folder.size() - 1, 'p');
	sandbox::writeFile(longest, kRunInfo);
	expectLoadFails(longest, "Bad path syntax: path longer than 99 characters: " + longest);
	ASSERT_EQ(::chmod(velarix::kRunInfoPath, 0), 0);
	const PlainUser plainUser;
	expectLoadFails(velarix::kRunInfoPath, "Access to file denied: /usr/velarix/bin/log/runinfo.txt");
}

} // namespace
