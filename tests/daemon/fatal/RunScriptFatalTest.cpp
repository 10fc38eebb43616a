// A run script that cannot be written ends the daemon: a node without it could
// take over and start nothing.

#include <sys/mount.h>

#include <Poco/File.h>

#include "CAgent.h"
#include "Reported.h"

namespace
{

constexpr char kFunction[] = "void CAgent::makeProcessRunShellScript()";
constexpr char kDirectory[] = "/usr/velarix/bin/ini";

/// In place of the library's creation of a file when set.
std::function<bool()> g_createFile;

} // namespace

// Poco::File::createFile()
extern "C" bool __real__ZN4Poco4File10createFileEv(Poco::File* pFile);
extern "C" bool __wrap__ZN4Poco4File10createFileEv(Poco::File* pFile);
extern "C" bool __wrap__ZN4Poco4File10createFileEv(Poco::File* pFile)
{
	return g_createFile ? g_createFile() : __real__ZN4Poco4File10createFileEv(pFile);
}

namespace
{

// The settings are read when the log is made, so their directory can go afterwards.
class RunScriptFatal : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		::unlink(velarix::kRunScriptPath);
		g_createFile = nullptr;
	}

	void TearDown() override
	{
		g_createFile = nullptr;
		DaemonTest::TearDown();
	}

	/// The construction, reported on standard error: no line and no command comes before
	/// the script is written.
	static void makeAgent()
	{
		reportEverything();
		const CAgent agent(MODE_SLAVE);
	}

	/// @param line of the error; the report is the next
	static void expectEnd(unsigned line, const std::string& error, const char* expression)
	{
		EXPECT_FATAL_AFTER(makeAgent(), reported({kBegin, "log E CAgent:" + std::to_string(line) + " " + error}),
		                   expression, "CAgent", line + 1, kFunction);
	}

	/// Mounts an empty tmpfs over the script's directory.
	static void coverDirectory(const std::string& options)
	{
		ASSERT_EQ(::mount("tmpfs", kDirectory, "tmpfs", 0, options.c_str()), 0);
	}
	static void showDirectory() { ASSERT_EQ(::umount2(kDirectory, MNT_DETACH), 0); }
};

TEST_F(RunScriptFatal, AFileThatWasNotCreatedEndsTheDaemon)
{
	g_createFile = [] { return false; };
	expectEnd(212, "failed to creat processList", "1 == 0");
}

TEST_F(RunScriptFatal, ALinkToNowhereInItsPlaceEndsTheDaemon)
{
	ASSERT_EQ(::symlink("/usr/velarix/nowhere", velarix::kRunScriptPath), 0);
	expectEnd(212, "failed to creat processList", "1 == 0");
	::unlink(velarix::kRunScriptPath);
}

TEST_F(RunScriptFatal, AMissingDirectoryEndsTheDaemon)
{
	const std::string away = std::string(kDirectory) + ".away";
	ASSERT_EQ(::rename(kDirectory, away.c_str()), 0);
	expectEnd(218, "File not found: /usr/velarix/bin/ini/processList.sh", "0");
	ASSERT_EQ(::rename(away.c_str(), kDirectory), 0);
}

TEST_F(RunScriptFatal, AFilledDirectoryInItsPlaceEndsTheDaemon)
{
	ASSERT_EQ(::mkdir(velarix::kRunScriptPath, 0755), 0);
	const std::string inside = std::string(velarix::kRunScriptPath) + "/kept";
	sandbox::writeFile(inside, "kept\n");
	expectEnd(218, "Directory not empty: /usr/velarix/bin/ini/processList.sh", "0");
	EXPECT_EQ(sandbox::readFile(inside), "kept\n");
	::unlink(inside.c_str());
	::rmdir(velarix::kRunScriptPath);
}

TEST_F(RunScriptFatal, AReadOnlyDirectoryEndsTheDaemon)
{
	coverDirectory("ro");
	expectEnd(218, "File is read-only: /usr/velarix/bin/ini/processList.sh", "0");
	showDirectory();
}

TEST_F(RunScriptFatal, AFullDiskAfterTheCreationEndsTheDaemon)
{
	coverDirectory("size=4k");
	sandbox::writeFile(std::string(kDirectory) + "/filling", "the one page there is");
	expectEnd(250, "Cannot write file: /usr/velarix/bin/ini/processList.sh", "1 == 0");
	showDirectory();
}

TEST_F(RunScriptFatal, AFileThatCannotBeOpenedAfterTheCreationEndsTheDaemon)
{
	g_createFile = [] { return ::mkdir(velarix::kRunScriptPath, 0755) == 0; };
	expectEnd(250, "Cannot open file: not a file: /usr/velarix/bin/ini/processList.sh", "1 == 0");
	::rmdir(velarix::kRunScriptPath);
}

TEST_F(RunScriptFatal, AMissingProgramPathEndsTheDaemonBeforeTheOldScriptGoes)
{
	sandbox::writeFile(velarix::kRunScriptPath, "old\n");
	settings.remove("PROCESS_CHECK.PROCESS_PATH1");
	apply();
	EXPECT_FATAL_AFTER(makeAgent(), reported({kBegin, "log E Configuraion:65 Not found: PROCESS_CHECK.PROCESS_PATH1"}),
	                   "0", "Configuraion", 66, "std::string Configuraion::getString(const std::string&)");
	EXPECT_EQ(sandbox::readFile(velarix::kRunScriptPath), "old\n");
	::unlink(velarix::kRunScriptPath);
}

} // namespace
