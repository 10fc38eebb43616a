#include "Hosts.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

#include <arpa/inet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "WaitFor.h"
#include "inspect/EchoSocket.h"
#include "inspect/HostProcesses.h"
#include "keeper/Runtime.h"

namespace keepertest
{

namespace
{

using Clock = std::chrono::steady_clock;

/// Those that there are.
std::set<const Host*> g_hosts;

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

/// Makes a machine of the namespaces that this process is in: a bridge, files of its own,
/// and /usr/libexec/velarix-ha/keeper.
bool makeMachine()
{
	shell("mount -t tmpfs tmpfs /mnt; mkdir /mnt/upper /mnt/work; mount -t tmpfs tmpfs /run; "
	      "mount -t overlay -o lowerdir=/usr,upperdir=/mnt/upper,workdir=/mnt/work overlay /usr; "
	      "mkdir -p /usr/velarix /usr/libexec/velarix-ha; cp " KEEPER_PROGRAM " /usr/libexec/velarix-ha/keeper; "
	      "ip link set lo up; ip link add br0 type bridge stp_state 0 forward_delay 0; "
	      "ip addr add 192.0.2.254/24 dev br0; ip link set br0 up");
	return !testing::Test::HasFailure();
}

} // namespace

std::string shell(const std::string& command)
{
	const Result result = execute("(" + command + ") 2>&1");
	EXPECT_EQ(result.status, 0) << command << ": " << result.output;
	return result.output;
}

Host::Host(int number) : m_number(number)
{
	g_hosts.insert(this);
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
	EXPECT_TRUE(waitFor([&] { return prints("ip link show dev eth0", "LOWER_UP"); }, kSoon, "carrier"));
}

Host::~Host()
{
	g_hosts.erase(this);
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
	return has(run({"ip", "-4", "-o", "addr", "show", "dev", "eth0"}).output, std::string(kVirtual) + "/");
}

std::string Host::state(const std::string& program, const std::string& field) const
{
	using namespace velarix::keeper;
	return valueOf(readState(program, "/proc/" + std::to_string(m_pid) + "/root" + kRuntimeDirectory), field);
}

void Host::killBoth(const std::string& program) const
{
	const pid_t guard = processes(program).front();
	::kill(guard, SIGSTOP);
	::kill(worker(program), SIGKILL);
	::kill(guard, SIGKILL);
}

std::vector<pid_t> Host::processes(const std::string& name) const
{
	const auto network = [](pid_t pid)
	{
		struct stat status = {};
		return ::stat(("/proc/" + std::to_string(pid) + "/ns/net").c_str(), &status) == 0 ? status.st_ino : 0;
	};
	const std::vector<velarix::inspect::host::Process> all = velarix::inspect::host::processes().value();
	std::vector<pid_t> found;
	for (const auto& process : all)
	{
		if (process.pid != m_pid && process.statusLine.find(name) != std::string::npos &&
		    network(process.pid) == network(m_pid))
		{
			found.push_back(process.pid);
		}
	}
	return found;
}

Mac Host::mac() const
{
	return {2, 0, 0, 0, 0, static_cast<std::uint8_t>(m_number)};
}

Speaker::Speaker() : m_socket(static_cast<int>(::if_nametoindex("br0")), ::inet_addr(kVirtual), Mac{})
{
	require(static_cast<bool>(m_socket), "packet socket");
}

void Speaker::send(const std::vector<std::uint8_t>& frame) const
{
	EXPECT_EQ(::send(m_socket.descriptor(), frame.data(), frame.size(), 0), static_cast<ssize_t>(frame.size()));
}

void Speaker::claim(const Mac& from) const
{
	const auto frame = velarix::keeper::arpAnnouncement(::inet_addr(kVirtual), from);
	send({frame.begin(), frame.end()});
}

void Speaker::listen(milliseconds time, const std::function<void(const ArpPacket&)>& hear) const
{
	const auto end = Clock::now() + time;
	for (auto left = time; left > 0ms; left = std::chrono::ceil<milliseconds>(end - Clock::now()))
	{
		pollfd waiting{m_socket.descriptor(), POLLIN, 0};
		if (::poll(&waiting, 1, static_cast<int>(left.count())) > 0)
		{
			m_socket.receive(1, hear);
		}
	}
}

std::pair<int, int> Speaker::count(const Mac& from, milliseconds time) const
{
	std::pair<int, int> counted{0, 0};
	listen(time,
	       [&](const ArpPacket& packet)
	       {
		       counted.first += packet.from == from && packet.kind == ArpKind::foreignProbe ? 1 : 0;
		       counted.second += packet.from == from && packet.kind == ArpKind::claim ? 1 : 0;
	       });
	return counted;
}

void Speaker::answerProbes(const Mac& from, milliseconds time) const
{
	listen(time, [&](const ArpPacket& packet) { packet.kind == ArpKind::foreignProbe ? claim(from) : void(); });
}

bool answers()
{
	velarix::inspect::EchoSocket ping(kVirtual);
	ping.request();
	pollfd waiting{ping.descriptor(), POLLIN, 0};
	return ::poll(&waiting, 1, 1500) > 0 && ping.answer();
}

testing::AssertionResult happens(const std::function<bool()>& predicate, const std::string& what, milliseconds limit)
{
	const auto reports = []
	{
		std::string text;
		for (const Host* host : g_hosts)
		{
			text += host->sh("tail -n 99 /run/velarix-ha/*.state 2>/dev/null").output + host->events();
		}
		return text;
	};
	return waitFor(predicate, limit, what, reports);
}

milliseconds timeUntil(const std::function<bool()>& predicate, milliseconds limit, const std::string& what)
{
	const auto begin = Clock::now();
	EXPECT_TRUE(happens(predicate, what, limit));
	return std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
}

} // namespace keepertest

// The tests run in a machine of their own.
int main(int argc, char** argv)
{
	testing::InitGoogleTest(&argc, argv);
	if (testing::GTEST_FLAG(list_tests) || std::getenv("KEEPER_MACHINE") != nullptr)
	{
		return keepertest::makeMachine() ? RUN_ALL_TESTS() : 1;
	}
	if (::geteuid() != 0 || std::system("unshare -mnp true 2>/dev/null") != 0)
	{
		std::printf("skipped: namespaces need root\n");
		return 77;
	}
	::setenv("KEEPER_MACHINE", "1", 1);
	const std::string self = std::filesystem::canonical("/proc/self/exe");
	const std::string filter = "--gtest_filter=" + testing::GTEST_FLAG(filter);
	// The shell is the first process of the machine, and takes care of orphans.
	::execlp("unshare", "unshare", "-mnpf", "--mount-proc", "--kill-child", "sh", "-c", "\"$@\"; exit $?", "sh",
	         self.c_str(), filter.c_str(), nullptr);
	return 1;
}
