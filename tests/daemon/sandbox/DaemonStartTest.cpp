// The real daemon from its start to its running workers.

#include <csignal>
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/StreamSocket.h>

#include "DaemonProcess.h"
#include "LogFile.h"
#include "Sandbox.h"
#include "Utilities.h"
#include "WaitFor.h"
#include "velarix/paths.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

namespace
{

using Daemon = DaemonSandbox;

bool exists(const std::string& path)
{
	return ::access(path.c_str(), F_OK) == 0;
}

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

TEST_F(Daemon, WritesItsPidAfterAboutTwoSecondsAndNothingBeforeThat)
{
	DaemonProcess daemon;
	const auto begin = Clock::now();
	EXPECT_EQ(daemon.start(), 0);
	EXPECT_FALSE(exists(velarix::kPidPath));
	EXPECT_TRUE(waitFor([] { return !sandbox::readFile(velarix::kPidPath).empty(); }, 30s, "pid file"));
	EXPECT_GE(Clock::now() - begin, 2000ms);
	EXPECT_EQ(sandbox::readFile(velarix::kPidPath), std::to_string(daemon.pid()));
}

TEST_F(Daemon, StartsAsSlaveWhateverItsConfiguredRole)
{
	for (const char* mode : {"1", "2", "7"})
	{
		settings.set("AGENT.MODE", mode);
		apply();
		sandbox::shell("rm -f /usr/velarix/log/velarix.log");
		DaemonProcess daemon(mode);
		startAndWaitForWorkers(daemon);
		const std::vector<std::string> events = mainThreadEvents();
		EXPECT_THAT(events, Contains("I CAgent:38 Slave CAgent()")) << "AGENT.MODE " << mode;
		EXPECT_THAT(events, Not(Contains(HasSubstr("Master CAgent()")))) << "AGENT.MODE " << mode;
	}
}

TEST_F(Daemon, LogsItsStartOnTheMainThreadInThisOrderAndNothingElse)
{
	settings.programs({"/opt/app/bin/noServer", "/opt/app/bin/noWorker"});
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

TEST_F(Daemon, DropsTheAddressAndKillsTheProgramsBeforeAnyWorkerExists)
{
	// Each command notes how many threads its parent has.
	settings.set("AGENT.VIRTUAL_IP_STOP_COMMAND", "echo stop $(ls /proc/$PPID/task | wc -l) >> /usr/velarix/marks");
	settings.set("ADVENCE.PROCESS_KILL_COMMAND", "echo kill $(ls /proc/$PPID/task | wc -l) >> /usr/velarix/marks");
	apply();
	sandbox::writeFile(velarix::kRunScriptPath, "an older script\n");
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon);
	const std::string alone = std::to_string(1 + kToolThreadsAtFirst);
	EXPECT_EQ(sandbox::readFile("/usr/velarix/marks"), "stop " + alone + "\nkill " + alone + " noSuchServer\n");
	EXPECT_EQ(sandbox::readFile(velarix::kRunScriptPath), "cd /opt/app/bin/\n/opt/app/bin/noSuchServer &\n");
}

TEST_F(Daemon, RecordsItsStartAndTellsItThePartnerInItsFirstHeartbeat)
{
	Poco::Net::ServerSocket partner(Poco::Net::SocketAddress("127.0.0.1", 7002));
	const std::string before = getCurrentTime();
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon);
	const std::string time = recordedStart();
	EXPECT_THAT(time, MatchesRegex("[0-9]{14}"));
	EXPECT_GE(time, before);
	EXPECT_LE(time, getCurrentTime());
	EXPECT_EQ(sandbox::readFile(velarix::kRunInfoPath), "[TRACE]\nLAST_RUN_TIME = " + time +
	                                                        "\nMASTER_LAST_RUN_TIME = 20240101000000\n"
	                                                        "SLAVE_LAST_RUN_TIME = 20240102000000\n");
	ASSERT_TRUE(partner.poll(Poco::Timespan(10, 0), Poco::Net::Socket::SELECT_READ));
	Poco::Net::StreamSocket connection = partner.acceptConnection();
	char text[256];
	const int size = connection.receiveBytes(text, sizeof text);
	EXPECT_EQ(std::string(text, static_cast<std::size_t>(size)), "/process/0/2/" + time + "/0/");
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

TEST_F(Daemon, EndsWhenItIsToldToAndLeavesThePidFile)
{
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon);
	const std::string pid = std::to_string(daemon.pid());
	ASSERT_EQ(::kill(daemon.pid(), SIGTERM), 0);
	EXPECT_EQ(daemon.waitForEnd(10s), 128 + SIGTERM);
	EXPECT_EQ(sandbox::readFile(velarix::kPidPath), pid);
	EXPECT_THAT(eventsOf(readLogFile()), Not(Contains(HasSubstr("~CAgent()"))));
}

} // namespace
