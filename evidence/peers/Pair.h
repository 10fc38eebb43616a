/// A lab whose nodes are guarded by a peer instead of the agent. No agent is
/// started on it.
///
/// keepalived and ucarp change addresses and talk to the network they find: they
/// are started in the hosts of a lab and nowhere else.
#pragma once

#include "evidence/Lab.h"
#include "evidence/peers/Settings.h"
#include "lab/core/Lab.h"

namespace velarix::evidence::peers
{

/// @throws LabError when the process shares its network, process or mount
///         namespace with this program or with the machine
void requireOwnNamespaces(pid_t hostInit);

/// @throws LabError naming the Debian package when the program is not installed
void requirePeer(Program program);

class Pair
{
public:
	/// Writes the peer's files to both nodes; starts nothing. `lab` must outlive it.
	/// @throws LabError when a file cannot be written
	/// @param ownClock  the peers see a wall clock that Node::setClock steps
	Pair(Lab& lab, Settings settings, bool ownClock = false);

	Lab& lab() { return m_lab; }

	/// Starts the managed program and the peer on the node, both in all its
	/// namespaces, and waits until they run.
	/// @throws LabError when the node has them already, or they do not start
	void start(HostId node);
	void startPeer(HostId node);
	void startProgram(HostId node);

	/// Sends a signal to the peer. @throws LabError when there is none
	/// @param all  to each of its processes, not to the first alone
	void signal(HostId node, int number, bool all);
	bool isRunning(HostId node) const;
	void killProgram(HostId node);

	void powerOff(HostId node) { m_lab.powerOff(node); }
	/// Powers it on, with peer and program.
	void powerOn(HostId node);

	/// What the peer has logged since the node was switched on.
	std::string logOf(HostId node) const;

	/// Lets both start, and `node` be the one that holds the address.
	/// @throws LabError when it does not come to that
	void letServe(HostId node);

	/// Notes in the timeline what is done to the pair.
	void note(EventKind kind, std::optional<HostId> node, const std::string& text);

private:
	Lab& m_lab;
	Settings m_settings;
	bool m_ownClock;

	void writeFiles(HostId node) const;
};

} // namespace velarix::evidence::peers
