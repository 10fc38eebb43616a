/// The daemon's entry point. Everything else links into the tests without it.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include <Poco/Thread.h>

#include "CAgent.h"
#include "Configuraion.h"
#include "HAmain.h"
#include "VelarixLog.h"
#include "velarix/paths.h"

void ExitProgram(const char* text)
{
	if (text != nullptr)
	{
		std::printf("Good Bye!!! [%s]\r\n", text);
	}
	else
	{
		std::puts("Good Bye!!! \r");
	}
	std::exit(0);
}

MODE getAgentMode()
{
	switch (Configuraion::getInstance(velarix::kSettingsPath)->getInt("AGENT.MODE"))
	{
	case 1:
		return MODE_MASTER;
	case 2:
	default:
		return MODE_SLAVE;
	}
}

namespace
{

/// A descriptor that is opened takes the lowest free number. Under that of a closed
/// standard stream the log would get the console's lines, and every managed program would
/// inherit the listening socket, so that this node could not listen a second time. Streams
/// that are open stay as they are. Pinned by ClosedStreams.
void occupyClosedStandardStreams()
{
	int descriptor = STDIN_FILENO;
	while (descriptor != -1 && descriptor <= STDERR_FILENO)
	{
		descriptor = ::open("/dev/null", O_RDWR);
	}
	if (descriptor > STDERR_FILENO)
	{
		::close(descriptor);
	}
}

/// Bare digits without a line feed. A file that cannot be opened ends the daemon: nobody
/// could find it to stop it. What is written is not checked: on a full disk the file stays
/// empty and the daemon goes on, and the service script deals with that.
void writePidFile()
{
	char text[10] = {};
	std::snprintf(text, sizeof text, "%d", static_cast<int>(::getpid()));
	std::FILE* pFile = std::fopen(velarix::kPidPath, "wb");
	if (pFile == nullptr)
	{
		std::fprintf(stderr, "VelarixHA: cannot write the pid file %s: %s\n", velarix::kPidPath, std::strerror(errno));
		std::abort();
	}
	std::fwrite(text, 1, std::strlen(text), pFile);
	std::fclose(pFile);
}

} // namespace

int main()
{
	occupyClosedStandardStreams();
	const pid_t pid = ::fork();
	if (pid > 0)
	{
		ExitProgram("fork parent");
	}
	if (pid == -1)
	{
		ExitProgram("fork fail");
	}
	Poco::Thread::sleep(2000);
	writePidFile();
	velarixLog = new VelarixLog;
	velarixLog->init();
	// Read so that a missing role ends the start, and then not used: every node
	// starts as standby and the heartbeats promote it. Two nodes that started in
	// their configured roles would raise the address before they knew of each
	// other. Pinned by Start in agent_test.py.
	[[maybe_unused]] const MODE configuredMode = getAgentMode();
	CAgent agent(MODE_SLAVE);
	agent.startThread();
	for (;;)
	{
		Poco::Thread::sleep(100000000);
	}
}
