// The script behind the systemd unit and the init script, with the real agent; velarixctl
// is a stand-in that accepts everything. How systemd takes it: tests/package.

#include <sys/prctl.h>

#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeFormatter.h>
#include <Poco/Timestamp.h>

#include "DaemonProcess.h"

using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace
{

constexpr char kService[] = "/usr/libexec/velarix-ha/service";
constexpr char kTools[] = "/usr/velarix/tools";
constexpr char kLog[] = "/usr/velarix/log/velarix.log";
constexpr int kNotRunning = 3;
constexpr int kWrongSettings = 78;

struct Outcome
{
	int status;
	std::string text;
};

/// Runs a command with the stand-ins' directory first on its path.
Outcome run(const std::string& command)
{
	const int status = std::system(
	    ("PATH=" + std::string(kTools) + ":$PATH; export PATH; " + command + " </dev/null >/usr/velarix/text 2>&1")
	        .c_str());
	return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), sandbox::readFile("/usr/velarix/text")};
}

Outcome service(const std::string& verb)
{
	return run(std::string(kService) + " " + verb);
}

void installTool(const std::string& name, const std::string& text)
{
	const std::string path = std::string(kTools) + "/" + name;
	sandbox::writeFile(path, "#!/bin/sh\n" + text + "\n");
	sandbox::shell("chmod 755 " + path);
}

/// @return the processes that run the agent's program, whoever started them
std::vector<pid_t> agents()
{
	std::vector<pid_t> found;
	for (const fs::directory_entry& entry : fs::directory_iterator("/proc"))
	{
		std::error_code error;
		if (fs::read_symlink(entry.path() / "exe", error).string().starts_with("/usr/velarix/bin/VelarixHA"))
		{
			found.push_back(std::stoi(entry.path().filename()));
		}
	}
	return found;
}

class ServiceScript : public DaemonSandbox
{
protected:
	void SetUp() override
	{
		DaemonSandbox::SetUp();
		// Whatever init system the host has: none of it is here.
		sandbox::shell("mount -t tmpfs none /run && mkdir -p /usr/libexec/velarix-ha " + std::string(kTools));
		fs::copy_file(VELARIX_SERVICE_SCRIPT, kService, fs::copy_options::overwrite_existing);
		sandbox::shell("chmod 755 " + std::string(kService));
		installTool("velarixctl", "exit 0");
	}

	void TearDown() override
	{
		for (const pid_t agent : agents())
		{
			::kill(agent, SIGKILL);
		}
		EXPECT_TRUE(waitFor([] { return agents().empty(); }, 10s, "the end of the agents"));
		sandbox::shell("umount /run");
		DaemonSandbox::TearDown();
	}

	/// Replaces text of the installed script.
	static void change(const std::string& before, const std::string& after)
	{
		sandbox::shell("grep -q '" + before + "' " + kService + " && sed -i 's/" + before + "/" + after + "/' " +
		               kService);
	}
};

TEST_F(ServiceScript, AnAgentWithAnEmptyPidFileIsFoundAndEnded)
{
	sandbox::shell("mount -t tmpfs -o size=4k full /usr/velarix/pid && head -c 4096 /dev/zero >/usr/velarix/pid/other");
	DaemonProcess daemon;
	startAndWaitForWorkers(daemon);
	ASSERT_EQ(fs::file_size(velarix::kPidPath), 0U);
	const Outcome status = service("status");
	EXPECT_EQ(status.status, 0);
	EXPECT_THAT(status.text, AllOf(HasSubstr("runs (pid " + std::to_string(daemon.pid()) + ")"),
	                               HasSubstr("its pid file /usr/velarix/pid/VelarixHA.pid is missing or empty")));
	EXPECT_EQ(service("stop").status, 0);
	EXPECT_EQ(daemon.waitForEnd(0ms), 128 + SIGTERM);
	sandbox::shell("umount -l /usr/velarix/pid");
}

