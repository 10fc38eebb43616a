#include "Process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
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

#include "Descriptor.h"
#include "Loop.h"

namespace velarix::keeper
{

namespace
{

std::vector<char*> pointers(std::vector<std::string>& words)
{
	std::vector<char*> list;
	list.reserve(words.size() + 1);
	for (std::string& word : words)
	{
		list.push_back(word.data());
	}
	list.push_back(nullptr);
	return list;
}

std::vector<std::string> environmentOf(const Launch& launch)
{
	std::vector<std::string> added = launch.environment;
	if (!launch.identity.user.empty())
	{
		added.insert(added.begin(), {"USER=" + launch.identity.user, "LOGNAME=" + launch.identity.user,
		                             "HOME=" + launch.identity.home});
	}
	std::vector<std::string> environment;
	for (char** word = environ; *word != nullptr; ++word)
	{
		const std::string_view name = std::string_view(*word).substr(0, std::string_view(*word).find('=') + 1);
		if (std::ranges::none_of(added, [&](const std::string& other) { return other.starts_with(name); }))
		{
			environment.emplace_back(*word);
		}
	}
	environment.insert(environment.end(), added.begin(), added.end());
	return environment;
}

/// @return whether everything could be set
bool become(const Identity& identity)
{
	if (identity.user.empty())
	{
		return identity.groups.empty() ||
		       (::setgroups(identity.groups.size(), identity.groups.data()) == 0 && ::setgid(identity.gid) == 0);
	}
	return ::setgroups(identity.groups.size(), identity.groups.data()) == 0 && ::setgid(identity.gid) == 0 &&
	       ::setuid(identity.uid) == 0;
}

/// In the child. @return never, unless something failed
void runChild(const Launch& launch, const char* program, char* const* arguments, char* const* environment, pid_t parent)
{
	::setsid();
	setProcessName("keeper-start");
	sigset_t none;
	sigemptyset(&none);
	::sigprocmask(SIG_SETMASK, &none, nullptr);
	for (int number = 1; number < NSIG; ++number)
	{
		std::signal(number, SIG_DFL);
	}
	const int null = ::open("/dev/null", O_RDWR);
	::dup2(null, STDIN_FILENO);
	if (launch.output >= 0)
	{
		::dup2(launch.output, STDOUT_FILENO);
	}
	if (::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) != 0 || !become(launch.identity) ||
	    ::chdir(launch.directory.c_str()) != 0)
	{
		return;
	}
	// After the change of the user, which would undo it.
	::prctl(PR_SET_PDEATHSIG, SIGTERM);
	if (::getppid() == parent)
	{
		::execve(program, arguments, environment);
	}
}

std::string readFile(const std::string& path)
{
	const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
	std::string text;
	std::array<char, 4096> buffer{};
	for (ssize_t length = 0; file && (length = ::read(file.get(), buffer.data(), buffer.size())) > 0;)
	{
		text.append(buffer.data(), static_cast<std::size_t>(length));
	}
	return text;
}

/// @return the entries of a directory of /proc that are numbers
std::vector<pid_t> numbersIn(const std::string& path)
{
	std::vector<pid_t> numbers;
	DIR* directory = ::opendir(path.c_str());
	while (directory != nullptr)
	{
		const dirent* entry = ::readdir(directory);
		if (entry == nullptr)
		{
			break;
		}
		const pid_t number = static_cast<pid_t>(std::atoi(entry->d_name));
		if (number > 0)
		{
			numbers.push_back(number);
		}
	}
	if (directory != nullptr)
	{
		::closedir(directory);
	}
	return numbers;
}

std::vector<pid_t> childrenOf(pid_t pid)
{
	std::vector<pid_t> children;
	const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
	for (const pid_t task : numbersIn(tasks))
	{
		const std::string list = readFile(tasks + "/" + std::to_string(task) + "/children");
		const char* at = list.data();
		const char* end = at + list.size();
		for (pid_t child = 0; at < end; ++at)
		{
			const auto read = std::from_chars(at, end, child);
			if (read.ec == std::errc())
			{
				children.push_back(child);
				at = read.ptr;
			}
		}
	}
	return children;
}

} // namespace

