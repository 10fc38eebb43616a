// The real daemon from its start to its running workers.

#include <fcntl.h>

#include <Poco/String.h>

#include "DaemonProcess.h"
#include "LogFile.h"
#include "Peer.h"

using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace
{

using Daemon = DaemonSandbox;

/// @return the events of the daemon's main thread so far
std::vector<std::string> mainThreadEvents()
{
	std::vector<LogFileLine> lines = readLogFile();
	std::erase_if(lines, [](const LogFileLine& line) { return line.thread != 0; });
	return eventsOf(lines);
}

/// @return the value of `field` in the /proc status text
std::string statusField(const std::string& status, const std::string& field)
{
	const std::size_t at = status.find("\n" + field + ":\t") + field.size() + 3;
	return status.substr(at, status.find('\n', at) - at);
}

/// @return the text of /proc/PID/stat from the process group on: "GROUP SESSION TERMINAL"
std::string groupSessionAndTerminal(const std::string& stat)
{
	std::istringstream fields(stat.substr(stat.rfind(") ") + 2));
	std::string state;
	std::string parent;
	std::string group;
	std::string session;
	std::string terminal;
	fields >> state >> parent >> group >> session >> terminal;
	return group + " " + session + " " + terminal;
}

TEST_F(Daemon, LogsItsStartOnTheMainThreadInThisOrderAndNothingElse)
{
	// It starts as slave whatever its configured role.
	settings.set("AGENT.MODE", "1").programs({"/opt/app/bin/noServer", "/opt/app/bin/noWorker"});
	apply();
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon);
	const std::string time = recordedStart();
	EXPECT_THAT(mainThreadEvents(),
	            ElementsAre("D CAgent:25 stop virtual ip, process",                                  //
	                        "I Utill:573 command(true) : ",                                          //
	                        "I Utill:573 command(true noServer) : ",                                 //
	                        "I Utill:573 command(true noWorker) : ",                                 //
	                        "I CAgent:38 Slave CAgent()",                                            //
	                        "D CAgent:179 run time wrote:TRACE.LAST_RUN_TIME(" + time + ")[noName]", //
	                        "D ProcessChecker:69 process list loaded[noName]"));
	for (const LogFileLine& line : readLogFile())
	{
		EXPECT_EQ(line.process, daemon.pid());
	}
}

TEST_F(Daemon, KeepsStreamsDirectoryMaskGroupSessionAndSignals)
{
	const std::string path = "/usr/velarix/console.first.";
	DaemonProcess daemon;
	ASSERT_EQ(daemon.start(
	              []
	              {
		              ::umask(0027);
		              if (::chdir("/usr/velarix/log") != 0)
		              {
			              ::_exit(1);
		              }
	              }),
	          0);
	ASSERT_TRUE(waitFor([&] { return daemon.threads() == 4; }, 20s, "three workers"));
	const fs::path process = "/proc/" + std::to_string(daemon.pid());
	EXPECT_EQ(fs::read_symlink(process / "fd/0"), fs::read_symlink("/proc/self/fd/0"));
	EXPECT_EQ(fs::read_symlink(process / "fd/1"), path + "out");
	EXPECT_EQ(fs::read_symlink(process / "fd/2"), path + "err");
	EXPECT_EQ(fs::read_symlink(process / "cwd"), "/usr/velarix/log");
	EXPECT_EQ(groupSessionAndTerminal(daemon.proc("stat")),
	          groupSessionAndTerminal(sandbox::readFile("/proc/self/stat")));
	const std::string status = daemon.proc("status");
	EXPECT_EQ(statusField(status, "Umask"), "0027");
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
	// Signals 32 and 33 are the C library's own; a sanitizer catches others.
	EXPECT_EQ(std::stoull(statusField(status, "SigCgt"), nullptr, 16) & ~0x180000000ULL, 0U);
#endif
	EXPECT_EQ(statusField(status, "SigIgn"), statusField("\n" + sandbox::readFile("/proc/self/status"), "SigIgn"));
}

TEST_F(Daemon, EndsWhenItIsReportedToAndLeavesThePidFile)
{
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon);
	const std::string pid = std::to_string(daemon.pid());
	ASSERT_EQ(::kill(daemon.pid(), SIGTERM), 0);
	EXPECT_EQ(daemon.waitForEnd(10s), 128 + SIGTERM);
	EXPECT_EQ(sandbox::readFile(velarix::kPidPath), pid);
	EXPECT_THAT(eventsOf(readLogFile()), Not(Contains(HasSubstr("~CAgent()"))));
}