#ifdef VELARIX_RELEASE
TEST_F(ServiceScript, TheReleaseShowsCommandsAsTextThatNoTerminalObeys)
{
	settings.set("AGENT.VIRTUAL_IP_STOP_COMMAND", "true \x1b[2J");
	apply();
	const Outcome outcome = run(VELARIX_RELEASE);
	EXPECT_THAT(outcome.text, StartsWith("running: true \\x1b[2J\n"));
	EXPECT_THAT(outcome.text, testing::Not(HasSubstr("\x1b")));
}
#endif

TEST_F(ServiceScript, ALogPathThatIsNoRegularFileIsRefused)
{
	sandbox::shell("mkfifo /usr/velarix/log/fifo && ln -s /dev/zero /usr/velarix/log/zero");
	for (const char* path : {"/usr/velarix/log/fifo", "/usr/velarix/log/zero", "/dev/tty", "/usr/velarix/log"})
	{
		settings.set("LOG.PATH", path);
		apply();
		const Outcome outcome = service("start");
		EXPECT_EQ(outcome.status, kWrongSettings) << path;
		EXPECT_THAT(outcome.text,
		            StartsWith(std::string("velarix-ha: not started: LOG.PATH, ") + path + ", is no regular file"));
		EXPECT_THAT(agents(), IsEmpty());
	}
	sandbox::shell("mkfifo /usr/velarix/log/$(printf '\\033c')");
	settings.set("LOG.PATH", "/usr/velarix/log/\x1b"
	                         "c");
	apply();
	EXPECT_THAT(service("start").text, StartsWith("velarix-ha: not started: LOG.PATH, /usr/velarix/log/c, is no"));
}

/// What the agent's own reader makes of each: SettingsStoreTest.
TEST_F(ServiceScript, TheLogPathIsReadAsTheAgentReadsIt)
{
	sandbox::shell("mkfifo /usr/fifo");
	for (const char* text : {"[LOG]\nPATH=/usr/fifo", "[log]\n  path \t=  /usr/fifo  \r\n", "[ LOG ] PATH = /usr/fifo",
	                         "LOG.PATH = /usr/fifo", "[LOG]\nPATH = usr/fifo",
	                         "[LOG]\nPATH = /usr/file\n[AGENT]\nMODE = 1\n[LOG]\nPath = /usr/fifo",
	                         "[AGENT]\nPATH = /usr/file\n[LOG]\nPATH = /usr/fifo\n;PATH = /usr/file"})
	{
		sandbox::writeFile(velarix::kSettingsPath, text);
		EXPECT_EQ(service("prepare").status, kWrongSettings) << text;
	}
	for (const char* text :
	     {"[LOG]\nPATH = /usr/fifo\nPATH = /usr/file", "[LOG]\n; PATH = /usr/fifo\nPATH = /usr/file",
	      "[AGENT]\nPATH = /usr/fifo", "[LOG]\nPATHS = /usr/fifo", "[LOG]\nPATH = ${AGENT.DIRECTORY}/fifo", ""})
	{
		sandbox::writeFile(velarix::kSettingsPath, text);
		EXPECT_EQ(service("prepare").status, 0) << text;
	}
	sandbox::shell("rm /usr/fifo");
}

std::string logOf(std::chrono::hours age)
{
	const Poco::Timestamp begun = Poco::Timestamp() - std::chrono::seconds(age).count() * Poco::Timestamp::resolution();
	return "# Log file created/rotated " +
	       Poco::DateTimeFormatter::format(begun, Poco::DateTimeFormat::RFC1036_FORMAT) + "\nan old line\n";
}

std::vector<std::string> filesBeside(const std::string& path)
{
	std::vector<std::string> names;
	for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(path).parent_path()))
	{
		names.push_back(entry.path().filename());
	}
	std::sort(names.begin(), names.end());
	return names;
}

