/// Hosts for the keeper's tests: each has a network, a /run and a /usr/velarix of its own,
/// and an eth0 on one bridge. Everything is inside namespaces that the test program makes
/// and that the kernel removes with its end; nothing of this machine is written.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

#include <gtest/gtest.h>

#include "keeper/Arp.h"

namespace keepertest
{

using std::chrono::milliseconds;
using velarix::keeper::ArpKind;
using velarix::keeper::ArpPacket;
using velarix::keeper::Mac;

inline constexpr const char* kVirtual = "192.0.2.100";

/// Long enough for a machine under load; figures that are promised are distinguished.
inline constexpr milliseconds kSoon{20'000};

/// Makes a machine of the namespaces that this process is in: a bridge, files of its own,
/// and /usr/libexec/velarix-ha/keeper.
bool makeMachine();

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

} // namespace keepertest
