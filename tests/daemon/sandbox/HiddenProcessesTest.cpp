// The real daemon where /proc shows each user only its own processes. What else fails under a
// daemon, and what becomes of the service then, the pairs of tests/pair try.

#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>

#include <linux/capability.h>

#include "DaemonProcess.h"
#include "LogFile.h"
#include "UserOfItsOwn.h"

using namespace std::chrono_literals;

namespace
{

/// For the daemon alone: all processes are shown to a group (root's, where none is named, and
/// root is in it) and to who may trace any.
void hideOtherUsers()
{
	const std::string options = "hidepid=2,gid=" + std::to_string(userOfItsOwn());
	if (::unshare(CLONE_NEWNS) != 0 || ::mount("proc", "/proc", "proc", 0, options.c_str()) != 0)
	{
		::_exit(126);
	}
}

void hideOtherUsersFromRootToo()
{
	hideOtherUsers();
	if (::prctl(PR_CAPBSET_DROP, CAP_SYS_PTRACE, 0, 0, 0) != 0)
	{
		::_exit(126);
	}
}

/// A program of the other user, which sleeps; killed and awaited at the end.
class ProgramOfOtherUser
{
public:
	explicit ProgramOfOtherUser(const std::string& path)
	{
		std::filesystem::copy_file("/bin/sleep", path);
		m_pid = ::fork();
		if (m_pid == 0)
		{
			::setuid(userOfItsOwn()) == 0 ? ::execl(path.c_str(), path.c_str(), "1000", nullptr) : 0;
			::_exit(126);
		}
		const std::string comm = "/proc/" + std::to_string(m_pid) + "/comm";
		const std::string name = std::filesystem::path(path).filename();
		EXPECT_TRUE(waitFor([&] { return sandbox::readFile(comm) == name + "\n"; }, 10s, "name of the program"));
	}
	~ProgramOfOtherUser()
	{
		::kill(m_pid, SIGKILL);
		::waitpid(m_pid, nullptr, 0);
	}
	ProgramOfOtherUser(const ProgramOfOtherUser&) = delete;
	ProgramOfOtherUser& operator=(const ProgramOfOtherUser&) = delete;

private:
	pid_t m_pid = 0;
};

using HiddenProcesses = DaemonSandbox;

TEST_F(HiddenProcesses, AreHiddenFromRootOnceItMayNotTrace)
{
	SCOPED_TRACE("user " + std::to_string(userOfItsOwn()));
	const std::string path = "/usr/velarix/bin/ofAnotherUser";
	const ProgramOfOtherUser program(path);
	settings.set("PROCESS_CHECK.PROCESS_PATH1", path);
	apply();
	const std::string running = "D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 1";
	const auto isLogged = [](const std::string& event)
	{
		const std::vector<std::string> events = eventsOf(readLogFile());
		return std::find(events.begin(), events.end(), event) != events.end();
	};

	DaemonProcess seeing("seeing");
	startAndWaitForWorkers(seeing, hideOtherUsers);
	EXPECT_TRUE(waitFor([&] { return isLogged(running); }, 40s, running, [&] { return seeing.errors(); }));

	sandbox::shell("rm /usr/velarix/log/velarix.log");
	settings.set("AGENT.HEART_BEAT_RECEIVE_PORT", "7003");
	apply();
	DaemonProcess blind("blind");
	startAndWaitForWorkers(blind, hideOtherUsersFromRootToo);
	const std::string none = "D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 0";
	EXPECT_TRUE(waitFor([&] { return isLogged(none); }, 40s, none, [&] { return blind.errors(); }));
	EXPECT_FALSE(isLogged(running));
}

} // namespace
