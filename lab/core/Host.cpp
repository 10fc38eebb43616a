#include "lab/core/Host.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <linux/sched.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "inspect/Number.h"
#include "lab/core/Basics.h"

namespace velarix::lab
{

namespace
{

namespace fs = std::filesystem;

/// The process namespace, as a number; 0 when there is no such process.
ino_t processNamespaceOf(pid_t pid)
{
	struct stat found
	{
	};
	const std::string path = "/proc/" + std::to_string(pid) + "/ns/pid";
	return ::stat(path.c_str(), &found) == 0 ? found.st_ino : 0;
}

} // namespace

std::vector<Process> processesOf(pid_t hostInit)
{
	std::vector<Process> found;
	const ino_t wanted = processNamespaceOf(hostInit);
	for (const pid_t pid : inspect::host::processIds().value_or(std::vector<pid_t>()))
	{
		const bool here = wanted != 0 && processNamespaceOf(pid) == wanted;
		if (std::optional<Process> process = here ? inspect::host::process(pid) : std::nullopt)
		{
			found.push_back(*std::move(process));
		}
	}
	return found;
}

std::vector<Process> processesNamed(pid_t hostInit, const std::string& name)
{
	std::vector<Process> found = processesOf(hostInit);
	std::erase_if(found, [&](const Process& entry) { return entry.name != name || entry.state == 'Z'; });
	return found;
}

bool signalInHost(pid_t hostInit, pid_t pid, int signal)
{
	const Descriptor pidFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
	const ino_t wanted = processNamespaceOf(hostInit);
	if (!pidFd || wanted == 0 || processNamespaceOf(pid) != wanted)
	{
		return false;
	}
	return ::syscall(SYS_pidfd_send_signal, pidFd.get(), signal, nullptr, 0) == 0;
}

std::string procText(pid_t pid, const char* name)
{
	std::ifstream stream("/proc/" + std::to_string(pid) + "/" + name);
	std::ostringstream text;
	text << stream.rdbuf();
	return text.str();
}

long residentKibOf(pid_t pid)
{
	long pages[2]{};
	std::istringstream(procText(pid, "statm")) >> pages[0] >> pages[1];
	return pages[1] * (::sysconf(_SC_PAGESIZE) / 1024);
}

std::map<int, std::string> descriptorsOf(pid_t pid)
{
	std::map<int, std::string> found;
	std::error_code failure;
	for (const fs::directory_entry& entry : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", failure))
	{
		const std::optional<int> number = inspect::numberIn<int>(entry.path().filename().string());
		const fs::path target = fs::read_symlink(entry.path(), failure);
		if (number && !failure)
		{
			found[*number] = target.string();
		}
	}
	return found;
}

namespace
{

constexpr int readyLimitMs = 20000;

std::vector<std::string> initArguments(const HostSpec& spec, int control, int rackMounts)
{
	static constexpr std::array<const char*, 3> kinds{"root", "host", "node"};
	std::vector<std::string> words{VELARIX_LAB_INIT,
	                               std::to_string(control),
	                               spec.hostName,
	                               kinds.at(static_cast<std::size_t>(spec.kind)),
	                               std::to_string(spec.firstProcess),
	                               std::to_string(rackMounts)};
	const bool root = spec.kind == HostKind::root;
	for (const HostId id : nodes)
	{
		words.push_back(root ? nameOf(id) : spec.disk);
	}
	return words;
}

/// Runs in the new process 1 until it becomes velarix-lab-init.
[[noreturn]] void becomeInit(char* const* argv, int control, int rackMounts)
{
	::fcntl(control, F_SETFD, 0);
	if (rackMounts >= 0)
	{
		::fcntl(rackMounts, F_SETFD, 0);
	}
	sigset_t none;
	sigemptyset(&none);
	::sigprocmask(SIG_SETMASK, &none, nullptr);
	char* const environment[] = {nullptr};
	::execve(argv[0], argv, environment);
	_exit(127);
}

} // namespace

int firstProcessOf(HostId host, std::uint64_t seed)
{
	constexpr std::uint64_t apart = 7000;
	// Neighbouring seeds lie anywhere.
	const std::uint64_t mixed = (seed * 0x9e3779b97f4a7c15U) >> 32U;
	return static_cast<int>(1000 + mixed % apart + apart * static_cast<std::uint64_t>(host));
}

Host::Host(const HostSpec& spec)
{
	int ends[2];
	if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
	{
		throwErrno("cannot make a control socket");
	}
	m_control.reset(ends[0]);
	const Descriptor theirs(ends[1]);
	Descriptor rackMounts;
	if (spec.kind == HostKind::node)
	{
		const std::string path = "/proc/" + std::to_string(spec.rootHostPid) + "/ns/mnt";
		rackMounts.reset(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
	}
	start(spec, theirs.get(), rackMounts.get());
	try
	{
		awaitReady(spec.hostName);
	}
	catch (...)
	{
		switchOff();
		throw;
	}
}

Host::~Host()
{
	switchOff();
}

void Host::start(const HostSpec& spec, int control, int rackMounts)
{
	std::vector<std::string> arguments = initArguments(spec, control, rackMounts);
	const std::vector<char*> argv = pointersTo(arguments);
	int pidFd = -1;
	clone_args options{};
	options.flags = CLONE_PIDFD | (allNamespaces & ~CLONE_NEWNS);
	options.pidfd = reinterpret_cast<std::uintptr_t>(&pidFd);
	options.exit_signal = SIGCHLD;
	const long pid = ::syscall(SYS_clone3, &options, sizeof options);
	if (pid == 0)
	{
		becomeInit(argv.data(), control, rackMounts);
	}
	if (pid < 0)
	{
		throw NamespacesUnavailable(std::string("namespaces unavailable: ") + std::strerror(errno));
	}
	m_pid = static_cast<pid_t>(pid);
	m_pidFd.reset(pidFd);
}

/// The other end of the control socket is still open in this process, so an
/// init that ends without a word is noticed through its pidfd.
void Host::awaitReady(const std::string& hostName)
{
	pollfd watched[2] = {{m_control.get(), POLLIN, 0}, {m_pidFd.get(), POLLIN, 0}};
	::poll(watched, 2, readyLimitMs);
	char buffer[512];
	const ssize_t count = ::recv(m_control.get(), buffer, sizeof buffer, MSG_DONTWAIT);
	const std::string answer(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
	if (answer == "ready\n")
	{
		return;
	}
	throw NamespacesUnavailable("namespaces unavailable: host " + hostName + " did not start" +
	                            (answer.empty() ? std::string() : ": " + answer.substr(0, answer.find('\n'))));
}

void Host::switchOff()
{
	if (m_pid < 0)
	{
		return;
	}
	::syscall(SYS_pidfd_send_signal, m_pidFd.get(), SIGKILL, nullptr, 0);
	while (::waitpid(m_pid, nullptr, 0) < 0 && errno == EINTR)
	{
	}
	m_pid = -1;
	m_control.reset();
}

std::string shell(const Host& host, const std::string& script)
{
	return runOrThrow({{"bash", "-ec", script}, {}, host.inside()});
}

} // namespace velarix::lab
