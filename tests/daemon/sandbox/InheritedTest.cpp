// What the daemon starts inherits neither its descriptors nor its threads' blocked signals. A
// program with the listening socket would keep it alive after the daemon has dropped it, and
// one that blocks SIGTERM would not end at an operator's plain kill. Everything is tried a
// second time as on a kernel that cannot mark a range of descriptors at once.

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <Poco/Thread.h>

#include "OwnProcess.h"
#include "RealPrograms.h"
#include "ShellRunner.h"
#include "VirtualIP.h"

using namespace std::chrono_literals;

namespace
{

bool g_oldKernel = false;

} // namespace

extern "C" int __real_close_range(unsigned first, unsigned last, int flags);
extern "C" int __wrap_close_range(unsigned first, unsigned last, int flags);
extern "C" int __wrap_close_range(unsigned first, unsigned last, int flags)
{
	if (g_oldKernel)
	{
		errno = ENOSYS;
		return -1;
	}
	return __real_close_range(first, last, flags);
}

namespace
{

constexpr char kShell[] = "/usr/bin/sh"; // the sandbox's own
constexpr char kProof[] = "/usr/velarix/log/proof";
/// Writes the numbers of the descriptors that a command has, 3 being the one by which it reads
/// them, and the signals that it blocks.
constexpr char kProve[] = "(ls /proc/self/fd | tr '\\n' ' '; grep SigBlk /proc/self/status) "
                          "> /usr/velarix/log/proof.new && mv /usr/velarix/log/proof.new /usr/velarix/log/proof\n";
constexpr char kNothing[] = "0 1 2 3 SigBlk:\t0000000000000000\n";

/// Runs `work` on a thread of the library, as the workers run.
void onWorkerThread(std::function<void()> work)
{
	Poco::Thread thread;
	thread.start([](void* given) { (*static_cast<std::function<void()>*>(given))(); }, &work);
	thread.join();
}

/// @return which of the three signals that the library's threads block the calling one blocks
std::string blockedHere()
{
	sigset_t mask;
	sigemptyset(&mask);
	EXPECT_EQ(::pthread_sigmask(SIG_SETMASK, nullptr, &mask), 0);
	std::string result;
	result += sigismember(&mask, SIGQUIT) == 1 ? "QUIT " : "";
	result += sigismember(&mask, SIGTERM) == 1 ? "TERM " : "";
	result += sigismember(&mask, SIGPIPE) == 1 ? "PIPE " : "";
	return result;
}

/// The ways in which the daemon starts something, each with the script of the proof.
using Way = void (*)();

void runCommand()
{
	std::string command = kProve;
	shellCommand(command);
}

void listInterfaces()
{
	programs::installScript("ifconfig", kProve);
	const std::string path = std::getenv("PATH");
	::setenv("PATH", ("/usr/velarix/programs:" + path).c_str(), 1);
	EXPECT_FALSE(isMyVirtualIPWorking());
	::setenv("PATH", path.c_str(), 1);
}

void runScript()
{
	sandbox::writeFile(velarix::kRunScriptPath, kProve);
	Utill::voidProcessRun(true);
}

void startManagedProgram()
{
	sandbox::writeFile(velarix::kRunScriptPath,
	                   "cd /usr/velarix/programs/\n" + programs::installScript("vxmanaged", kProve) + " &\n");
	Utill::voidProcessRun(true);
}

void launchDirectly()
{
	Utill::shellFileRun("AGENT.PROVE_COMMAND");
}

/// The shell is bash: others clear the blocked signals themselves.
class Inherited : public DaemonTest, public testing::WithParamInterface<std::tuple<bool, Way>>
{
protected:
	Inherited()
	{
		settings.set("AGENT.PROVE_COMMAND", "/usr/velarix/programs/vxprove");
		programs::installScript("vxprove", kProve);
		g_oldKernel = std::get<bool>(GetParam());
		m_shell = std::filesystem::read_symlink(kShell);
		useShell("bash");
	}

	~Inherited() override
	{
		useShell(m_shell);
		g_oldKernel = false;
		while (::waitpid(-1, nullptr, 0) > 0)
		{
		}
	}

private:
	static void useShell(const std::filesystem::path& target)
	{
		std::filesystem::remove(kShell);
		std::filesystem::create_symlink(target, kShell);
	}

	std::filesystem::path m_shell;
};

TEST_P(Inherited, AreTheStandardStreamsAndNoBlockedSignal)
{
	// Descriptors such as the daemon has, none of them close-on-exec.
	const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
	EXPECT_EQ(::listen(listener, 1), 0);
	const int log = ::open("/usr/velarix/log/open.log", O_CREAT | O_WRONLY, 0600);
	const std::array<int, 4> descriptors{listener, log, ::socket(AF_INET, SOCK_DGRAM, 0), ::dup2(log, 900)};
	EXPECT_THAT(descriptors, testing::Each(testing::Gt(2)));
	onWorkerThread(
	    []
	    {
		    EXPECT_EQ(blockedHere(), "QUIT TERM PIPE ");
		    std::get<Way>(GetParam())();
		    EXPECT_EQ(blockedHere(), "QUIT TERM PIPE ");
	    });
	EXPECT_TRUE(waitFor([] { return ::access(kProof, F_OK) == 0; }, 5s, "the proof"));
	EXPECT_EQ(sandbox::readFile(kProof), kNothing);
	for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
	{
		EXPECT_EQ(::fcntl(stream, F_GETFD), 0) << stream;
	}
	for (const int descriptor : descriptors) // They are the daemon's still.
	{
		EXPECT_EQ(::close(descriptor), 0) << descriptor;
	}
}

INSTANTIATE_TEST_SUITE_P(Ways, Inherited,
                         testing::Combine(testing::Bool(), testing::Values(runCommand, listInterfaces, runScript,
                                                                           startManagedProgram, launchDirectly)));

using InheritedSpecially = DaemonTest;

TEST_F(InheritedSpecially, WithoutProcACommandStillRuns)
{
	for (const bool oldKernel : {false, true})
	{
		g_oldKernel = oldKernel;
		sandbox::coverProc();
		std::string command = "echo started";
		EXPECT_EQ(shellCommand(command), "started\n\n");
		sandbox::showRealProc();
	}
	g_oldKernel = false;
}

// A console that nobody reads any more leaves the signal pending on each thread
// that writes to it.
TEST_IN_OWN_PROCESS(InheritedSpecially, AnEarlierWriteToABrokenPipeDoesNotEndTheDaemonAtItsNextCommand)
{
	onWorkerThread(
	    []
	    {
		    int ends[2];
		    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
		    ::close(ends[0]);
		    EXPECT_EQ(::write(ends[1], "x", 1), -1);
		    EXPECT_EQ(errno, EPIPE);
		    ::close(ends[1]);
		    std::string command = "echo alive";
		    EXPECT_EQ(shellCommand(command), "alive\n\n");
	    });
}

} // namespace
