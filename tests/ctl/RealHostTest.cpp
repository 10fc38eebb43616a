// The functions that ask and change the real machine, tried on processes of the
// test's own.

#include <csignal>
#include <filesystem>
#include <functional>
#include <thread>

#include <Poco/TemporaryFile.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ToolThreads.h"
#include "inspect/Host.h"
#include "inspect/HostProcesses.h"
#include "inspect/InputFile.h"

using namespace velarix::inspect;
using namespace std::chrono_literals;

namespace
{

/// A child that sleeps under a name of its own until it is ended.
class Sleeper
{
public:
	explicit Sleeper(const char* name)
	{
		m_pid = ::fork();
		if (m_pid == 0)
		{
			::prctl(PR_SET_NAME, name);
			::prctl(PR_SET_PDEATHSIG, SIGKILL);
			::pause();
			::_exit(0);
		}
		EXPECT_TRUE(await([&](const host::Process& process) { return process.name == name; }));
	}
	~Sleeper()
	{
		::kill(m_pid, SIGKILL);
		reap();
	}
	Sleeper(const Sleeper&) = delete;
	Sleeper& operator=(const Sleeper&) = delete;

	pid_t pid() const { return m_pid; }
	int reap()
	{
		int status = 0;
		::waitpid(m_pid, &status, 0);
		return status;
	}

	/// Waits until /proc shows what is wished.
	bool await(const std::function<bool(const host::Process&)>& wished) const
	{
		for (int tries = 0; tries < 500; ++tries)
		{
			const std::optional<host::Process> found = host::process(m_pid);
			if (found && wished(*found))
			{
				return true;
			}
			std::this_thread::sleep_for(10ms);
		}
		return false;
	}

private:
	pid_t m_pid = -1;
};

} // namespace

TEST(RealProcesses, AreReportedAsProcShowsThemAsleepStoppedAndEnded)
{
	Sleeper sleeper("velarix-sleeper");
	EXPECT_TRUE(sleeper.await([](const host::Process& process) { return process.state == 'S'; }));
	const host::Process found = host::process(sleeper.pid()).value();
	EXPECT_EQ(found.pid, sleeper.pid());
	EXPECT_EQ(found.name, "velarix-sleeper");
	EXPECT_EQ(found.statusLine, "Name:\tvelarix-sleeper");
	EXPECT_EQ(found.threads, 1 + kToolThreadsAtFirst);
	const std::vector<host::Process> all = host::processes().value();
	EXPECT_TRUE(std::ranges::is_sorted(all, {}, &host::Process::pid));
	EXPECT_EQ(std::ranges::count(all, sleeper.pid(), &host::Process::pid), 1);
	EXPECT_EQ(std::ranges::count(all, ::getpid(), &host::Process::pid), 1);

	::kill(sleeper.pid(), SIGSTOP);
	EXPECT_TRUE(sleeper.await([](const host::Process& process) { return process.state == 'T'; }));
	::kill(sleeper.pid(), SIGKILL);
	EXPECT_TRUE(sleeper.await([](const host::Process& process) { return process.state == 'Z'; }));
	EXPECT_TRUE(host::isThere(sleeper.pid()));
	sleeper.reap();
	EXPECT_FALSE(host::process(sleeper.pid()));
	EXPECT_FALSE(host::isThere(sleeper.pid()));
	EXPECT_FALSE(host::startOf(sleeper.pid()));
}

TEST(RealProcesses, KnowWhenTheyWereStarted)
{
	const auto before = std::chrono::system_clock::now();
	const Sleeper sleeper("a) b (c");
	const std::optional<std::chrono::system_clock::time_point> start = host::startOf(sleeper.pid());
	ASSERT_TRUE(start);
	EXPECT_LT(std::chrono::abs(*start - before), 3s);
	std::this_thread::sleep_for(3ms);
	EXPECT_EQ(host::startOf(sleeper.pid()), start) << "the same at each look";
}

