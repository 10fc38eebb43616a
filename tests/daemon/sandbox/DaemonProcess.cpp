#include "DaemonProcess.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/prctl.h>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace
{

constexpr char kProgram[] = "/usr/velarix/bin/VelarixHA";

int statusOf(int waitStatus)
{
	return WIFSIGNALED(waitStatus) ? 128 + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

std::string consolePath(const std::string& name, const char* stream)
{
	return "/usr/velarix/console." + name + "." + stream;
}

void sendTo(const std::string& path, int descriptor)
{
	const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
	::dup2(file, descriptor);
}

/// @return the parent's id as /proc/PID/stat has it, behind the name's last ")"
pid_t parentOf(const std::string& process)
{
	const std::string stat = sandbox::readFile("/proc/" + process + "/stat");
	const std::size_t nameEnd = stat.rfind(") ");
	return nameEnd == std::string::npos ? 0 : std::stoi(stat.substr(nameEnd + 4));
}

/// @return the daemon that was handed to this process when its parent ended
pid_t findAdoptedDaemon(const std::function<bool(pid_t)>& known)
{
	for (const fs::directory_entry& entry : fs::directory_iterator("/proc"))
	{
		const std::string name = entry.path().filename();
		std::error_code error;
		if (std::isdigit(static_cast<unsigned char>(name.front())) != 0 &&
		    fs::read_symlink(entry.path() / "exe", error) == kProgram && parentOf(name) == ::getpid() &&
		    !known(std::stoi(name)))
		{
			return std::stoi(name);
		}
	}
	return 0;
}

std::vector<pid_t> g_adopted;

} // namespace

DaemonProcess::DaemonProcess(std::string name) : m_name(std::move(name))
{
}

DaemonProcess::~DaemonProcess()
{
	if (m_pid != 0)
	{
		::kill(m_pid, SIGKILL);
		::waitpid(m_pid, nullptr, 0);
	}
}

int DaemonProcess::start(const std::function<void()>& beforeExec)
{
	// The daemon comes to this process when its parent ends.
	::prctl(PR_SET_CHILD_SUBREAPER, 1);
	const pid_t launcher = ::fork();
	if (launcher == 0)
	{
		sendTo(consolePath(m_name, "out"), STDOUT_FILENO);
		sendTo(consolePath(m_name, "err"), STDERR_FILENO);
		if (beforeExec)
		{
			beforeExec();
		}
		::execl(kProgram, kProgram, nullptr);
		::_exit(127);
	}
	int status = 0;
	::waitpid(launcher, &status, 0);
	m_pid = findAdoptedDaemon([](pid_t pid)
	                          { return std::find(g_adopted.begin(), g_adopted.end(), pid) != g_adopted.end(); });
	g_adopted.push_back(m_pid);
	return statusOf(status);
}

int DaemonProcess::threads() const
{
	std::error_code error;
	int count = 0;
	for (fs::directory_iterator it("/proc/" + std::to_string(m_pid) + "/task", error), end; it != end;
	     it.increment(error))
	{
		++count;
	}
	return count - kToolThreads;
}

std::string DaemonProcess::proc(const std::string& name) const
{
	return sandbox::readFile("/proc/" + std::to_string(m_pid) + "/" + name);
}

std::string DaemonProcess::output() const
{
	return sandbox::readFile(consolePath(m_name, "out"));
}

std::string DaemonProcess::errors() const
{
	return sandbox::readFile(consolePath(m_name, "err"));
}

int DaemonProcess::waitForEnd(std::chrono::milliseconds limit)
{
	int status = 0;
	const auto ended = [&] { return m_pid != 0 && ::waitpid(m_pid, &status, WNOHANG) == m_pid; };
	if (!waitFor(ended, limit, "end of the daemon"))
	{
		return -1;
	}
	m_pid = 0;
	return statusOf(status);
}

void DaemonSandbox::SetUp()
{
	sandbox::cleanDirectories();
	fs::copy_file(VELARIX_BINARY, kProgram, fs::copy_options::overwrite_existing);
	ASSERT_EQ(::chmod(kProgram, 0755), 0);
	sandbox::writeFile(velarix::kRunInfoPath, kRunInfo);
	settings.set("AGENT.PARTNER_IP", "127.0.0.1")
	    .set("AGENT.GATEWAY_IP", "127.0.0.1")
	    .set("AGENT.VIRTUAL_IP", "127.0.0.1")
	    .set("AGENT.HEART_BEAT_INTERVAL", "1")
	    .set("AGENT.VIRTUAL_IP_STOP_COMMAND", "true")
	    .set("ADVENCE.PROCESS_KILL_COMMAND", "true");
	apply();
}

void DaemonSandbox::startAndWaitForWorkers(DaemonProcess& daemon, const std::function<void()>& beforeExec)
{
	ASSERT_EQ(daemon.start(beforeExec), 0);
	ASSERT_TRUE(waitFor([&] { return daemon.threads() == 4; }, 20s, "three workers besides the main thread",
	                    [&] { return std::to_string(daemon.threads()) + " threads\n" + daemon.errors(); }));
}

std::string recordedStart()
{
	return sandbox::readFile(velarix::kRunInfoPath).substr(std::string("[TRACE]\nLAST_RUN_TIME = ").size(), 14);
}
