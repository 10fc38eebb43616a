/// Hosts for the keeper's tests: each has a network, a /run and a /usr/velarix of its own,
/// and an eth0 on one bridge. Everything is inside namespaces that the test program makes
/// and that the kernel removes with its end; nothing of this machine is written.
#pragma once

#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

#include <gtest/gtest.h>

#include "keeper/Network.h"

namespace keepertest
{

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using velarix::keeper::ArpKind;
using velarix::keeper::ArpPacket;
using velarix::keeper::Mac;

inline constexpr const char* kVirtual = "192.0.2.100";

/// Long enough for a machine under load; figures that are promised are distinguished.
inline constexpr milliseconds kSoon{20'000};

inline bool has(const std::string& text, const std::string& part)
{
	return text.find(part) != std::string::npos;
}

struct Result
{
	int status = -1; ///< exit status, 128 + n for signal n
	std::string output;
};

/// Runs a shell command here; fails the test when its status is not 0.
std::string shell(const std::string& command);

class Host
{
public:
	/// @param number 1 to 9: eth0 is 192.0.2.NUMBER, 02:00:00:00:00:0NUMBER
	explicit Host(int number);
	~Host();
	Host(const Host&) = delete;
	Host& operator=(const Host&) = delete;

	/// Writes keeper.ini and makes the links for its services.
	void configure(bool defend, const std::string& services = "") const;
	/// Runs a program here and waits for it. It is run as is, without a shell.
	Result run(const std::vector<std::string>& command) const;
	Result sh(const std::string& script) const { return run({"/bin/sh", "-c", script}); }
	bool prints(const std::string& script, const std::string& part) const { return has(sh(script).output, part); }
	Result keeper(const std::vector<std::string>& arguments) const;
	/// @return whether "keeper ARGUMENTS" waits for nothing: at its best it lasts hardly longer than
	///         "keeper help" in the same moments, on a slow or loaded machine, too
	testing::AssertionResult waitsForNothing(const std::vector<std::string>& arguments) const;
	/// Starts a managed program in the background, as the agent's run script does.
	void startProgram(const std::string& program) const;
	/// @return a file as this host sees it; empty when there is none
	std::string read(const std::string& path) const;
	void write(const std::string& path, const std::string& text) const;

	bool hasAddress() const;
	/// @return a field of a program's state file
	std::string state(const std::string& program, const std::string& field = "state") const;
	pid_t worker(const std::string& program) const { return std::stoi(state(program, "pid")); }
	/// Kills guard and worker of a program; neither sees the other one's end.
	void killBoth(const std::string& program) const;
	/// @return processes of this host whose name contains `name`, as the agent counts them
	std::vector<pid_t> processes(const std::string& name) const;
	std::string events() const { return read("/usr/velarix/log/keeper.log"); }
	Mac mac() const;
	/// @return a process in this host's namespaces, for "ip link ... netns"
	std::string namespaces() const { return std::to_string(m_pid); }
	std::string port() const { return "h" + std::to_string(m_number); }

private:
	int m_number;
	pid_t m_pid = 0;
};

/// An ARP speaker on the bridge, for what no kernel would do.
class Speaker
{
public:
	Speaker();
	void send(const std::vector<std::uint8_t>& frame) const;
	/// Claims the virtual address for `from`.
	void claim(const Mac& from) const;
	/// @return how many probes and how many claims of the virtual address came from `from` within `time`
	std::pair<int, int> count(const Mac& from, milliseconds time) const;
	/// Answers every probe for the virtual address with a claim, until `time` is over.
	void answerProbes(const Mac& from, milliseconds time) const;

private:
	void listen(milliseconds time, const std::function<void(const ArpPacket&)>& hear) const;

	velarix::keeper::ArpSocket m_socket;
};

/// @return whether a host answers at the virtual address, seen from the bridge
bool answers();

/// Waits until `predicate` is true; a failure shows what the programs of all hosts have reported.
testing::AssertionResult happens(const std::function<bool()>& predicate, const std::string& what,
                                 milliseconds limit = kSoon);

/// @return how long `predicate` took to become true; fails the test after `limit`
milliseconds timeUntil(const std::function<bool()>& predicate, milliseconds limit, const std::string& what);

/// Two hosts with one address, for the tests of who holds it.
class AddressTest : public testing::Test
{
protected:
	AddressTest()
	{
		m_a.configure(true);
		m_b.configure(false);
	}

	static testing::AssertionResult reaches(const Host& host, const std::string& state)
	{
		return happens([&] { return host.state("ha-address") == state; }, state);
	}

	static void hold(const Host& host, const std::string& state = "announcing")
	{
		host.startProgram("ha-address");
		ASSERT_TRUE(happens([&] { return host.state("ha-address", "held") == "yes" && host.hasAddress(); }, "address"));
		ASSERT_TRUE(state == "announcing" || reaches(host, state));
	}

	/// Host b asks for the address that a holds, and gets it.
	void givesWay() const
	{
		m_b.startProgram("ha-address");
		ASSERT_TRUE(reaches(m_b, "waiting"));
		EXPECT_TRUE(happens([&] { return m_b.hasAddress(); }, "address", 2 * kSoon));
		EXPECT_FALSE(m_a.hasAddress());
		EXPECT_TRUE(has(m_a.events(), "another host asks for it"));
	}

	static bool runs(const Host& host) { return !host.processes("ha-address").empty(); }

	/// Both ports may speak to the bridge, and not to each other: no carrier is lost.
	void cut(bool apart) const
	{
		for (const Host* host : {&m_a, &m_b})
		{
			shell("bridge link set dev " + host->port() + " isolated " + (apart ? "on" : "off"));
		}
	}

	Host m_a{1};
	Host m_b{2};
};

/// One host with an address and one service.
class ServiceTest : public testing::Test
{
protected:
	/// A service whose command is a script of the shell.
	void configure(const std::string& script, const std::string& more = "") const
	{
		m_host.write("/usr/velarix/serve", "#!/bin/sh\n" + script + "\n");
		m_host.run({"chmod", "755", "/usr/velarix/serve"});
		m_host.configure(true, "[service web]\ncommand = /usr/velarix/serve\n" + more);
	}

	void start() const
	{
		m_host.startProgram("ha-address");
		m_host.startProgram("ha-web");
		ASSERT_TRUE(reaches("running"));
	}

	/// Starts the service. @return its process
	pid_t startSleep() const
	{
		start();
		EXPECT_TRUE(comes("sleep"));
		const std::vector<pid_t> found = m_host.processes("sleep");
		return found.empty() ? 0 : found.front();
	}

	testing::AssertionResult reaches(const std::string& value, const std::string& field = "state") const
	{
		return happens([&] { return m_host.state("ha-web", field) == value; }, field + " " + value);
	}

	testing::AssertionResult comes(const std::string& name, std::size_t count = 1) const
	{
		return happens([&] { return m_host.processes(name).size() == count; }, name);
	}

	testing::AssertionResult ends(const std::string& name) const { return comes(name, 0); }

	testing::AssertionResult ends(pid_t pid) const
	{
		return happens([&] { return ::kill(pid, 0) != 0; }, "end of " + std::to_string(pid));
	}

	testing::AssertionResult tells(const std::string& part) const
	{
		return happens([&] { return reported(part); }, part);
	}

	bool reported(const std::string& part) const { return has(m_host.events(), part); }

	void killWorker() const { ::kill(m_host.worker("ha-web"), SIGKILL); }
	void killGuard() const { ::kill(m_host.processes("ha-web").front(), SIGKILL); }

	Host m_host{1};
};

} // namespace keepertest
