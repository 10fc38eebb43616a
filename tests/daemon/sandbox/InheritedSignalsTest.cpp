// What the daemon's threads start begins with the ordinary signals, although the
// library's threads block SIGQUIT, SIGTERM and SIGPIPE: an operator's plain kill
// must end a managed program. Some shells clear the blocked signals themselves, so
// the shell is one that does not.

#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <Poco/Runnable.h>
#include <Poco/Thread.h>

#include "Daemon.h"
#include "OwnProcess.h"
#include "RealPrograms.h"
#include "Sandbox.h"
#include "ShellRunner.h"
#include "Utill.h"
#include "WaitFor.h"
#include "velarix/paths.h"

using namespace std::chrono_literals;

namespace
{

constexpr char kShell[] = "/usr/bin/sh"; // the sandbox's own
constexpr char kProof[] = "/usr/velarix/log/signals";
constexpr char kWriteBlocked[] = "grep SigBlk /proc/self/status > /usr/velarix/log/signals.new && "
                                 "mv /usr/velarix/log/signals.new /usr/velarix/log/signals\n";
constexpr char kNoneBlocked[] = "SigBlk:\t0000000000000000\n";

/// Runs `work` on a thread of the library, as the workers run.
void onWorkerThread(const std::function<void()>& work)
{
	class Work : public Poco::Runnable
	{
	public:
		explicit Work(const std::function<void()>& body) : m_body(body) {}
		void run() override { m_body(); }

	private:
		const std::function<void()>& m_body;
	} runnable(work);
	Poco::Thread thread;
	thread.start(runnable);
	thread.join();
}

/// @return which of the three signals the calling thread blocks
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

/// Writes to a pipe whose reader is gone.
void writeToABrokenPipe()
{
	int ends[2];
	ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
	::close(ends[0]);
	EXPECT_EQ(::write(ends[1], "x", 1), -1);
	EXPECT_EQ(errno, EPIPE);
	::close(ends[1]);
}

class InheritedSignals : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		::unlink(kProof);
		m_shell = std::filesystem::read_symlink(kShell);
		useShell("bash");
	}

	void TearDown() override
	{
		useShell(m_shell);
		::unlink(kProof);
		::unlink(velarix::kRunScriptPath);
		DaemonTest::TearDown();
	}

	static std::string proof()
	{
		EXPECT_TRUE(waitFor([] { return ::access(kProof, F_OK) == 0; }, 5s, "blocked signals of the program"));
		return sandbox::readFile(kProof);
	}

private:
	static void useShell(const std::filesystem::path& target)
	{
		std::filesystem::remove(kShell);
		std::filesystem::create_symlink(target, kShell);
	}

	std::filesystem::path m_shell;
};

TEST_F(InheritedSignals, ACommandHasNoneOfThemBlocked)
{
	onWorkerThread(
	    []
	    {
		    std::string command = "grep SigBlk /proc/self/status";
		    EXPECT_EQ(shellCommand(command), "SigBlk:\t0000000000000000\n\n");
	    });
}

TEST_F(InheritedSignals, AManagedProgramHasNoneOfThemBlocked)
{
	sandbox::writeFile(velarix::kRunScriptPath,
	                   "cd /usr/velarix/programs/\n" + programs::installScript("vxmanaged", kWriteBlocked) + " &\n");
	onWorkerThread([] { Utill::voidProcessRun(true); });
	EXPECT_EQ(proof(), kNoneBlocked);
}

TEST_F(InheritedSignals, ADirectlyLaunchedProgramHasNoneOfThemBlocked)
{
	settings.set("AGENT.LIST_COMMAND", programs::installScript("vxlist", kWriteBlocked));
	apply();
	onWorkerThread([] { Utill::shellFileRun("AGENT.LIST_COMMAND"); });
	EXPECT_EQ(proof(), kNoneBlocked);
	EXPECT_GT(::waitpid(-1, nullptr, 0), 0);
}

TEST_F(InheritedSignals, TheDaemonsThreadKeepsThemBlocked)
{
	sandbox::writeFile(velarix::kRunScriptPath, "true\n");
	settings.set("AGENT.LIST_COMMAND", "/bin/true");
	apply();
	std::vector<std::string> blocked;
	onWorkerThread(
	    [&blocked]
	    {
		    blocked.push_back(blockedHere());
		    std::string command = "true";
		    shellCommand(command);
		    blocked.push_back(blockedHere());
		    Utill::voidProcessRun(true);
		    blocked.push_back(blockedHere());
		    Utill::shellFileRun("AGENT.LIST_COMMAND");
		    blocked.push_back(blockedHere());
	    });
	EXPECT_THAT(blocked,
	            testing::ElementsAre("QUIT TERM PIPE ", "QUIT TERM PIPE ", "QUIT TERM PIPE ", "QUIT TERM PIPE "));
	EXPECT_GT(::waitpid(-1, nullptr, 0), 0);
}

// A console that nobody reads any more leaves the signal pending on each thread
// that writes to it.
TEST_F(InheritedSignals, AnEarlierWriteToABrokenPipeDoesNotEndTheDaemonAtItsNextCommand)
{
	inOwnProcess(
	    []
	    {
		    onWorkerThread(
		        []
		        {
			        writeToABrokenPipe();
			        std::string command = "echo alive";
			        EXPECT_EQ(shellCommand(command), "alive\n\n");
		        });
	    });
}

} // namespace