TEST_F(ServiceScript, ALogBegunWhileTheClockWasAheadIsMadeAnArchive)
{
	sandbox::writeFile(kLog, logOf(-72h));
	const std::string archive = std::string(kLog) + ".20240101000000000";
	sandbox::shell("touch -d '3 days' " + archive + " " + kLog + "; touch -d '3 days' /usr/velarix/log/velarix.logger");
	const Outcome outcome = service("prepare");
	EXPECT_EQ(outcome.status, 0);
	EXPECT_THAT(outcome.text,
	            MatchesRegex("velarix-ha: /usr/velarix/log/velarix.log was begun while the clock was ahead "
	                         "\\([A-Z][a-z]+day, [^)]*\\): it is now "
	                         "/usr/velarix/log/velarix\\.log\\.20[0-9]{15}\n"));
	const std::vector<std::string> files = filesBeside(kLog);
	ASSERT_THAT(files, ElementsAre("velarix.log.20240101000000000", MatchesRegex("velarix\\.log\\.20[0-9]{15}"),
	                               "velarix.logger"));
	EXPECT_THAT(sandbox::readFile("/usr/velarix/log/" + files[1]), HasSubstr("an old line"));
	// Their age counts from now on; what is not the log's stays as it is.
	const fs::file_time_type soon = fs::file_time_type::clock::now() + 1min;
	EXPECT_LT(fs::last_write_time(archive), soon);
	EXPECT_LT(fs::last_write_time("/usr/velarix/log/" + files[1]), soon);
	EXPECT_GT(fs::last_write_time("/usr/velarix/log/velarix.logger"), soon);
}

TEST_F(ServiceScript, AnyOtherLogStaysInItsPlace)
{
	for (const std::string& text :
	     {logOf(0h), logOf(48h), logOf(-72h).substr(0, 40), std::string("a line\n"), std::string()})
	{
		sandbox::writeFile(kLog, text);
		const Outcome outcome = service("prepare");
		EXPECT_EQ(outcome.status, 0);
		EXPECT_EQ(outcome.text, "");
		EXPECT_THAT(filesBeside(kLog), ElementsAre("velarix.log"));
		EXPECT_EQ(sandbox::readFile(kLog), text);
	}
}

TEST_F(ServiceScript, AtBootAFindingOfTheNodeIsWaitedForByTheClock)
{
	// A wait of five tries a second would last six times as long with this one.
	installTool("velarixctl", "[ \"$2\" = --files-only ] || { sleep 1; exit 1; }");
	installTool("systemctl", "echo starting");
	sandbox::shell("mkdir -p /run/systemd/system");
	change("interfaces_within=30", "interfaces_within=4");
	const auto begin = std::chrono::steady_clock::now();
	EXPECT_EQ(service("prepare").status, 1);
	const auto lasted = std::chrono::steady_clock::now() - begin;
	EXPECT_GE(lasted, 5s); // the last check comes on top
	EXPECT_LT(lasted, 15s);
}

class InitScript : public ServiceScript
{
protected:
	void SetUp() override
	{
		ServiceScript::SetUp();
		sandbox::writeFile(kService,
		                   "#!/bin/sh\ncase $1 in start) echo started;; *) exit $(cat /usr/velarix/$1);; esac\n");
	}

	static Outcome restart(int stop, int status)
	{
		sandbox::writeFile("/usr/velarix/stop", std::to_string(stop));
		sandbox::writeFile("/usr/velarix/status", std::to_string(status));
		return run("sh " VELARIX_INIT_SCRIPT " restart");
	}
};

TEST_F(InitScript, ARestartStartsNothingBesideAnAgentThatCouldNotBeEnded)
{
	const Outcome outcome = restart(1, 0);
	EXPECT_EQ(outcome.status, 1);
	EXPECT_EQ(outcome.text, "velarix-ha: not restarted: the stop failed (status 1), and the agent still runs\n");
}

TEST_F(InitScript, ARestartStartsAgainWhereTheStopFailedWithTheAgentEnded)
{
	const Outcome outcome = restart(1, kNotRunning);
	EXPECT_EQ(outcome.status, 0);
	EXPECT_EQ(outcome.text, "velarix-ha: the stop failed (status 1), but the agent has ended: it is started again\n"
	                        "started\n");
}

TEST_F(InitScript, ARestartWithoutRootDoesNothing)
{
	const Outcome outcome = restart(4, kNotRunning);
	EXPECT_EQ(outcome.status, 4);
	EXPECT_EQ(outcome.text, "");
}

} // namespace
