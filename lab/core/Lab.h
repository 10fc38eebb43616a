/// A whole pair on one machine: two nodes, a gateway and a client in namespaces
/// of their own, two networks, the observers and the timeline.
///
/// Everything lives as long as the Lab object and is removed by the kernel when
/// its process ends in any way. Any number of labs may run side by side.
#pragma once

#include <array>
#include <csignal>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lab/core/Basics.h"
#include "lab/core/Command.h"
#include "lab/core/Fault.h"
#include "lab/core/Host.h"
#include "lab/core/LogWatch.h"
#include "lab/core/Node.h"
#include "lab/core/NodeSettings.h"
#include "lab/core/Programs.h"
#include "lab/core/Samplers.h"
#include "lab/core/Timeline.h"
#include "lab/core/Wiring.h"

namespace velarix::lab
{

struct LabOptions
{
	LabOptions() = default;
	LabOptions(std::filesystem::path root, const PairSettings& pair)
	    : installRoot(std::move(root)), settingsA(NodeSettings::standard(HostId::a, pair)),
	      settingsB(NodeSettings::standard(HostId::b, pair))
	{
	}

	/// Makes it ready for the fault of that name.
	void prepareFor(const std::string& fault);

	/// Where the agent is installed; empty: see findInstallRoot.
	std::filesystem::path installRoot{};
	NodeSettings settingsA = NodeSettings::standard(HostId::a);
	NodeSettings settingsB = NodeSettings::standard(HostId::b);
	/// The agents see a wall clock that the clock faults can step.
	bool clockShim = false;
	/// Words in front of the agent's program, for example those of an analyser that runs it.
	std::vector<std::string> wrapper{};
	/// Whatever the lab does by chance follows from it.
	std::uint64_t seed = 1;
};

class Lab
{
public:
	/// Switches all four hosts on and connects them. No agent runs yet.
	/// @throws NamespacesUnavailable, LabError
	explicit Lab(const LabOptions& options = {});
	~Lab();
	Lab(const Lab&) = delete;
	Lab& operator=(const Lab&) = delete;

	const LabClock& clock() const { return m_clock; }
	Timeline& timeline() { return m_timeline; }
	Node& node(HostId id) { return *m_nodes[indexOf(id)]; }
	/// @throws LabError when the node is off
	const Host& host(HostId id);
	Wiring& wiring() { return m_wiring; }

	/// Starts the agents of both nodes.
	void startAgents();
	void startAgent(HostId id);
	/// SIGKILL to the agent alone, or another signal that ends it.
	/// @throws LabError when there is none, or it goes on
	void killAgent(HostId id, int signal = SIGKILL);
	/// SIGSTOP and SIGCONT to the agent. @throws LabError when there is none
	void freezeAgent(HostId id);
	void thawAgent(HostId id);

	/// Stops every process of the node but its first one and keeps all packets from it, until
	/// thawHost. Meanwhile it counts as holding no address.
	/// @throws LabError when the node is off, or there is none to thaw
	void freezeHost(HostId id);
	void thawHost(HostId id);

	/// Takes all links down and ends every process of the node at once.
	void powerOff(HostId id);
	/// Boots the node from its disk, connects it and, if wanted, starts its agent.
	void powerOn(HostId id, bool withAgent = true);

	std::uint64_t seed() const { return m_seed; }

	/// Injects or repairs a fault and notes it in the timeline.
	/// @throws LabError when the fault has no place at present; an inject that
	///         throws has changed nothing
	void inject(const Fault& fault);
	void repair(const Fault& fault);

	/// Runs a program on a host, in all its namespaces.
	CommandResult run(HostId id, const std::vector<std::string>& argv, Millis limit = Millis(15000));

	/// What the timeline shows now: "none", "a", "b", "a+b".
	std::string owners() const { return m_timeline.current(addressTrack); }
	/// "none", "a", "b"
	std::string answeredBy() const { return m_timeline.current(serviceTrack); }
	/// "starting", "master", "slave", "frozen", "no agent", "off"
	std::string role(HostId id) const { return m_timeline.current(roleTrack(id)); }
	/// What the nodes' logs tell beside that.
	std::array<LogSeen, 2> seenInLogs() const { return {m_logWatch->seen(HostId::a), m_logWatch->seen(HostId::b)}; }
	/// One line with all of these.
	std::string stateText() const;

	/// Waits until `node` alone holds the virtual address and answers the
	/// client, without a break for `steady`.
	bool waitForService(HostId node, Millis limit, Millis steady = Millis(3000), const WaitObserver& observer = {});

private:
	LabClock m_clock;
	Timeline m_timeline;
	std::uint64_t m_seed;
	std::filesystem::path m_installRoot;
	Host m_rootHost;
	Wiring m_wiring;
	std::array<std::unique_ptr<Node>, 2> m_nodes;
	std::unique_ptr<Host> m_gateway;
	std::unique_ptr<Host> m_client;
	std::unique_ptr<Host> m_third;
	std::array<std::string, 2> m_roleBeforeFreeze;
	std::optional<LogWatch> m_logWatch;
	std::optional<AddressSampler> m_addressSampler;
	std::optional<ServiceSampler> m_serviceSampler;

	void setRole(HostId id, const std::string& role);
	std::unique_ptr<Host> makeHost(HostId id) const;
	void bootAndConnect(HostId id);
	void carryOut(EventKind kind, const Fault& fault, FaultInfo::Step step);
};

/// Checks tools, programs and namespaces; to be called before the first Lab for
/// an early and plain message.
/// @throws NamespacesUnavailable, LabError
void requireLab(const std::filesystem::path& installRoot = {});

} // namespace velarix::lab
