// The real daemon when the system under it fails: what it says, and what it goes on
// doing. Each failure is made for the daemon alone.

#include <csignal>
#include <filesystem>
#include <fstream>

#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <linux/capability.h>

#include "FailingEnvironment.h"
#include "Sandbox.h"
#include "UserOfItsOwn.h"
#include "WaitFor.h"
#include "velarix/paths.h"

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using namespace std::chrono_literals;

namespace
{

/// In a mount namespace of the daemon's own.
void mountOver(const char* source, const char* target, const char* type, unsigned long flags,
               const char* options = nullptr)
{
	if (::unshare(CLONE_NEWNS) != 0 || ::mount(source, target, type, flags, options) != 0)
	{
		::_exit(126);
	}
}

void makeLogDirectoryReadOnly()
{
	mountOver("/usr/velarix/log", "/usr/velarix/log", nullptr, MS_BIND);
	if (::mount(nullptr, "/usr/velarix/log", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0)
	{
		::_exit(126);
	}
}

void drop(std::initializer_list<unsigned long> capabilities)
{
	for (const unsigned long capability : capabilities)
	{
		if (::prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0)
		{
			::_exit(126);
		}
	}
}

void dropRawSockets()
{
	drop({CAP_NET_RAW});
}

#if !defined(__SANITIZE_ADDRESS__)
// AddressSanitizer's own start reads /proc.

/// Nobody may open it but those whom modes do not bind, and the daemon is none of them.
void lockProc()
{
	mountOver("tmpfs", "/proc", "tmpfs", 0, "mode=0");
	drop({CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH});
}
#endif

/// Shows each user his own processes, and all of them to a group (root's, where none is
/// named, and root is in it) and to who may trace any.
void hideOtherUsers()
{
	mountOver("proc", "/proc", "proc", 0, ("hidepid=2,gid=" + std::to_string(userOfItsOwn())).c_str());
}

void hideOtherUsersFromRootToo()
{
	hideOtherUsers();
	drop({CAP_SYS_PTRACE});
}

/// The daemon finds these two and no other tool.
void leaveOnlyShellAndCat()
{
	::setenv("PATH", "/usr/velarix/tools", 1);
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

/// A interface with carrier, for as long as it lives.
class Card
{
public:
	explicit Card(std::string name) : m_name(std::move(name)) { sandbox::addInterface(m_name, true); }
	~Card() { sandbox::shell("ip link del " + m_name); }
	Card(const Card&) = delete;
	Card& operator=(const Card&) = delete;

private:
	std::string m_name;
};

/// A disk of one page over the directory of the run-info record, which takes the page.
class FullDisk
{
public:
	explicit FullDisk(std::string directory) : m_directory(std::move(directory))
	{
		sandbox::shell("mount -t tmpfs -o size=4k full " + m_directory);
		sandbox::writeFile(velarix::kRunInfoPath, kRunInfo);
		EXPECT_FALSE(hasRoom());
	}
	~FullDisk() { sandbox::shell("umount -l " + m_directory); }
	FullDisk(const FullDisk&) = delete;
	FullDisk& operator=(const FullDisk&) = delete;

	/// Whether a byte can be written.
	bool hasRoom() const
	{
		std::ofstream other(m_directory + "/other");
		other << "x" << std::flush;
		return other.good();
	}

private:
	std::string m_directory;
};

TEST_F(FailingEnvironment, AReadOnlyLogDirectoryIsSaidAndTheDaemonGoesOnWithoutALog)
{
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon, makeLogDirectoryReadOnly);
	EXPECT_THAT(daemon.output(), AllOf(HasSubstr("initLog fail : "), HasSubstr("/usr/velarix/log/velarix.log")));
	const auto receives = [&]
	{ return daemon.output().find("**DEBUG**(CHeartReciver:94)Reciver while start\n") != std::string::npos; };
	EXPECT_TRUE(waitFor(receives, 20s, "a receiver at work", [&] { return daemon.output(); }));
	EXPECT_NE(::access("/usr/velarix/log/velarix.log", F_OK), 0);
	EXPECT_EQ(daemon.waitForEnd(0ms), -1);
}

// Emptied first, it gives back the room that its new bytes need; they are as many.
TEST_F(FailingEnvironment, ARunInfoRecordOnAFullDiskIsRewrittenInItsOwnRoom)
{
	const FullDisk disk("/usr/velarix/bin/log");
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon);
	EXPECT_GT(recordedStart(), "20200000000000");
	EXPECT_FALSE(disk.hasRoom());
	EXPECT_EQ(daemon.waitForEnd(0ms), -1);
}

TEST_F(FailingEnvironment, WithoutRawSocketsEveryProbeFailsAndASlaveStaysOne)
{
	leaveAlone();
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon, dropRawSockets);
	waitForEvents(daemon, {"E Utill:766 partner Comunication IP Check Failed: I/O error: 1[CODE:1]",
	                       "E Utill:814 service IP Check Failed: I/O error: 1[CODE:1]",
	                       "E Utill:789 My Comunication IP Check Failed: I/O error: 1[CODE:1]",
	                       "D Utill:791 myComunicationIPcheck : FALSE", "D CHeartReciver:96 networkResult: 1"});
	EXPECT_THAT(eventsOf(readLogFile()), Not(Contains(HasSubstr("slave -> master"))));
	EXPECT_EQ(daemon.threads(), 4);
}

