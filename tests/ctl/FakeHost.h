/// The machine as a test wants it, linked in place of what asks the kernel
/// (inspect/Host.h). `freshHost` sets up a sound node; a test changes
/// what it is about.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "inspect/Host.h"
#include "inspect/HostProcesses.h"
#include "inspect/HostTrial.h"

/// At first nothing answers but the gateway, and nothing happens.
struct FakeHost
{
	/// Reported for these paths; all others are those of the real file, owned by root.
	std::map<std::string, velarix::inspect::host::FileFacts> files;
	uid_t user = 0;
	std::optional<std::string> whyNoPing;
	bool ignoresPings = false;
	std::map<std::string, velarix::inspect::host::Interface> interfaces;
	std::vector<velarix::inspect::host::Link> links;
	std::vector<velarix::inspect::host::Address> addresses;
	/// By which interface an address is reached; by eth1 when it is not here, and not at all with an empty one.
	std::map<std::string, std::string> routes;
	/// Other hosts' addresses and hardware addresses on the service network.
	std::map<std::string, std::string> holders;
	/// What the machine tells of its tunnel, and its packet filter.
	std::optional<velarix::inspect::host::TunnelSession> tunnel;
	std::string tunnelRules;
	/// What nft has against any file.
	std::string rulesRefusal;
	/// Empty: there is no wg. The public key of a key is that with "P" in front.
	std::string newTunnelKey = std::string(42, 'K') + "=";
	/// By ascending pid.
	std::vector<velarix::inspect::host::Process> processes;
	/// Ports that another program listens on.
	std::set<int> takenPorts;
	/// Ports that the kernel may give to outgoing connections.
	std::set<int> outgoingPorts;
	/// Bytes, of every disk.
	std::uintmax_t freeSpace = 100ULL * 1000 * 1000 * 1000;
	std::uintmax_t freeFiles = 1000;
	/// What a rehearsal of the commands gives, and the plans it got.
	velarix::inspect::host::Trial trial{.whyNot = "not made up", .start = {}, .stop = {}, .kill = {}};
	std::vector<velarix::inspect::host::TrialPlan> trials;
	std::map<pid_t, std::chrono::system_clock::time_point> starts;
	/// Processes that are there, but that /proc does not show to this user.
	std::set<pid_t> hidden;
	/// Where the standard output of these processes goes; nobody knows of others.
	std::map<pid_t, std::string> outputs;
	/// Reported for these paths; no other file has a time.
	std::map<std::string, std::chrono::system_clock::time_point> changed;
	/// Addresses that answer pings.
	std::set<std::string> answering{"192.0.2.254"};

	/// Moves with each pause and each ping.
	std::chrono::milliseconds elapsed{};
	std::size_t windowLines = 0;
	/// Called at each pause, after the time has moved.
	std::function<void(std::chrono::milliseconds)> onPause;

	/// Command lines that were run without a network, and "SIGNAL PID" sent.
	std::vector<std::string> acts;
	/// When.
	std::vector<std::chrono::milliseconds> actTimes;
	velarix::inspect::host::CommandEnd commandEnd = velarix::inspect::host::CommandEnd::ended;
	/// Called for each of the acts.
	std::function<void(const std::string&)> onAct;
};

/// @return the one machine of this test program
FakeHost& fakeHost();

/// Makes it a sound node again: root, eth0 and eth1 with carrier and
/// 192.0.2.1 on eth1.
void freshHost();