bool resolve(const ServiceSettings& service, Identity& identity)
{
	if (!service.user.empty())
	{
		const passwd* user = ::getpwnam(service.user.c_str());
		if (user == nullptr)
		{
			return false;
		}
		identity = {service.user, user->pw_uid, user->pw_gid, {}, user->pw_dir};
	}
	if (!service.group.empty())
	{
		const group* found = ::getgrnam(service.group.c_str());
		if (found == nullptr)
		{
			return false;
		}
		identity.gid = found->gr_gid;
		identity.groups = {found->gr_gid};
	}
	if (!service.user.empty())
	{
		int count = 256;
		identity.groups.resize(static_cast<std::size_t>(count));
		::getgrouplist(service.user.c_str(), identity.gid, identity.groups.data(), &count);
		identity.groups.resize(static_cast<std::size_t>(std::clamp(count, 0, 256)));
	}
	return true;
}

pid_t start(const Launch& launch, std::string& error)
{
	const std::string program = findCommand(launch.command.front());
	std::vector<std::string> arguments = launch.command;
	std::vector<std::string> environment = environmentOf(launch);
	const std::vector<char*> argumentList = pointers(arguments);
	const std::vector<char*> environmentList = pointers(environment);
	std::array<int, 2> failure{-1, -1};
	if (program.empty() || ::pipe2(failure.data(), O_CLOEXEC) != 0)
	{
		error = launch.command.front() + ": " + (program.empty() ? "no such program" : std::strerror(errno));
		return -1;
	}
	const Descriptor reading(failure[0]);
	Descriptor writing(failure[1]);
	const pid_t parent = ::getpid();
	const pid_t child = ::fork();
	if (child == 0)
	{
		runChild(launch, program.c_str(), argumentList.data(), environmentList.data(), parent);
		const int number = errno;
		[[maybe_unused]] const ssize_t told = ::write(writing.get(), &number, sizeof number);
		::_exit(127);
	}
	writing.reset();
	// Closed by a successful execve.
	int number = child < 0 ? errno : 0;
	if (child < 0 || ::read(reading.get(), &number, sizeof number) > 0)
	{
		error = program + ": " + std::strerror(number);
		if (child > 0)
		{
			::waitpid(child, nullptr, 0);
		}
		return -1;
	}
	return child;
}

std::vector<pid_t> descendantsOf(pid_t pid)
{
	std::vector<pid_t> found = childrenOf(pid);
	for (std::size_t i = 0; i < found.size(); ++i)
	{
		const std::vector<pid_t> below = childrenOf(found[i]);
		found.insert(found.end(), below.begin(), below.end());
	}
	return found;
}

std::vector<pid_t> remainsOf(const std::string& program)
{
	const std::string wanted = std::string(kServiceVariable) + "=" + program;
	std::vector<pid_t> found;
	for (const pid_t pid : numbersIn("/proc"))
	{
		const std::string environment = '\0' + readFile("/proc/" + std::to_string(pid) + "/environ") + '\0';
		if (pid != ::getpid() && environment.find('\0' + wanted + '\0') != std::string::npos)
		{
			found.push_back(pid);
		}
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

bool endAll(std::vector<pid_t> (*find)(const std::string&), const std::string& program, int patience)
{
	constexpr Millis kLastPatience = 2'000;
	const Millis killAt = now() + patience;
	bool asked = false;
	for (std::vector<pid_t> left = find(program); !left.empty(); left = find(program))
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

void setProcessName(const std::string& name)
{
	::prctl(PR_SET_NAME, name.c_str());
}

void beInTime()
{
	const sched_param priority{1};
	::sched_setscheduler(0, SCHED_RR, &priority);
}

void keepCapabilities(std::initializer_list<int> kept)
{
	__user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
	std::array<__user_cap_data_struct, 2> data{};
	if (::syscall(SYS_capget, &header, data.data()) != 0)
	{
		return;
	}
	std::array<std::uint32_t, 2> mask{};
	for (const int capability : kept)
	{
		mask.at(static_cast<std::size_t>(capability) / 32) |= 1U << (static_cast<unsigned>(capability) % 32);
	}
	for (std::size_t i = 0; i < data.size(); ++i)
	{
		data[i].permitted &= mask[i];
		data[i].effective = data[i].permitted;
		data[i].inheritable = 0;
	}
	::syscall(SYS_capset, &header, data.data());
}

} // namespace velarix::keeper