TEST(RealProcesses, OfAnotherUserOrFileAreNoAgent)
{
	const Sleeper named("VelarixHA");
	const std::optional<host::Process> found = host::process(named.pid());
	ASSERT_TRUE(found);
	EXPECT_EQ(found->user, ::geteuid());
	EXPECT_FALSE(found->inContainer);
	EXPECT_EQ(found->executable, std::filesystem::read_symlink("/proc/self/exe"));
	EXPECT_FALSE(host::isAgent(*found)) << "its file is this test";

	host::Process agent = *found;
	agent.user = 0;
	for (const char* file : {"/usr/velarix/bin/VelarixHA", "/usr/velarix/bin/VelarixHA (deleted)", ""})
	{
		agent.executable = file;
		EXPECT_TRUE(host::isAgent(agent)) << file;
	}
	for (void (*change)(host::Process&) :
	     {+[](host::Process& one) { one.user = 1000; }, +[](host::Process& one) { one.inContainer = true; },
	      +[](host::Process& one) { one.name = "VelarixHA2"; }})
	{
		host::Process other = agent;
		change(other);
		EXPECT_FALSE(host::isAgent(other));
	}
}

TEST(RealProcesses, OfAPidNamespaceBelowAreNoneOfThisNode)
{
	const pid_t outer = ::fork();
	if (outer == 0)
	{
		if (::unshare(CLONE_NEWPID) != 0)
		{
			::_exit(2);
		}
		const pid_t inner = ::fork();
		if (inner == 0)
		{
			::prctl(PR_SET_PDEATHSIG, SIGKILL);
			::pause();
			::_exit(0);
		}
		const std::optional<host::Process> found = host::process(inner);
		const bool seen = found && found->inContainer;
		::kill(inner, SIGKILL);
		::waitpid(inner, nullptr, 0);
		::_exit(seen ? 0 : 1);
	}
	int status = 0;
	ASSERT_EQ(::waitpid(outer, &status, 0), outer);
	if (WEXITSTATUS(status) == 2)
	{
		GTEST_SKIP() << "no PID namespace can be had";
	}
	EXPECT_EQ(status, 0);
}

TEST(RealSignals, ReachTheProcessOfThatNameAlone)
{
	Sleeper sleeper("velarix-target");
	EXPECT_FALSE(host::signalProcess(sleeper.pid(), "velarix-other", SIGKILL));
	EXPECT_TRUE(host::signalProcess(sleeper.pid(), "velarix-target", SIGTERM));
	EXPECT_EQ(WTERMSIG(sleeper.reap()), SIGTERM);
	EXPECT_FALSE(host::signalProcess(sleeper.pid(), "velarix-target", SIGTERM));
}

class RealCommand : public testing::Test
{
protected:
	void SetUp() override
	{
		if (host::runWithoutNetwork("true", 10s) == host::CommandEnd::noNamespace)
		{
			GTEST_SKIP() << "no network namespace can be had";
		}
	}

	/// Removed with this.
	Poco::TemporaryFile m_file;
};

TEST_F(RealCommand, SeesNoInterfaceButLoopbackAndSharesProcessesAndFiles)
{
	const Sleeper sleeper("velarix-seen");
	const std::string& out = m_file.path();
	EXPECT_EQ(host::runWithoutNetwork("ls /proc/self/net/dev_snmp6 2>/dev/null >" + out +
	                                      "; tail -n +3 /proc/self/net/dev | cut "
	                                      "-d: -f1 | tr -d ' ' >" +
	                                      out + "; test -d /proc/" + std::to_string(sleeper.pid()) +
	                                      " && echo shared >>" + out,
	                                  10s),
	          host::CommandEnd::ended);
	EXPECT_EQ(readInputFile(m_file.path()), "lo\nshared\n");
}

TEST_F(RealCommand, IsKilledWithItsChildrenWhenItTakesTooLong)
{
	const auto begin = host::elapsed();
	EXPECT_EQ(host::runWithoutNetwork("sh -c 'echo $$ >" + m_file.path() + "; exec sleep 60'; true", 300ms),
	          host::CommandEnd::tooLong);
	EXPECT_LT(host::elapsed() - begin, 10s);
	const pid_t child = std::stoi(readInputFile(m_file.path()));
	for (int tries = 0; tries < 500 && host::process(child) && host::process(child)->state != 'Z'; ++tries)
	{
		host::pause(10ms);
	}
	EXPECT_TRUE(!host::process(child) || host::process(child)->state == 'Z');
}

TEST(RealFiles, HaveATimeOfTheirChangeAndAProcessHasAnOutput)
{
	EXPECT_FALSE(host::changedAt("/nowhere/at/all"));
	EXPECT_LT(host::changedAt("/proc/self/exe").value(), std::chrono::system_clock::now());
	EXPECT_EQ(host::standardOutput(::getpid()), std::filesystem::read_symlink("/proc/self/fd/1"));
	EXPECT_EQ(host::standardOutput(0), "");
}
