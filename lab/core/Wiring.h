/// The two networks of a lab: bridges in the root host's network namespace, a pair of
/// virtual interfaces per host and network, the host's end named eth0 or eth1.
///
/// A port that is set down takes the carrier from the host's interface, as a pulled
/// cable does. Isolated ports of one bridge keep their carrier and reach every
/// port but each other. An impaired port keeps its carrier too; its frames go
/// through a Relay between the port and the bridge, which loses or delays them.
///
/// Isolation and impairments belong to the network, not to the host: they stay
/// when a host is unplugged and plugged in again.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lab/core/Basics.h"
#include "lab/core/Host.h"
#include "lab/core/Impairment.h"
#include "lab/core/Plan.h"
#include "lab/core/Relay.h"

namespace velarix::lab
{

class Wiring
{
public:
	/// Makes both bridges. `rootHost` must outlive the wiring.
	/// @throws NamespacesUnavailable when the kernel has no bridges
	explicit Wiring(const Host& rootHost);

	/// Gives the host its interfaces, addresses and loopback, and plugs it in.
	void plugIn(HostId id, const Host& host);
	/// Gives a host that is no part of the plan an interface on each network, with the addresses
	/// plan::attackerAddress and plan::attackerServiceAddress.
	void plugInAttacker(const Host& host);
	/// Removes the host's interfaces on both networks, also those already gone.
	void unplug(HostId id);

	/// Sets the switch ports of the host up or down on one network.
	void setPort(HostId id, Network network, bool up);
	/// Sets all ports of the host up or down, in one step.
	void setAllPorts(HostId id, bool up);
	/// Cuts the path between the two nodes on one network, or joins it again.
	void isolateNodes(Network network, bool isolated);

	/// Makes the host's port on that network a bad one, from now on; replaces what
	/// the port suffered from before.
	/// @throws LabError when the host is not on that network
	void impair(HostId id, Network network, const Impairment& impairment);
	/// Makes the port a good one again; frames under way in the relay are lost.
	void unimpair(HostId id, Network network);
	/// What the port suffers from; empty when it is a good one.
	std::optional<Impairment> impairmentOf(HostId id, Network network) const;
	/// What the port's relay has done so far; all zero when it has none.
	RelayCounts relayCounts(HostId id, Network network) const;

private:
	/// What is known of one switch port.
	struct Port
	{
		std::optional<Impairment> impairment;
		std::unique_ptr<Relay> relay;
		bool plugged = false;
	};

	/// An interface that a host is to get.
	struct Plug
	{
		Network network;
		std::string port; ///< its other end
		std::string address;
		std::string hardware;
		std::optional<HostId> id{}; ///< of a host of the plan
	};

	const Host& m_rootHost;
	std::array<std::array<Port, 2>, 4> m_ports; ///< by host and network
	std::array<bool, 2> m_isolated{};           ///< by network

	Port& port(HostId id, Network network);
	const Port& port(HostId id, Network network) const;
	void connect(const Host& host, const std::vector<Plug>& plugs);
	/// Puts a relay between port and bridge.
	void insertRelay(HostId id, Network network);
	/// The name of the interface that stands in the bridge for the host.
	std::string bridgeSide(HostId id, Network network) const;
	std::string isolationLine(HostId id, Network network) const;
	void batch(const std::string& lines) const;
};

} // namespace velarix::lab
