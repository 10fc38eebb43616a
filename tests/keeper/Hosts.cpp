#include "Hosts.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
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
using namespace std::chrono_literals;

void require(bool holds, const char* what)
{
	if (!holds)
	{
		throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
	}
}

Result execute(const std::string& line)
{
	Result result;
	FILE* pipe = ::popen(line.c_str(), "r");
	require(pipe != nullptr, "popen");
	for (int sign = 0; (sign = std::fgetc(pipe)) != EOF;)
	{
		result.output += static_cast<char>(sign);
	}
	const int status = ::pclose(pipe);
	result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
	return result;
}

} // namespace

std::string shell(const std::string& command)
{
	const Result result = execute("(" + command + ") 2>&1");
	EXPECT_EQ(result.status, 0) << command << ": " << result.output;
	return result.output;
}

bool makeMachine()
{
	shell("mount -t tmpfs tmpfs /mnt; mkdir /mnt/upper /mnt/work; mount -t tmpfs tmpfs /run; "
	      "mount -t overlay -o lowerdir=/usr,upperdir=/mnt/upper,workdir=/mnt/work overlay /usr; "
	      "mkdir -p /usr/velarix /usr/libexec/velarix-ha; cp " KEEPER_PROGRAM " /usr/libexec/velarix-ha/keeper; "
	      "ip link set lo up; ip link add br0 type bridge stp_state 0 forward_delay 0; "
	      "ip addr add 192.0.2.254/24 dev br0; ip link set br0 up");
	return !testing::Test::HasFailure();
}

Host::Host(int number) : m_number(number)
{
	// The namespaces are a child's, which sleeps.
	m_pid = ::fork();
	if (m_pid == 0)
	{
		::execlp("unshare", "unshare", "-mn", "sh", "-c",
		         "mount -t tmpfs tmpfs /run && mount -t tmpfs tmpfs /usr/velarix && touch /run/made && exec tail -f "
		         "/dev/null",
		         nullptr);
		::_exit(127);
	}
	const std::string made = "/proc/" + std::to_string(m_pid) + "/root/run/made";
	require(static_cast<bool>(waitFor([&] { return ::access(made.c_str(), F_OK) == 0; }, 10s, made)), "namespaces");
	const std::string digit = std::to_string(number);
	shell("ip link add " + port() + " type veth peer name eth0 address 02:00:00:00:00:0" + digit + " netns " +
	      std::to_string(m_pid) + " && ip link set " + port() + " master br0 up");
	sh("mkdir -p /usr/velarix/bin/ini /usr/velarix/log /usr/velarix/run; ip link set lo up; ip link set eth0 up; ip "
	   "addr add 192.0.2." +
	   digit + "/24 dev eth0");
	EXPECT_TRUE(waitFor(
	    [&] {
		    return run({"ip", "-o", "link", "show", "dev", "eth0"}).output.find("LOWER_UP") != std::string::npos;
	    },
	    milliseconds(10'000), "carrier"));
}

Host::~Host()
{
	// Everything of this host, and of it alone: what shares its network.
	for (std::vector<pid_t> left; !(left = processes("")).empty();)
	{
		std::ranges::for_each(left, [](pid_t pid) { ::kill(pid, SIGKILL); });
	}
	::kill(m_pid, SIGKILL);
	::waitpid(m_pid, nullptr, 0);
	shell("ip link del " + port() + " 2>/dev/null || true");
}

Result Host::run(const std::vector<std::string>& command) const
{
	std::string line = "exec nsenter -m -n -t " + std::to_string(m_pid);
	for (const std::string& word : command)
	{
		line += " '";
		for (const char sign : word)
		{
			line += sign == '\'' ? "'\\''" : std::string(1, sign);
		}
		line += "'";
	}
	return execute(line);
}

Result Host::keeper(const std::vector<std::string>& arguments) const
{
	std::vector<std::string> command{"/usr/libexec/velarix-ha/keeper"};
	command.insert(command.end(), arguments.begin(), arguments.end());
	return run(command);
}

testing::AssertionResult Host::waitsForNothing(const std::vector<std::string>& arguments) const
{
	std::array best{Clock::duration::max(), Clock::duration::max()};
	for (int i = 0; i < 20; ++i)
	{
		const auto begin = Clock::now();
		keeper(i % 2 == 0 ? std::vector<std::string>{"help"} : arguments);
		best.at(i % 2) = std::min(best.at(i % 2), Clock::now() - begin);
	}
	const auto [start, took] = best;
	const auto ms = [](Clock::duration time) { return std::chrono::duration_cast<milliseconds>(time).count(); };
	return (took < 4 * start + 20ms ? testing::AssertionSuccess() : testing::AssertionFailure())
	       << ms(took) << " ms, \"help\" " << ms(start) << " ms";
}

void Host::startProgram(const std::string& program) const
{
	EXPECT_EQ(sh("/usr/velarix/run/" + program + " >/dev/null &").status, 0);
}

void Host::configure(bool defend, const std::string& services) const
{
	const std::string onConflict = defend ? "defend" : "yield";
	write("/usr/velarix/bin/ini/keeper.ini",
	      "[address]\naddress = 192.0.2.100\ninterface = eth0\non_conflict = " + onConflict + "\n" + services);
	sh("for name in address $(sed -n 's/^.service \\(.*\\)]/\\1/p' /usr/velarix/bin/ini/keeper.ini); do "
	   "ln -sf /usr/libexec/velarix-ha/keeper /usr/velarix/run/ha-$name; done");
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
	const auto network = [](const std::string& pid)
	{
		struct stat status = {};
		return ::stat(("/proc/" + pid + "/ns/net").c_str(), &status) == 0 ? status.st_ino : 0;
	};
	std::vector<pid_t> found;
	for (const auto& entry : std::filesystem::directory_iterator("/proc"))
	{
		const std::string pid = entry.path().filename();
		const bool mine =
		    std::isdigit(pid.front()) != 0 && std::stoi(pid) != m_pid && network(pid) == network(std::to_string(m_pid));
		std::ifstream file(entry.path() / "status");
		std::string line;
		if (mine && std::getline(file, line) && line.find(name) != std::string::npos)
		{
			found.push_back(std::stoi(pid));
		}
	}
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
