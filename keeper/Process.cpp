#include "keeper/Process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <linux/close_range.h>
#include <poll.h>
#include <pwd.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "inspect/HostProcesses.h"
#include "keeper/Runtime.h"

namespace velarix::keeper
{

namespace
{

/// How the agent starts its programs.
constexpr const char* kRunScript = "/usr/velarix/bin/ini/processList.sh";
/// In the environment of everything a service starts: its program's name. What remains of a
/// supervisor that was killed is found by it.
constexpr const char* kServiceVariable = "VELARIX_SERVICE";

/// @return whether everything could be set
bool become(const ServiceSettings& service)
{
	if (service.user.empty() && service.group.empty())
	{
		return true;
	}
	const passwd* user = ::getpwnam(service.user.empty() ? "root" : service.user.c_str());
	const group* group = service.group.empty() ? nullptr : ::getgrnam(service.group.c_str());
	if (user == nullptr || (group == nullptr && !service.group.empty()))
	{
		errno = EINVAL;
		return false;
	}
	const gid_t gid = group != nullptr ? group->gr_gid : user->pw_gid;
	::setenv("USER", user->pw_name, 1);
	::setenv("LOGNAME", user->pw_name, 1);
	::setenv("HOME", user->pw_dir, 1);
	return ::initgroups(user->pw_name, gid) == 0 && ::setgid(gid) == 0 && ::setuid(user->pw_uid) == 0;
}

/// In the child, which has no other threads. @return never, unless something failed
void runChild(const ServiceSettings& service, const std::string& program, const std::vector<std::string>& command,
              RunAs runAs, int output, pid_t parent)
{
	::setsid();
	// Our own turn before others is for the address alone.
	const sched_param ordinary{};
	::sched_setscheduler(0, SCHED_OTHER, &ordinary);
	setProcessName("keeper-start");
	sigset_t none;
	sigemptyset(&none);
	::sigprocmask(SIG_SETMASK, &none, nullptr);
	for (int number = 1; number < NSIG; ++number)
	{
		std::signal(number, SIG_DFL);
	}
	::dup2(::open("/dev/null", O_RDWR), STDIN_FILENO);
	if (output >= 0)
	{
		::dup2(output, STDOUT_FILENO);
	}
	if (::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) != 0 ||
	    (runAs == RunAs::service && !become(service)) ||
	    ::chdir(service.directory.empty() ? "/" : service.directory.c_str()) != 0)
	{
		return;
	}
	for (const std::string& pair : service.environment)
	{
		::putenv(const_cast<char*>(pair.c_str()));
	}
	::setenv(kServiceVariable, service.program.c_str(), 1);
	std::vector<char*> arguments;
	arguments.reserve(command.size() + 1);
	for (const std::string& word : command)
	{
		arguments.push_back(const_cast<char*>(word.c_str()));
	}
	arguments.push_back(nullptr);
	// After the change of the user, which would undo it.
	::prctl(PR_SET_PDEATHSIG, SIGTERM);
	if (::getppid() == parent)
	{
		::execv(program.c_str(), arguments.data());
	}
}

/// @return the processes of /proc, or the threads of one of them
std::vector<pid_t> idsIn(const std::string& directory)
{
	return inspect::host::processIds(directory).value_or(std::vector<pid_t>());
}

void addChildren(pid_t pid, std::vector<pid_t>& found)
{
	const std::string tasks = "/proc/" + std::to_string(pid) + "/task/";
	for (const pid_t task : idsIn(tasks))
	{
		std::ifstream list(tasks + std::to_string(task) + "/children");
		found.insert(found.end(), std::istream_iterator<pid_t>(list), {});
	}
}

/// @return all processes that have `program` in VELARIX_SERVICE, except this one
std::vector<pid_t> processesOf(const std::string& program)
{
	const std::string wanted = '\0' + std::string(kServiceVariable) + "=" + program + '\0';
	std::vector<pid_t> found = idsIn("/proc");
	std::erase_if(found,
	              [&](pid_t pid)
	              {
		              std::ifstream file("/proc/" + std::to_string(pid) + "/environ");
		              const std::string text((std::istreambuf_iterator<char>(file)), {});
		              return pid == ::getpid() || ('\0' + text).find(wanted) == std::string::npos;
	              });
	return found;
}

std::string firstLineOf(pid_t pid, const char* file)
{
	std::ifstream stream("/proc/" + std::to_string(pid) + "/" + file);
	std::string line;
	std::getline(stream, line);
	return line;
}

/// Whether it is the run script's shell, or a child of it that has not become its program yet;
/// or the program, before anybody can see that it lives.
bool isStarting(pid_t pid)
{
	const std::string name = firstLineOf(pid, "comm");
	if (name == kAddressProgram)
	{
		// A zombie has no command line.
		return holderOf(name, Part::guard) == 0 && !firstLineOf(pid, "cmdline").empty();
	}
	return name == "sh" && firstLineOf(pid, "cmdline").find(kRunScript) != std::string::npos;
}

} // namespace