TEST_F(FailingEnvironment, WithoutRawSocketsTheThirdSilenceIsTakenForADeadPartner)
{
	const Card card("eth1");
	settings.set("AGENT.VIRTUAL_IP", "192.0.2.100").set("AGENT.VIRTUAL_IP_START_COMMAND", "true");
	apply();
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon, dropRawSockets);
	// The partner's host is this one, and would answer.
	waitForEvents(daemon,
	              {"D CHeartReciver:192 Reciver : no received message",
	               "E Utill:766 partner Comunication IP Check Failed: I/O error: 1[CODE:1]",
	               "D CHeartReciver:218 try to process run", "E Utill:504 set virtual ip failed: I/O error: 1"});
}

TEST_F(FailingEnvironment, AProcThatHidesOtherUsersHidesThemFromRootOnceItMayNotTrace)
{
	SCOPED_TRACE("user " + std::to_string(userOfItsOwn()));
	const std::string path = "/usr/velarix/bin/ofAnotherUser";
	const ProgramOfOtherUser program(path);
	settings.set("PROCESS_CHECK.PROCESS_PATH1", path);
	apply();
	const std::string running = "D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 1";
	DaemonProcess seeing("seeing");
	startAndWaitForWorkers(seeing, hideOtherUsers);
	waitForEvents(seeing, {running});
	sandbox::shell("rm /usr/velarix/log/velarix.log");
	settings.set("AGENT.HEART_BEAT_RECEIVE_PORT", "7003");
	apply();
	DaemonProcess blind("blind");
	startAndWaitForWorkers(blind, hideOtherUsersFromRootToo);
	waitForEvents(blind, {"D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 0"});
	EXPECT_THAT(eventsOf(readLogFile()), Not(Contains(running)));
}

#if !defined(__SANITIZE_ADDRESS__) // as above
TEST_F(FailingEnvironment, AProcThatCannotBeOpenedIsAnErrorAtEveryCheck)
{
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon, lockProc);
	waitForEvents(daemon, {"E Utill:204 NO_DIR(/proc)", "D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 0"});
	EXPECT_EQ(daemon.threads(), 4);
}
#endif

TEST_F(FailingEnvironment, WithoutTheListingToolTheAddressCountsAsNotRaised)
{
	sandbox::shell("mkdir -p /usr/velarix/tools && ln -s /bin/sh /bin/cat /bin/chmod /usr/velarix/tools");
	leaveAlone();
	settings.set("AGENT.VIRTUAL_IP_START_COMMAND", "false");
	apply();
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon, leaveOnlyShellAndCat);
	// The gateway answers and nobody else does: the slave takes over.
	waitForEvents(daemon, {"D CHeartReciver:549 slave -> master  process run", "D Utill:680 myVirtualIP not working",
	                       "I Utill:573 command(false) : ", "D Utill:490 set virtual ip...", "D Utill:496 ping: 0"});
	EXPECT_THAT(daemon.errors(), HasSubstr("ifconfig: not found"));
}

} // namespace
