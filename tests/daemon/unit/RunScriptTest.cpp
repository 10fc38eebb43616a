// The run script that the agent writes at its construction.

#include <Poco/File.h>

#include "CAgent.h"
#include "Daemon.h"

// Poco::File::createFile(), behind which an action can wait.
extern "C" bool __real__ZN4Poco4File10createFileEv(Poco::File* pFile);
extern "C" bool __wrap__ZN4Poco4File10createFileEv(Poco::File* pFile);
extern "C" bool __wrap__ZN4Poco4File10createFileEv(Poco::File* pFile)
{
	const bool created = __real__ZN4Poco4File10createFileEv(pFile);
	events::announce("created");
	return created;
}

namespace
{

class RunScript : public DaemonTest
{
protected:
	/// @return the script that an agent for these programs writes
	std::string scriptFor(const std::vector<std::string>& paths)
	{
		settings.programs(paths);
		const CAgent agent(MODE_SLAVE);
		return sandbox::readFile(velarix::kRunScriptPath);
	}

	/// @return the permission bits of the script
	static mode_t permissions()
	{
		struct stat status
		{
		};
		EXPECT_EQ(::stat(velarix::kRunScriptPath, &status), 0);
		return status.st_mode & 07777U;
	}
};

TEST_F(RunScript, AnExistingScriptIsReplacedAndNeverAppendedTo)
{
	sandbox::writeFile(velarix::kRunScriptPath, "rm -rf /opt/app\nand a good deal more than the new script needs\n");
	EXPECT_EQ(scriptFor({"/opt/app/server"}), "cd /opt/app/\n/opt/app/server &\n");
	EXPECT_EQ(scriptFor({"/srv/worker"}), "cd /srv/\n/srv/worker &\n");
}

TEST_F(RunScript, WhateverTheNewFileHoldsMeanwhileIsDropped)
{
	events::at("created", [] { sandbox::writeFile(velarix::kRunScriptPath, "somebody else's line\n"); });
	EXPECT_EQ(scriptFor({"/srv/worker"}), "cd /srv/\n/srv/worker &\n");
}

TEST_F(RunScript, TheFileIsCreatedWithTheDefaultPermissions)
{
	const mode_t before = ::umask(0);
	scriptFor({"/srv/worker"});
	EXPECT_EQ(permissions(), 0666U);
	::umask(077);
	scriptFor({"/srv/worker"});
	EXPECT_EQ(permissions(), 0600U);
	::umask(before);
}

} // namespace