constexpr char kStandardInput[] = "/usr/velarix/console.first.in";
constexpr char kProgramPid[] = "/usr/velarix/program.pid";

/// The parameter is a set of standard streams: bit N is descriptor N.
class ClosedStreams : public DaemonSandbox, public testing::WithParamInterface<int>
{
protected:
	void SetUp() override
	{
		DaemonSandbox::SetUp();
		sandbox::shell("mkdir -p /usr/velarix/programs");
		sandbox::writeFile("/usr/velarix/programs/vxserver",
		                   std::string("#!/bin/sh\necho $$ >") + kProgramPid + "; exec sleep 1000\n");
		sandbox::shell("chmod 755 /usr/velarix/programs/vxserver");
		settings.programs({"/usr/velarix/programs/vxserver"});
		apply();
	}

	void TearDown() override
	{
		sandbox::shell(std::string("kill -9 $(cat ") + kProgramPid + "); rm " + kProgramPid);
		DaemonSandbox::TearDown();
	}

	static bool isClosed(int stream) { return (GetParam() & 1 << stream) != 0; }

	static void closeStreams()
	{
		::dup2(::open(kStandardInput, O_RDONLY | O_CREAT | O_CLOEXEC, 0600), STDIN_FILENO);
		for (int stream = 0; stream <= 2; ++stream)
		{
			isClosed(stream) ? ::close(stream) : 0;
		}
	}

	/// The partner asks this node to take over, and the node does, with its address and program.
	static void takeOver()
	{
		ASSERT_TRUE(waitFor([] { return peer::isListenedOn(7001); }, 20s, "the listening socket"));
		peer::connectTo(7001).send("/process/0/2/20240131235959/1/");
		ASSERT_TRUE(waitFor([] { return !sandbox::readFile(kProgramPid).empty(); }, 20s, "the program"));
	}

	static std::string streamOf(const std::string& pid, int stream)
	{
		std::error_code error;
		return fs::read_symlink("/proc/" + pid + "/fd/" + std::to_string(stream), error);
	}
};

/// Where log or socket took their place, a program would inherit the listening socket, and
/// the daemon could not listen again.
TEST_P(ClosedStreams, GetAPlaceholderAndATakeOverKeepsTheListeningSocket)
{
	DaemonProcess daemon;
	ASSERT_EQ(daemon.start(closeStreams), 0);
	takeOver();
	const std::string program = Poco::trim(sandbox::readFile(kProgramPid));
	const char* const opened[] = {kStandardInput, "/usr/velarix/console.first.out", "/usr/velarix/console.first.err"};
	for (int stream = 0; stream <= 2; ++stream)
	{
		const std::string expected = isClosed(stream) ? "/dev/null" : opened[stream];
		EXPECT_EQ(streamOf(std::to_string(daemon.pid()), stream), expected) << "daemon, descriptor " << stream;
		// A program in the background gets no standard input from the shell.
		EXPECT_EQ(streamOf(program, stream), stream == 0 ? "/dev/null" : expected) << "program, " << stream;
	}
	const auto listensAnew = []
	{
		const std::vector<std::string> events = eventsOf(readLogFile());
		return peer::isListenedOn(7001) &&
		       std::count(events.begin(), events.end(), "D CHeartReciver:124 new server") > 1;
	};
	EXPECT_TRUE(waitFor(listensAnew, 20s, "a listening socket after the take-over", [&] { return daemon.errors(); }));
	EXPECT_EQ(daemon.threads(), 4);
	EXPECT_EQ(daemon.waitForEnd(0ms), -1) << daemon.errors();
}

INSTANTIATE_TEST_SUITE_P(EveryCombination, ClosedStreams, testing::Range(1, 8),
                         [](const testing::TestParamInfo<int>& closed)
                         {
	                         const int set = closed.param;
	                         return std::string((set & 1) != 0 ? "In" : "") + ((set & 2) != 0 ? "Out" : "") +
	                                ((set & 4) != 0 ? "Err" : "");
                         });

} // namespace
