#include "Hosts.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "WaitFor.h"
#include "keeper/Runtime.h"

namespace keepertest
{

namespace
{

using Clock = std::chrono::steady_clock;

void require(bool holds, const char* what)
{
	if (!holds)
	{
		throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
	}
}

int statusOf(int status)
{
	return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// The first process of the machine: takes care of orphans, and ends with the tests.
int reapUntil(pid_t tests)
{
	int status = 0;
	for (pid_t ended = 0; ended != tests;)
	{
		ended = ::wait(&status);
		if (ended < 0 && errno != EINTR)
		{
			return 99;
		}
	}
	return statusOf(status);
}

void makeMachine()
{
	require(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
	require(::mount("tmpfs", "/mnt", "tmpfs", 0, nullptr) == 0, "tmpfs");
	require(::mkdir("/mnt/upper", 0755) == 0 && ::mkdir("/mnt/work", 0755) == 0, "mkdir");
	require(::mount("overlay", "/usr", "overlay", 0, "lowerdir=/usr,upperdir=/mnt/upper,workdir=/mnt/work") == 0,
	        "overlay");
	require(::mount("proc", "/proc", "proc", 0, nullptr) == 0, "/proc");
	require(::mount("tmpfs", "/run", "tmpfs", 0, nullptr) == 0, "/run");
	shell("mkdir -p /usr/velarix /usr/libexec/velarix-ha && cp " KEEPER_PROGRAM " /usr/libexec/velarix-ha/keeper");
	shell("ip link set lo up; ip link add br0 type bridge stp_state 0 forward_delay 0; "
	      "ip addr add 192.0.2.254/24 dev br0; ip link set br0 up");
}

void enter(pid_t host)
{
	for (const char* kind : {"net", "mnt"})
	{
		const std::string path = "/proc/" + std::to_string(host) + "/ns/" + kind;
		const int space = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
		require(::setns(space, 0) == 0, "setns");
		::close(space);
	}
}

} // namespace

std::string shell(const std::string& command)
{
	FILE* pipe = ::popen(("(" + command + ") 2>&1").c_str(), "r");
	std::string output;
	for (int sign = 0; pipe != nullptr && (sign = std::fgetc(pipe)) != EOF;)
	{
		output += static_cast<char>(sign);
	}
	EXPECT_EQ(pipe != nullptr ? ::pclose(pipe) : -1, 0) << command << ": " << output;
	return output;
}

int inMachine(int (*body)())
{
	if (::geteuid() != 0 || ::unshare(CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET) != 0)
	{
		return 77;
	}
	const pid_t first = ::fork();
	if (first == 0)
	{
		::prctl(PR_SET_PDEATHSIG, SIGKILL);
		const pid_t tests = ::fork();
		if (tests == 0)
		{
			int status = 98;
			try
			{
				makeMachine();
				status = body();
			}
			catch (const std::exception& exc)
			{
				std::fprintf(stderr, "no machine for the tests: %s\n", exc.what());
			}
			std::fflush(nullptr);
			std::_Exit(status);
		}
		std::_Exit(reapUntil(tests));
	}
	int status = 0;
	::waitpid(first, &status, 0);
	return statusOf(status);
}

Host::Host(int number) : m_number(number)
{
	int ready[2];
	require(::pipe2(ready, O_CLOEXEC) == 0, "pipe");
	m_pid = ::fork();
	if (m_pid == 0)
	{
		::prctl(PR_SET_PDEATHSIG, SIGKILL);
		const bool made = ::unshare(CLONE_NEWNS | CLONE_NEWNET) == 0 &&
		                  ::mount("tmpfs", "/run", "tmpfs", 0, nullptr) == 0 &&
		                  ::mount("tmpfs", "/usr/velarix", "tmpfs", 0, nullptr) == 0;
		[[maybe_unused]] const ssize_t told = ::write(ready[1], made ? "1" : "0", 1);
		for (;;)
		{
			::pause();
		}
	}
	char made = '0';
	require(::read(ready[0], &made, 1) == 1 && made == '1', "a host's namespaces");
	::close(ready[0]);
	::close(ready[1]);
	const std::string digit = std::to_string(number);
	shell("ip link add " + port() + " type veth peer name eth0 address 02:00:00:00:00:0" + digit + " netns " +
	      std::to_string(m_pid) + " && ip link set " + port() + " master br0 up");
	run({"/bin/sh", "-c",
	     "mkdir -p /usr/velarix/bin/ini /usr/velarix/log /usr/velarix/run; ip link set lo up; ip link set eth0 up; ip "
	     "addr add 192.0.2." +
	         digit + "/24 dev eth0"});
	EXPECT_TRUE(waitFor(
	    [&] {
		    return run({"ip", "-o", "link", "show", "dev", "eth0"}).output.find("LOWER_UP") != std::string::npos;
	    },
	    milliseconds(10'000), "carrier"));
}

Host::~Host()
{
	// Everything of this host, and of it alone: what shares its network.
	const std::string self = "/proc/" + std::to_string(m_pid) + "/ns/net";
	for (int round = 0; round < 3; ++round)
	{
		for (const pid_t pid : processes(""))
		{
			::kill(pid, SIGKILL);
		}
	}
	::kill(m_pid, SIGKILL);
	::waitpid(m_pid, nullptr, 0);
	shell("ip link del " + port() + " 2>/dev/null || true");
}

pid_t Host::startIn(const std::vector<std::string>& command, int output) const
{
	std::vector<char*> arguments;
	for (const std::string& word : command)
	{
		arguments.push_back(const_cast<char*>(word.c_str()));
	}
	arguments.push_back(nullptr);
	const pid_t child = ::fork();
	if (child == 0)
	{
		enter(m_pid);
		if (output >= 0)
		{
			::dup2(output, STDOUT_FILENO);
		}
		::execvp(arguments[0], arguments.data());
		::_exit(127);
	}
	return child;
}

Result Host::run(const std::vector<std::string>& command) const
{
	int pipe[2];
	require(::pipe2(pipe, O_CLOEXEC) == 0, "pipe");
	const pid_t child = startIn(command, pipe[1]);
	::close(pipe[1]);
	Result result;
	char buffer[4096];
	for (ssize_t length = 0; (length = ::read(pipe[0], buffer, sizeof buffer)) > 0;)
	{
		result.output.append(buffer, static_cast<std::size_t>(length));
	}
	::close(pipe[0]);
	int status = 0;
	::waitpid(child, &status, 0);
	result.status = statusOf(status);
	return result;
}

Result Host::keeper(const std::vector<std::string>& arguments) const
{
	std::vector<std::string> command{"/usr/libexec/velarix-ha/keeper"};
	command.insert(command.end(), arguments.begin(), arguments.end());
	return run(command);
}

void Host::startProgram(const std::string& program) const
{
	EXPECT_EQ(run({"/bin/sh", "-c", "/usr/velarix/run/" + program + " >/dev/null &"}).status, 0);
}

void Host::configure(bool defend, const std::string& services) const
{
	const std::string onConflict = defend ? "defend" : "yield";
	write("/usr/velarix/bin/ini/keeper.ini",
	      "[address]\naddress = 192.0.2.100\ninterface = eth0\non_conflict = " + onConflict + "\n" + services);
	run({"/bin/sh", "-c",
	     "for name in address $(sed -n 's/^.service \\(.*\\)]/\\1/p' /usr/velarix/bin/ini/keeper.ini); do "
	     "ln -sf /usr/libexec/velarix-ha/keeper /usr/velarix/run/ha-$name; done"});
}

std::string Host::read(const std::string& path) const
{
	std::ifstream file("/proc/" + std::to_string(m_pid) + "/root" + path);
	std::stringstream text;
	text << file.rdbuf();
	return text.str();
}

void Host::write(const std::string& path, const std::string& text) const
{
	std::ofstream file("/proc/" + std::to_string(m_pid) + "/root" + path);
	file << text;
	EXPECT_TRUE(file.good()) << path;
}

bool Host::hasAddress() const
{
	return run({"ip", "-4", "-o", "addr", "show", "dev", "eth0"}).output.find(std::string(kVirtual) + "/") !=
	       std::string::npos;
}

std::string Host::state(const std::string& program, const std::string& field) const
{
	std::istringstream lines(read("/run/velarix-ha/" + program + ".state"));
	for (std::string line; std::getline(lines, line);)
	{
		if (line.starts_with(field + "="))
		{
			return line.substr(field.size() + 1);
		}
	}
	return {};
}

std::vector<pid_t> Host::processes(const std::string& name) const
{
	struct stat own
	{
	};
	require(::stat(("/proc/" + std::to_string(m_pid) + "/ns/net").c_str(), &own) == 0, "stat");
	std::vector<pid_t> found;
	DIR* directory = ::opendir("/proc");
	for (const dirent* entry = nullptr; (entry = ::readdir(directory)) != nullptr;)
	{
		const pid_t pid = std::atoi(entry->d_name);
		struct stat other
		{
		};
		if (pid <= 0 || pid == m_pid ||
		    ::stat(("/proc/" + std::string(entry->d_name) + "/ns/net").c_str(), &other) != 0 ||
		    other.st_ino != own.st_ino)
		{
			continue;
		}
		std::ifstream file("/proc/" + std::string(entry->d_name) + "/status");
		std::string line;
		std::getline(file, line);
		if (line.find(name) != std::string::npos)
		{
			found.push_back(pid);
		}
	}
	::closedir(directory);
	return found;
}

Mac Host::mac() const
{
	return {2, 0, 0, 0, 0, static_cast<std::uint8_t>(m_number)};
}

Speaker::Speaker() : m_socket(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ARP)))
{
	m_interface = static_cast<int>(::if_nametoindex("br0"));
	sockaddr_ll place{};
	place.sll_family = AF_PACKET;
	place.sll_protocol = htons(ETH_P_ARP);
	place.sll_ifindex = m_interface;
	require(::bind(m_socket, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0, "packet socket");
}

Speaker::~Speaker()
{
	::close(m_socket);
}

void Speaker::send(const std::vector<std::uint8_t>& frame) const
{
	EXPECT_EQ(::send(m_socket, frame.data(), frame.size(), 0), static_cast<ssize_t>(frame.size()));
}

void Speaker::claim(const Mac& from) const
{
	const auto frame = velarix::keeper::arpAnnouncement(::inet_addr(kVirtual), from);
	send({frame.begin(), frame.end()});
}

void Speaker::probe(const Mac& from) const
{
	const auto frame = velarix::keeper::arpProbe(::inet_addr(kVirtual), from);
	send({frame.begin(), frame.end()});
}

std::pair<int, int> Speaker::count(const Mac& from, milliseconds time) const
{
	std::pair<int, int> counted{0, 0};
	const auto end = Clock::now() + time;
	const std::uint32_t address = ::inet_addr(kVirtual);
	while (Clock::now() < end)
	{
		pollfd waiting{m_socket, POLLIN, 0};
		const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now()).count();
		if (::poll(&waiting, 1, static_cast<int>(std::max<long>(left, 0))) <= 0)
		{
			continue;
		}
		std::uint8_t frame[128];
		const ssize_t length = ::recv(m_socket, frame, sizeof frame, 0);
		// As somebody else would read it.
		const auto packet =
		    velarix::keeper::readArp({frame, static_cast<std::size_t>(std::max<ssize_t>(length, 0))}, address, Mac{});
		if (packet.from == from && packet.kind == velarix::keeper::ArpKind::foreignProbe)
		{
			++counted.first;
		}
		if (packet.from == from && packet.kind == velarix::keeper::ArpKind::claim && frame[21] == 1)
		{
			++counted.second;
		}
	}
	return counted;
}

void Speaker::answerProbes(const Mac& from, milliseconds time) const
{
	const auto end = Clock::now() + time;
	while (Clock::now() < end)
	{
		pollfd waiting{m_socket, POLLIN, 0};
		std::uint8_t frame[128];
		if (::poll(&waiting, 1, 10) > 0 && ::recv(m_socket, frame, sizeof frame, 0) >= 42 && frame[6 + 5] != from[5])
		{
			claim(from);
		}
	}
}

bool answers()
{
	// Nobody listens there: who has the address refuses, where nobody has it nothing comes.
	const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
	sockaddr_in place{};
	place.sin_family = AF_INET;
	place.sin_port = htons(9);
	place.sin_addr.s_addr = ::inet_addr(kVirtual);
	const int connected = ::connect(socket, reinterpret_cast<const sockaddr*>(&place), sizeof place);
	pollfd waiting{socket, POLLOUT, 0};
	int error = connected == 0 ? 0 : errno;
	socklen_t length = sizeof error;
	if (error == EINPROGRESS && ::poll(&waiting, 1, 1500) > 0)
	{
		::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &length);
	}
	::close(socket);
	return error == ECONNREFUSED;
}

milliseconds timeUntil(const std::function<bool()>& predicate, milliseconds limit, const std::string& what)
{
	const auto begin = Clock::now();
	EXPECT_TRUE(waitFor(predicate, limit, what));
	return std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
}

} // namespace keepertest