void waitForStart(Millis limit)
{
	const Millis end = now() + limit;
	while (std::ranges::any_of(idsIn("/proc"), isStarting) && now() < end)
	{
		::poll(nullptr, 0, 5);
	}
}

pid_t start(const ServiceSettings& service, const std::vector<std::string>& command, RunAs runAs, std::string& error,
            int output)
{
	const std::string program = findCommand(command.front());
	std::array<int, 2> failure{-1, -1};
	if (program.empty() || ::pipe2(failure.data(), O_CLOEXEC) != 0)
	{
		error = command.front() + ": " + (program.empty() ? "no such program" : std::strerror(errno));
		return -1;
	}
	const Descriptor reading(failure[0]);
	Descriptor writing(failure[1]);
	const pid_t parent = ::getpid();
	const pid_t child = ::fork();
	if (child == 0)
	{
		runChild(service, program, command, runAs, output, parent);
		const int number = errno;
		[[maybe_unused]] const ssize_t reported = ::write(writing.get(), &number, sizeof number);
		::_exit(127);
	}
	writing.close();
	// Closed by a successful execv.
	int number = child < 0 ? errno : 0;
	if (child < 0 || ::read(reading.get(), &number, sizeof number) > 0)
	{
		error = program + ": " + std::strerror(number);
		child > 0 ? ::waitpid(child, nullptr, 0) : 0;
		return -1;
	}
	return child;
}

std::string howEnded(int status)
{
	return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
	                           : "status " + std::to_string(WEXITSTATUS(status));
}

std::vector<pid_t> descendants()
{
	std::vector<pid_t> found;
	addChildren(::getpid(), found);
	for (std::size_t i = 0; i < found.size(); ++i)
	{
		addChildren(found[i], found);
	}
	return found;
}

void signalAll(const std::vector<pid_t>& processes, int number)
{
	for (const pid_t pid : processes)
	{
		::kill(pid, number);
	}
}

bool endAll(const std::function<std::vector<pid_t>()>& find, Millis patience)
{
	constexpr Millis kLastPatience = 2'000;
	const Millis killAt = now() + patience;
	bool asked = false;
	for (std::vector<pid_t> left = find(); !left.empty(); left = find())
	{
		const bool kill = now() >= killAt;
		if (now() >= killAt + kLastPatience)
		{
			return false;
		}
		if (!asked || kill)
		{
			signalAll(left, kill ? SIGKILL : SIGTERM);
			signalAll(left, SIGCONT);
			asked = true;
		}
		// They are nobody's children here: the first one's end is waited for.
		const Descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, left.front(), 0)));
		pollfd waiting{process.get(), POLLIN, 0};
		::poll(&waiting, 1, 20);
	}
	return true;
}

bool endRemains(const ServiceSettings& service)
{
	bool gone = endAll([&] { return processesOf(service.program); }, service.stopTimeout * 1000LL);
	if (!service.unit.empty())
	{
		std::string error;
		int status = -1;
		const pid_t child = start(service, {"systemctl", "stop", service.unit}, RunAs::self, error);
		gone = child > 0 && ::waitpid(child, &status, 0) == child && status == 0 && gone;
	}
	if (gone)
	{
		removeState(service.program);
	}
	return gone;
}

bool endOrphans(const ServiceSettings& service)
{
	return valueOf(readState(service.program), "started").empty() || endRemains(service);
}

void setProcessName(const std::string& name)
{
	::prctl(PR_SET_NAME, name.c_str());
}

void beInTime()
{
	const sched_param priority{1};
	::sched_setscheduler(0, SCHED_RR, &priority);
}

void keepCapabilities(std::initializer_list<unsigned> kept)
{
	__user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
	std::array<__user_cap_data_struct, 2> data{};
	::syscall(SYS_capget, &header, data.data());
	std::array<std::uint32_t, 2> mask{};
	for (const unsigned capability : kept)
	{
		mask.at(capability / 32) |= 1U << capability % 32;
	}
	for (std::size_t i = 0; i < data.size(); ++i)
	{
		const std::uint32_t left = data[i].permitted & mask[i];
		data[i] = {left, left, 0};
	}
	::syscall(SYS_capset, &header, data.data());
}

} // namespace velarix::keeper
