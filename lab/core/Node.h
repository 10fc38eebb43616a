/// One of the two servers: a disk that outlives it, a host while it is switched
/// on, and the agent on it.
///
/// The disk is the upper directory of the node's overlay on /usr. It is kept in
/// memory by the root host for as long as the lab runs, so a node that is switched
/// off and on again finds its settings, its log and its pid file as it left
/// them, and everything else (processes, addresses, /run, /tmp) fresh.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "lab/core/Basics.h"
#include "lab/core/Host.h"
#include "lab/core/NodeSettings.h"
#include "lab/core/Programs.h"

namespace velarix::lab
{

class Node
{
public:
	/// Prepares the disk: the installed tree, the managed service, no settings.
	/// `rootHost` must outlive the node.
	/// @throws LabError when the installed tree is not complete
	/// @param firstProcess  see HostSpec
	Node(HostId id, const Host& rootHost, const std::filesystem::path& installRoot, int firstProcess);

	HostId id() const { return m_id; }
	/// Name of the host inside and outside, "node-a" or "node-b".
	std::string hostName() const { return std::string("node-") + nameOf(m_id); }

	/// Switches the node on, without interfaces and without an agent.
	void boot();
	/// Ends every process at once.
	void switchOff() { m_host.reset(); }
	bool isOn() const { return m_host.has_value(); }

	/// @throws LabError when the node is off
	const Host& host() const;

	/// A file of the node, as the lab sees it; also for a node that is off, then
	/// below /usr only.
	std::filesystem::path file(const std::string& path) const;
	/// The same file on the node's disk, whether the node is on or off. For
	/// reading: a node that is on takes no changes from there. Empty for a path
	/// that is not below /usr.
	std::filesystem::path diskFile(const std::string& path) const;

	/// Writes the settings files, and makes the keeper's links where these have a keeper.
	/// The agent reads them at its next start.
	/// @throws LabError when there is no keeper to run
	void writeSettings(const NodeSettings& settings);
	/// The address and the service are the keeper's.
	bool hasKeeper() const;

	/// From the next start on these words stand in front of the agent's program.
	void wrapAgent(std::vector<std::string> words) { m_wrapper = std::move(words); }

	/// From the next start on the agent sees a wall clock that can be stepped.
	void useClockShim() { m_clockShim = true; }
	/// Steps that clock: this many seconds ahead of the machine's.
	/// @throws LabError when the running agent has no such clock
	void stepClock(std::chrono::seconds ahead) const;

	/// Words in front of a program's that give it a wall clock which setClock steps.
	std::vector<std::string> clockWords() const;
	/// As stepClock, for whatever program has such a clock.
	void setClock(std::chrono::seconds ahead) const;

	/// @return true when the running agent has such a clock
	bool hasClock() const { return m_clockShim && agent(); }

	/// Leaves the node's disk no room, or gives it its room back.
	void setDiskFull(bool full) const;

	/// Starts the agent as an operator does and waits until the program has
	/// returned to its caller.
	/// @throws LabError when it does not end with status 0
	void startAgent();
	/// The running agent; empty when there is none.
	std::optional<Process> agent() const;
	/// Sends a signal to the agent. @return false when there is none
	bool signalAgent(int signal) const;
	/// Starts the managed service by hand and waits until it runs.
	/// @throws LabError when the node is off, or the service does not start
	void startService() const;
	/// Sends a signal to every process of that name.
	/// @return how many there were
	int signalAll(const std::string& name, int signal) const;
	/// Sends SIGKILL to every process of the managed service. @return how many there were
	int killService() const;

private:
	HostId m_id;
	const Host& m_rootHost;
	std::optional<Host> m_host;
	int m_firstProcess;
	bool m_clockShim = false;
	std::vector<std::string> m_wrapper{};

	std::filesystem::path disk() const;
	std::vector<std::string> agentCommand() const;
	std::vector<Process> agentProcesses() const;
};

/// Runs "velarixctl init --wireguard" on both nodes, which are on and connected, and exchanges
/// their public keys. The settings files are to be written anew afterwards.
/// @throws LabError when the installed tree lacks the tunnel, or a step fails
void makeTunnel(const Node& a, const Node& b);

/// Loads the rules and brings the tunnel up, as the units do at boot.
/// @throws LabError when one of them fails
void startTunnel(const Node& node);

/// Makes a new key for each node and takes them into the running tunnel, the first one's alone for a moment.
void changeTunnelKeys(const Node& a, const Node& b);

} // namespace velarix::lab
